// Through the shared library: disparity -> weight map -> blurred frame. A
// subject in the focus band stays exactly sharp; the background is blurred.
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <cstring>
#include <random>
#include <vector>

#include "dofra_depth.h"

namespace {

constexpr int kW = 128, kH = 96, kDW = 32, kDH = 24;

// Worked-example calibration: disparity 6 -> depth 100 (far), 9 -> 50.
std::vector<uint8_t> MakeDepthBlock() {
  std::vector<uint8_t> block(DOFRA_DEPTH_HEADER_SIZE + kDW * kDH, 6);
  const int32_t a = 1572864000, b = 524288;
  const uint16_t m = 1280, n = 320;
  memcpy(&block[16], &a, 4);
  memcpy(&block[20], &b, 4);
  memcpy(&block[60], &m, 2);
  memcpy(&block[64], &n, 2);
  uint8_t* disparity = block.data() + DOFRA_DEPTH_HEADER_SIZE;
  for (int y = 6; y < 18; ++y)
    for (int x = 8; x < 24; ++x) disparity[y * kDW + x] = 9;  // the near subject
  return block;
}

TEST(WeightPath, SubjectInFocusStaysSharp) {
  DofraParams params = {kW, kH, kDW, kDH, 5, 0, 4, 5};
  DofraHandle* handle = nullptr;
  ASSERT_EQ(DofraInit(&handle, &params), 0);
  // The weight functions get a record of their own, so that the blank record
  // DofraInit attached stays owned (and released) by the blur handle.
  DofraHandle weights{};
  ASSERT_EQ(weight_init(&params, &weights), 0);

  std::vector<uint8_t> block = MakeDepthBlock();
  WeightParams request = {1, kW / 2, kH / 2, reinterpret_cast<DepthData*>(block.data())};
  std::vector<uint16_t> map(kW * kH, 0xFFFF);
  ASSERT_EQ(weight_async_process(&request, &weights, map.data()), 0);
  EXPECT_EQ(map[(kH / 2) * kW + kW / 2], 0) << "focus point sharp";
  EXPECT_EQ(map[0], 1024) << "background far outside the band";
  for (uint16_t w : map) ASSERT_LE(w, 1024);

  DofraWeightMapInfo info = {{0, 0, 0}, map.data()};
  ASSERT_EQ(DofraCreateWeightMap(handle, &info), 0);

  android::GraphicBuffer src(kW, kH, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0);
  android::GraphicBuffer dst(kW, kH, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0);
  std::mt19937 rng(5);
  for (size_t i = 0; i < src.hostSize(); ++i) src.hostData()[i] = static_cast<uint8_t>(rng());
  ASSERT_EQ(DofraBlurImage(handle, &src, &dst), 0);

  // Luma and chroma of the focused subject stay exactly sharp (a pair takes the
  // weight of the upper-left luma pixel of its block); the background blurs.
  int sharp = 0, blurred = 0;
  for (int i = 0; i < kW * kH * 3 / 2; ++i) {
    const int luma = i < kW * kH ? i : (i / kW - kH) * 2 * kW + (i % kW & ~1);
    ASSERT_TRUE(map[luma] != 0 || dst.hostData()[i] == src.hostData()[i]) << i;
    sharp += map[luma] == 0;
    blurred += map[luma] == 1024 && dst.hostData()[i] != src.hostData()[i];
  }
  EXPECT_GT(sharp, 16 * 12 * 16 / 2);
  EXPECT_GT(blurred, kW * kH / 3);

  EXPECT_EQ(weight_deinit(&weights), 0);
  EXPECT_EQ(DofraDeinit(handle), 0);
}

}  // namespace
