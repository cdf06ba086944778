// `dofra view` on loopback, driven by cpp-httplib's client: its routes and
// refusals, the planes of a render, the export against the `dofra blur`
// command it names, the render gate, and the command's start-up, bad input
// and stop.
#include "view_server.h"

#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "commands.h"
#include "image_io.h"
#include "renderer.h"

namespace dofra_tool {
namespace {

using nlohmann::json;

constexpr int kW = 101;  // odd: padded to a size the library takes, cropped back
constexpr int kH = 67;
constexpr int kNear = 200;
constexpr int kFar = 10;
constexpr int kFullWeight = 1024;

// A picture with a transparent corner, and a map near on the left, far on
// the right, with unknown (0) pixels to fill.
void WriteInputs(const std::string& dir) {
  Image picture(kW, kH, 4);
  Image map(kW, kH, 1);
  for (int y = 0; y < kH; ++y) {
    for (int x = 0; x < kW; ++x) {
      uint8_t* p = picture.Row(y) + 4 * x;
      p[0] = static_cast<uint8_t>(x * 5);
      p[1] = static_cast<uint8_t>(y * 7);
      p[2] = static_cast<uint8_t>((x * y) ^ (x << 3));
      p[3] = x < 8 && y < 8 ? 0 : 255;
      map.Row(y)[x] = x < kW / 2 ? (y < 6 ? 0 : kNear) : kFar;
    }
  }
  WritePng(dir + "/in.png", picture);
  WritePng(dir + "/disp.png", map);
}

std::string Slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

struct Packed {
  json info;
  std::string planes;
};

Packed Unpack(const std::string& body) {
  uint32_t length = 0;
  std::memcpy(&length, body.data(), sizeof(length));
  return {json::parse(body.substr(4, length)), body.substr(4 + length)};
}

class ViewServerTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    char pattern[] = "/tmp/view_server_test.XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    dir_ = pattern;
    WriteInputs(dir_);
    const Options options(kViewCommand, {"--image", dir_ + "/in.png", "--disparity",
                                         dir_ + "/disp.png", "--level", "2"});
    const BlurSettings settings = ParseBlurSettings(options);
    renderer_ = new PictureRenderer(LoadPictureInputs(options, settings));
    const Point focus = FocusFor(settings, renderer_->picture_size());
    server_ = new ViewServer(renderer_, {&kViewCommand, StartValues(options, focus),
                                         DOFRA_TOOL_PATH, dir_ + "/in.png", dir_ + "/disp.png"});
    port_ = server_->Bind("127.0.0.1", 0);
    ASSERT_GT(port_, 0);
    thread_ = std::thread([] { server_->Listen(); });
    while (!server_->running()) std::this_thread::yield();
  }
  static void TearDownTestSuite() {
    server_->Stop();
    thread_.join();
    delete server_;
    delete renderer_;
    std::system(("rm -rf '" + dir_ + "'").c_str());
  }

  static httplib::Result Get(const std::string& target, const std::string& host = "") {
    httplib::Client client("127.0.0.1", port_);
    httplib::Headers headers;
    if (!host.empty()) headers.emplace("Host", host);
    return client.Get(target.c_str(), headers);
  }

  static std::string dir_;
  static PictureRenderer* renderer_;
  static ViewServer* server_;
  static int port_;
  static std::thread thread_;
};

std::string ViewServerTest::dir_;
PictureRenderer* ViewServerTest::renderer_ = nullptr;
ViewServer* ViewServerTest::server_ = nullptr;
int ViewServerTest::port_ = 0;
std::thread ViewServerTest::thread_;

struct Exchange {
  const char* name;
  const char* method;
  const char* target;
  const char* host;  // "": the bound address; "@" stands for the port
  int status;
  const char* says;  // in the body
};

class ExchangeTest : public ViewServerTest, public ::testing::WithParamInterface<Exchange> {};

