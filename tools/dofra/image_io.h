// Reading PNG and JPEG pictures, writing PNG pictures and raw files. Every
// write goes to a temporary name beside the target and is renamed into place
// only when complete, so a failed run leaves no partial file.
#ifndef DOFRA_TOOLS_IMAGE_IO_H
#define DOFRA_TOOLS_IMAGE_IO_H

#include <cstdint>
#include <string>
#include <vector>

#include "cli.h"

namespace dofra_tool {

// Pictures beyond these are refused from their header, before anything of
// their size is allocated.
constexpr uint64_t kMaxPicturePixels = 100000000;
constexpr int kMaxPictureSide = 16384;
constexpr Size kLargestPicture{kMaxPictureSide, kMaxPictureSide};

// Interleaved 8-bit pixels, rows packed (stride = width * channels).
struct Image {
  int width = 0;
  int height = 0;
  int channels = 0;  // 1 (gray), 3 (RGB) or 4 (RGBA: R, G, B, A in memory)
  std::vector<uint8_t> pixels;

  Image() = default;
  Image(int w, int h, int c)
      : width(w), height(h), channels(c), pixels(static_cast<size_t>(w) * h * c) {}
  uint8_t* Row(int y) { return pixels.data() + static_cast<size_t>(y) * width * channels; }
  const uint8_t* Row(int y) const {
    return pixels.data() + static_cast<size_t>(y) * width * channels;
  }
};

// A photograph (PNG or JPEG) as RGBA; has_alpha tells whether the file had
// transparency worth keeping. Damaged or truncated files are refused, decoder
// warnings included, and so are sizes more than the file's bytes can encode.
Image ReadPicture(const std::string& path, bool* has_alpha);

// An 8-bit single-channel map (PNG gray, with or without alpha, or JPEG
// gray) no larger than `most`; any other depth or colour is refused.
Image ReadGrayMap(const std::string& path, Size most = kLargestPicture);

// PNG of a 1-, 3- or 4-channel image.
void WritePng(const std::string& path, const Image& image);
// The same bytes as WritePng writes, in memory.
std::vector<uint8_t> PngBytes(const Image& image);

std::vector<uint8_t> ReadBytes(const std::string& path);
void WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes);

// Refuses early an output path whose directory is missing or unwritable,
// or that names a directory, so no other output is written before it fails.
void CheckOutputPath(const std::string& path);

// Creates a directory and its parents if missing.
void MakeDirectories(const std::string& path);

bool EndsWith(const std::string& text, const std::string& suffix);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_IMAGE_IO_H
