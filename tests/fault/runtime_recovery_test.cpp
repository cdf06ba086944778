// Faults on a live handle between frames: a lock that fails once, a weight
// map replaced (and the old one overwritten), DofraDeinit right after a
// frame. A refused frame writes nothing and the next frame equals the one
// the handle made before the fault (the refusals themselves are covered with
// the handle tests). ASan's leak check at exit covers the teardowns; the
// soak covers threads.
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "dofra_depth.h"

namespace {

using android::GraphicBuffer;
constexpr size_t kW = 640, kH = 480, kPixels = kW * kH;
constexpr uint8_t kUnwritten = 0x5A;

struct Rig {
  Rig() {
    for (size_t i = 0; i < src.hostSize(); ++i) src.hostData()[i] = i * 31 / 7;
    for (size_t i = 0; i < 2 * kPixels; ++i) weights[i] = i * (i < kPixels ? 1 : 3) % 1025;
    Open();
  }
  ~Rig() { EXPECT_EQ(DofraDeinit(handle), 0); }
  void Open() {
    DofraParams params{kW, kH, kW / 8, kH / 8, 5, 0, 4, 5};
    ASSERT_EQ(DofraInit(&handle, &params), 0);
    Install(0);
  }
  void Install(int map) {
    DofraWeightMapInfo info{{0, 0, 0}, weights.data() + map * kPixels};
    ASSERT_EQ(DofraCreateWeightMap(handle, &info), 0);
  }
  // Blurs into a destination of unwritten bytes.
  int Blur() {
    memset(dst.hostData(), kUnwritten, dst.hostSize());
    return DofraBlurImage(handle, &src, &dst);
  }
  std::vector<uint8_t> Output() { return {dst.hostData(), dst.hostData() + dst.hostSize()}; }

  DofraHandle* handle = nullptr;
  GraphicBuffer src{kW, kH, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33};
  GraphicBuffer dst{kW, kH, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33};
  std::vector<uint16_t> weights = std::vector<uint16_t>(2 * kPixels);  // two maps
};

struct RuntimeFault {
  const char* name;
  GraphicBuffer Rig::*failing_lock;  // fails for the faulty frame only
  int map_after;                     // map 1 replaces map 0, which is then overwritten
  bool reopen;                       // DofraDeinit and DofraInit right after the frame
};

const RuntimeFault kFaults[] = {
    {"SourceLockFailsOnce", &Rig::src, 0, false},
    {"DestinationLockFailsOnce", &Rig::dst, 0, false},
    {"MapReplaced", nullptr, 1, false},
    {"DeinitRightAfterAFrame", nullptr, 0, true},
};

class RuntimeRecovery : public ::testing::TestWithParam<RuntimeFault> {};

TEST_P(RuntimeRecovery, TheFrameAfterTheFaultIsExact) {
  const RuntimeFault& f = GetParam();
  Rig rig;
  rig.Install(f.map_after);
  ASSERT_EQ(rig.Blur(), 0);
  const std::vector<uint8_t> expected = rig.Output();
  rig.Install(0);

  if (f.failing_lock) (rig.*f.failing_lock).hostFailLocks(-12);
  EXPECT_EQ(rig.Blur(), f.failing_lock ? 1 : 0);
  if (f.failing_lock) {
    (rig.*f.failing_lock).hostFailLocks(0);
    EXPECT_EQ(rig.Output(), std::vector<uint8_t>(expected.size(), kUnwritten));
  }
  if (f.map_after != 0) {
    rig.Install(f.map_after);
    std::fill(rig.weights.begin(), rig.weights.begin() + kPixels, 0xFFFF);
  }
  if (f.reopen) {
    EXPECT_EQ(DofraDeinit(rig.handle), 0);
    rig.Open();
  }

  ASSERT_EQ(rig.Blur(), 0);
  EXPECT_EQ(rig.Output(), expected);
  EXPECT_EQ(rig.dst.hostLockDepth(), 0);
}

INSTANTIATE_TEST_SUITE_P(Faults, RuntimeRecovery, ::testing::ValuesIn(kFaults),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
