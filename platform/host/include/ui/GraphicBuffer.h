// Host stand-in for the platform's graphics buffer (libui), with the API 27
// shapes of the calls the library makes. CPU memory only.
#ifndef DOFRA_HOST_UI_GRAPHICBUFFER_H
#define DOFRA_HOST_UI_GRAPHICBUFFER_H

#include <cstdint>
#include <string>

namespace android {

typedef int32_t status_t;
typedef int32_t PixelFormat;

enum { HAL_PIXEL_FORMAT_YCrCb_420_SP = 17 };  // NV21

class GraphicBuffer {
 public:
  enum {
    USAGE_SW_READ_OFTEN = 0x3,
    USAGE_SW_WRITE_OFTEN = 0x30,
  };

  GraphicBuffer(uint32_t inWidth, uint32_t inHeight, PixelFormat inFormat, uint32_t inUsage,
                std::string requestorName = "<Unknown>");
  ~GraphicBuffer();
  GraphicBuffer(const GraphicBuffer&) = delete;
  GraphicBuffer& operator=(const GraphicBuffer&) = delete;

  status_t lock(uint32_t inUsage, void** vaddr);
  status_t unlock();

  uint32_t getWidth() const;
  uint32_t getHeight() const;
  uint32_t getStride() const;
  PixelFormat getPixelFormat() const;

  // Host only. A row stride (in pixels) wider than the width; the NV21 memory
  // then holds stride * height * 3 / 2 bytes. Call before the first lock.
  void hostSetStride(uint32_t stride);
  // Host only: the next lock calls return this status (0 restores success).
  void hostFailLocks(status_t status);
  // Host only: how many locks are not yet unlocked, and the usage of the last lock.
  int hostLockDepth() const;
  uint32_t hostLastLockUsage() const;
  // Host only: the CPU memory and its size in bytes.
  uint8_t* hostData();
  size_t hostSize() const;

 private:
  uint32_t width_;
  uint32_t height_;
  uint32_t stride_;
  PixelFormat format_;
  [[maybe_unused]] uint32_t usage_;  // kept for the shape of the real record
  uint8_t* data_;
  size_t size_;
  status_t lock_status_;
  int lock_depth_;
  uint32_t last_lock_usage_;
};

}  // namespace android

#endif  // DOFRA_HOST_UI_GRAPHICBUFFER_H
