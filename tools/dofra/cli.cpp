#include "cli.h"

#include <cerrno>
#include <cstdlib>
#include <limits>

namespace dofra_tool {

namespace {

constexpr int kMaxFrameSide = 16384;

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

Options::Options(const std::string& command, const std::vector<std::string>& args,
                 const std::set<std::string>& valued, const std::set<std::string>& flags,
                 const std::map<std::string, std::string>& aliases)
    : command_(command) {
  for (size_t i = 0; i < args.size(); ++i) {
    std::string name = args[i];
    const auto alias = aliases.find(name);
    if (alias != aliases.end()) name = alias->second;
    const bool takes_value = valued.count(name) != 0;
    if (!takes_value && flags.count(name) == 0) {
      if (name.rfind("-", 0) == 0) {
        throw InputError("unknown option " + args[i] + " for 'dofra " + command_ + "'");
      }
      throw InputError("unexpected argument '" + args[i] + "' for 'dofra " + command_ + "'");
    }
    if (values_.count(name) != 0) throw InputError("option " + name + " is given twice");
    if (!takes_value) {
      values_[name] = "";
      continue;
    }
    if (i + 1 >= args.size()) throw InputError("option " + args[i] + " needs a value");
    values_[name] = args[++i];
  }
}

bool Options::Has(const std::string& name) const { return values_.count(name) != 0; }

const std::string& Options::Get(const std::string& name) const {
  const auto it = values_.find(name);
  if (it == values_.end()) {
    throw InputError("'dofra " + command_ + "' needs " + name);
  }
  return it->second;
}

std::string Options::GetOr(const std::string& name, const std::string& fallback) const {
  return Has(name) ? Get(name) : fallback;
}

Size Options::SizeOr(const std::string& name, Size fallback) const {
  return Has(name) ? ParseSize(name, Get(name)) : fallback;
}

int Options::IntOr(const std::string& name, int fallback, int low, int high) const {
  return Has(name) ? ParseInt(name, Get(name), low, high) : fallback;
}

int Options::ScaleOr(const std::string& name, int fallback) const {
  if (!Has(name)) return fallback;
  long long s = 0;
  if (!ParseLong(Get(name), &s) || (s != 2 && s != 4 && s != 6 && s != 8)) {
    throw InputError(name + " must be a scale factor of 2, 4, 6 or 8, not '" + Get(name) + "'");
  }
  return static_cast<int>(s);
}

int Options::LevelOr(const std::string& name, int fallback) const {
  if (!Has(name)) return fallback;
  long long level = 0;
  if (!ParseLong(Get(name), &level) || level < 1 || level > 20) {
    throw InputError(name + " must be a blur level from 1 (strongest) to 20 (none), not '" +
                     Get(name) + "'");
  }
  return static_cast<int>(level);
}

}  // namespace dofra_tool
