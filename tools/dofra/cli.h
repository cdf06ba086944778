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

// Options of one command: "--name value" pairs and bare flags.
class Options {
 public:
  // Parses args against the names that take a value and the bare flags;
  // aliases map a short spelling ("-o") to its long name.
  Options(const std::string& command, const std::vector<std::string>& args,
          const std::set<std::string>& valued, const std::set<std::string>& flags,
          const std::map<std::string, std::string>& aliases = {});

  bool Has(const std::string& name) const;
  bool Flag(const std::string& name) const { return Has(name); }
  const std::string& Get(const std::string& name) const;
  std::string GetOr(const std::string& name, const std::string& fallback) const;

  Size SizeOr(const std::string& name, Size fallback) const;
  int IntOr(const std::string& name, int fallback, int low, int high) const;
  int ScaleOr(const std::string& name, int fallback) const;
  int LevelOr(const std::string& name, int fallback) const;

 private:
  std::string command_;
  std::map<std::string, std::string> values_;
};

Size ParseSize(const std::string& name, const std::string& text);
Point ParsePoint(const std::string& name, const std::string& text);
Calibration ParseCalibration(const std::string& text);
int ParseInt(const std::string& name, const std::string& text, int low, int high);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_CLI_H
