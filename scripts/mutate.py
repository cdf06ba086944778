#!/usr/bin/env python3
"""Plants one fault at a time in the library and the tool, rebuilds, runs the
tests that cover the faulty file and reports which test caught it.

usage: scripts/mutate.py [--only TEXT,...] [--arch x86_64|arm64] [--tests REGEX]
                         [--build-root DIR] [--jobs N] [--list]

Each mutant replaces one exact snippet, which must occur exactly once: a
missing or repeated snippet is an error that stops the run before anything is
built. NEON mutants (kernels/arm/) run in an arm64 cross build, their tests
under qemu-aarch64; the others in an x86-64 build. Each architecture has a
build directory of its own (DIR/build-mutate-ARCH), configured on every run
and rebuilt incrementally, and only the targets of the tests that SUITES maps
the mutated file to are built and run (--tests REGEX runs those instead,
building everything). The file is restored from memory whatever happens, and
from the copy kept in the build directory if a run was killed outright.

Exit status: 0 every mutant caught, 1 some survived, 2 an error (a stale
mutant, one that does not build, an unmutated tree that fails its tests).
"""
import argparse
import fnmatch
import os
import re
import shutil
import signal
import subprocess
import sys
import time
from collections import defaultdict

# (file, original snippet, replacement, label)
MUTANTS = [
    # Scalar formulas.
    ("kernels/fixed_point.h",
     "constexpr int TapRound(int factor) { return 1 << (TapShift(factor) - 1); }",
     "constexpr int TapRound(int factor) { return (1 << (TapShift(factor) - 1)) - (factor == 6); }",
     "shrink Y x6 rounding constant (all members)"),
    ("kernels/fixed_point.h",
     "static constexpr int kWeight[6] = {1, 1, 2, 2, 1, 1};",
     "static constexpr int kWeight[6] = {1, 2, 1, 2, 1, 1};",
     "shrink UV x6 swapped tap weight (scalar and SSE vertical)"),
    ("blur/composite_y.cpp",
     "return (q.s0[k] + q.s0[k + 1] + q.s1[k] + q.s1[k + 1] + 2) >> 2;",
     "return (q.s0[k] + q.s0[k + 1] + q.s1[k] + q.s1[k + 1] + 1) >> 2;",
     "composite Y x2 mean rounding (scalar)"),
    ("blur/composite_y.cpp",
     "(2 * q.s0[k] + 2 * q.s1[k] + 2) >> 2",
     "(2 * q.s0[k] + 2 * q.s1[k] + 1) >> 2",
     "composite Y x2 last two columns rounding (shared)"),
    ("blur/composite_y.cpp",
     "return Lerp8(top, bottom, (kFracOne - fy) & (kFracOne - 1), fy);",
     "return Lerp8(top, bottom, kFracOne - fy, fy);",
     "composite Y x6 fy=0 wrap dropped"),
    ("blur/composite_uv.cpp",
     "const int fx = (p % F) * kFracOne / F;",
     "const int fx = (p % F) * (kFracOne - 1) / F;",
     "composite UV x4/x8 phase fraction (scalar)"),
    ("blur/composite_uv.cpp",
     "for (int c = 0; c < kPair; ++c) b[c] = (2 * s0[k + c] + 2 * s1[k + c] + 2) >> 2;",
     "for (int c = 0; c < kPair; ++c) b[c] = (2 * s0[k + c] + 2 * s1[k + c]) >> 2;",
     "composite UV x2 edge pairs rounding (shared)"),
    ("kernels/fixed_point.h", "constexpr int kRound10 = 512;", "constexpr int kRound10 = 511;",
     "blend rounding constant (scalar)"),
    ("blur/smooth.cpp", "  return (t * w + kHalfQ10) >> kQ10Shift;\n}",
     "  return (t * w) >> kQ10Shift;\n}", "smooth second rounding dropped (scalar)"),
    ("weight/weight_map.cpp",
     "const uint8_t* r1 = smooth + std::min(iy + 1, dH - 1) * dW;",
     "const uint8_t* r1 = smooth + std::min(iy, dH - 1) * dW;",
     "weight interpolation wrong lower row (scalar)"),
    # Vectorised members.
    ("kernels/x86/shrink_y_x86.h",
     "_mm_setr_epi8(4, 5, 6, 7, 8, 9, 6, 7, 10, 11, 12, 13, 14, 15, 12, 13)",
     "_mm_setr_epi8(4, 5, 6, 7, 8, 9, 6, 7, 10, 11, 12, 13, 14, 15, 13, 13)",
     "shrink Y x6 SSE last shuffle"),
    ("kernels/x86/shrink_y_x86.h",
     "v = _mm_avg_epu8(Load16(column), Load16(column + w));",
     "v = _mm_avg_epu8(Load16(column), Load16(column + w + 1));",
     "shrink Y x2 SSE vertical wrong column"),
    ("kernels/x86/composite_y_x86.h", "for (; c + kX2Group <= W - 2; c += kX2Group) {",
     "for (; c + kX2Group <= W; c += kX2Group) {", "composite Y x2 SSE bulk bound off by two"),
    ("kernels/composite_uv_loops.h",
     "return bulk_pairs > 0 ? kPair * ((bulk_pairs - 1) / F + 2) : 0;",
     "return bulk_pairs > 0 ? kPair * ((bulk_pairs - 1) / F + 1) : 0;",
     "composite UV x4/x8 vector window too short"),
    ("kernels/smooth_loops.h", "constexpr int kNarrowMaxRadius = 5;",
     "constexpr int kNarrowMaxRadius = 6;", "smooth vector narrow path for radius 6"),
    ("kernels/x86/weight_sse41.cpp", "const __m128i last = _mm_set1_epi8(kShortDiffs - 1);",
     "const __m128i last = _mm_set1_epi8(kShortDiffs - 2);", "weight SSE distance clamp"),
    ("kernels/x86/weight_sse41.cpp", "  return op(v, _mm_srli_si128(v, 1));",
     "  return v;", "min/max SSE last lane fold dropped"),
    # SSE4.1 units (the *_x86.h steps above are compiled into both x86 levels).
    ("kernels/x86/smooth_sse41.cpp", ": _mm_shuffle_epi32(v, _MM_SHUFFLE(3, 2, 3, 2));",
     ": _mm_shuffle_epi32(v, _MM_SHUFFLE(2, 3, 2, 3));",
     "smooth UV SSE integral carry from the other channel's lane"),
    ("kernels/x86/composite_uv_sse41.cpp",
     "const __m128i unbias = _mm_set1_epi16(static_cast<int16_t>(0x8080));",
     "const __m128i unbias = _mm_set1_epi16(static_cast<int16_t>(0x8000));",
     "composite UV x6 SSE rounding dropped with the bias"),
    ("kernels/x86/composite_y_sse41.cpp", "  if (i < len) BlendStore8(q, c0 + i, vertical(i));",
     "  if (i + 8 < len) BlendStore8(q, c0 + i, vertical(i));",
     "composite Y x4/x6/x8 SSE strip misses its last group of 8"),
    # AVX2 units.
    ("kernels/x86/smooth_avx2.cpp", "    if (x > n - 16) x = n - 16;", "    if (x > n - 16) break;",
     "smooth AVX2 narrow row misses its overlapping last vector"),
    ("kernels/x86/weight_avx2.cpp", "_mm256_permute2x128_si256(first, second, 0x31)",
     "_mm256_permute2x128_si256(first, second, 0x13)",
     "weight AVX2 narrow row second group's halves swapped"),
    ("kernels/x86/shrink_y_avx2.cpp", "_mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7)",
     "_mm256_setr_epi32(0, 4, 1, 5, 2, 6, 7, 3)", "shrink Y x8 AVX2 last output pairs swapped"),
    ("kernels/x86/composite_y_avx2.cpp", "  if (i + 16 <= len) {", "  if (i + 16 < len) {",
     "composite Y x4/x6/x8 AVX2 strip remainder of 16 taken as 8"),
    # NEON units (arm64 build, tests under qemu-aarch64).
    ("kernels/arm/shrink_y_neon.cpp", "vbslq_u8(odd_lanes, c.val[0], c.val[2])",
     "vbslq_u8(odd_lanes, c.val[2], c.val[0])", "shrink Y x6 NEON doubled taps from the wrong lanes"),
    ("kernels/arm/composite_y_neon.cpp", "vrshrq_n_u16(vaddq_u16(a, b), 2)",
     "vshrq_n_u16(vaddq_u16(a, b), 2)", "composite Y x2 NEON mean not rounded"),
    ("kernels/arm/weight_neon.cpp", "return vaddq_s16(a, vqrdmulhq_s16(delta, frac7));",
     "return vaddq_s16(a, vqdmulhq_s16(delta, frac7));",
     "weight NEON depth interpolation not rounded"),
    ("kernels/arm/shrink_uv_neon.cpp",
     "vst1q_u8(dst + x, vrhaddq_u8(vld1q_u8(top + x), vld1q_u8(top + stride + x)));",
     "vst1q_u8(dst + x, vhaddq_u8(vld1q_u8(top + x), vld1q_u8(top + stride + x)));",
     "shrink UV x2 NEON vertical halving truncates"),
    ("kernels/arm/smooth_neon.cpp", "return vaddq_u32(v, vextq_u32(zero, v, 2));",
     "return vaddq_u32(v, vextq_u32(zero, v, 1));", "smooth NEON integral prefix shifted by 3 lanes"),
    ("kernels/arm/composite_uv_neon.cpp", "vuzp1q_u16(entries, entries)",
     "vuzp2q_u16(entries, entries)", "composite UV NEON last 4 pairs take the odd weights"),
    ("kernels/arm/no_bleed_neon.cpp", "const uint16x8_t n = vaddq_u16(s, vshrq_n_u16(c, 1));",
     "const uint16x8_t n = vaddq_u16(s, vshrq_n_u16(c, 2));", "no-glow NEON masked mean rounding"),
    # Shared plane drivers.
    ("blur/composite_y.cpp", "const int main_last = at_bottom ? p.H - 1 - F : last;",
     "const int main_last = at_bottom ? p.H - 2 - F : last;",
     "composite Y x4/x8 driver skips a row above the bottom rows"),
    ("blur/composite_y.cpp",
     "q.out[0] = BlendWrap(q.src[0], VerticalX6(q.s0[0], q.s1[0], q.fy), q.w[0]);",
     "q.out[0] = BlendWrap(q.src[0], VerticalX6(q.s0[0], q.s0[0], q.fy), q.w[0]);",
     "composite Y x6 column 0 wrong row"),
    ("blur/composite_uv.cpp", "b[c] = X6Vertical(s0[c], s1[c], u, fy);",
     "b[c] = X6Vertical(s0[c], s0[c], u, fy);", "composite UV x6 pair 0 wrong row"),
    ("blur/expand.cpp",
     "if (r > 0) CopyRows(src, dst, w, h, r, stride, r, to + r + 1, to + 2 * r);",
     "if (r > 0) CopyRows(src, dst, w, h, r, stride, r, to + r + 1, to + 2 * r - 1);",
     "luma expansion drops the last bottom row"),
    ("blur/expand.cpp", "const uint8_t* tail = row + border + w - 2;",
     "const uint8_t* tail = row + border + w - 1;", "chroma expansion mixes channels"),
    ("blur/shrink_uv.cpp", "const int r_last = ry * y1 + 1;", "const int r_last = ry * y1;",
     "shrink UV x2 driver drops the last source row"),
    ("blur/smooth.cpp", "std::memset(column_sums, 0, pitch * sizeof(uint32_t));",
     "std::memset(column_sums, 0, (pitch - 1) * sizeof(uint32_t));",
     "smooth column sums not fully cleared (scalar)"),
    # Frame-size check.
    ("blur/frame_check.cpp", "if (sw % 2 != 0) return kOddSmallWidth;",
     "if (sw % 2 != 0 && sw < 0) return kOddSmallWidth;", "odd small width accepted"),
    ("blur/frame_check.cpp", "const bool tail = row == b.last || row == b.last - 1;",
     "const bool tail = row == b.last;", "one-row chroma band accepted again"),
    ("blur/frame_check.cpp", "if (!SizesFit(width, height, sw, sh, r)) return kSizeOverflow;",
     "if (!SizesFit(width, height, sw, sh, r) && false) return kSizeOverflow;",
     "buffer overflow refusal dropped"),
    # Band pipeline.
    ("blur/blur_context.cpp", "t->integral_scratch = At(ctx->tempim_y, b, slice);",
     "t->integral_scratch = At(ctx->tempim_y, 0, slice);", "luma bands share integral scratch"),
    ("blur/blur_context.cpp", "  if (src_uv == dst_uv) {", "  if (false) {",
     "in-place chroma not copied"),
    ("blur/blur_context.cpp", "constexpr int kLineTempimY = 82;", "constexpr int kLineTempimY = 83;",
     "tempim_y failure log line number"),
    ("blur/blur_context.cpp",
     '    DOFRA_LOG(kLineRefused, kInitName, "refusing %dx%d at scale %d: %s\\n", W, H, s, reason);\n',
     "    (void)reason;\n", "size refusal log line dropped"),
    # Pool.
    ("pool/thread_pool.cpp", "if (thread_num > kMaxWorkers) {", "if (thread_num > kMaxWorkers + 1) {",
     "pool accepts one worker too many"),
    ("pool/thread_pool.cpp", "if (failures != thread_num) return 0;", "if (failures == 0) return 0;",
     "pool fails on a partial thread start"),
    # Exported functions.
    ("api/dofra_api.cpp",
     "if (handle->weight == nullptr || handle->weight->weight_map == nullptr) {",
     "if (handle->weight == nullptr) {", "blur without a weight map not refused"),
    ("api/dofra_api.cpp", "  params->weight_kernel_size = kForcedKernelSize;\n", "",
     "weight kernel size not written back"),
    ("api/dofra_api.cpp", "handle->buffer_total / 1024);", "handle->buffer_total / 1000);",
     "buffer sum log in wrong unit"),
    # Weight context, map and depth table.
    ("weight/weight_context.cpp", "constexpr int kLineBadKernel = 38;",
     "constexpr int kLineBadKernel = 39;", "weight_init kernel refusal line number"),
    ("weight/weight_context.cpp", "  if (k < 1) {", "  if (k < 0) {",
     "weight_init kernel size 0 accepted"),
    ("weight/weight_map.cpp", "constexpr int kStrengthRound = 64;",
     "constexpr int kStrengthRound = 63;", "weight strength rounding (all members)"),
    ("weight/weight_map.cpp", "110, 112, 114, 116", "111, 112, 114, 116", "strength table entry"),
    ("weight/weight_map.cpp",
     "if (request->level < 1 || request->level > kStrengthLevels) {",
     "if (request->level < 1 || request->level > kStrengthLevels + 1) {", "level 21 accepted"),
    ("weight/depth_table.cpp", "constexpr float kExtraDiv = 255.0f;",
     "constexpr float kExtraDiv = 256.0f;", "depth table extra divisor"),
    ("weight/depth_table.cpp", "    } else if (p[i] > *mx) {", "    }\n    if (p[i] > *mx) {",
     "min/max tail quirk fixed"),
    # Tool.
    ("tools/dofra/cli.cpp", "if (w < 1 || h < 1 || w > kMaxFrameSide || h > kMaxFrameSide) {",
     "if (w < 0 || h < 0 || w > kMaxFrameSide || h > kMaxFrameSide) {", "tool accepts size 0"),
    ("tools/dofra/fitted.cpp",
     "return frame().width != picture_.width || frame().height != picture_.height;",
     "return frame().width != picture_.width;", "tool ignores height padding"),
    ("tools/dofra/cli.cpp", 'if (v[1] == 0) throw InputError("--calib B must not be 0");', "",
     "tool accepts calibration B = 0"),
    # The refined map: its members, their column walk and the driver.
    ("kernels/x86/refine_x86.h",
     "odd ? _mm_setr_epi16(1, 3, 3, 5, 5, 7, 7, 9) : _mm_setr_epi16(1, 1, 3, 3, 5, 5, 7, 7);",
     "odd ? _mm_setr_epi16(1, 3, 3, 5, 5, 7, 7, 7) : _mm_setr_epi16(1, 1, 3, 3, 5, 5, 7, 7);",
     "refine x86 steps: odd first column's last U from the pair before"),
    ("kernels/x86/refine_x86.h", "const __m128i high = _mm_and_si128(_mm_srli_epi16(d, 4), nibble);",
     "const __m128i high = _mm_and_si128(_mm_srli_epi16(d, 5), nibble);",
     "refine SSE range kernel chunk picked by the wrong bits"),
    ("kernels/x86/refine_sse41.cpp", "hi = _mm_add_epi16(hi, _mm_unpackhi_epi8(v, zero));",
     "hi = _mm_add_epi16(hi, _mm_unpacklo_epi8(v, zero));",
     "refine SSE colour sums: upper 8 columns add the lower ones"),
    ("kernels/x86/refine_avx2.cpp", "StoreWeights16(row.out + x, Lerp16(top, bottom, fy7), t.weights);",
     "StoreWeights16(row.out + x, Lerp16(bottom, top, fy7), t.weights);",
     "refine AVX2 bilinear rows: vertical fraction from the lower row"),
    ("kernels/x86/refine_avx2.cpp", "Chroma8(row.chroma, x + kLanes, &v1, &u1);",
     "Chroma8(row.chroma, x + kLanes - 2, &v1, &u1);",
     "refine AVX2 joint rows: upper half reads the chroma pair before"),
    ("kernels/arm/refine_neon.cpp",
     "const uint16x8_t rp = vrshrq_n_u16(vmulq_u16(range[k], purity[k]), kFracBits);",
     "const uint16x8_t rp = vshrq_n_u16(vmulq_u16(range[k], purity[k]), kFracBits);",
     "refine NEON range-purity product not rounded"),
    ("kernels/arm/refine_neon.cpp", "for (int b = 1; b * kTableBytes < t.range_chunks * kRefineGroup; ++b) {",
     "for (int b = 1; b * kTableBytes + kTableBytes < t.range_chunks * kRefineGroup; ++b) {",
     "refine NEON range kernel: the last 64-entry lookup skipped"),
    ("kernels/refine_loops.h", "return cols.ix1[x + n - 1] - cols.ix[x] < kRefineGroup;",
     "return cols.ix1[x + n - 1] - cols.ix[x] <= kRefineGroup;",
     "refine vector step taken when its samples span 17 bytes"),
    ("weight/refine_map.cpp", "out.y[j] = static_cast<uint8_t>((sum_y[j] + n / 2) / n);",
     "out.y[j] = static_cast<uint8_t>(sum_y[j] / n);", "refine cell mean luma not rounded"),
    # The no-glow blur: its formulas, members and driver.
    ("blur/no_bleed_rows.cpp",
     "dst[x] = static_cast<uint8_t>(((s + c / 2) * kNoBleedRecip[c]) >> kRecipShift);",
     "dst[x] = static_cast<uint8_t>((s * kNoBleedRecip[c]) >> kRecipShift);",
     "no-glow masked mean rounding dropped (scalar)"),
    ("kernels/x86/no_bleed_sse41.cpp", "_mm_adds_epu8(c_bytes, _mm_set1_epi8(0x70))",
     "_mm_adds_epu8(c_bytes, _mm_set1_epi8(0x60))", "no-glow SSE reciprocal lookup half"),
    ("kernels/x86/no_bleed_avx2.cpp",
     "const __m256i n = _mm256_add_epi16(s, _mm256_srli_epi16(c, 1));",
     "const __m256i n = _mm256_add_epi16(s, _mm256_srli_epi16(c, 2));",
     "no-glow AVX2 masked mean numerator"),
    ("kernels/x86/no_bleed_avx2.cpp", "b = _mm256_min_epu16(b, Load(row + 16));",
     "b = _mm256_min_epu16(b, Load(row + 15));", "no-glow AVX2 minima of map rows, second vector"),
    ("kernels/no_bleed_loops.h", "const int tail = window - span;",
     "const int tail = window - span - 1;", "no-glow mask row window one short (vector members)"),
    ("blur/no_bleed.cpp", "int bottom = i * nb.block + nb.block - 1 + p;",
     "int bottom = i * nb.block + nb.block - 1;", "no-glow mask ignores the pullback below"),
    ("blur/no_bleed.cpp", "    if (kinds[i] != kind) return false;",
     "    if (kinds[i] == kMaskRowMixed) return false;", "no-glow skips boxes of mixed rows"),
]

