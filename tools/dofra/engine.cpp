#include "engine.h"

#include <android/log.h>
#include <ui/GraphicBuffer.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "convert.h"

namespace dofra_tool {

namespace {

constexpr int kKernelSize = 5;    // what DofraInit forces in any case
constexpr int kDisparityDiv = 8;  // frame pixels per disparity sample
constexpr int kMaxPadding = 64;   // how far NearestAccepted looks from a size
constexpr int kFullWeight = 1024;
constexpr uint32_t kFrameUsage =
    android::GraphicBuffer::USAGE_SW_READ_OFTEN | android::GraphicBuffer::USAGE_SW_WRITE_OFTEN;

std::atomic<bool> g_log_visible{false};

void DropLine(int, const char*, const char*, void*) {}

void ApplyLogSink(bool visible) { host_log_set_sink(visible ? nullptr : DropLine, nullptr); }

DofraParams MakeParams(Size frame, Size disparity, int scale) {
  DofraParams params{};
  params.width = frame.width;
  params.height = frame.height;
  params.disparity_width = disparity.width;
  params.disparity_height = disparity.height;
  params.blur_kernel_size = kKernelSize;
  params.scale_factor = scale;
  params.weight_kernel_size = kKernelSize;
  return params;
}

template <typename T>
void PutField(std::vector<uint8_t>* block, size_t offset, T value) {
  std::memcpy(block->data() + offset, &value, sizeof(value));
}

}  // namespace

void SetLibraryLogVisible(bool visible) {
  g_log_visible = visible;
  ApplyLogSink(visible);
}

LogSilence::LogSilence() { ApplyLogSink(false); }
LogSilence::~LogSilence() { ApplyLogSink(g_log_visible); }

// The library picks its kernels once per process, the widest set the CPU
// has; it exports nothing that names the choice, so the tool repeats the
// same detection.
const char* DetectedKernels() {
#if defined(__x86_64__) || defined(__i386__)
  if (__builtin_cpu_supports("avx2")) return "avx2";
  if (__builtin_cpu_supports("sse4.1")) return "sse4.1";
  return "scalar";
#elif defined(__aarch64__)
  return "neon";
#else
  return "scalar";
#endif
}

Size DefaultDisparitySize(Size frame) {
  return Size{std::max(1, frame.width / kDisparityDiv), std::max(1, frame.height / kDisparityDiv)};
}

namespace {

// A DofraInit handle for the refined map, at the first factor it accepts
// the frame at, its blank weight record released; nullptr when it accepts
// none.
DofraHandle* OpenRefineHandle(Size frame, Size disparity) {
  LogSilence silence;
  for (int scale : {8, 4, 2, 6}) {
    DofraParams params = MakeParams(frame, disparity, scale);
    DofraHandle* handle = nullptr;
    // After a refusal the handle pointer names released memory: never use it.
    if (DofraInit(&handle, &params) != 0) continue;
    weight_deinit(handle);  // the blank record: weight_init would lose it
    handle->weight = nullptr;
    return handle;
  }
  return nullptr;
}

void CloseHandle(DofraHandle* handle, DofraHandle* record) {
  if (handle->weight != nullptr) weight_deinit(handle);
  handle->weight = nullptr;
  if (handle != record) DofraDeinit(handle);
}

}  // namespace

WeightMapper::WeightMapper(Size frame, Size disparity, MapMethod method)
    : frame_(frame),
      disparity_(disparity),
      method_(method),
      depth_block_(DOFRA_DEPTH_HEADER_SIZE +
                   static_cast<size_t>(disparity.width) * disparity.height),
      weights_(static_cast<size_t>(frame.width) * frame.height) {
  const std::string refusal = "the library refuses a " + SizeText(frame) + " weight map from a " +
                              SizeText(disparity) + " disparity map";
  if (method == MapMethod::kRefined) handle_ = OpenRefineHandle(frame, disparity);
  if (handle_ == nullptr) throw InputError(refusal + " (no DofraInit handle for that frame)");
  DofraParams params = MakeParams(frame, disparity, 0);
  if (method == MapMethod::kUnsmoothed) params.weight_kernel_size = 1;
  if (weight_init(&params, handle_) != 0) {
    // A context that failed half way still holds what it allocated.
    CloseHandle(handle_, &record_);
    throw InputError(refusal);
  }
}

WeightMapper::~WeightMapper() { CloseHandle(handle_, &record_); }

void WeightMapper::SetDepth(const Calibration& calib, const Image& disparity) {
  std::fill(depth_block_.begin(), depth_block_.begin() + DOFRA_DEPTH_HEADER_SIZE, 0);
  PutField(&depth_block_, offsetof(DepthData, calib_num), calib.calib_num);
  PutField(&depth_block_, offsetof(DepthData, calib_den), calib.calib_den);
  PutField(&depth_block_, offsetof(DepthData, map_scale_den), calib.map_scale_den);
  PutField(&depth_block_, offsetof(DepthData, map_scale_num), calib.map_scale_num);
  std::memcpy(depth_block_.data() + DOFRA_DEPTH_HEADER_SIZE, disparity.pixels.data(),
              depth_block_.size() - DOFRA_DEPTH_HEADER_SIZE);
}

bool WeightMapper::Compute(int level, Point focus) {
  WeightParams request{};
  request.level = level;
  request.focus_x = focus.x;
  request.focus_y = focus.y;
  request.depth = reinterpret_cast<DepthData*>(depth_block_.data());
  if (method_ != MapMethod::kRefined)
    return weight_async_process(&request, handle_, weights_.data()) == 0;
  const DofraGuide guide = {guide_, frame_.width, frame_.height};
  return DofraRefineWeightMap(&request, handle_, &guide, tuning_, weights_.data()) == 0;
}

Image WeightPictureOf(const uint16_t* weights, Size size) {
  Image picture(size.width, size.height, 1);
  for (size_t i = 0; i < picture.pixels.size(); ++i) {
    const int w = std::min<int>(weights[i], kFullWeight);
    picture.pixels[i] = static_cast<uint8_t>((w * 255 + kFullWeight / 2) / kFullWeight);
  }
  return picture;
}

BlurSession::BlurSession(Size frame, DofraHandle* handle)
    : frame_(frame),
      handle_(handle),
      src_(new android::GraphicBuffer(frame.width, frame.height,
                                      android::HAL_PIXEL_FORMAT_YCrCb_420_SP, kFrameUsage)),
      dst_(new android::GraphicBuffer(frame.width, frame.height,
                                      android::HAL_PIXEL_FORMAT_YCrCb_420_SP, kFrameUsage)) {}

std::unique_ptr<BlurSession> BlurSession::Open(Size frame, int scale) {
  DofraParams params = MakeParams(frame, DefaultDisparitySize(frame), scale);
  DofraHandle* handle = nullptr;
  // After a refusal the handle pointer names released memory: never use it.
  if (DofraInit(&handle, &params) != 0) return nullptr;
  return std::unique_ptr<BlurSession>(new BlurSession(frame, handle));
}

bool Accepts(Size frame, int scale) {
  DofraParams params = MakeParams(frame, DefaultDisparitySize(frame), scale);
  DofraHandle* handle = nullptr;
  LogSilence silence;
  // After a refusal the handle pointer names released memory: never use it.
  if (DofraInit(&handle, &params) != 0) return false;
  DofraDeinit(handle);
  return true;
}

Size NearestAccepted(Size frame, int scale, Direction direction) {
  const int sign = direction == Direction::kLarger ? 1 : -1;
  // The even size at or beyond frame in that direction.
  const int w0 = frame.width + sign * (frame.width & 1);
  const int h0 = frame.height + sign * (frame.height & 1);
  std::vector<Size> candidates;
  for (int dh = 0; dh <= kMaxPadding; dh += 2) {
    for (int dw = 0; dw <= kMaxPadding; dw += 2) {
      const Size size{w0 + sign * dw, h0 + sign * dh};
      if (size.width >= 2 && size.height >= 2) candidates.push_back(size);
    }
  }
  // Fewest pixels added or removed first; among equals, the least lopsided.
  const long long area0 = static_cast<long long>(w0) * h0;
  std::stable_sort(candidates.begin(), candidates.end(), [&](const Size& a, const Size& b) {
    const long long change_a = std::llabs(static_cast<long long>(a.width) * a.height - area0);
    const long long change_b = std::llabs(static_cast<long long>(b.width) * b.height - area0);
    if (change_a != change_b) return change_a < change_b;
    return std::max(std::abs(a.width - w0), std::abs(a.height - h0)) <
           std::max(std::abs(b.width - w0), std::abs(b.height - h0));
  });
  for (const Size& size : candidates) {
    if (Accepts(size, scale)) return size;
  }
  return Size{};
}

BlurSession::~BlurSession() { DofraDeinit(handle_); }

uint8_t* BlurSession::source() { return src_->hostData(); }
uint8_t* BlurSession::destination() { return dst_->hostData(); }

void BlurSession::PrimeDestination() {
  std::memcpy(dst_->hostData(), src_->hostData(), Nv21Bytes(frame_.width, frame_.height));
}

void BlurSession::SetWeights(uint16_t* weights) {
  info_.weight_map = weights;
  if (DofraCreateWeightMap(handle_, &info_) != 0) {
    throw std::runtime_error("the library did not take the weight map");
  }
}

void BlurSession::SetNoBleed(const DofraNoBleed& mode) {
  if (DofraSetNoBleed(handle_, &mode) != 0) {
    throw std::runtime_error("the library refused the no-glow blur (see --verbose)");
  }
}

bool BlurSession::Blur() { return DofraBlurImage(handle_, src_.get(), dst_.get()) == 0; }

}  // namespace dofra_tool
