// The tool's commands; each takes the arguments after its name and returns
// the exit status (bad input is thrown as InputError).
#ifndef DOFRA_TOOLS_COMMANDS_H
#define DOFRA_TOOLS_COMMANDS_H

#include <algorithm>
#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "cli.h"

namespace dofra_tool {

extern const CommandSpec kDemoCommand;
extern const CommandSpec kBlurCommand;
extern const CommandSpec kBenchCommand;
extern const CommandSpec kQualityCommand;
#ifdef DOFRA_VIEW
extern const CommandSpec kViewCommand;
#endif

int RunDemo(const std::vector<std::string>& args);
int RunBlur(const std::vector<std::string>& args);
int RunBench(const std::vector<std::string>& args);
int RunQuality(const std::vector<std::string>& args);
#ifdef DOFRA_VIEW
int RunView(const std::vector<std::string>& args);
#endif

// Milliseconds since an arbitrary start, for timing stages.
inline double NowMs() {
  using Clock = std::chrono::steady_clock;
  return std::chrono::duration<double, std::milli>(Clock::now().time_since_epoch()).count();
}

// Nearest-rank percentile of sorted values.
inline double Percentile(const std::vector<double>& sorted, double p) {
  const size_t rank = static_cast<size_t>(std::ceil(p / 100.0 * sorted.size()));
  return sorted[std::max<size_t>(rank, 1) - 1];
}

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_COMMANDS_H
