// DofraRefineWeightMap on a DofraInit handle with a weight context from
// weight_init, with any frame and disparity sizes, request, DepthData header,
// guide record and tuning. Input: the leading record, then the pattern that
// fills the guide frame and the disparity. A refusal logs and leaves the
// output untouched; an accepted call writes weights in 0..1024 only, and a
// second call (on the scratch of the first) writes the same map.
#include <vector>

#include "dofra_quality.h"
#include "fuzz/fuzz_support.h"

namespace {

constexpr int64_t kMaxPixels = 1 << 16;  // keeps one input fast
constexpr uint16_t kUntouched = 0xBEEF;

struct RefineInput {
  int32_t width, height, scale;
  int32_t disparity_width, disparity_height;
  int32_t context_width, context_height;  // weight_init's frame: usually the handle's
  int32_t guide_width, guide_height;      // the guide record's claim
  int32_t level, focus_x, focus_y;
  uint8_t flags;  // 1: null tuning, 2: null guide pixels, 4: the two sizes above
  DofraRefineTuning tuning;
  uint8_t header[DOFRA_DEPTH_HEADER_SIZE];
};

bool Small(int64_t w, int64_t h) { return w >= 1 && h >= 1 && w * h <= kMaxPixels; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  RefineInput in;
  const size_t used = TakeRecord(data, size, &in);
  if (!Small(in.width, in.height) || !Small(in.disparity_width, in.disparity_height)) return 0;
  const bool own_size = (in.flags & 4) == 0;
  DofraParams p = {in.width, in.height, in.disparity_width, in.disparity_height,
                   5,        0,         in.scale,           5};
  StartLogCount();
  DofraHandle* handle = nullptr;
  if (DofraInit(&handle, &p) != 0) return 0;
  FUZZ_CHECK(weight_deinit(handle) == 0);  // the blank record
  handle->weight = nullptr;
  DofraParams context = p;
  if (!own_size && Small(in.context_width, in.context_height)) {
    context.width = in.context_width;
    context.height = in.context_height;
  }
  if (weight_init(&context, handle) == 0) {
    std::vector<uint8_t> guide_bytes(static_cast<size_t>(in.width) * in.height * 3 / 2);
    Repeat(data + used, size - used, guide_bytes.data(), guide_bytes.size());
    std::vector<uint8_t> block(DOFRA_DEPTH_HEADER_SIZE +
                               static_cast<size_t>(in.disparity_width) * in.disparity_height);
    memcpy(block.data(), in.header, DOFRA_DEPTH_HEADER_SIZE);
    Repeat(data + used, size - used, block.data() + DOFRA_DEPTH_HEADER_SIZE,
           block.size() - DOFRA_DEPTH_HEADER_SIZE);
    const DofraGuide guide = {(in.flags & 2) ? nullptr : guide_bytes.data(),
                              own_size ? in.width : in.guide_width,
                              own_size ? in.height : in.guide_height};
    WeightParams request{in.level, in.focus_x, in.focus_y,
                         reinterpret_cast<DepthData*>(block.data())};
    const DofraRefineTuning* tuning = (in.flags & 1) ? nullptr : &in.tuning;
    std::vector<uint16_t> out(static_cast<size_t>(in.width) * in.height, kUntouched);
    g_log_lines = 0;
    const int result = DofraRefineWeightMap(&request, handle, &guide, tuning, out.data());
    FUZZ_CHECK(result == 0 || g_log_lines == 1);
    for (uint16_t w : out) FUZZ_CHECK(result == 0 ? w <= 1024 : w == kUntouched);
    if (result == 0) {
      std::vector<uint16_t> again(out.size(), kUntouched);
      FUZZ_CHECK(DofraRefineWeightMap(&request, handle, &guide, tuning, again.data()) == 0);
      FUZZ_CHECK(again == out);
    }
  }
  if (handle->weight != nullptr) weight_deinit(handle);
  handle->weight = nullptr;
  FUZZ_CHECK(DofraDeinit(handle) == 0);
  return 0;
}
