// Which frame sizes the band pipeline processes exactly, decided once when a
// handle is created so that the kernels themselves never need to check.
#ifndef DOFRA_BLUR_FRAME_CHECK_H
#define DOFRA_BLUR_FRAME_CHECK_H

namespace dofra {

// Null when a width x height NV21 frame at scale_factor, smoothed with a box
// of kernel_size (radius kernel_size / 2), goes through the band pipeline
// exactly; otherwise a short static reason naming the problem.
//
// Refused: factors other than 2, 4, 6, 8; non-positive sizes; an odd width or
// an odd small width (the small chroma plane's last byte is never produced);
// a buffer size or 16.16 position that overflows 32 bits; and every size for
// which some band task would read or write outside a plane, read a scratch
// value it did not produce itself, or write a byte another task writes
// differently. Allocates nothing; O(width + height).
const char* blur_frame_refusal(int width, int height, int scale_factor, int kernel_size);

}  // namespace dofra

#endif  // DOFRA_BLUR_FRAME_CHECK_H