// Run in order on one server: every refusal leaves it serving the next.
TEST_P(ExchangeTest, AnswersWithStatusAndOneLine) {
  const Exchange& e = GetParam();
  std::string host = e.host;
  if (host.find('@') != std::string::npos) host.replace(host.find('@'), 1, std::to_string(port_));
  httplib::Client client("127.0.0.1", port_);
  httplib::Headers headers;
  if (!host.empty()) headers.emplace("Host", host);
  const httplib::Result result =
      std::string(e.method) == "POST"
          ? client.Post(e.target, headers, std::string(8192, 'x'), "text/plain")
          : client.Get(e.target, headers);
  ASSERT_TRUE(result) << httplib::to_string(result.error());
  EXPECT_EQ(result->status, e.status) << result->body;
  EXPECT_NE(result->body.find(e.says), std::string::npos) << result->body.substr(0, 300);
  if (e.status >= 400 && !result->body.empty()) {
    EXPECT_EQ(result->body.find('\n'), result->body.size() - 1) << result->body;
  }
}

INSTANTIATE_TEST_SUITE_P(
    Routes, ExchangeTest,
    ::testing::Values(
        Exchange{"Page", "GET", "/", "", 200, "<canvas"},
        Exchange{"Script", "GET", "/view.js", "", 200, "/api/render"},
        Exchange{"Style", "GET", "/view.css", "", 200, "--accent"},
        Exchange{"Session", "GET", "/api/session", "", 200, "\"option\":\"--calib\""},
        Exchange{"LevelOutOfRange", "GET", "/api/render?level=21", "", 400, "blur level"},
        Exchange{"LevelMalformed", "GET", "/api/render?level=2x", "", 400, "malformed"},
        Exchange{"LevelEmpty", "GET", "/api/render?level=", "", 400, "malformed"},
        Exchange{"ScaleThree", "GET", "/api/render?scale=3", "", 400, "2, 4, 6 or 8"},
        Exchange{"FocusOutside", "GET", "/api/render?focus=101,3", "", 400, "outside the 101x67"},
        Exchange{"FocusMalformed", "GET", "/api/render?focus=1,2,3", "", 400, "X,Y"},
        Exchange{"CalibZeroB", "GET", "/api/render?calib_b=0", "", 400, "B must not be 0"},
        Exchange{"CalibOverflow", "GET", "/api/render?calib_a=4294967296", "", 400, "32 bits"},
        Exchange{"CalibZeroM", "GET", "/api/export.png?calib_m=0", "", 400, "M must lie"},
        Exchange{"CalibCommaInField", "GET", "/api/render?calib_n=1,2", "", 400, "malformed"},
        Exchange{"UnknownKey", "GET", "/api/render?sharpen=1", "", 400, "unknown parameter"},
        Exchange{"KeyTwice", "GET", "/api/render?level=2&level=3", "", 400, "given twice"},
        Exchange{"StillServing", "GET", "/api/render?level=3&scale=8", "", 200, "\"level\":\"3\""},
        Exchange{"ForeignHost", "GET", "/", "rebound.example:@", 403, "Host header must be"},
        Exchange{"NameForLoopback", "GET", "/api/session", "localhost:@", 403, "forbidden"},
        Exchange{"OtherPort", "GET", "/", "127.0.0.1:1", 403, "forbidden"},
        Exchange{"UnknownPath", "GET", "/api/weights", "", 404, "not found"},
        Exchange{"PictureByName", "GET", "/in.png", "", 404, "not found"},
        Exchange{"PathOutOfTree", "GET", "/../../etc/passwd", "", 404, ""},
        Exchange{"BodyTooLarge", "POST", "/api/render", "", 413, ""}),
    [](const ::testing::TestParamInfo<Exchange>& info) { return info.param.name; });

