// Blurs one NV21 frame through the installed library's exported functions: a
// near subject on the left is in focus and must come back untouched, the far
// background must come back smoothed. Exits 1 on any failure.
#include <dofra_depth.h>
#include <ui/GraphicBuffer.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

constexpr int kWidth = 640, kHeight = 480, kScale = 4;
constexpr int kDispWidth = kWidth / 8, kDispHeight = kHeight / 8;
constexpr uint8_t kFarDisparity = 6, kNearDisparity = 9;
constexpr int kBlurLevel = 1;  // strongest

int Fail(const char* what) {
  fprintf(stderr, "dofra_consumer: %s\n", what);
  return 1;
}

// Calibration header (disparity 6 -> depth 100, 9 -> depth 50), then the map:
// the left third is the near subject, the rest is far background.
std::vector<uint8_t> MakeDepthBlock() {
  std::vector<uint8_t> block(DOFRA_DEPTH_HEADER_SIZE + kDispWidth * kDispHeight, kFarDisparity);
  DepthData header = {};
  header.calib_num = 1572864000;
  header.calib_den = 524288;
  header.map_scale_den = 1280;
  header.map_scale_num = 320;
  memcpy(block.data(), &header, sizeof header);
  uint8_t* disparity = block.data() + DOFRA_DEPTH_HEADER_SIZE;
  for (int y = 0; y < kDispHeight; ++y)
    memset(disparity + y * kDispWidth, kNearDisparity, kDispWidth / 3);
  return block;
}

// Sum of absolute differences between horizontal neighbours where weight == w.
long Roughness(const uint8_t* luma, const std::vector<uint16_t>& map, uint16_t w) {
  long sum = 0;
  for (int i = 0; i + 1 < kWidth * kHeight; ++i)
    if (map[i] == w && map[i + 1] == w) sum += labs(long(luma[i]) - luma[i + 1]);
  return sum;
}

}  // namespace

int main() {
  DofraParams params = {kWidth, kHeight, kDispWidth, kDispHeight, 5, 0, kScale, 5};
  DofraHandle* blur = nullptr;
  if (DofraInit(&blur, &params) != 0) return Fail("DofraInit refused");

  DofraHandle weights = {};  // the weight functions get a record of their own
  if (weight_init(&params, &weights) != 0) return Fail("weight_init refused");
  std::vector<uint8_t> block = MakeDepthBlock();
  WeightParams request = {kBlurLevel, kWidth / 6, kHeight / 2,
                          reinterpret_cast<DepthData*>(block.data())};
  std::vector<uint16_t> map(kWidth * kHeight);
  if (weight_async_process(&request, &weights, map.data()) != 0) return Fail("no weight map");
  if (map[(kHeight / 2) * kWidth + kWidth / 6] != 0) return Fail("focus point not sharp");
  if (map[kWidth - 1] != 1024) return Fail("background not fully blurred");

  android::GraphicBuffer frame(
      kWidth, kHeight, android::HAL_PIXEL_FORMAT_YCrCb_420_SP,
      android::GraphicBuffer::USAGE_SW_READ_OFTEN | android::GraphicBuffer::USAGE_SW_WRITE_OFTEN);
  uint8_t* pixels = frame.hostData();
  unsigned seed = 1;
  for (size_t i = 0; i < frame.hostSize(); ++i)
    pixels[i] = (seed = seed * 1103515245 + 12345) >> 24;
  const std::vector<uint8_t> original(pixels, pixels + frame.hostSize());

  DofraWeightMapInfo info = {{0, 0, 0}, map.data()};
  if (DofraCreateWeightMap(blur, &info) != 0) return Fail("DofraCreateWeightMap refused");
  if (DofraBlurImage(blur, &frame, &frame) != 0) return Fail("DofraBlurImage refused");

  for (int i = 0; i < kWidth * kHeight; ++i)
    if (map[i] == 0 && pixels[i] != original[i]) return Fail("in-focus pixel changed");
  const long before = Roughness(original.data(), map, 1024);
  const long after = Roughness(pixels, map, 1024);
  if (after * 4 > before) return Fail("background not smoothed");

  weight_deinit(&weights);
  DofraDeinit(blur);
  printf("dofra_consumer: ok (background roughness %ld -> %ld)\n", before, after);
  return 0;
}