# The tests that cover a file: the first pattern it matches (fnmatch, from
# the repository's root). Vector members run in their level's tests, the
# scalar formulas in the *_scalar runs as well.
VECTOR_TESTS = ["kernels_test", "row_kernels_test", "pipeline_test", "weight_test"]
LIBRARY_TESTS = ["api_handle_test", "fault_tests", "fault_tests_scalar"]
SUITES = [
    # The opt-in modes' own suites, before the folders' general ones.
    ("kernels/*no_bleed*", VECTOR_TESTS + ["no_bleed_test"]),
    ("kernels/*refine*", VECTOR_TESTS + ["refine_test"]),
    ("blur/no_bleed*", ["kernels_test", "no_bleed_test", "no_bleed_test_scalar"] + LIBRARY_TESTS),
    ("weight/refine*", ["kernels_test", "refine_test", "refine_test_scalar"] + LIBRARY_TESTS),
    ("kernels/x86/*", VECTOR_TESTS),
    ("kernels/arm/*", VECTOR_TESTS),
    ("kernels/*_loops.h", VECTOR_TESTS),
    ("kernels/*", VECTOR_TESTS + ["row_kernels_test_scalar", "pipeline_test_scalar",
                                  "weight_test_scalar"]),
    ("blur/*", ["kernels_test", "pipeline_test", "pipeline_test_scalar", "weight_test",
                "weight_test_scalar"] + LIBRARY_TESTS),
    ("weight/*", ["kernels_test", "weight_test", "weight_test_scalar"] + LIBRARY_TESTS),
    ("pool/*", ["pool_test", "pool_test_scalar", "pool_caller_test", "pool_caller_test_scalar",
                "pipeline_test"] + LIBRARY_TESTS),
    ("api/*", ["pipeline_test", "pipeline_test_scalar", "weight_test", "weight_test_scalar",
               "api_exported_symbols"] + LIBRARY_TESTS),
    ("tools/*", ["dofra_tool_test", "view_server_test"]),
]
# Test -> the target that builds it, where the names differ.
TEST_TARGETS = {"api_exported_symbols": "dofra_depth", "level_objects": "dofra_objects",
                "soak_short": "dofra_soak"}