TEST_F(ViewServerTest, RenderCarriesResultWeightsAndFrames) {
  const httplib::Result result = Get("/api/render?level=1&focus=10,40");
  ASSERT_TRUE(result);
  ASSERT_EQ(result->status, 200) << result->body;
  const Packed packed = Unpack(result->body);
  const int fw = packed.info["frame"]["width"];
  const int fh = packed.info["frame"]["height"];
  EXPECT_TRUE(fw >= kW && fh >= kH && fw % 2 == 0 && fh % 2 == 0) << fw << "x" << fh;
  const size_t n = static_cast<size_t>(kW) * kH;
  const size_t nv21 = static_cast<size_t>(fw) * fh * 3 / 2;
  ASSERT_EQ(packed.planes.size(), 4 * n + 2 * n + 2 * nv21);
  std::vector<uint16_t> weights(n);
  std::memcpy(weights.data(), packed.planes.data() + 4 * n, 2 * n);
  EXPECT_EQ(weights[40 * kW + 10], 0);                // near, in focus
  EXPECT_EQ(weights[3 * kW + 5], 0);                  // unknown, filled as near
  EXPECT_EQ(weights[40 * kW + kW - 3], kFullWeight);  // far
  EXPECT_EQ(packed.info["times"]["blur"]["count"].get<int>(),
            packed.info["times"]["weight"]["count"].get<int>());
  // The source frame holds the picture, the result differs from it on the far side.
  const std::string source = packed.planes.substr(6 * n, nv21);
  const std::string output = packed.planes.substr(6 * n + nv21, nv21);
  EXPECT_EQ(source.compare(3 * fw, 16, output, 3 * fw, 16), 0);
  EXPECT_NE(source.compare(40 * fw + kW - 20, 10, output, 40 * fw + kW - 20, 10), 0);
}

// The exported PNG is what the exported command line writes, byte for byte,
// on a padded picture with alpha and filled disparity.
TEST_F(ViewServerTest, ExportIsWhatTheCommandLineWrites) {
  const std::string query = "?level=4&scale=6&focus=70,30&calib_n=400";
  const httplib::Result render = Get("/api/render" + query);
  const httplib::Result png = Get("/api/export.png" + query);
  ASSERT_TRUE(render && png);
  ASSERT_EQ(png->status, 200) << png->body;
  EXPECT_EQ(png->get_header_value("Content-Disposition"), "attachment; filename=\"in_blur.png\"");
  const std::string command = Unpack(render->body).info["command"];
  EXPECT_NE(command.find("--focus 70,30 --scale 6 --level 4 --calib 1572864000,65536,1280,400"),
            std::string::npos)
      << command;
  ASSERT_EQ(std::system(("cd '" + dir_ + "' && " + command + " >/dev/null").c_str()), 0);
  EXPECT_TRUE(Slurp(dir_ + "/in_blur.png") == png->body);
  // The render's RGB is the export's.
  const std::string rgba = Unpack(render->body).planes.substr(0, 4 * kW * kH);
  bool alpha = false;
  const Image exported = ReadPicture(dir_ + "/in_blur.png", &alpha);
  ASSERT_TRUE(alpha);
  for (size_t i = 0; i < exported.pixels.size(); i += 4) {
    ASSERT_EQ(rgba.compare(i, 3, reinterpret_cast<const char*>(&exported.pixels[i]), 3), 0) << i;
  }
}

TEST(RenderGateTest, ANewerRenderReplacesTheWaitingOneButNoExport) {
  RenderGate gate;
  const auto enter = [&gate](bool replaceable) {
    const bool entered = gate.Enter(replaceable);
    if (entered) gate.Leave();
    return entered;
  };
  ASSERT_TRUE(gate.Enter(false));  // an export runs
  std::future<bool> older = std::async(std::launch::async, enter, true);
  while (gate.newest() < 1) std::this_thread::yield();
  std::future<bool> newer = std::async(std::launch::async, enter, true);
  while (gate.newest() < 2) std::this_thread::yield();
  EXPECT_FALSE(older.get());  // told at once, while the export still runs
  std::future<bool> export_waiting = std::async(std::launch::async, enter, false);
  gate.Leave();
  EXPECT_TRUE(newer.get());
  EXPECT_TRUE(export_waiting.get());
}

// The tool itself: bad input at start-up ends it with one line and status
// 2 before anything is served.
struct StartUp {
  const char* name;
  std::vector<std::string> args;  // "@" stands for the test's directory, "#" the server's port
  const char* message;
};

class StartUpTest : public ViewServerTest, public ::testing::WithParamInterface<StartUp> {};

