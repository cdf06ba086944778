// The settings that `dofra view`'s page changes, in one table: the server
// parses and checks requests with it and describes it to the page, which
// builds its controls from it. A new quality switch is an entry here, its
// option among the blur settings, and its call in the renderer.
#ifndef DOFRA_TOOLS_VIEW_PARAMS_H
#define DOFRA_TOOLS_VIEW_PARAMS_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "cli.h"
#include "settings.h"

namespace dofra_tool {

enum class ParamKind {
  kPoint,  // "X,Y", set by a click on the picture
  kInt,    // a linear slider
  kLog,    // a slider on a logarithmic scale, for values over decades
  kFlag,   // "1" on, "0" off
};

struct TuningParam {
  const char* key;  // in the page's requests and URL
  const char* label;
  ParamKind kind;
  int64_t min, max, step;  // the slider's reach; what is accepted is `dofra blur`'s to check
  const char* option;      // the `dofra blur` option it sets
  int field;               // which field of a comma-separated option (--calib A,B,M,N); -1: all
  bool opt_in;             // a quality mode: at its default on the "default" side of an A/B split
};

const std::vector<TuningParam>& TuningParams();

// Blur setting options with their values, as `dofra blur` is given them: a
// flag that is on maps to "", one that is off is absent.
using SettingValues = std::map<std::string, std::string>;

// The values of the command line: every table option with its value or
// default, the other setting options where given, the focus as given.
SettingValues StartValues(const Options& options, Point focus);

// The request's parameters over the start values. Refused (InputError, one
// line): a key outside the table, a key given twice, a value of the wrong
// form for its kind.
SettingValues ApplyRequest(const SettingValues& start,
                           const std::multimap<std::string, std::string>& params);

// The arguments that give these values to `dofra blur`, in its option order.
std::vector<std::string> SettingArgs(const SettingValues& values);

// A parameter's value as the page shows it ("X,Y", a number, "0" or "1").
std::string ParamValue(const TuningParam& param, const SettingValues& values);

// The request parsed and range-checked by `dofra blur`'s own code: the
// settings, with the focus inside the picture. InputError otherwise.
BlurSettings ParseRequest(const CommandSpec& command, const SettingValues& start,
                          const std::multimap<std::string, std::string>& params, Size picture,
                          SettingValues* values);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_VIEW_PARAMS_H
