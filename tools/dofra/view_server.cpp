#include "view_server.h"

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <utility>
#include <vector>

#include "commands.h"
#include "convert.h"

namespace dofra_tool {

namespace {

using nlohmann::json;

constexpr size_t kKeptTimes = 50;          // renders whose call times the page summarises
constexpr size_t kMaxRequestBytes = 4096;  // no route takes a body
constexpr size_t kHttpThreads = 8;         // a browser keeps up to six connections
constexpr size_t kMaxParams = 32;

// A render that a newer one replaced while it waited.
struct Replaced {};

// The gate held for one computation.
class Turn {
 public:
  Turn(RenderGate* gate, bool replaceable) : gate_(gate) {
    if (!gate_->Enter(replaceable)) throw Replaced();
  }
  ~Turn() { gate_->Leave(); }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  RenderGate* gate_;
};

void Reply(httplib::Response& response, int status, const std::string& line) {
  response.status = status;
  response.set_content(line + "\n", "text/plain; charset=utf-8");
}

// The `dofra blur` output name: the picture's name with _blur, in the
// working directory, in characters that need no quoting.
std::string OutputName(const std::string& image) {
  std::string stem = image.substr(image.find_last_of('/') + 1);
  stem = stem.substr(0, stem.find_last_of('.'));
  for (char& c : stem) {
    if (!isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') c = '_';
  }
  return stem + "_blur.png";
}

std::string ShellQuoted(const std::string& word) {
  const char* plain = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./,=:+";
  if (!word.empty() && word.find_first_not_of(plain) == std::string::npos) return word;
  std::string quoted = "'";
  for (char c : word) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return quoted + "'";
}

json Summary(const std::deque<double>& kept) {
  std::vector<double> sorted(kept.begin(), kept.end());
  std::sort(sorted.begin(), sorted.end());
  if (sorted.empty()) return json{{"count", 0}};
  return json{{"count", sorted.size()},
              {"last", kept.back()},
              {"median", Percentile(sorted, 50)},
              {"p90", Percentile(sorted, 90)}};
}

void Keep(std::deque<double>* kept, double ms) {
  kept->push_back(ms);
  if (kept->size() > kKeptTimes) kept->pop_front();
}

const char* KindName(ParamKind kind) {
  switch (kind) {
    case ParamKind::kPoint:
      return "point";
    case ParamKind::kInt:
      return "int";
    case ParamKind::kLog:
      return "log";
    case ParamKind::kFlag:
      break;
  }
  return "flag";
}

json Values(const SettingValues& values) {
  json out = json::object();
  for (const TuningParam& param : TuningParams()) out[param.key] = ParamValue(param, values);
  return out;
}

// A JSON header (its length first, in the host's byte order as the planes'
// samples are; padded so that the planes after it stay aligned for typed
// arrays), then the planes, for the page to split.
std::string Packed(const json& info, std::initializer_list<std::pair<const void*, size_t>> planes) {
  std::string header = info.dump(-1, ' ', true);
  header.resize((header.size() + 3) / 4 * 4, ' ');
  const uint32_t length = static_cast<uint32_t>(header.size());
  size_t total = sizeof(length) + header.size();
  for (const auto& plane : planes) total += plane.second;
  std::string body;
  body.reserve(total);
  body.append(reinterpret_cast<const char*>(&length), sizeof(length));
  body += header;
  for (const auto& plane : planes) body.append(static_cast<const char*>(plane.first), plane.second);
  return body;
}

}  // namespace

bool RenderGate::Enter(bool replaceable) {
  std::unique_lock<std::mutex> lock(mutex_);
  const uint64_t ticket = replaceable ? ++newest_ : 0;
  turn_.notify_all();  // an older render waiting is replaced now
  const auto replaced = [&] { return replaceable && ticket != newest_; };
  turn_.wait(lock, [&] { return !busy_ || replaced(); });
  if (replaced()) return false;
  busy_ = true;
  return true;
}

uint64_t RenderGate::newest() {
  std::lock_guard<std::mutex> lock(mutex_);
  return newest_;
}

void RenderGate::Leave() {
  std::lock_guard<std::mutex> lock(mutex_);
  busy_ = false;
  turn_.notify_all();
}

ViewServer::ViewServer(PictureRenderer* renderer, ViewSetup setup)
    : renderer_(renderer), setup_(std::move(setup)) {
  http_.new_task_queue = [] { return new httplib::ThreadPool(kHttpThreads); };
  http_.set_payload_max_length(kMaxRequestBytes);
  // SO_REUSEADDR alone: the library's default adds SO_REUSEPORT, which would
  // let a second process listen on the same port and take half the requests.
  http_.set_socket_options([](socket_t socket) {
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
  });
  // A page on another site that rebinds its name to this address still
  // sends its own name as Host: it gets nothing.
  http_.set_pre_routing_handler(
      [this](const httplib::Request& request, httplib::Response& response) {
        if (request.get_header_value("Host") == host_)
          return httplib::Server::HandlerResponse::Unhandled;
        Reply(response, 403, "forbidden: the Host header must be " + host_);
        return httplib::Server::HandlerResponse::Handled;
      });
  http_.Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
    Dispatch(request, response);
  });
  http_.set_error_handler([](const httplib::Request& request, httplib::Response& response) {
    if (response.body.empty()) {
      Reply(response, response.status, "cannot serve " + request.method + " " + request.path);
    }
  });
}

