// Host stand-in for libui's GraphicBuffer: CPU memory holding an NV21 frame.
#include <ui/GraphicBuffer.h>

#include <cstdlib>
#include <cstring>

namespace android {

namespace {
size_t Nv21Size(uint32_t stride, uint32_t height) {
  return static_cast<size_t>(stride) * height * 3 / 2;
}
}  // namespace

GraphicBuffer::GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat,
                             uint32_t inUsage, std::string /*requestorName*/)
    : width_(inWidth),
      height_(inHeight),
      stride_(inWidth),
      format_(inFormat),
      usage_(inUsage),
      data_(nullptr),
      size_(Nv21Size(inWidth, inHeight)),
      lock_status_(0),
      lock_depth_(0),
      last_lock_usage_(0) {
  data_ = static_cast<uint8_t*>(calloc(size_ ? size_ : 1, 1));
}

GraphicBuffer::~GraphicBuffer() { free(data_); }

status_t GraphicBuffer::lock(uint32_t inUsage, void** vaddr) {
  if (lock_status_ != 0) return lock_status_;
  if (vaddr == nullptr || data_ == nullptr) return -22;  // -EINVAL
  *vaddr = data_;
  ++lock_depth_;
  last_lock_usage_ = inUsage;
  return 0;
}

status_t GraphicBuffer::unlock() {
  if (lock_depth_ == 0) return -22;
  --lock_depth_;
  return 0;
}

uint32_t GraphicBuffer::getWidth() const { return width_; }
uint32_t GraphicBuffer::getHeight() const { return height_; }
uint32_t GraphicBuffer::getStride() const { return stride_; }
PixelFormat GraphicBuffer::getPixelFormat() const { return format_; }

void GraphicBuffer::hostSetStride(uint32_t stride) {
  if (stride < width_ || lock_depth_ != 0) return;
  uint8_t* data =
      static_cast<uint8_t*>(calloc(Nv21Size(stride, height_) ? Nv21Size(stride, height_) : 1, 1));
  if (data == nullptr) return;
  free(data_);
  data_ = data;
  stride_ = stride;
  size_ = Nv21Size(stride, height_);
}

void GraphicBuffer::hostFailLocks(status_t status) { lock_status_ = status; }
int GraphicBuffer::hostLockDepth() const { return lock_depth_; }
uint32_t GraphicBuffer::hostLastLockUsage() const { return last_lock_usage_; }
uint8_t* GraphicBuffer::hostData() { return data_; }
size_t GraphicBuffer::hostSize() const { return size_; }

}  // namespace android
