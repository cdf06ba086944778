// Test helpers for kernels: seeded random planes and guarded buffers whose
// bytes past the end (and before the start) must stay untouched.
#ifndef DOFRA_TESTS_SUPPORT_TEST_IMAGE_H
#define DOFRA_TESTS_SUPPORT_TEST_IMAGE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

// A byte buffer of `size` usable bytes at data(), `offset` bytes into the
// allocation (to misalign it), with kGuard sentinel bytes on both sides.
class GuardedBytes {
 public:
  static constexpr size_t kGuard = 64;
  GuardedBytes(size_t size, uint8_t fill, size_t offset = 0, uint8_t sentinel = 0xA5)
      : storage_(size + offset + 2 * kGuard, sentinel),
        size_(size),
        offset_(offset),
        sentinel_(sentinel) {
    std::fill(data(), data() + size_, fill);
  }
  uint8_t* data() { return storage_.data() + kGuard + offset_; }
  const uint8_t* data() const { return storage_.data() + kGuard + offset_; }
  size_t size() const { return size_; }
  // True when no byte outside [data(), data() + size()) was written.
  bool GuardsIntact() const {
    for (size_t i = 0; i < kGuard + offset_; ++i)
      if (storage_[i] != sentinel_) return false;
    for (size_t i = kGuard + offset_ + size_; i < storage_.size(); ++i)
      if (storage_[i] != sentinel_) return false;
    return true;
  }
  std::vector<uint8_t> Bytes() const { return std::vector<uint8_t>(data(), data() + size_); }

 private:
  std::vector<uint8_t> storage_;
  size_t size_;
  size_t offset_;
  uint8_t sentinel_;
};

inline void FillRandom(uint8_t* data, size_t size, std::mt19937& rng) {
  std::uniform_int_distribution<int> byte(0, 255);
  for (size_t i = 0; i < size; ++i) data[i] = static_cast<uint8_t>(byte(rng));
}

// Weights in 0..1024, with the extremes 0 and 1024 over-represented.
inline void FillRandomWeights(uint16_t* data, size_t size, std::mt19937& rng) {
  std::uniform_int_distribution<int> pick(0, 9);
  std::uniform_int_distribution<int> weight(0, 1024);
  for (size_t i = 0; i < size; ++i) {
    const int p = pick(rng);
    data[i] = static_cast<uint16_t>(p == 0 ? 0 : p == 1 ? 1024 : weight(rng));
  }
}

#endif  // DOFRA_TESTS_SUPPORT_TEST_IMAGE_H
