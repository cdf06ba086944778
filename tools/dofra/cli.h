// Command-line parsing for the dofra tool: options, values and the errors
// that end the program with status 2.
#ifndef DOFRA_TOOLS_CLI_H
#define DOFRA_TOOLS_CLI_H

#include <cstdint>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace dofra_tool {

// Bad input of any kind: one message for stderr, exit status 2.
class InputError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Exit status of a run that failed on bad input.
constexpr int kExitBadInput = 2;

struct Size {
  int width = 0;
  int height = 0;
};

struct Point {
  int x = 0;
  int y = 0;
};

// The depth block's calibration header values.
struct Calibration {
  int32_t calib_num = 0;
  int32_t calib_den = 0;
  uint16_t map_scale_den = 0;
  uint16_t map_scale_num = 0;
};

// One option of a command, as parsed and as its help shows it.
struct OptionSpec {
  const char* name;           // "--scale"
  const char* value;          // what it takes ("S"), nullptr for a bare flag
  const char* default_value;  // used when absent; nullptr: none (or described in help)
  const char* help;
  const char* alias = nullptr;  // a short spelling ("-o")
};

// A command's usage lines, purpose and options: the one source of both its
// parsing and its --help.
struct CommandSpec {
  const char* name;
  const char* usage;  // lines after "dofra NAME", joined by '\n'
  const char* purpose;
  std::vector<OptionSpec> options;
};

// "--help" anywhere among the arguments.
bool WantsHelp(const std::vector<std::string>& args);
// Usage, purpose and every option with its default.
std::string HelpText(const CommandSpec& command);

// Options of one command: "--name value" pairs and bare flags.
class Options {
 public:
  Options(const CommandSpec& command, const std::vector<std::string>& args);

  // Whether the option was given (defaults do not count).
  bool Has(const std::string& name) const;
  // The given value, else the default; refused when there is neither.
  std::string Get(const std::string& name) const;

  Size GetSize(const std::string& name) const;
  int GetInt(const std::string& name, int low, int high) const;
  int GetScale(const std::string& name) const;
  int GetLevel(const std::string& name) const;

 private:
  const CommandSpec& spec_;
  std::map<std::string, std::string> values_;
};

// "WxH".
std::string SizeText(Size size);

Size ParseSize(const std::string& name, const std::string& text);
Point ParsePoint(const std::string& name, const std::string& text);
Calibration ParseCalibration(const std::string& text);
int ParseInt(const std::string& name, const std::string& text, int low, int high);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_CLI_H
