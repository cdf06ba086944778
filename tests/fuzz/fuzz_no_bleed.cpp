// DofraSetNoBleed with any mode record on a DofraInit handle made from any
// parameter record: switched on before and after a weight map is installed,
// frames blurred with it and after it is switched off. Input: the
// DofraParams record, the DofraNoBleed record, then a weight pattern and a
// frame pattern (each half of the rest). Whatever the record, in place and
// out of place agree, and a refused or off mode leaves the default bytes.
#include <ui/GraphicBuffer.h>

#include <climits>
#include <vector>

#include "dofra_quality.h"
#include "fuzz/fuzz_support.h"

namespace {

using Frame = android::GraphicBuffer;

std::vector<uint8_t> Blur(DofraHandle* handle, Frame* src, bool in_place) {
  Frame dst(src->getWidth(), src->getHeight(), android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
  Frame* out = in_place ? src : &dst;
  std::vector<uint8_t> keep(src->hostData(), src->hostData() + src->hostSize());
  memcpy(dst.hostData(), src->hostData(), src->hostSize());
  FUZZ_CHECK(DofraBlurImage(handle, src, out) == 0);
  std::vector<uint8_t> bytes(out->hostData(), out->hostData() + out->hostSize());
  memcpy(src->hostData(), keep.data(), keep.size());
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr int64_t kMaxPixels = 1 << 16;  // keeps one input fast
  // From here W * H * 3 leaves 32 bits and DofraInit refuses before allocating.
  constexpr int64_t kRefusedPixels = INT32_MAX / 3 + 1;
  DofraParams p;
  DofraNoBleed mode;
  size_t used = TakeRecord(data, size, &p);
  used += TakeRecord(data + used, size - used, &mode);
  const size_t half = (size - used) / 2;
  const int64_t pixels = int64_t{p.width} * p.height;
  if (p.width > 0 && p.height > 0 && pixels > kMaxPixels && pixels < kRefusedPixels) return 0;

  StartLogCount();
  DofraHandle* handle = nullptr;
  if (DofraInit(&handle, &p) != 0) return 0;
  // No map yet: switching on is refused with one line, off is taken.
  g_log_lines = 0;
  const int early = DofraSetNoBleed(handle, &mode);
  FUZZ_CHECK(mode.enable == 0 ? early == 0 : early == 1 && g_log_lines == 1);

  std::vector<uint16_t> weights(static_cast<size_t>(pixels));
  Repeat(data + used, half, weights.data(), weights.size());
  Frame src(p.width, p.height, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
  Repeat(data + used + half, size - used - half, src.hostData(), src.hostSize());
  DofraWeightMapInfo info{{0, 0, 0}, weights.data()};
  FUZZ_CHECK(DofraCreateWeightMap(handle, &info) == 0);
  const std::vector<uint8_t> plain = Blur(handle, &src, false);

  g_log_lines = 0;
  const int set = DofraSetNoBleed(handle, &mode);
  FUZZ_CHECK(set == 0 || (set == 1 && g_log_lines == 1));
  const std::vector<uint8_t> out = Blur(handle, &src, false);
  FUZZ_CHECK(Blur(handle, &src, true) == out);
  if (set != 0 || mode.enable == 0) FUZZ_CHECK(out == plain);
  const DofraNoBleed off = {0, 0, 0, 0};
  FUZZ_CHECK(DofraSetNoBleed(handle, &off) == 0);
  FUZZ_CHECK(Blur(handle, &src, false) == plain);
  FUZZ_CHECK(DofraDeinit(handle) == 0);
  return 0;
}
