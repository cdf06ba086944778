// The view's request parameters: any bytes, split into key=value pairs at
// '&' and '=' as the server's decoded query would hold them, applied over
// the command line's settings and checked by the blur's own parsers. Bad
// input may only raise InputError; what is accepted is in range and reads
// back the same.
#include <map>
#include <string>

#include "cli.h"
#include "fuzz/fuzz_support.h"
#include "settings.h"
#include "view_params.h"

using namespace dofra_tool;

namespace {

constexpr Size kPicture{64, 48};

std::multimap<std::string, std::string> Params(const std::string& text) {
  std::multimap<std::string, std::string> params;
  size_t start = 0;
  while (start <= text.size()) {
    const size_t end = std::min(text.find('&', start), text.size());
    const std::string pair = text.substr(start, end - start);
    const size_t eq = pair.find('=');
    params.emplace(pair.substr(0, eq), eq == std::string::npos ? "" : pair.substr(eq + 1));
    start = end + 1;
  }
  return params;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const CommandSpec command = {"view", "", "", SettingOptions()};
  static const SettingValues start = StartValues(Options(command, {}), Point{32, 24});
  const std::string text(reinterpret_cast<const char*>(data), size);
  try {
    SettingValues values;
    const BlurSettings s = ParseRequest(command, start, Params(text), kPicture, &values);
    FUZZ_CHECK(s.level >= 1 && s.level <= 20);
    FUZZ_CHECK(s.scale == 2 || s.scale == 4 || s.scale == 6 || s.scale == 8);
    FUZZ_CHECK(s.focus.x >= 0 && s.focus.x < kPicture.width);
    FUZZ_CHECK(s.focus.y >= 0 && s.focus.y < kPicture.height);
    FUZZ_CHECK(s.calib.calib_den != 0 && s.calib.map_scale_den != 0);
    // The values it settled on, given back as a request, parse the same.
    std::multimap<std::string, std::string> again;
    for (const TuningParam& param : TuningParams())
      again.emplace(param.key, ParamValue(param, values));
    SettingValues values_again;
    const BlurSettings t = ParseRequest(command, start, again, kPicture, &values_again);
    FUZZ_CHECK(values_again == values);
    FUZZ_CHECK(t.level == s.level && t.scale == s.scale && t.focus.x == s.focus.x &&
               t.focus.y == s.focus.y && t.calib.calib_num == s.calib.calib_num);
  } catch (const InputError&) {
  }
  return 0;
}
