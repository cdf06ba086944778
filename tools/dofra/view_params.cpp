#include "view_params.h"

#include <cstdint>
#include <limits>

namespace dofra_tool {

namespace {

constexpr size_t kMaxValueLength = 24;
constexpr int64_t kInt32Max = std::numeric_limits<int32_t>::max();
constexpr int64_t kU16Max = std::numeric_limits<uint16_t>::max();

std::vector<std::string> Fields(const std::string& text) {
  std::vector<std::string> fields(1);
  for (char c : text) {
    if (c == ',') {
      fields.emplace_back();
    } else {
      fields.back() += c;
    }
  }
  return fields;
}

std::string Join(const std::vector<std::string>& fields) {
  std::string text = fields[0];
  for (size_t i = 1; i < fields.size(); ++i) text += "," + fields[i];
  return text;
}

// The form of a value of each kind; ranges are left to `dofra blur`.
bool WellFormed(ParamKind kind, const std::string& value) {
  if (value.empty() || value.size() > kMaxValueLength) return false;
  if (kind == ParamKind::kFlag) return value == "0" || value == "1";
  const std::string allowed = kind == ParamKind::kPoint ? "-0123456789," : "-0123456789";
  return value.find_first_not_of(allowed) == std::string::npos;
}

const TuningParam* Find(const std::string& key) {
  for (const TuningParam& param : TuningParams()) {
    if (key == param.key) return &param;
  }
  return nullptr;
}

}  // namespace

const std::vector<TuningParam>& TuningParams() {
  static const std::vector<TuningParam> params = {
      {"focus", "focus", ParamKind::kPoint, 0, 0, 0, "--focus", -1, false},
      {"scale", "factor", ParamKind::kInt, 2, 8, 2, "--scale", -1, false},
      {"level", "level", ParamKind::kInt, 1, 20, 1, "--level", -1, false},
      {"calib_a", "calib A", ParamKind::kLog, 1, kInt32Max, 1, "--calib", 0, false},
      {"calib_b", "calib B", ParamKind::kLog, 1, kInt32Max, 1, "--calib", 1, false},
      {"calib_m", "calib M", ParamKind::kLog, 1, kU16Max, 1, "--calib", 2, false},
      {"calib_n", "calib N", ParamKind::kLog, 0, kU16Max, 1, "--calib", 3, false},
      // The opt-in quality modes: the refined map and the no-glow blur.
      {"refine", "refine", ParamKind::kFlag, 0, 1, 1, "--refine", -1, true},
      {"range_sigma", "sigma", ParamKind::kInt, 1, 64, 1, "--range-sigma", -1, true},
      {"purity_scale", "purity", ParamKind::kInt, 1, 64, 1, "--purity-scale", -1, true},
      {"chroma_weight", "chroma", ParamKind::kInt, 0, 8, 1, "--chroma-weight", -1, true},
      {"flat_spread", "flat", ParamKind::kInt, 0, 255, 1, "--flat-spread", -1, true},
      {"no_bleed", "no glow", ParamKind::kFlag, 0, 1, 1, "--no-bleed", -1, true},
      {"pullback", "pullback", ParamKind::kInt, 0, 8, 1, "--pullback", -1, true},
      {"threshold", "threshold", ParamKind::kInt, 1, 8, 1, "--threshold", -1, true},
  };
  return params;
}

SettingValues StartValues(const Options& options, Point focus) {
  SettingValues values;
  for (const OptionSpec& option : SettingOptions()) {
    if (options.Has(option.name)) values[option.name] = options.Get(option.name);
  }
  for (const TuningParam& param : TuningParams()) {
    if (param.kind == ParamKind::kInt || param.kind == ParamKind::kLog) {
      values[param.option] = options.Get(param.option);
    }
  }
  values["--focus"] = std::to_string(focus.x) + "," + std::to_string(focus.y);
  return values;
}

SettingValues ApplyRequest(const SettingValues& start,
                           const std::multimap<std::string, std::string>& params) {
  SettingValues values = start;
  for (auto it = params.begin(); it != params.end(); it = params.upper_bound(it->first)) {
    const TuningParam* param = Find(it->first);
    if (param == nullptr) throw InputError("unknown parameter '" + it->first.substr(0, 40) + "'");
    if (params.count(it->first) > 1) throw InputError("parameter " + it->first + " is given twice");
    const std::string& value = it->second;
    if (!WellFormed(param->kind, value)) {
      throw InputError("parameter " + it->first + " has a malformed value '" +
                       value.substr(0, kMaxValueLength) + "'");
    }
    if (param->kind == ParamKind::kFlag) {
      if (value == "1") values[param->option] = "";
      if (value == "0") values.erase(param->option);
    } else if (param->field < 0) {
      values[param->option] = value;
    } else {
      std::vector<std::string> fields = Fields(values[param->option]);
      fields.at(param->field) = value;
      values[param->option] = Join(fields);
    }
  }
  return values;
}

std::vector<std::string> SettingArgs(const SettingValues& values) {
  std::vector<std::string> args;
  for (const OptionSpec& option : SettingOptions()) {
    const auto it = values.find(option.name);
    if (it == values.end()) continue;
    args.push_back(option.name);
    if (option.value != nullptr) args.push_back(it->second);
  }
  return args;
}

std::string ParamValue(const TuningParam& param, const SettingValues& values) {
  const auto it = values.find(param.option);
  if (param.kind == ParamKind::kFlag) return it == values.end() ? "0" : "1";
  if (it == values.end()) return "";
  return param.field < 0 ? it->second : Fields(it->second).at(param.field);
}

BlurSettings ParseRequest(const CommandSpec& command, const SettingValues& start,
                          const std::multimap<std::string, std::string>& params, Size picture,
                          SettingValues* values) {
  *values = ApplyRequest(start, params);
  const BlurSettings settings = ParseBlurSettings(Options(command, SettingArgs(*values)));
  FocusFor(settings, picture);
  return settings;
}

}  // namespace dofra_tool
