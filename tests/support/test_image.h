// Test helpers for kernels: seeded random planes and guarded buffers whose
// bytes past the end (and before the start) must stay untouched.
#ifndef DOFRA_TESTS_SUPPORT_TEST_IMAGE_H
#define DOFRA_TESTS_SUPPORT_TEST_IMAGE_H

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

// `size` usable bytes filled with `fill` at data(), `offset` bytes into the
// allocation (to misalign it), with kGuard sentinel bytes on both sides.
class GuardedBytes {
 public:
  static constexpr size_t kGuard = 64;
  static constexpr uint8_t kSentinel = 0xA5;
  GuardedBytes(size_t size, uint8_t fill, size_t offset = 0)
      : storage_(size + offset + 2 * kGuard, kSentinel), begin_(kGuard + offset), size_(size) {
    std::fill(data(), data() + size_, fill);
  }
  uint8_t* data() { return storage_.data() + begin_; }
  // True when no byte outside [data(), data() + size) was written.
  bool GuardsIntact() const {
    auto sentinel = [](uint8_t b) { return b == kSentinel; };
    return std::all_of(storage_.begin(), storage_.begin() + begin_, sentinel) &&
           std::all_of(storage_.begin() + begin_ + size_, storage_.end(), sentinel);
  }
  std::vector<uint8_t> Bytes() const {
    return std::vector<uint8_t>(storage_.begin() + begin_, storage_.begin() + begin_ + size_);
  }

 private:
  std::vector<uint8_t> storage_;
  size_t begin_, size_;
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

// FNV-1a, 64 bits, over a frame's bytes: the whole-frame digests.
inline uint64_t FrameDigest(const std::vector<uint8_t>& bytes) {
  uint64_t h = 1469598103934665603ull;
  for (uint8_t b : bytes) h = (h ^ b) * 1099511628211ull;
  return h;
}

// FNV-1a over a weight map's bytes, low byte first: the digests the weight
// tests pin.
inline uint64_t WeightMapDigest(const std::vector<uint16_t>& v) {
  uint64_t h = 1469598103934665603ull;
  for (uint16_t w : v) h = (((h ^ (w & 255)) * 1099511628211ull) ^ (w >> 8)) * 1099511628211ull;
  return h;
}

#endif  // DOFRA_TESTS_SUPPORT_TEST_IMAGE_H
