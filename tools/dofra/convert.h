// Pixel-format conversion, resampling, padding and cropping, all through
// libyuv except the edge replication.
#ifndef DOFRA_TOOLS_CONVERT_H
#define DOFRA_TOOLS_CONVERT_H

#include <cstdint>

#include "image_io.h"

namespace dofra_tool {

// NV21 frame bytes: W x H luma, then H / 2 rows of W interleaved V, U bytes.
size_t Nv21Bytes(int width, int height);

// RGBA (even width and height) into an NV21 frame with row stride W.
void RgbaToNv21(const Image& rgba, uint8_t* nv21);
// An NV21 frame with row stride W back into RGBA.
Image Nv21ToRgba(const uint8_t* nv21, int width, int height);

// Box-filtered resampling of a single-channel map to any size.
Image ResizeGray(const Image& gray, int width, int height);
// Box-filtered resampling of an RGBA image.
Image ResizeRgba(const Image& rgba, int width, int height);

// Grows an image to width x height by repeating its last column and row.
Image PadByReplication(const Image& image, int width, int height);
// A weight map grown from `from` to `to` the same way, into out.
void PadWeights(const uint16_t* weights, Size from, uint16_t* out, Size to);
// The top-left width x height of an image.
Image Crop(const Image& image, int width, int height);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_CONVERT_H