# Per architecture: extra configure options and the time a test may take.
ARCHES = {
    "x86_64": {"options": [], "timeout": 600},
    "arm64": {"options": ["-DCMAKE_TOOLCHAIN_FILE=cmake/aarch64-linux-gnu.cmake",
                          "-DDOFRA_BUILD_TOOLS=OFF"], "timeout": 1800},
}
CONFIGURE = ["-DCMAKE_BUILD_TYPE=Release", "-DDOFRA_BUILD_TESTS=ON", "-DDOFRA_BUILD_BENCH=OFF"]
ISAS = ["scalar", "SSE4.1", "AVX2", "NEON", "vector loops"]


class Mutant:
    def __init__(self, path, old, new, label):
        self.path, self.old, self.new, self.label = path, old, new, label
        name = os.path.basename(path)
        self.arch = "arm64" if path.startswith("kernels/arm/") else "x86_64"
        self.folder = path.split("/")[0]
        if path.startswith("kernels/arm/"):
            self.isa = "NEON"
        elif name.endswith("_avx2.cpp"):
            self.isa = "AVX2"
        elif path.startswith("kernels/x86/"):
            self.isa = "SSE4.1"
        elif name.endswith("_loops.h"):
            self.isa = "vector loops"  # the row loops every vector level compiles
        else:
            self.isa = "scalar"
        self.tests = next((t for pattern, t in SUITES if fnmatch.fnmatch(path, pattern)), None)


