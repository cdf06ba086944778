// DofraInit with any parameter record; when it is accepted, one weight map
// and one frame blurred out of place and in place, then DofraDeinit.
// Input: the DofraParams record, then a weight pattern and a frame pattern
// (each half of the rest). Weights above 1024 are outside the contract, so
// their values are not judged; in place and out of place must still agree.
#include <ui/GraphicBuffer.h>

#include <climits>
#include <vector>

#include "dofra_depth.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr int64_t kMaxPixels = 1 << 16;  // keeps one input fast
  // From here W * H * 3 leaves 32 bits and DofraInit refuses before allocating.
  constexpr int64_t kRefusedPixels = INT32_MAX / 3 + 1;
  DofraParams p;
  const size_t used = TakeRecord(data, size, &p), half = (size - used) / 2;
  const int64_t pixels = int64_t{p.width} * p.height;
  if (p.width > 0 && p.height > 0 && pixels > kMaxPixels && pixels < kRefusedPixels) return 0;

  StartLogCount();
  DofraHandle* handle = nullptr;
  const int init = DofraInit(&handle, &p);
  FUZZ_CHECK(init == 0 || g_log_lines >= 2);  // the build-time line and the reason
  if (init != 0) return 0;
  std::vector<uint16_t> weights(static_cast<size_t>(pixels));
  Repeat(data + used, half, weights.data(), weights.size());
  android::GraphicBuffer src(p.width, p.height, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33),
      dst(p.width, p.height, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33),
      in_place(p.width, p.height, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
  Repeat(data + used + half, size - used - half, src.hostData(), src.hostSize());
  memcpy(dst.hostData(), src.hostData(), src.hostSize());
  memcpy(in_place.hostData(), src.hostData(), src.hostSize());

  DofraWeightMapInfo info{{0, 0, 0}, weights.data()};
  FUZZ_CHECK(DofraCreateWeightMap(handle, &info) == 0);
  FUZZ_CHECK(DofraBlurImage(handle, &src, &dst) == 0);
  FUZZ_CHECK(DofraBlurImage(handle, &in_place, &in_place) == 0);
  FUZZ_CHECK(memcmp(dst.hostData(), in_place.hostData(), dst.hostSize()) == 0);
  FUZZ_CHECK(DofraDeinit(handle) == 0);
  return 0;
}
