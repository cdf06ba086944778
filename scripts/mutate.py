#!/usr/bin/env python3
"""Plants one fault at a time in the library and the tool, rebuilds, runs the
test suite and reports which faults it caught.

usage: scripts/mutate.py [--root DIR] [--build DIR] [--only LABEL,...]

Each mutant replaces one exact snippet (it must occur exactly once; otherwise
the mutant is reported "n/a", as the code may have moved). The file is always
restored from an in-memory copy, whatever happens. The build directory is
configured once (optimised, no benchmarks) and rebuilt incrementally.
"""
import argparse
import os
import subprocess
import sys
import time

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


def run(cmd, cwd, timeout):
    try:
        return subprocess.run(cmd, cwd=cwd, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                              timeout=timeout).returncode
    except subprocess.TimeoutExpired:
        return -1


def main():
    ap = argparse.ArgumentParser()
    here = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
    ap.add_argument("--root", default=here)
    ap.add_argument("--build", default=None)
    ap.add_argument("--only", default="")
    args = ap.parse_args()
    root = os.path.abspath(args.root)
    build = os.path.abspath(args.build or os.path.join(root, "build-mutate"))
    jobs = str(min(2, os.cpu_count() or 1))
    if run(["cmake", "-S", root, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
            "-DDOFRA_BUILD_BENCH=OFF"], root, 600) != 0:
        sys.exit("configure failed")
    if run(["cmake", "--build", build, "-j", jobs], root, 3600) != 0:
        sys.exit("the unmutated tree does not build")
    if run(["ctest", "--test-dir", build, "-j", jobs], root, 1800) != 0:
        sys.exit("the unmutated tree fails its tests")
    only = [s for s in args.only.split(",") if s]
    results = []
    for path, old, new, label in MUTANTS:
        if only and not any(o in label for o in only):
            continue
        full = os.path.join(root, path)
        try:
            with open(full) as f:
                text = f.read()
        except OSError:
            results.append((label, path, "n/a"))
            continue
        if text.count(old) != 1:
            results.append((label, path, "n/a"))
            continue
        t0 = time.time()
        try:
            with open(full, "w") as f:
                f.write(text.replace(old, new))
            if run(["cmake", "--build", build, "-j", jobs], root, 1800) != 0:
                verdict = "no-build"
            else:
                rc = run(["ctest", "--test-dir", build, "-j", jobs, "--timeout", "120"], root, 1800)
                verdict = "survived" if rc == 0 else "caught"
        finally:
            with open(full, "w") as f:
                f.write(text)
        results.append((label, path, verdict))
        print(f"{verdict:9} {path:28} {label} ({time.time() - t0:.0f}s)", flush=True)
    run(["cmake", "--build", build, "-j", jobs], root, 3600)  # back to the real tree
    print()
    width = max(len(r[0]) for r in results) if results else 10
    for label, path, verdict in results:
        print(f"{verdict:9} {label:{width}} {path}")
    counted = [r for r in results if r[2] in ("caught", "survived")]
    caught = sum(r[2] == "caught" for r in results)
    print(f"\ncaught {caught} of {len(counted)} ({len(results) - len(counted)} n/a or no-build)")


if __name__ == "__main__":
    main()
