// The tool's picture readers and its disparity loading on any file: the
// input is read as a photograph and as a disparity map, and an accepted map
// is resampled to its disparity size. Bad input may only raise InputError.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>

#include "cli.h"
#include "convert.h"
#include "fuzz/fuzz_support.h"
#include "image_io.h"

using namespace dofra_tool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr int kDisparityStep = 8;  // one disparity sample per 8 x 8 pixels
  // An anonymous in-memory file: nothing is left behind on disk.
  static const int fd = memfd_create("fuzz_picture", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  FUZZ_CHECK(ftruncate(fd, 0) == 0 && pwrite(fd, data, size, 0) == static_cast<ssize_t>(size));
  try {
    bool has_alpha = false;
    const Image picture = ReadPicture(path, &has_alpha);
    FUZZ_CHECK(picture.pixels.size() == 4u * picture.width * picture.height);  // RGBA
  } catch (const InputError&) {
  }
  try {
    const Image map = ReadGrayMap(path);
    FUZZ_CHECK(map.channels == 1 && map.pixels.size() == 1u * map.width * map.height);
    ResizeGray(map, std::max(1, map.width / kDisparityStep),
               std::max(1, map.height / kDisparityStep));
  } catch (const InputError&) {
  }
  return 0;
}
