// DofraInit with any parameter record; when it is accepted, one weight map
// and one frame blurred out of place and in place, then DofraDeinit.
// Input: the DofraParams record, then a weight pattern and a frame pattern
// (each half of the rest). Weights above 1024 are outside the contract, so
// their values are not judged; in place and out of place must still agree.
#include <ui/GraphicBuffer.h>

#include <climits>
#include <memory>
#include <vector>

#include "dofra_depth.h"
#include "fuzz/fuzz_support.h"

namespace {

constexpr int64_t kMaxPixels = 1 << 16;  // keeps one input fast
// From here W * H * 3 leaves 32 bits and DofraInit refuses before allocating.
constexpr int64_t kRefusedPixels = INT32_MAX / 3 + 1;

using android::GraphicBuffer;

GraphicBuffer* NewFrame(const DofraParams& p) {
  return new GraphicBuffer(p.width, p.height, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  DofraParams params;
  const size_t used = TakeRecord(data, size, &params);
  const int64_t pixels = int64_t{params.width} * params.height;
  if (params.width > 0 && params.height > 0 && pixels > kMaxPixels && pixels < kRefusedPixels)
    return 0;

  StartLogCount();
  DofraHandle* handle = nullptr;
  const int init = DofraInit(&handle, &params);
  FUZZ_CHECK(params.blur_kernel_size == 5 && params.weight_kernel_size == 5);
  if (init != 0) {
    FUZZ_CHECK(LogLines() >= 2);  // the build-time line and the reason
    return 0;
  }
  const size_t half = (size - used) / 2;
  std::vector<uint16_t> weights(static_cast<size_t>(pixels));
  Repeat(data + used, half, weights.data(), weights.size());
  std::unique_ptr<GraphicBuffer> src(NewFrame(params)), dst(NewFrame(params)),
      in_place(NewFrame(params));
  Repeat(data + used + half, size - used - half, src->hostData(), src->hostSize());
  memcpy(dst->hostData(), src->hostData(), src->hostSize());
  memcpy(in_place->hostData(), src->hostData(), src->hostSize());

  FUZZ_CHECK(DofraBlurImage(handle, src.get(), dst.get()) == 1);  // no weight map yet
  DofraWeightMapInfo info{{0, 0, 0}, weights.data()};
  FUZZ_CHECK(DofraCreateWeightMap(handle, &info) == 0);
  FUZZ_CHECK(DofraBlurImage(handle, src.get(), dst.get()) == 0);
  FUZZ_CHECK(DofraBlurImage(handle, in_place.get(), in_place.get()) == 0);
  FUZZ_CHECK(memcmp(dst->hostData(), in_place->hostData(), dst->hostSize()) == 0);
  FUZZ_CHECK(DofraDeinit(handle) == 0);
  return 0;
}
