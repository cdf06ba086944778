// The exported handle functions, through libdofra_depth.so only.
#include <android/log.h>
#include <gtest/gtest.h>
#include <ui/GraphicBuffer.h>

#include <cctype>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <vector>

#include "dofra_depth.h"

namespace {

using android::GraphicBuffer;

class Log {
 public:
  Log() { host_log_set_sink(&Log::Sink, this); }
  ~Log() { host_log_set_sink(nullptr, nullptr); }
  std::vector<std::string> Texts() {
    std::lock_guard<std::mutex> lock(mutex_);
    return texts_;
  }
  void Clear() {
    std::lock_guard<std::mutex> lock(mutex_);
    texts_.clear();
  }

 private:
  static void Sink(int prio, const char* tag, const char* text, void* user) {
    auto* self = static_cast<Log*>(user);
    std::lock_guard<std::mutex> lock(self->mutex_);
    EXPECT_EQ(prio, 3);
    EXPECT_STREQ(tag, "Vellora-v1.1.0");
    self->texts_.push_back(text);
  }
  std::mutex mutex_;
  std::vector<std::string> texts_;
};

DofraParams Params(int w, int h, int scale) {
  return DofraParams{w, h, w / 8, h / 8, 3, 0, scale, 9};
}

std::unique_ptr<GraphicBuffer> Frame(int w, int h) {
  return std::make_unique<GraphicBuffer>(w, h, android::HAL_PIXEL_FORMAT_YCrCb_420_SP, 0x33);
}

void FillRandom(uint8_t* data, size_t size, uint32_t seed) {
  std::mt19937 rng(seed);
  for (size_t i = 0; i < size; ++i) data[i] = static_cast<uint8_t>(rng());
}

std::vector<uint16_t> RandomWeights(int w, int h, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint16_t> map(static_cast<size_t>(w) * h);
  for (uint16_t& v : map) v = static_cast<uint16_t>(rng() % 1025);
  return map;
}

// A handle with a weight map installed; released at scope exit.
struct Ready {
  Ready(int w, int h, int scale) : width(w), height(h), weights(RandomWeights(w, h, 7)) {
    DofraParams params = Params(w, h, scale);
    EXPECT_EQ(DofraInit(&handle, &params), 0);
    DofraWeightMapInfo info{{0, 0, 0}, weights.data()};
    EXPECT_EQ(DofraCreateWeightMap(handle, &info), 0);
  }
  ~Ready() { EXPECT_EQ(DofraDeinit(handle), 0); }
  int width, height;
  std::vector<uint16_t> weights;
  DofraHandle* handle = nullptr;
};

// "<prefix><digits>.<3 digits> ms\n"
bool IsTiming(const std::string& text, const std::string& prefix) {
  if (text.rfind(prefix, 0) != 0) return false;
  const std::string rest = text.substr(prefix.size());
  const size_t dot = rest.find('.');
  if (dot == 0 || dot == std::string::npos || rest.substr(dot + 4) != " ms\n") return false;
  for (size_t i = 0; i < dot + 4; ++i) {
    if (i != dot && !isdigit(static_cast<unsigned char>(rest[i]))) return false;
  }
  return true;
}

size_t FrameBytes(int w, int h) { return static_cast<size_t>(w) * h * 3 / 2; }

TEST(HandleTest, InitWithoutOutPointerLogsOnlyTheBuildLine) {
  Log log;
  DofraParams params = Params(64, 64, 2);
  EXPECT_EQ(DofraInit(nullptr, &params), 1);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_EQ(texts.size(), 1u);
  // The compiler's "Mmm dd yyyy" and "hh:mm:ss".
  const std::string prefix = "L 16, DofraInit: build time ";
  ASSERT_EQ(texts[0].rfind(prefix, 0), 0u) << texts[0];
  char month[4] = {};
  int day = 0, year = 0, hh = 0, mm = 0, ss = 0;
  EXPECT_EQ(sscanf(texts[0].c_str() + prefix.size(), "%3s %d %d %d:%d:%d", month, &day, &year, &hh,
                   &mm, &ss),
            6)
      << texts[0];
  EXPECT_EQ(texts[0].size(), prefix.size() + 21) << texts[0];
  EXPECT_EQ(texts[0].back(), '\n');
}

TEST(HandleTest, InitRefusesMissingParamsWithoutAllocating) {
  Log log;
  DofraHandle* handle = nullptr;
  EXPECT_EQ(DofraInit(&handle, nullptr), 1);
  EXPECT_EQ(handle, nullptr);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_EQ(texts.size(), 2u);
  EXPECT_EQ(texts[1], "L 18, DofraInit: invalid params\n");
}

TEST(HandleTest, InitForcesKernelSizesAndLogsTheBufferSum) {
  Log log;
  DofraParams params = Params(1920, 1080, 4);
  DofraHandle* handle = nullptr;
  ASSERT_EQ(DofraInit(&handle, &params), 0);
  EXPECT_EQ(params.blur_kernel_size, 5);
  EXPECT_EQ(params.weight_kernel_size, 5);
  EXPECT_EQ(handle->buffer_total, 6088608);
  EXPECT_EQ(handle->band_count, 2);
  EXPECT_EQ(handle->width, 1920);
  EXPECT_EQ(handle->height, 1080);
  EXPECT_NE(handle->weight, nullptr);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_EQ(texts.size(), 3u);
  EXPECT_EQ(texts[1], "L 48, DofraInit: DofraInit: buffer sum: 5945 KB\n");
  EXPECT_TRUE(IsTiming(texts[2], "L 49, DofraInit: DofraInit: ")) << texts[2];
  EXPECT_EQ(DofraDeinit(handle), 0);
}

struct Refusal {
  int width, height, scale;
};

class RefusalTest : public ::testing::TestWithParam<Refusal> {};

TEST_P(RefusalTest, InitRefusesBeforeAllocatingAndReleasesEverything) {
  Log log;
  const Refusal r = GetParam();
  DofraParams params = Params(r.width, r.height, r.scale);
  DofraHandle* handle = nullptr;
  EXPECT_EQ(DofraInit(&handle, &params), 1);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_EQ(texts.size(), 2u);
  const std::string prefix = "L 40, blur_init: refusing " + std::to_string(r.width) + "x" +
                             std::to_string(r.height) + " at scale " + std::to_string(r.scale) +
                             ": ";
  EXPECT_EQ(texts[1].rfind(prefix, 0), 0u) << texts[1];
  EXPECT_EQ(texts[1].back(), '\n');
}

INSTANTIATE_TEST_SUITE_P(Frames, RefusalTest,
                         ::testing::Values(Refusal{1920, 1080, 3}, Refusal{1920, 1080, 0},
                                           Refusal{1920, 1080, 9}, Refusal{1920, 1080, -4},
                                           Refusal{1280, 720, 6}));

TEST(HandleTest, NullHandlesAreRefused) {
  Log log;
  EXPECT_EQ(DofraDeinit(nullptr), 1);
  DofraWeightMapInfo info{{0, 0, 0}, nullptr};
  EXPECT_EQ(DofraCreateWeightMap(nullptr, &info), 1);
  EXPECT_TRUE(log.Texts().empty());
}

TEST(HandleTest, CreateWeightMapRefusesMissingRecords) {
  Ready ready(64, 64, 2);
  Log log;
  EXPECT_EQ(DofraCreateWeightMap(ready.handle, nullptr), 1);
  WeightContext* const weight = ready.handle->weight;
  ready.handle->weight = nullptr;
  DofraWeightMapInfo info{{0, 0, 0}, ready.weights.data()};
  EXPECT_EQ(DofraCreateWeightMap(ready.handle, &info), 1);
  ready.handle->weight = weight;
  EXPECT_EQ(DofraCreateWeightMap(ready.handle, &info), 0);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_EQ(texts.size(), 3u);
  EXPECT_EQ(texts[0], "L 118, DofraCreateWeightMap: invalid weight map info\n");
  EXPECT_EQ(texts[1], "L 120, DofraCreateWeightMap: handle has no weight context\n");
  EXPECT_TRUE(IsTiming(texts[2], "L 124, DofraCreateWeightMap: DofraCreateWeightMap: "))
      << texts[2];
}

struct BlurCheck {
  bool handle, src, dst;
  const char* expected;
};

class BlurArgumentTest : public ::testing::TestWithParam<BlurCheck> {};

TEST_P(BlurArgumentTest, ChecksRunInOrderBeforeAnyLock) {
  Ready ready(64, 64, 2);
  auto src = Frame(64, 64);
  auto dst = Frame(64, 64);
  const BlurCheck c = GetParam();
  Log log;
  EXPECT_EQ(DofraBlurImage(c.handle ? ready.handle : nullptr, c.src ? src.get() : nullptr,
                           c.dst ? dst.get() : nullptr),
            1);
  EXPECT_EQ(log.Texts(), std::vector<std::string>{c.expected});
  EXPECT_EQ(src->hostLockDepth(), 0);
  EXPECT_EQ(dst->hostLockDepth(), 0);
}

INSTANTIATE_TEST_SUITE_P(
    Order, BlurArgumentTest,
    ::testing::Values(BlurCheck{false, false, false, "L 139, DofraBlurImage: invalid handle\n"},
                      BlurCheck{false, true, true, "L 139, DofraBlurImage: invalid handle\n"},
                      BlurCheck{true, false, false, "L 144, DofraBlurImage: invalid Src_YUV\n"},
                      BlurCheck{true, true, false, "L 149, DofraBlurImage: invalid Output_YUV\n"}));

TEST(HandleTest, BlurRefusesAHandleWithoutAWeightMap) {
  DofraParams params = Params(64, 64, 2);
  DofraHandle* handle = nullptr;
  ASSERT_EQ(DofraInit(&handle, &params), 0);
  auto frame = Frame(64, 64);
  Log log;
  EXPECT_EQ(DofraBlurImage(handle, frame.get(), frame.get()), 1);
  EXPECT_EQ(log.Texts(),
            std::vector<std::string>{
                "L 154, DofraBlurImage: no weight map: call DofraCreateWeightMap first\n"});
  EXPECT_EQ(frame->hostLockDepth(), 0);
  EXPECT_EQ(DofraDeinit(handle), 0);
}

TEST(HandleTest, LockFailuresLeaveWhatWasLocked) {
  Ready ready(64, 64, 2);
  auto src = Frame(64, 64);
  auto dst = Frame(64, 64);
  Log log;
  src->hostFailLocks(-12);
  EXPECT_EQ(DofraBlurImage(ready.handle, src.get(), dst.get()), 1);
  EXPECT_EQ(src->hostLockDepth(), 0);
  EXPECT_EQ(dst->hostLockDepth(), 0);
  src->hostFailLocks(0);
  dst->hostFailLocks(-12);
  EXPECT_EQ(DofraBlurImage(ready.handle, src.get(), dst.get()), 1);
  EXPECT_EQ(src->hostLockDepth(), 1);  // deliberately not unwound
  EXPECT_EQ(src->hostLastLockUsage(), 3u);
  EXPECT_EQ(dst->hostLockDepth(), 0);
  src->unlock();
  EXPECT_EQ(log.Texts(),
            (std::vector<std::string>{"L 163, DofraBlurImage: Src_YUV lock(...) failed\n",
                                      "L 169, DofraBlurImage: Output_YUV lock(...) failed\n"}));
}

// Blurs `src` into a fresh buffer and returns its bytes; locks are balanced.
std::vector<uint8_t> BlurCopy(DofraHandle* handle, GraphicBuffer* src, int w, int h) {
  auto dst = Frame(w, h);
  memset(dst->hostData(), 101, dst->hostSize());
  EXPECT_EQ(DofraBlurImage(handle, src, dst.get()), 0);
  EXPECT_EQ(src->hostLockDepth(), 0);
  EXPECT_EQ(dst->hostLockDepth(), 0);
  EXPECT_EQ(dst->hostLastLockUsage(), 48u);
  return std::vector<uint8_t>(dst->hostData(), dst->hostData() + FrameBytes(w, h));
}

class FactorTest : public ::testing::TestWithParam<int> {};

TEST_P(FactorTest, InPlaceEqualsOutOfPlace) {
  const int w = 384, h = 216;
  Ready ready(w, h, GetParam());
  auto src = Frame(w, h);
  FillRandom(src->hostData(), src->hostSize(), 11);
  const std::vector<uint8_t> input(src->hostData(), src->hostData() + src->hostSize());
  const std::vector<uint8_t> out = BlurCopy(ready.handle, src.get(), w, h);
  EXPECT_EQ(std::vector<uint8_t>(src->hostData(), src->hostData() + src->hostSize()), input);
  EXPECT_NE(out, input);

  EXPECT_EQ(DofraBlurImage(ready.handle, src.get(), src.get()), 0);
  EXPECT_EQ(src->hostLockDepth(), 0);
  EXPECT_EQ(std::vector<uint8_t>(src->hostData(), src->hostData() + src->hostSize()), out);
}

TEST_P(FactorTest, AWiderBufferStrideIsIgnored) {
  const int w = 384, h = 216;
  Ready ready(w, h, GetParam());
  auto plain = Frame(w, h);
  auto wide = Frame(w, h);
  wide->hostSetStride(w + 64);
  ASSERT_EQ(wide->getStride(), static_cast<uint32_t>(w + 64));
  FillRandom(plain->hostData(), plain->hostSize(), 5);
  FillRandom(wide->hostData(), wide->hostSize(), 5);  // same first bytes
  auto dst_wide = Frame(w, h);
  dst_wide->hostSetStride(w + 64);
  memset(dst_wide->hostData(), 101, dst_wide->hostSize());

  const std::vector<uint8_t> expected = BlurCopy(ready.handle, plain.get(), w, h);
  ASSERT_EQ(DofraBlurImage(ready.handle, wide.get(), dst_wide.get()), 0);
  const uint8_t* out = dst_wide->hostData();
  EXPECT_EQ(std::vector<uint8_t>(out, out + FrameBytes(w, h)), expected);
  for (size_t i = FrameBytes(w, h); i < dst_wide->hostSize(); ++i) ASSERT_EQ(out[i], 101) << i;
}

INSTANTIATE_TEST_SUITE_P(Factors, FactorTest, ::testing::Values(2, 4, 6, 8));

TEST(HandleTest, OddChromaHeightLeavesTheLastChromaRowUnwritten) {
  const int w = 64, h = 38;  // 19 chroma rows: two bands of 9
  Ready ready(w, h, 2);
  auto src = Frame(w, h);
  FillRandom(src->hostData(), src->hostSize(), 3);
  std::vector<uint8_t> runs[2];
  for (int run = 0; run < 2; ++run) {
    auto dst = Frame(w, h);
    memset(dst->hostData(), run == 0 ? 1 : 101, dst->hostSize());
    ASSERT_EQ(DofraBlurImage(ready.handle, src.get(), dst.get()), 0);
    runs[run].assign(dst->hostData(), dst->hostData() + FrameBytes(w, h));
  }
  const size_t last_row = FrameBytes(w, h) - w;
  // Every other byte is written (equal under both fills); the last row is not.
  EXPECT_TRUE(std::equal(runs[0].begin(), runs[0].begin() + last_row, runs[1].begin()));
  for (size_t i = last_row; i < runs[0].size(); ++i) {
    ASSERT_EQ(runs[0][i], 1);
    ASSERT_EQ(runs[1][i], 101);
  }
}

int FrameNumber(const std::string& text) {
  const std::string prefix = "L 224, DofraBlurImage: DofraBlurImage ";
  const size_t colon = text.find(": ", prefix.size());
  EXPECT_NE(colon, std::string::npos) << text;
  if (colon == std::string::npos) return -1;
  EXPECT_TRUE(IsTiming(text, text.substr(0, colon + 2))) << text;
  return std::stoi(text.substr(prefix.size(), colon - prefix.size()));
}

TEST(HandleTest, TheFrameCounterIsSharedByHandles) {
  Ready a(64, 64, 2);
  Ready b(128, 96, 4);
  auto fa = Frame(64, 64);
  auto fb = Frame(128, 96);
  Log log;
  ASSERT_EQ(DofraBlurImage(a.handle, fa.get(), fa.get()), 0);
  ASSERT_EQ(DofraBlurImage(b.handle, fb.get(), fb.get()), 0);
  ASSERT_EQ(DofraBlurImage(a.handle, fa.get(), fa.get()), 0);
  const std::vector<std::string> texts = log.Texts();
  ASSERT_EQ(texts.size(), 3u);
  const int first = FrameNumber(texts[0]);
  EXPECT_GE(first, 1);
  EXPECT_EQ(FrameNumber(texts[1]), first + 1);
  EXPECT_EQ(FrameNumber(texts[2]), first + 2);
}

}  // namespace
