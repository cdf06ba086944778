// dofra view: a page in the browser that shows a picture blurred by the
// library, rendered again by this process for every change of settings.
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "commands.h"
#include "renderer.h"
#include "scene.h"
#include "settings.h"
#include "view_server.h"

namespace dofra_tool {

namespace {

constexpr int kMaxPort = 65535;

std::vector<OptionSpec> ViewOptions() {
  std::vector<OptionSpec> options = {
      {"--image", "FILE", nullptr, "PNG or JPEG photograph"},
      {"--disparity", "FILE", nullptr, "8-bit gray PNG or JPEG disparity map"},
      {"--demo", nullptr, nullptr, "the demo scene, its calibration and focus, instead of files"},
      {"--size", "WxH", "960x540", "size of the --demo scene"},
      {"--out", "DIR", "out/view", "where --demo writes the scene's two files"},
      {"--port", "N", "0", "port to serve on, 0 for any free one"},
      {"--listen", "ADDR", "127.0.0.1",
       "address to serve on (other machines reach any but loopback)"},
  };
  for (const OptionSpec& option : SettingOptions()) options.push_back(option);
  options.push_back({"--verbose", nullptr, nullptr, "show the library's log lines"});
  return options;
}

std::string Absolute(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) != nullptr ? resolved : path;
}

// --demo: the scene written as the two files a `dofra blur` command can
// name, with its calibration and focus unless given.
std::vector<std::string> DemoArgs(const Options& options, std::vector<std::string> args) {
  if (options.Has("--image") || options.Has("--disparity")) {
    throw InputError("--demo replaces --image and --disparity");
  }
  const Scene scene = MakeScene(options.GetSize("--size"));
  const std::string dir = options.Get("--out");
  MakeDirectories(dir);
  WritePng(dir + "/scene.png", scene.picture);
  WritePng(dir + "/scene_disparity.png", scene.disparity);
  args.insert(args.end(),
              {"--image", dir + "/scene.png", "--disparity", dir + "/scene_disparity.png"});
  if (!options.Has("--focus")) {
    args.insert(args.end(),
                {"--focus", std::to_string(scene.focus.x) + "," + std::to_string(scene.focus.y)});
  }
  if (!options.Has("--calib")) {
    const Calibration c = SceneCalibration();
    args.insert(
        args.end(),
        {"--calib", std::to_string(c.calib_num) + "," + std::to_string(c.calib_den) + "," +
                        std::to_string(c.map_scale_den) + "," + std::to_string(c.map_scale_num)});
  }
  return args;
}

std::atomic<ViewServer*> g_server{nullptr};

// Ctrl-C and SIGTERM arrive here and nowhere else: every thread of the
// process blocks them, this one waits for them.
void WaitForStop(sigset_t signals) {
  int signal = 0;
  sigwait(&signals, &signal);
  ViewServer* server = g_server.load();
  if (server == nullptr) std::_Exit(128 + signal);  // still starting: nothing to save
  while (!server->running()) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  server->Stop();
}

bool Loopback(const std::string& address) {
  return address.rfind("127.", 0) == 0 || address == "::1" || address == "localhost";
}

}  // namespace

const CommandSpec kViewCommand = {
    "view",
    "--image IN.png|IN.jpg --disparity DISP.png|DISP.jpg [--port N] [options of blur]\n"
    "--demo [--size WxH] [--port N] [options of blur]",
    "Serves a page on this machine that shows the picture blurred by the library and\n"
    "renders it again for every change: click to focus, sliders for the settings,\n"
    "overlays, a split against the input, pixel readouts, call timings, and export of\n"
    "the result with the equivalent 'dofra blur' command line.",
    ViewOptions()};

int RunView(const std::vector<std::string>& args) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);  // before any thread starts
  std::thread(WaitForStop, signals).detach();

  const Options given(kViewCommand, args);
  const Options options(kViewCommand, given.Has("--demo") ? DemoArgs(given, args) : args);
  const BlurSettings settings = ParseBlurSettings(options);
  const int port = options.GetInt("--port", 0, kMaxPort);
  const std::string address = options.Get("--listen");

  PictureRenderer renderer(LoadPictureInputs(options, settings));
  const Point focus = FocusFor(settings, renderer.picture_size());
  const FittedFrame& fitted = renderer.Frame(settings.scale);
  if (fitted.padded()) printf("%s\n", fitted.PaddingNote().c_str());
  renderer.Render(settings, focus);  // refusals show now, before anything is served

  ViewSetup setup{&kViewCommand, StartValues(options, focus), Absolute("/proc/self/exe"),
                  Absolute(options.Get("--image")), Absolute(options.Get("--disparity"))};
  ViewServer server(&renderer, std::move(setup));
  const int bound = server.Bind(address, port);
  if (bound < 0) {
    throw InputError("cannot serve on " + address + " port " + std::to_string(port) +
                     ": in use or not available");
  }
  if (!Loopback(address)) {
    fprintf(stderr, "dofra: warning: serving on %s, reachable from other machines\n",
            address.c_str());
  }
  printf("dofra view: http://%s/ (Ctrl-C stops)\n", server.host().c_str());
  fflush(stdout);
  g_server = &server;
  const bool served = server.Listen();
  g_server = nullptr;
  printf("dofra view: stopped\n");
  return served ? 0 : 1;
}

}  // namespace dofra_tool
