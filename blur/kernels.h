// The blur engine's image kernels. They validate nothing: the pipeline
// guarantees sizes and row ranges (checked once, when a handle is created).
//
// Every hand-vectorised member (suffix _neon: the row helpers of the active
// instruction-set level, kernels/row_kernels.h) has its plain scalar formula
// beside it under the same name with the suffix _c; the two give identical
// bytes on every input. Members named without _neon may be vectorised inside
// as well and then also keep a _c formula.
#ifndef DOFRA_BLUR_KERNELS_H
#define DOFRA_BLUR_KERNELS_H

#include <cstdint>

namespace dofra {

// Shrink: (source, small, intermediate, W, H, w, h, y0, y1).
using ShrinkFn = void (*)(const uint8_t* src, uint8_t* small, uint8_t* tmp, int W, int H, int w,
                          int h, int y0, int y1);
// Smooth: (source, expanded scratch, destination, W, H, kernel weights,
// kernel count (unused), r, integral scratch, rowStart, rowEnd).
using SmoothFn = void (*)(const uint8_t* src, uint8_t* expanded, uint8_t* dst, int W, int H,
                          const uint16_t* kernel_weights, int count, int r, uint8_t* integral,
                          int row_start, int row_end);
// Enlarge and blend: (source, W, H, sw, sh, weights, small, output, first, last).
using BlendFn = void (*)(const uint8_t* src, int W, int H, int sw, int sh, const uint16_t* weights,
                         const uint8_t* small, uint8_t* out, int first_row, int last_row);
// Border expansion: (source, padded, w, h, r, first row, last row).
using ExpandFn = void (*)(const uint8_t* src, uint8_t* dst, int w, int h, int r, int from, int to);

}  // namespace dofra

// The members themselves keep their global names.
#define DOFRA_SHRINK(name)                                                                        \
  void name(const uint8_t* src, uint8_t* small, uint8_t* tmp, int W, int H, int w, int h, int y0, \
            int y1)
#define DOFRA_SMOOTH(name)                                                                      \
  void name(const uint8_t* src, uint8_t* expanded, uint8_t* dst, int W, int H,                  \
            const uint16_t* kernel_weights, int count, int r, uint8_t* integral, int row_start, \
            int row_end)
#define DOFRA_BLEND(name)                                                              \
  void name(const uint8_t* src, int W, int H, int sw, int sh, const uint16_t* weights, \
            const uint8_t* small, uint8_t* out, int first_row, int last_row)

// Border expansion (blur/expand.cpp).
void __ExpandY(const uint8_t* src, uint8_t* dst, int w, int h, int r, int from, int to);
void __ExpandUV(const uint8_t* src, uint8_t* dst, int w, int h, int r, int from, int to);

// Integral-image box smoothing (blur/smooth.cpp).
DOFRA_SMOOTH(__GaussianSmoothImage_Y_integral_image_neon);
DOFRA_SMOOTH(__GaussianSmoothImage_Y_integral_image_c);
DOFRA_SMOOTH(__GaussianSmoothImage_UV_integral_image_neon);
DOFRA_SMOOTH(__GaussianSmoothImage_UV_integral_image_c);

// Luma shrink (blur/shrink_y.cpp).
DOFRA_SHRINK(__BiLinearInterp_Y_x2_neon);
DOFRA_SHRINK(__BiLinearInterp_Y_x2_c);
DOFRA_SHRINK(__BiLinearInterp_Y_x4_neon);
DOFRA_SHRINK(__BiLinearInterp_Y_x4_c);
DOFRA_SHRINK(__BiLinearInterp_Y_x6);
DOFRA_SHRINK(__BiLinearInterp_Y_x6_c);
DOFRA_SHRINK(__BiLinearInterp_Y_x8);
DOFRA_SHRINK(__BiLinearInterp_Y_x8_c);

// Chroma shrink (blur/shrink_uv.cpp).
DOFRA_SHRINK(__BiLinearInterp_UV_x2_neon);
DOFRA_SHRINK(__BiLinearInterp_UV_x2_c);
DOFRA_SHRINK(__BiLinearInterp_UV_x4);
DOFRA_SHRINK(__BiLinearInterp_UV_x4_c);
DOFRA_SHRINK(__BiLinearInterp_UV_x6);
DOFRA_SHRINK(__BiLinearInterp_UV_x6_c);
DOFRA_SHRINK(__BiLinearInterp_UV_x8);
DOFRA_SHRINK(__BiLinearInterp_UV_x8_c);

// Luma compositing (blur/composite_y.cpp).
DOFRA_BLEND(__CreateOutputImage_Y_x2_neon);
DOFRA_BLEND(__CreateOutputImage_Y_x2_c);
DOFRA_BLEND(__CreateOutputImage_Y_x4_neon);
DOFRA_BLEND(__CreateOutputImage_Y_x4_c);
DOFRA_BLEND(__CreateOutputImage_Y_x6_neon);
DOFRA_BLEND(__CreateOutputImage_Y_x6_c);
DOFRA_BLEND(__CreateOutputImage_Y_x8_neon);
DOFRA_BLEND(__CreateOutputImage_Y_x8_c);

// Chroma compositing (blur/composite_uv.cpp).
DOFRA_BLEND(__CreateOutputImage_UV_x2_neon);
DOFRA_BLEND(__CreateOutputImage_UV_x2_c);
DOFRA_BLEND(__CreateOutputImage_UV_x4_neon);
DOFRA_BLEND(__CreateOutputImage_UV_x4_c);
DOFRA_BLEND(__CreateOutputImage_UV_x6_neon);
DOFRA_BLEND(__CreateOutputImage_UV_x6_c);
DOFRA_BLEND(__CreateOutputImage_UV_x8_neon);
DOFRA_BLEND(__CreateOutputImage_UV_x8_c);

#endif  // DOFRA_BLUR_KERNELS_H