def stale(root, m):
    """Why the mutant no longer applies, or None."""
    if m.tests is None:
        return "no entry in SUITES covers the file"
    try:
        with open(os.path.join(root, m.path)) as f:
            count = f.read().count(m.old)
    except OSError as e:
        return f"cannot read the file ({e.strerror})"
    if count != 1:
        return f"snippet found {count} times (it must occur exactly once)"
    return None


def targets(tests):
    return sorted({TEST_TARGETS.get(t, t[:-len("_scalar")] if t.endswith("_scalar") else t)
                   for t in tests})


def exact(tests):
    return "^(" + "|".join(re.escape(t) for t in sorted(set(tests))) + ")$"


def run(cmd, cwd, log):
    """Runs cmd in a process group of its own, which an interruption ends whole:
    a compiler left running could write a mutant's object after the restore."""
    with open(log, "w") as f:
        proc = subprocess.Popen(cmd, cwd=cwd, stdout=f, stderr=subprocess.STDOUT,
                                start_new_session=True)
        try:
            return proc.wait()
        except BaseException:
            os.killpg(proc.pid, signal.SIGKILL)
            proc.wait()
            raise


def first_error(log):
    with open(log, errors="replace") as f:
        lines = f.read().splitlines()
    hits = [l for l in lines if "error" in l.lower()]
    return (hits or lines or [""])[0].strip()[:160]


