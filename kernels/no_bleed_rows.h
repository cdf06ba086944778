// The no-glow blur's constants, shared by its driver (blur/no_bleed.cpp), its
// scalar formulas and every instruction set's members. Data only.
#ifndef DOFRA_KERNELS_NO_BLEED_ROWS_H
#define DOFRA_KERNELS_NO_BLEED_ROWS_H

#include <cstdint>

namespace dofra {

// The pipeline's box: radius 2 (DofraInit forces the kernel size 5), 25
// samples. Column sums of 5 rows stay below 5 * 255 and box sums below
// 25 * 255: both fit words.
constexpr int kNoBleedRadius = 2;
constexpr int kNoBleedTaps = 2 * kNoBleedRadius + 1;
constexpr int kNoBleedArea = kNoBleedTaps * kNoBleedTaps;

// The widest reach of the mask: its pullback in frame pixels.
constexpr int kNoBleedMaxPullback = 8;

// The masked mean floor((2S + c) / (2c)) equals floor((S + c / 2) / c), and
// that is (N * R[c]) >> 17 with N = S + c / 2 and R[c] = ceil(2^17 / c), for
// every c in 1..24 and S in 0..255c (N < 2^13, N * R < 2^26; proved by an
// exhaustive test). Entries 0 and 25 are never used.
constexpr int kRecipShift = 17;
constexpr uint32_t kNoBleedRecip[kNoBleedArea + 1] = {
    0,     131072, 65536, 43691, 32768, 26215, 21846, 18725, 16384, 14564, 13108, 11916, 10923,
    10083, 9363,   8739,  8192,  7711,  7282,  6899,  6554,  6242,  5958,  5699,  5462,  0};

// The same table as byte planes of 32 entries for table-lookup instructions:
// R = (kRecipHigh << 16) + (kRecipMid << 8) + kRecipLow, so that
// (N * R) >> 17 == ((N * Rlow16 >> 16) + N * kRecipHigh) >> 1 in 16-bit lanes.
constexpr int kRecipPlane = 32;
constexpr uint8_t kRecipLow[kRecipPlane] = {0,   0,   0,  171, 0,  103, 86, 37, 0,  228, 52,
                                            140, 171, 99, 147, 35, 0,   31, 114, 243, 154, 98,
                                            70,  67,  86, 0,   0,  0,   0,  0,   0,   0};
constexpr uint8_t kRecipMid[kRecipPlane] = {0,  0,  0,  170, 128, 102, 85, 73, 64, 56, 51,
                                            46, 42, 39, 36,  34,  32,  30, 28, 26, 25, 24,
                                            23, 22, 21, 0,   0,   0,   0,  0,  0,  0};
constexpr uint8_t kRecipHigh[kRecipPlane] = {0, 2, 1};

}  // namespace dofra

#endif  // DOFRA_KERNELS_NO_BLEED_ROWS_H
