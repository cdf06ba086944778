#include "blur/dispatch.h"

#include "kernels/simd_level.h"

namespace dofra {

// Constant-initialised, so the tables exist before any handle does.
const BlurKernelTable kBlurKernels = {
    {__BiLinearInterp_Y_x2_neon, __BiLinearInterp_Y_x4_neon, __BiLinearInterp_Y_x6,
     __BiLinearInterp_Y_x8},
    {__BiLinearInterp_UV_x2_neon, __BiLinearInterp_UV_x4, __BiLinearInterp_UV_x6,
     __BiLinearInterp_UV_x8},
    {__CreateOutputImage_Y_x2_neon, __CreateOutputImage_Y_x4_neon, __CreateOutputImage_Y_x6_neon,
     __CreateOutputImage_Y_x8_neon},
    {__CreateOutputImage_UV_x2_neon, __CreateOutputImage_UV_x4_neon, __CreateOutputImage_UV_x6_neon,
     __CreateOutputImage_UV_x8_neon},
    __GaussianSmoothImage_Y_integral_image_neon,
    __GaussianSmoothImage_UV_integral_image_neon,
};

const BlurKernelTable kBlurKernelsC = {
    {__BiLinearInterp_Y_x2_c, __BiLinearInterp_Y_x4_c, __BiLinearInterp_Y_x6_c,
     __BiLinearInterp_Y_x8_c},
    {__BiLinearInterp_UV_x2_c, __BiLinearInterp_UV_x4_c, __BiLinearInterp_UV_x6_c,
     __BiLinearInterp_UV_x8_c},
    {__CreateOutputImage_Y_x2_c, __CreateOutputImage_Y_x4_c, __CreateOutputImage_Y_x6_c,
     __CreateOutputImage_Y_x8_c},
    {__CreateOutputImage_UV_x2_c, __CreateOutputImage_UV_x4_c, __CreateOutputImage_UV_x6_c,
     __CreateOutputImage_UV_x8_c},
    __GaussianSmoothImage_Y_integral_image_c,
    __GaussianSmoothImage_UV_integral_image_c,
};

const BlurKernelTable& ActiveBlurKernels() {
  return ActiveSimdLevel() == SimdLevel::kScalar ? kBlurKernelsC : kBlurKernels;
}

}  // namespace dofra