class Tree:
    """One architecture's build directory and the tests run in it."""

    def __init__(self, root, build_root, arch, jobs, regex):
        self.root, self.arch, self.jobs, self.regex = root, arch, str(jobs), regex
        self.build = os.path.join(build_root, f"build-mutate-{arch}")
        self.log = os.path.join(self.build, "mutate.log")
        self.timeout = str(ARCHES[arch]["timeout"])
        self.known = set()

    def present(self, tests):
        """The tests this build defines (the tool's are left out of arm64, view_server_test
        where cpp-httplib is missing)."""
        return [t for t in tests if t in self.known]

    def configure(self):
        os.makedirs(self.build, exist_ok=True)
        cmd = ["cmake", "-S", self.root, "-B", self.build] + CONFIGURE + ARCHES[self.arch]["options"]
        if run(cmd, self.root, self.log) != 0:
            sys.exit(f"error: {self.arch} build does not configure ({first_error(self.log)}); "
                     f"scripts/deps.sh demo test installs what it needs. Log: {self.log}")
        listing = subprocess.run(["ctest", "--test-dir", self.build, "-N"], capture_output=True,
                                 text=True).stdout
        self.known = set(re.findall(r"Test\s+#\d+: (\S+)", listing))

    def make(self, tests):
        cmd = ["cmake", "--build", self.build, "-j", self.jobs]
        if not self.regex:
            cmd += ["--target"] + targets(tests)
        return run(cmd, self.root, self.log) == 0

    def check(self, tests):
        """The failing tests' names, or [] when all pass."""
        cmd = ["ctest", "--test-dir", self.build, "-j", self.jobs, "--timeout", self.timeout,
               "--stop-on-failure", "-R", self.regex or exact(tests)]
        rc = run(cmd, self.root, self.log)
        with open(self.log, errors="replace") as f:
            text = f.read()
        if "No tests were found" in text:
            return ["(no tests found)"]
        failed = re.findall(r"^\s*\d+ - (\S+) \(([^)]+)\)", text.split("tests FAILED:")[-1], re.M)
        names = [n if why == "Failed" else f"{n} ({why.lower()})" for n, why in failed]
        return names or ([f"ctest status {rc}"] if rc != 0 else [])