int ViewServer::Bind(const std::string& address, int port) {
  const int bound =
      port == 0 ? http_.bind_to_any_port(address) : (http_.bind_to_port(address, port) ? port : -1);
  const bool v6 = address.find(':') != std::string::npos;
  host_ = (v6 ? "[" + address + "]" : address) + ":" + std::to_string(bound);
  return bound;
}

void ViewServer::Dispatch(const httplib::Request& request, httplib::Response& response) {
  using Handler = void (ViewServer::*)(const httplib::Request&, httplib::Response&);
  static const std::pair<const char*, Handler> kRoutes[] = {
      {"/api/session", &ViewServer::Session},
      {"/api/input", &ViewServer::Input},
      {"/api/render", &ViewServer::Render},
      {"/api/export.png", &ViewServer::Export}};
  for (size_t i = 0; i < kViewAssetCount; ++i) {
    if (request.path != kViewAssets[i].path) continue;
    response.set_header("Content-Security-Policy", "default-src 'self'");
    response.set_content(kViewAssets[i].body, kViewAssets[i].type);
    return;
  }
  for (const auto& route : kRoutes) {
    if (request.path != route.first) continue;
    response.set_header("Cache-Control", "no-store");
    try {
      if (request.params.size() > kMaxParams) throw InputError("too many parameters");
      (this->*route.second)(request, response);
    } catch (const InputError& error) {
      Reply(response, 400, error.what());
    } catch (const Replaced&) {
      Reply(response, 409, "replaced by a newer request");
    } catch (const std::exception& error) {
      Reply(response, 500, error.what());
    }
    return;
  }
  Reply(response, 404, "not found: " + request.path.substr(0, 200));
}

void ViewServer::Session(const httplib::Request&, httplib::Response& response) {
  json params = json::array();
  for (const TuningParam& p : TuningParams()) {
    params.push_back({{"key", p.key},
                      {"label", p.label},
                      {"kind", KindName(p.kind)},
                      {"min", p.min},
                      {"max", p.max},
                      {"step", p.step},
                      {"option", p.option},
                      {"field", p.field},
                      {"opt_in", p.opt_in},
                      {"default", ParamValue(p, setup_.start)}});
  }
  const Size picture = renderer_->picture_size();
  const Size map = renderer_->map_size();
  const json session = {
      {"picture", {{"path", setup_.image}, {"width", picture.width}, {"height", picture.height}}},
      {"disparity",
       {{"path", setup_.disparity},
        {"width", map.width},
        {"height", map.height},
        {"filled", renderer_->inputs().filled}}},
      {"kernels", DetectedKernels()},
      {"params", params}};
  response.set_content(session.dump(-1, ' ', true), "application/json");
}

void ViewServer::Input(const httplib::Request&, httplib::Response& response) {
  const PictureInputs& in = renderer_->inputs();
  response.body =
      Packed(json::object(), {{in.picture.pixels.data(), in.picture.pixels.size()},
                              {in.disparity.pixels.data(), in.disparity.pixels.size()}});
  response.set_header("Content-Type", "application/octet-stream");
}

void ViewServer::RenderThen(const httplib::Request& request, bool replaceable,
                            const std::function<void(const SettingValues&)>& answer) {
  SettingValues values;
  const BlurSettings settings = ParseRequest(*setup_.command, setup_.start, request.params,
                                             renderer_->picture_size(), &values);
  Turn turn(&gate_, replaceable);
  const CallTimes times = renderer_->Render(settings, settings.focus);
  Keep(&weight_ms_, times.weight_ms);
  Keep(&blur_ms_, times.blur_ms);
  answer(values);
}

void ViewServer::Render(const httplib::Request& request, httplib::Response& response) {
  RenderThen(request, true, [&](const SettingValues& values) {
    const FittedFrame& fitted = renderer_->frame();
    const Size frame = fitted.frame();
    const json info = {{"values", Values(values)},
                       {"frame", {{"width", frame.width}, {"height", frame.height}}},
                       {"times", {{"weight", Summary(weight_ms_)}, {"blur", Summary(blur_ms_)}}},
                       {"command", Command(values)}};
    const Image result = renderer_->Result();
    const size_t weight_bytes = sizeof(uint16_t) * result.width * result.height;
    const size_t nv21 = Nv21Bytes(frame.width, frame.height);
    response.body = Packed(info, {{result.pixels.data(), result.pixels.size()},
                                  {renderer_->weights(), weight_bytes},
                                  {fitted.source(), nv21},
                                  {fitted.destination(), nv21}});
    response.set_header("Content-Type", "application/octet-stream");
  });
}

void ViewServer::Export(const httplib::Request& request, httplib::Response& response) {
  RenderThen(request, false, [&](const SettingValues&) {
    const std::vector<uint8_t> png = PngBytes(renderer_->Output());
    response.set_header("Content-Disposition",
                        "attachment; filename=\"" + OutputName(setup_.image) + "\"");
    response.set_content(reinterpret_cast<const char*>(png.data()), png.size(), "image/png");
  });
}

std::string ViewServer::Command(const SettingValues& values) const {
  std::vector<std::string> words = {setup_.tool,  "blur",        "--image",
                                    setup_.image, "--disparity", setup_.disparity};
  for (const std::string& arg : SettingArgs(values)) words.push_back(arg);
  words.insert(words.end(), {"-o", OutputName(setup_.image)});
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : " ") + ShellQuoted(word);
  return line;
}

}  // namespace dofra_tool
