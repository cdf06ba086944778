// weight_init with any parameter record and handle total, then one
// weight_async_process with any request and DepthData block, weight_deinit.
// A refusal logs and leaves the output untouched; an accepted request writes
// weights in 0..1024 only.
#include <climits>
#include <vector>

#include "dofra_depth.h"
#include "fuzz/fuzz_support.h"

namespace {

constexpr int64_t kMaxBytes = 1 << 22;  // keeps one input fast
constexpr uint16_t kUntouched = 0xBEEF;

// The input's leading record; the rest is the disparity pattern.
struct WeightInput {
  DofraParams params;
  int32_t buffer_total, level, focus_x, focus_y;
  uint8_t header[DOFRA_DEPTH_HEADER_SIZE];
};

// The bytes weight_init would allocate, for sizes it does not refuse outright
// (in double: the products of any int32 sizes may leave 64 bits).
double ContextBytes(const DofraParams& p) {
  const double w = p.width, h = p.height, dw = p.disparity_width, dh = p.disparity_height;
  if (w < 1 || h < 1 || dw < 1 || dh < 1 || p.weight_kernel_size < 1) return 0;
  const double pad = p.weight_kernel_size / 2 * 2, pw = dw + pad, ph = dh + pad;
  return w * h * 2 + dw * dh * 2 + pw * ph + pw * (ph + 1) * 4;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  WeightInput in;
  const size_t used = TakeRecord(data, size, &in);
  const double bytes = ContextBytes(in.params);
  if (bytes > kMaxBytes && bytes <= INT32_MAX) return 0;

  StartLogCount();
  DofraHandle handle{};
  handle.buffer_total = in.buffer_total;
  const int init = weight_init(&in.params, &handle);
  FUZZ_CHECK(init == 0 || (g_log_lines >= 1 && handle.weight == nullptr));
  if (init != 0) return 0;
  const DofraParams& p = in.params;
  const size_t disparity = static_cast<size_t>(p.disparity_width) * p.disparity_height;
  std::vector<uint8_t> block(DOFRA_DEPTH_HEADER_SIZE + disparity);
  memcpy(block.data(), in.header, DOFRA_DEPTH_HEADER_SIZE);
  Repeat(data + used, size - used, block.data() + DOFRA_DEPTH_HEADER_SIZE, disparity);
  std::vector<uint16_t> out(static_cast<size_t>(p.width) * p.height, kUntouched);
  WeightParams request{in.level, in.focus_x, in.focus_y,
                       reinterpret_cast<DepthData*>(block.data())};

  g_log_lines = 0;
  const int result = weight_async_process(&request, &handle, out.data());
  FUZZ_CHECK(result == 0 || g_log_lines >= 1);
  for (uint16_t w : out) FUZZ_CHECK(result == 0 ? w <= 1024 : w == kUntouched);
  FUZZ_CHECK(weight_deinit(&handle) == 0);
  return 0;
}