class Planted:
    """The mutated file, restored from memory on the way out and from a copy
    in the build directory when a previous run was killed before that."""

    def __init__(self, root, build, m):
        self.full = os.path.join(root, m.path)
        self.copy = os.path.join(build, "mutate-original", m.path)
        self.m = m

    def __enter__(self):
        with open(self.full) as f:
            self.text = f.read()
        os.makedirs(os.path.dirname(self.copy), exist_ok=True)
        with open(self.copy, "w") as f:
            f.write(self.text)
        with open(self.full, "w") as f:
            f.write(self.text.replace(self.m.old, self.m.new))

    def __exit__(self, *exc):
        with open(self.full, "w") as f:
            f.write(self.text)
        os.remove(self.copy)


def recover(root, build):
    """Puts back files left mutated by a run that was killed outright."""
    saved = os.path.join(build, "mutate-original")
    for top, _, names in os.walk(saved):
        for name in names:
            copy = os.path.join(top, name)
            path = os.path.relpath(copy, saved)
            shutil.copyfile(copy, os.path.join(root, path))
            os.remove(copy)
            print(f"restored {path}, left mutated by an interrupted run", flush=True)


def summary(results, key, order):
    rows = defaultdict(lambda: [0, 0, 0])  # caught, planted, errors
    for m, verdict, _ in results:
        row = rows[key(m)]
        row[0] += verdict == "caught"
        row[1] += verdict != "error"
        row[2] += verdict == "error"
    for name in order + sorted(set(rows) - set(order)):
        if name in rows:
            caught, planted, errors = rows[name]
            extra = f", {errors} error" + "s" * (errors != 1) if errors else ""
            print(f"  {name:14} {caught}/{planted}{extra}")


