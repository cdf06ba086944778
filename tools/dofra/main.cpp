// dofra: runs the depth-of-field library on a built-in scene, on photographs
// and raw camera frames, and measures it.
#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "engine.h"

namespace {

const char kUsage[] =
    "usage:\n"
    "  dofra demo  [--out DIR] [--size WxH] [--scale S] [--level L] [--verbose]\n"
    "  dofra blur  --image IN.png|IN.jpg --disparity DISP.png [--focus X,Y] [--level L]\n"
    "              [--scale S] [--calib A,B,M,N] [--disparity-size WxH] -o OUT.png\n"
    "              [--weights WEIGHTS.png] [--verbose]\n"
    "  dofra blur  --nv21 IN.yuv --size WxH --disparity DISP.png [options above] -o OUT.yuv\n"
    "  dofra bench [--size WxH] [--scale S] [--frames N] [--verbose]\n"
    "scale S: 2, 4, 6 or 8; level L: 1 (strongest blur) .. 20 (none).\n";

}  // namespace

int main(int argc, char** argv) {
  using namespace dofra_tool;
  const std::vector<std::string> args(argv + (argc > 1 ? 2 : argc), argv + argc);
  const std::string command = argc > 1 ? argv[1] : "";
  if (command == "help" || command == "--help" || command == "-h") {
    fputs(kUsage, stdout);
    return 0;
  }
  SetLibraryLogVisible(false);
  try {
    for (const std::string& arg : args) {
      if (arg == "--verbose") SetLibraryLogVisible(true);
    }
    if (command == "demo") return RunDemo(args);
    if (command == "blur") return RunBlur(args);
    if (command == "bench") return RunBench(args);
    if (command.empty()) throw InputError("no command given");
    throw InputError("unknown command '" + command + "'");
  } catch (const InputError& error) {
    fprintf(stderr, "dofra: %s\n", error.what());
    if (command.empty() || error.what() == "unknown command '" + command + "'") {
      fputs(kUsage, stderr);
    }
    return kExitBadInput;
  } catch (const std::exception& error) {
    fprintf(stderr, "dofra: %s\n", error.what());
    return 1;
  }
}
