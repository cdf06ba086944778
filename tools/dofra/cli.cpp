#include "cli.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>

namespace dofra_tool {

namespace {

constexpr int kMaxFrameSide = 16384;
constexpr size_t kHelpColumn = 26;  // where option descriptions start

const OptionSpec* Find(const CommandSpec& command, const std::string& spelling) {
  for (const OptionSpec& option : command.options) {
    if (spelling == option.name || (option.alias != nullptr && spelling == option.alias)) {
      return &option;
    }
  }
  return nullptr;
}

bool ParseLong(const std::string& text, long long* value) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  *value = std::strtoll(text.c_str(), &end, 10);
  return errno == 0 && end != nullptr && *end == '\0';
}

// Splits "a<sep>b<sep>..." into exactly count fields.
bool Split(const std::string& text, char sep, size_t count, std::vector<std::string>* out) {
  out->clear();
  size_t start = 0;
  for (;;) {
    const size_t at = text.find(sep, start);
    out->push_back(text.substr(start, at == std::string::npos ? std::string::npos : at - start));
    if (at == std::string::npos) break;
    start = at + 1;
  }
  return out->size() == count;
}

}  // namespace

int ParseInt(const std::string& name, const std::string& text, int low, int high) {
  long long value = 0;
  if (!ParseLong(text, &value)) {
    throw InputError(name + " must be a whole number, not '" + text + "'");
  }
  if (value < low || value > high) {
    throw InputError(name + " must lie in " + std::to_string(low) + ".." + std::to_string(high) +
                     ", not " + text);
  }
  return static_cast<int>(value);
}

std::string SizeText(Size size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

Size ParseSize(const std::string& name, const std::string& text) {
  std::vector<std::string> parts;
  long long w = 0, h = 0;
  if (!Split(text, 'x', 2, &parts) || !ParseLong(parts[0], &w) || !ParseLong(parts[1], &h)) {
    throw InputError(name + " must look like WIDTHxHEIGHT (e.g. 1920x1080), not '" + text + "'");
  }
  if (w < 1 || h < 1 || w > kMaxFrameSide || h > kMaxFrameSide) {
    throw InputError(name + " " + text + " is out of range (1.." + std::to_string(kMaxFrameSide) +
                     " per side)");
  }
  return Size{static_cast<int>(w), static_cast<int>(h)};
}

Point ParsePoint(const std::string& name, const std::string& text) {
  std::vector<std::string> parts;
  long long x = 0, y = 0;
  if (!Split(text, ',', 2, &parts) || !ParseLong(parts[0], &x) || !ParseLong(parts[1], &y) ||
      x < std::numeric_limits<int>::min() || x > std::numeric_limits<int>::max() ||
      y < std::numeric_limits<int>::min() || y > std::numeric_limits<int>::max()) {
    throw InputError(name + " must look like X,Y (e.g. 960,540), not '" + text + "'");
  }
  return Point{static_cast<int>(x), static_cast<int>(y)};
}

Calibration ParseCalibration(const std::string& text) {
  std::vector<std::string> parts;
  long long v[4] = {};
  bool ok = Split(text, ',', 4, &parts);
  for (size_t i = 0; ok && i < 4; ++i) ok = ParseLong(parts[i], &v[i]);
  if (!ok)
    throw InputError("--calib must look like A,B,M,N (four whole numbers), not '" + text + "'");
  const long long kInt32Min = std::numeric_limits<int32_t>::min();
  const long long kInt32Max = std::numeric_limits<int32_t>::max();
  if (v[0] < kInt32Min || v[0] > kInt32Max || v[1] < kInt32Min || v[1] > kInt32Max) {
    throw InputError("--calib A and B must fit in 32 bits");
  }
  if (v[1] == 0) throw InputError("--calib B must not be 0");
  if (v[2] < 1 || v[2] > 65535 || v[3] < 0 || v[3] > 65535) {
    throw InputError("--calib M must lie in 1..65535 and N in 0..65535");
  }
  Calibration calib;
  calib.calib_num = static_cast<int32_t>(v[0]);
  calib.calib_den = static_cast<int32_t>(v[1]);
  calib.map_scale_den = static_cast<uint16_t>(v[2]);
  calib.map_scale_num = static_cast<uint16_t>(v[3]);
  return calib;
}

bool WantsHelp(const std::vector<std::string>& args) {
  return std::find(args.begin(), args.end(), "--help") != args.end();
}

std::string HelpText(const CommandSpec& command) {
  std::string text;
  std::string usage = command.usage;
  const char* lead = "usage: ";
  for (size_t start = 0; start < usage.size();) {
    const size_t end = std::min(usage.find('\n', start), usage.size());
    text +=
        lead + std::string("dofra ") + command.name + " " + usage.substr(start, end - start) + "\n";
    lead = "       ";
    start = end + 1;
  }
  text += std::string(command.purpose) + "\noptions:\n";
  for (const OptionSpec& option : command.options) {
    std::string left = std::string("  ") + (option.alias ? std::string(option.alias) + ", " : "") +
                       option.name + (option.value ? std::string(" ") + option.value : "");
    left.resize(std::max<size_t>(left.size() + 1, kHelpColumn), ' ');
    text += left + option.help;
    if (option.default_value) text += std::string(" (default ") + option.default_value + ")";
    text += "\n";
  }
  return text;
}

Options::Options(const CommandSpec& command, const std::vector<std::string>& args) : spec_(command) {
  for (size_t i = 0; i < args.size(); ++i) {
    const OptionSpec* option = Find(command, args[i]);
    if (option == nullptr) {
      if (args[i].rfind("-", 0) == 0) {
        throw InputError("unknown option " + args[i] + " for 'dofra " + command.name + "'");
      }
      throw InputError("unexpected argument '" + args[i] + "' for 'dofra " + command.name + "'");
    }
    const std::string name = option->name;
    if (values_.count(name) != 0) throw InputError("option " + name + " is given twice");
    if (option->value == nullptr) {
      values_[name] = "";
      continue;
    }
    if (i + 1 >= args.size()) throw InputError("option " + args[i] + " needs a value");
    values_[name] = args[++i];
  }
}

bool Options::Has(const std::string& name) const { return values_.count(name) != 0; }

std::string Options::Get(const std::string& name) const {
  const auto it = values_.find(name);
  if (it != values_.end()) return it->second;
  const OptionSpec* option = Find(spec_, name);
  if (option != nullptr && option->default_value != nullptr) return option->default_value;
  throw InputError(std::string("'dofra ") + spec_.name + "' needs " + name);
}

Size Options::GetSize(const std::string& name) const { return ParseSize(name, Get(name)); }

int Options::GetInt(const std::string& name, int low, int high) const {
  return ParseInt(name, Get(name), low, high);
}

int Options::GetScale(const std::string& name) const {
  const std::string text = Get(name);
  long long s = 0;
  if (!ParseLong(text, &s) || (s != 2 && s != 4 && s != 6 && s != 8)) {
    throw InputError(name + " must be a scale factor of 2, 4, 6 or 8, not '" + text + "'");
  }
  return static_cast<int>(s);
}

int Options::GetLevel(const std::string& name) const {
  const std::string text = Get(name);
  long long level = 0;
  if (!ParseLong(text, &level) || level < 1 || level > 20) {
    throw InputError(name + " must be a blur level from 1 (strongest) to 20 (none), not '" + text +
                     "'");
  }
  return static_cast<int>(level);
}

}  // namespace dofra_tool
