// dofra: runs the depth-of-field library on a built-in scene, on photographs
// and raw camera frames, and measures it.
#include <android/log.h>
#include <dofra_depth.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "cli.h"
#include "commands.h"
#include "engine.h"

namespace {

using namespace dofra_tool;

struct Command {
  const CommandSpec* syntax;
  int (*run)(const std::vector<std::string>& args);
};

const Command kCommands[] = {{&kDemoCommand, RunDemo},
                             {&kBlurCommand, RunBlur},
                             {&kBenchCommand, RunBench},
                             {&kQualityCommand, RunQuality},
#ifdef DOFRA_VIEW
                             {&kViewCommand, RunView}
#endif
};

std::string Usage() {
  std::string text = "usage:\n";
  for (const Command& command : kCommands) {
    const std::string usage = command.syntax->usage;
    for (size_t start = 0; start < usage.size();) {
      const size_t end = std::min(usage.find('\n', start), usage.size());
      text += std::string("  dofra ") + command.syntax->name + " " +
              usage.substr(start, end - start) + "\n";
      start = end + 1;
    }
  }
  text += "  dofra COMMAND --help   the command's options and their defaults\n";
  text += "  dofra --version\n";
  return text;
}

void CaptureLine(int, const char*, const char* text, void* user) {
  *static_cast<std::string*>(user) += text;
}

// The library states its build only in DofraInit's first log line, which it
// writes even when refusing a null handle pointer.
std::string LibraryBuild() {
  std::string line;
  host_log_set_sink(CaptureLine, &line);
  DofraParams params{};
  DofraInit(nullptr, &params);
  SetLibraryLogVisible(false);
  const size_t at = line.find("build time ");
  return at == std::string::npos ? "unknown" : line.substr(at + std::strlen("build time "));
}

int Dispatch(const std::string& name, const std::vector<std::string>& args) {
  for (const Command& command : kCommands) {
    if (name != command.syntax->name) continue;
    if (WantsHelp(args)) {
      fputs(HelpText(*command.syntax).c_str(), stdout);
      return 0;
    }
    for (const std::string& arg : args) {
      if (arg == "--verbose") SetLibraryLogVisible(true);
    }
    return command.run(args);
  }
  if (name.empty()) throw InputError("no command given");
#ifndef DOFRA_VIEW
  if (name == "view")
    throw InputError("'dofra view' is not in this build: it needs cpp-httplib and nlohmann-json");
#endif
  throw InputError("unknown command '" + name + "'");
}

}  // namespace

int main(int argc, char** argv) {
  const std::vector<std::string> args(argv + (argc > 1 ? 2 : argc), argv + argc);
  const std::string command = argc > 1 ? argv[1] : "";
  SetLibraryLogVisible(false);
  if (command == "help" || command == "--help" || command == "-h") {
    fputs(Usage().c_str(), stdout);
    return 0;
  }
  if (command == "--version") {
    printf("dofra %s, libdofra_depth built %s", DOFRA_TOOL_VERSION, LibraryBuild().c_str());
    return 0;
  }
  try {
    return Dispatch(command, args);
  } catch (const InputError& error) {
    fprintf(stderr, "dofra: %s\n", error.what());
    if (command.empty() || error.what() == "unknown command '" + command + "'") {
      fputs(Usage().c_str(), stderr);
    }
    return kExitBadInput;
  } catch (const std::exception& error) {
    fprintf(stderr, "dofra: %s\n", error.what());
    return 1;
  }
}