def main():
    here = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    ap = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    ap.add_argument("--only", default="", help="mutants whose label contains one of these")
    ap.add_argument("--arch", choices=sorted(ARCHES), help="only this architecture's mutants")
    ap.add_argument("--tests", default="", help="ctest regex run instead of the mapped tests")
    ap.add_argument("--build-root", default=here, help="where the build-mutate-ARCH dirs go")
    ap.add_argument("--jobs", type=int, default=2)
    ap.add_argument("--list", action="store_true", help="check and list the mutants, build nothing")
    args = ap.parse_args()
    root = here
    build_root = os.path.abspath(args.build_root)
    signal.signal(signal.SIGTERM, signal.default_int_handler)  # restore as on Ctrl-C
    signal.signal(signal.SIGHUP, signal.default_int_handler)
    for arch in ARCHES:
        recover(root, os.path.join(build_root, f"build-mutate-{arch}"))

    mutants = [Mutant(*entry) for entry in MUTANTS]
    errors = [(m, stale(root, m)) for m in mutants]
    errors = [(m, why) for m, why in errors if why]
    for m, why in errors:
        print(f"error: mutant '{m.label}' in {m.path}: {why}", file=sys.stderr)
    if errors:
        sys.exit(2)
    only = [s for s in args.only.split(",") if s]
    chosen = [m for m in mutants if (not only or any(o in m.label for o in only))
              and (not args.arch or m.arch == args.arch)]
    if args.list:
        for m in chosen:
            print(f"{m.arch:7} {m.isa:12} {m.path:36} {m.label}  [{' '.join(m.tests)}]")
        return
    try:
        os.nice(10)  # a long batch on a machine others use
    except OSError:
        pass

    results = []
    try:
        for arch in ARCHES:
            todo = [m for m in chosen if m.arch == arch]
            if not todo:
                continue
            tree = Tree(root, build_root, arch, args.jobs, args.tests)
            tree.configure()
            every = tree.present({t for m in todo for t in m.tests})
            print(f"== {arch}: {len(todo)} mutants in {tree.build}", flush=True)
            if not tree.make(every):
                sys.exit(f"error: the unmutated {arch} tree does not build ({first_error(tree.log)}); "
                         f"log: {tree.log}")
            failing = tree.check(every)
            if failing:
                sys.exit(f"error: the unmutated {arch} tree fails {', '.join(failing)}; "
                         f"log: {tree.log}")
            for m in todo:
                t0 = time.time()
                tests = tree.present(m.tests)
                with Planted(root, tree.build, m):
                    if not tests:
                        verdict, detail = "error", "none of its tests is built here"
                    elif not tree.make(tests):
                        verdict, detail = "error", f"does not build: {first_error(tree.log)}"
                    else:
                        failing = tree.check(tests)
                        verdict = "caught" if failing else "survived"
                        detail = ", ".join(failing)
                results.append((m, verdict, detail))
                print(f"{verdict:8} {m.isa:12} {m.label} [{m.path}] {detail} "
                      f"({time.time() - t0:.0f} s)", flush=True)
    except KeyboardInterrupt:
        sys.exit("interrupted; the mutated file is restored")

    print("\ncaught/planted per instruction set:")
    summary(results, lambda m: m.isa, ISAS)
    print("caught/planted per folder:")
    summary(results, lambda m: m.folder, ["api", "pool", "weight", "blur", "kernels", "tools"])
    left = [(m, v, d) for m, v, d in results if v != "caught"]
    for m, verdict, detail in left:
        print(f"{verdict}: {m.label} [{m.path}] {detail}")
    caught = sum(v == "caught" for _, v, _ in results)
    print(f"caught {caught} of {len(results)}")
    sys.exit(2 if any(v == "error" for _, v, _ in left) else 1 if left else 0)


if __name__ == "__main__":
    main()
