#include "convert.h"

#include <libyuv/convert_argb.h>
#include <libyuv/convert_from_argb.h>
#include <libyuv/scale.h>
#include <libyuv/scale_argb.h>

#include <algorithm>
#include <cstring>

namespace dofra_tool {

size_t Nv21Bytes(int width, int height) {
  return static_cast<size_t>(width) * height + static_cast<size_t>(width) * (height / 2);
}

void RgbaToNv21(const Image& rgba, uint8_t* nv21) {
  const int w = rgba.width;
  const int h = rgba.height;
  // libyuv's "ABGR" is R, G, B, A in memory: the PNG byte order.
  libyuv::ABGRToNV21(rgba.pixels.data(), w * 4, nv21, w, nv21 + static_cast<size_t>(w) * h, w, w,
                     h);
}

Image Nv21ToRgba(const uint8_t* nv21, int width, int height) {
  Image rgba(width, height, 4);
  libyuv::NV21ToABGR(nv21, width, nv21 + static_cast<size_t>(width) * height, width,
                     rgba.pixels.data(), width * 4, width, height);
  return rgba;
}

Image ResizeGray(const Image& gray, int width, int height) {
  Image out(width, height, 1);
  libyuv::ScalePlane(gray.pixels.data(), gray.width, gray.width, gray.height, out.pixels.data(),
                     width, width, height, libyuv::kFilterBox);
  return out;
}

Image ResizeRgba(const Image& rgba, int width, int height) {
  Image out(width, height, 4);
  libyuv::ARGBScale(rgba.pixels.data(), rgba.width * 4, rgba.width, rgba.height, out.pixels.data(),
                    width * 4, width, height, libyuv::kFilterBox);
  return out;
}

namespace {

// Rows of `pixel`-byte pixels grown from `from` to `to` by repeating the last
// column and row; row strides are the packed widths.
void PadPixels(const uint8_t* src, Size from, size_t pixel, uint8_t* dst, Size to) {
  const size_t copied = static_cast<size_t>(from.width) * pixel;
  for (int y = 0; y < to.height; ++y) {
    const uint8_t* row = src + static_cast<size_t>(std::min(y, from.height - 1)) * copied;
    uint8_t* out = dst + static_cast<size_t>(y) * to.width * pixel;
    std::memcpy(out, row, copied);
    const uint8_t* last = row + copied - pixel;
    for (int x = from.width; x < to.width; ++x) std::memcpy(out + x * pixel, last, pixel);
  }
}

}  // namespace

Image PadByReplication(const Image& image, int width, int height) {
  Image out(width, height, image.channels);
  PadPixels(image.pixels.data(), Size{image.width, image.height},
            static_cast<size_t>(image.channels), out.pixels.data(), Size{width, height});
  return out;
}

void PadWeights(const uint16_t* weights, Size from, uint16_t* out, Size to) {
  PadPixels(reinterpret_cast<const uint8_t*>(weights), from, sizeof(uint16_t),
            reinterpret_cast<uint8_t*>(out), to);
}

Image Crop(const Image& image, int width, int height) {
  Image out(width, height, image.channels);
  const size_t row_bytes = static_cast<size_t>(width) * image.channels;
  for (int y = 0; y < height; ++y) std::memcpy(out.Row(y), image.Row(y), row_bytes);
  return out;
}

}  // namespace dofra_tool