TEST_P(StartUpTest, RefusesWithOneLineAndStatusTwo) {
  std::string command = DOFRA_TOOL_PATH;
  for (std::string arg : GetParam().args) {
    if (arg.find('@') != std::string::npos) arg.replace(arg.find('@'), 1, dir_);
    if (arg == "#") arg = std::to_string(port_);
    command += " '" + arg + "'";
  }
  const std::string out = dir_ + "/start.out";
  const std::string err = dir_ + "/start.err";
  const int status = std::system((command + " >" + out + " 2>" + err).c_str());
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), kExitBadInput);
  const std::string said = Slurp(err);
  EXPECT_EQ(said.rfind("dofra: ", 0), 0u) << said;
  EXPECT_NE(said.find(GetParam().message), std::string::npos) << said;
  EXPECT_EQ(said.find('\n'), said.size() - 1) << said;
  EXPECT_EQ(Slurp(out).find("http://"), std::string::npos);
}

std::vector<std::string> View(std::vector<std::string> extra) {
  std::vector<std::string> args = {"view", "--image", "@/in.png", "--disparity", "@/disp.png"};
  args.insert(args.end(), extra.begin(), extra.end());
  return args;
}

INSTANTIATE_TEST_SUITE_P(
    BadInput, StartUpTest,
    ::testing::Values(
        StartUp{"MissingImage",
                {"view", "--image", "@/no.png", "--disparity", "@/disp.png"},
                "cannot read"},
        StartUp{"ColourDisparity",
                {"view", "--image", "@/in.png", "--disparity", "@/in.png"},
                "not colour"},
        StartUp{"LevelZero", View({"--level", "0"}), "blur level"},
        StartUp{"FocusOutside", View({"--focus", "200,1"}), "lies outside"},
        StartUp{"DemoWithImage", {"view", "--demo", "--image", "@/in.png"}, "--demo replaces"},
        StartUp{"PortInUse", View({"--port", "#"}), "in use"},
        StartUp{"PortOutOfRange", View({"--port", "70000"}), "0..65535"}),
    [](const ::testing::TestParamInfo<StartUp>& info) { return info.param.name; });

// Started as a user starts it: the URL on one line, the page served, and a
// clean stop on SIGTERM.
TEST_F(ViewServerTest, ToolPrintsItsUrlServesAndStopsOnSigterm) {
  int pipe_fds[2];
  ASSERT_EQ(pipe(pipe_fds), 0);
  const std::string out_dir = dir_ + "/demo";
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) {
    dup2(pipe_fds[1], STDOUT_FILENO);
    close(pipe_fds[0]);
    execl(DOFRA_TOOL_PATH, DOFRA_TOOL_PATH, "view", "--demo", "--size", "160x90", "--out",
          out_dir.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  close(pipe_fds[1]);
  // Stopped however the test ends.
  std::unique_ptr<void, std::function<void(void*)>> reaper(reinterpret_cast<void*>(1),
                                                           [pid](void*) {
                                                             kill(pid, SIGKILL);
                                                             waitpid(pid, nullptr, 0);
                                                           });
  FILE* out = fdopen(pipe_fds[0], "r");
  char line[256] = {};
  std::string text;  // a padding note may come first
  size_t at = std::string::npos;
  while (at == std::string::npos && fgets(line, sizeof(line), out) != nullptr) {
    text = line;
    at = text.find("http://127.0.0.1:");
  }
  ASSERT_NE(at, std::string::npos) << text;
  const int port = std::atoi(text.c_str() + at + std::strlen("http://127.0.0.1:"));
  httplib::Client client("127.0.0.1", port);
  const httplib::Result page = client.Get("/api/session");
  ASSERT_TRUE(page);
  EXPECT_EQ(page->status, 200);
  EXPECT_NE(page->body.find("scene.png"), std::string::npos);
  kill(pid, SIGTERM);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  reaper.release();
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  ASSERT_NE(fgets(line, sizeof(line), out), nullptr);
  EXPECT_STREQ(line, "dofra view: stopped\n");
  fclose(out);
}

}  // namespace
}  // namespace dofra_tool
