// The no-glow blur: its reciprocal table over the whole domain, whole frames
// against the rule written out pixel by pixel, the default frame wherever
// every sample counts or the mode is off, a digest, and the refusals.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "blur/blur_context.h"
#include "blur/dispatch.h"
#include "blur/frame_check.h"
#include "blur/no_bleed.h"
#include "dofra_quality.h"
#include "kernels/no_bleed_rows.h"
#include "support/log_capture.h"
#include "support/test_image.h"
#include "weight/weight_context.h"

using namespace dofra;  // the library's internal names

namespace {

constexpr int kR = kNoBleedRadius;

// Every count 1..24 and every sum 0..255c: the table's floor is the mean
// rounded half up, and the byte planes the vector members read rebuild it.
TEST(NoBleedRecip, ExactOverTheWholeDomain) {
  for (uint32_t c = 1; c < kNoBleedArea; ++c) {
    const uint32_t r = kNoBleedRecip[c];
    ASSERT_EQ(r, kRecipLow[c] + (kRecipMid[c] << 8) + (uint32_t(kRecipHigh[c]) << 16)) << c;
    for (uint32_t s = 0; s <= 255 * c; ++s) {
      const uint32_t n = s + c / 2;
      ASSERT_EQ((n * r) >> kRecipShift, (2 * s + c) / (2 * c)) << "c " << c << " S " << s;
      ASSERT_EQ(((n * (r & 0xFFFF) >> 16) + n * (r >> 16)) >> 1, (n * r) >> kRecipShift);
    }
  }
}

// A map at full weight but for discs of lower weight, stray pixels and a
// band across the whole width, so that masks hold runs of both values, rows
// of only one, and rows of none beside rows of all.
std::vector<uint16_t> DiscMap(int W, int H, uint16_t full, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint16_t> map(size_t(W) * H, full);
  for (int d = 0; d < 3; ++d) {
    const int cx = rng() % W, cy = rng() % (H / 2 + 1), rad = 1 + rng() % (W / 4 + 1);
    const uint16_t w = static_cast<uint16_t>(rng() % full);
    for (int y = 0; y < H; ++y)
      for (int x = 0; x < W; ++x)
        if ((x - cx) * (x - cx) + (y - cy) * (y - cy) < rad * rad) map[size_t(y) * W + x] = w;
  }
  for (int i = 0; i < W * H / 500; ++i) map[rng() % map.size()] = static_cast<uint16_t>(full - 1);
  std::fill(map.begin() + size_t(W) * (H * 3 / 4), map.begin() + size_t(W) * (H * 7 / 8), 0);
  return map;
}

// The rule of the header, pixel by pixel: one band per plane through the
// scalar formulas, the mask by its definition, the masked mean by division.
std::vector<uint8_t> Reference(int s, const std::vector<uint8_t>& src, int W, int H,
                               const std::vector<uint16_t>& map, uint16_t full, int pullback) {
  std::vector<uint8_t> out = src;
  const BlurKernelTable& k = kBlurKernelsC;
  const int slot = FactorSlot(s);
  const std::vector<uint16_t> kernel(5, 1024 / 5);
  for (int plane = 0; plane < 2; ++plane) {
    const int ph = plane ? H / 2 : H, sw = W / s, sh = plane ? H / s / 2 : H / s;
    const int lead = plane ? 2 : 1, block = plane ? 2 * s : s, map_h = plane ? 2 * (H / 2) : H;
    const int pw = sw + 2 * kR * lead;
    std::vector<uint8_t> tmp(size_t(ph) * sw), small(size_t(sw) * sh), smooth(small.size()),
        pad(size_t(pw) * (sh + 2 * kR)), integral(size_t(pw) * (sh + 2 * kR + 1) * 4),
        mask(small.size());
    const uint8_t* in = src.data() + (plane ? size_t(W) * H : 0);
    (plane ? k.shrink_uv : k.shrink_y)[slot](in, small.data(), tmp.data(), W, ph, sw, sh, 0,
                                             sh - 1);
    (plane ? k.smooth_uv : k.smooth_y)(small.data(), pad.data(), smooth.data(), sw, sh,
                                       kernel.data(), kR, kR, integral.data(), 0, sh - 1);
    for (int i = 0; i < sh; ++i)
      for (int x = 0; x < sw; ++x) {
        const int j = x / lead;
        bool all = true;
        for (int y = std::max(i * block - pullback, 0);
             y <= std::min(i * block + block - 1 + pullback, map_h - 1); ++y) {
          if (plane == 1 && y % 2 == 1) continue;  // chroma reads the even rows only
          for (int c = std::max(j * block - pullback, 0);
               c <= std::min(j * block + block - 1 + pullback, W - 1); ++c)
            all = all && map[size_t(y) * W + c] >= full;
        }
        mask[size_t(i) * sw + x] = all;
      }
    std::vector<uint8_t> masked = smooth;
    for (int y = 0; y < sh; ++y)
      for (int x = 0; x < sw; ++x) {
        int c = 0, sum = 0;
        for (int dy = -kR; dy <= kR; ++dy)
          for (int dx = -kR; dx <= kR; ++dx) {
            const int yy = std::clamp(y + dy, 0, sh - 1);
            const int xx = std::clamp(x / lead + dx, 0, sw / lead - 1) * lead + x % lead;
            c += mask[size_t(yy) * sw + xx];
            sum += mask[size_t(yy) * sw + xx] * small[size_t(yy) * sw + xx];
          }
        if (c > 0 && c < kNoBleedArea) masked[size_t(y) * sw + x] = uint8_t((2 * sum + c) / (2 * c));
      }
    (plane ? k.blend_uv : k.blend_y)[slot](in, W, ph, sw, sh, map.data(), masked.data(),
                                           out.data() + (plane ? size_t(W) * H : 0), 0,
                                           ph / 2 * 2 - 1);
  }
  return out;
}

struct Handle {
  Handle(int w, int h, int scale, const std::vector<uint16_t>& map) {
    DofraParams params{w, h, w / 8 + 1, h / 8 + 1, 5, 0, scale, 5};
    EXPECT_EQ(DofraInit(&handle, &params), 0);
    DofraWeightMapInfo info{{0, 0, 0}, const_cast<uint16_t*>(map.data())};
    EXPECT_EQ(DofraCreateWeightMap(handle, &info), 0);
  }
  ~Handle() { DofraDeinit(handle); }
  int Set(int enable, int level, int pullback, int threshold = DOFRA_NO_BLEED_THRESHOLD_DEFAULT) {
    const DofraNoBleed mode = {enable, level, pullback, threshold};
    return DofraSetNoBleed(handle, &mode);
  }
  // Out of place (into a copy of the frame: rows no band writes stay), or in place.
  std::vector<uint8_t> Blur(const std::vector<uint8_t>& frame, bool in_place = false) {
    std::vector<uint8_t> src = frame, dst = frame;
    uint8_t* out = in_place ? src.data() : dst.data();
    const size_t luma = frame.size() * 2 / 3;
    blur_process(handle, src.data(), src.data() + luma, out, out + luma, nullptr,
                 handle->weight->weight_map);
    return in_place ? src : dst;
  }
  DofraHandle* handle = nullptr;
};

std::vector<uint8_t> Frame(int w, int h, uint32_t seed) {
  std::mt19937 rng(seed);
  std::vector<uint8_t> f(size_t(w) * h * 3 / 2);
  FillRandom(f.data(), f.size(), rng);
  return f;
}

// Full weights of a few levels; 0 at level 20, where every sample counts.
const struct {
  int level;
  uint16_t full;
} kLevels[] = {{1, 1024}, {5, 960}, {20, 0}};

// Pullbacks at their extremes, each with a threshold in eighths of the full
// weight: the weight from which a map pixel counts is full * eighths / 8.
const struct {
  int pullback;
  int eighths;
} kRules[] = {{0, 8}, {3, DOFRA_NO_BLEED_THRESHOLD_DEFAULT}, {8, 1}};

// Accepted sizes of each factor, bands of a few strips included, under
// each rule: the pipeline gives the rule's bytes, in place too.
class NoBleedFrames : public ::testing::TestWithParam<int> {};

TEST_P(NoBleedFrames, AsTheRuleSays) {
  const int s = GetParam();
  const int sizes[][2] = {{12 * s, 12 * s}, {16 * s, 10 * s + 2}, {384, 264}, {200, 24 * s}};
  int runs = 0;
  for (const auto& size : sizes) {
    const int w = size[0], h = size[1];
    if (blur_frame_refusal(w, h, s, 5) != nullptr) continue;
    for (const auto& rule : kRules)
      for (const auto& l : kLevels) {
        const int pullback = rule.pullback;
        SCOPED_TRACE(testing::Message() << w << "x" << h << " x" << s << " pullback " << pullback
                                        << " threshold " << rule.eighths << " level " << l.level);
        const std::vector<uint16_t> map = DiscMap(w, h, l.full ? l.full : 1, w + pullback);
        const std::vector<uint8_t> frame = Frame(w, h, w * 7 + h);
        Handle handle(w, h, s, map);
        ASSERT_EQ(handle.Set(1, l.level, pullback, rule.eighths), 0);
        const uint16_t threshold = static_cast<uint16_t>(l.full * rule.eighths / 8);
        const std::vector<uint8_t> want = Reference(s, frame, w, h, map, threshold, pullback);
        ASSERT_EQ(handle.Blur(frame), want);
        ASSERT_EQ(handle.Blur(frame, true), want) << "in place";
        ++runs;
      }
  }
  EXPECT_GE(runs, 18);
}

INSTANTIATE_TEST_SUITE_P(Factors, NoBleedFrames, ::testing::Values(2, 4, 6, 8));

// Where every sample counts (a map at full weight, or level 20 whose full
// weight is 0) the frame is the default one; so it is after switching off,
// with the scratch kept.
TEST(NoBleed, DefaultBytesWhereEverySampleCountsAndWhenOff) {
  const int w = 384, h = 264;
  const std::vector<uint8_t> frame = Frame(w, h, 5);
  const std::vector<uint16_t> flat(size_t(w) * h, 1024), discs = DiscMap(w, h, 1024, 9);
  Handle handle(w, h, 4, discs);
  const std::vector<uint8_t> plain = handle.Blur(frame);
  const int32_t total = handle.handle->buffer_total;
  EXPECT_EQ(handle.handle->blur->no_bleed, nullptr) << "nothing before the first switch on";
  ASSERT_EQ(handle.Set(1, 20, 8), 0);
  const NoBleedState* state = handle.handle->blur->no_bleed;
  EXPECT_NE(state, nullptr);
  EXPECT_EQ(handle.Blur(frame), plain) << "level 20";
  ASSERT_EQ(handle.Set(1, 1, 3), 0);
  const std::vector<uint8_t> opt_in = handle.Blur(frame);
  EXPECT_NE(opt_in, plain);
  ASSERT_EQ(handle.Set(0, 0, 0), 0);
  EXPECT_EQ(handle.Blur(frame), plain) << "switched off";
  EXPECT_EQ(handle.handle->blur->no_bleed, state) << "the scratch stays";
  EXPECT_EQ(handle.handle->buffer_total, total);
  ASSERT_EQ(handle.Set(1, 1, 3), 0);
  EXPECT_EQ(handle.Blur(frame), opt_in) << "on again";
  Handle full(w, h, 4, flat);
  const std::vector<uint8_t> full_plain = full.Blur(frame);
  ASSERT_EQ(full.Set(1, 1, 8), 0);
  EXPECT_EQ(full.Blur(frame), full_plain) << "a map at full weight";
}

// The opt-in frame at each factor: the same bytes at every kernel level (this
// suite also runs with the scalar level forced).
TEST(NoBleed, DigestsAtEachFactor) {
  const uint64_t expected[] = {13086067750657218456ull, 4332549521432750696ull,
                               11070921004037473427ull, 9629424981645540707ull};
  const std::vector<uint8_t> frame = Frame(960, 540, 2026);
  const std::vector<uint16_t> map = DiscMap(960, 540, 1024, 2026);
  for (int i = 0; i < 4; ++i) {
    Handle handle(960, 540, 2 + 2 * i, map);
    ASSERT_EQ(handle.Set(1, 1, 3), 0);
    EXPECT_EQ(FrameDigest(handle.Blur(frame)), expected[i])
        << "x" << 2 + 2 * i << " at " << SimdLevelName(ActiveSimdLevel());
  }
}

struct Refusal {
  DofraNoBleed mode;
  int spoil;  // 0 none, 1 null handle, 2 null record, 3 a record not from DofraInit, 4 no map
  int line;
  const char* message;
};

// One line each, result 1, and the handle blurs as it did.
TEST(NoBleed, RefusalsLogReturnOneAndChangeNothing) {
  const Refusal cases[] = {
      {{1, 1, 3, 6}, 1, 70, "invalid handle"},
      {{1, 1, 3, 6}, 2, 72, "invalid mode record"},
      {{1, 1, 3, 6}, 3, 74, "handle not made by DofraInit"},
      {{2, 1, 3, 6}, 0, 76, "enable 2 is neither 0 nor 1"},
      {{-1, 1, 3, 6}, 0, 76, "enable -1 is neither 0 nor 1"},
      {{1, 0, 3, 6}, 0, 78, "invalid level 0"},
      {{1, 21, 3, 6}, 0, 78, "invalid level 21"},
      {{1, 1, -1, 6}, 0, 80, "pullback -1 outside 0..8"},
      {{1, 1, 9, 6}, 0, 80, "pullback 9 outside 0..8"},
      {{1, 1, 3, 0}, 0, 86, "threshold 0 outside 1..8"},
      {{1, 1, 3, 9}, 0, 86, "threshold 9 outside 1..8"},
      {{1, 1, 3, 6}, 4, 82, "no weight map: call DofraCreateWeightMap first"},
  };
  const int w = 192, h = 96;
  const std::vector<uint8_t> frame = Frame(w, h, 3);
  const std::vector<uint16_t> map = DiscMap(w, h, 1024, 3);
  for (bool on_before : {false, true}) {
    for (const Refusal& c : cases) {
      Handle handle(w, h, 4, map);
      if (on_before) {
        ASSERT_EQ(handle.Set(1, 1, 2), 0);
      }
      const std::vector<uint8_t> before = handle.Blur(frame);
      const NoBleedState* state = handle.handle->blur->no_bleed;
      DofraHandle record{};
      DofraHandle* target = c.spoil == 1 ? nullptr : c.spoil == 3 ? &record : handle.handle;
      uint16_t* installed = handle.handle->weight->weight_map;
      if (c.spoil == 4) handle.handle->weight->weight_map = nullptr;
      {
        LogCapture log;
        EXPECT_EQ(DofraSetNoBleed(target, c.spoil == 2 ? nullptr : &c.mode), 1) << c.message;
        EXPECT_EQ(log.Texts(), std::vector<std::string>{"L " + std::to_string(c.line) +
                                                        ", DofraSetNoBleed: " + c.message + "\n"});
      }
      handle.handle->weight->weight_map = installed;
      EXPECT_EQ(handle.handle->blur->no_bleed, state) << c.message;
      EXPECT_EQ(handle.Blur(frame), before) << c.message;
    }
  }
}

}  // namespace
