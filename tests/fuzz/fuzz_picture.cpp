// The tool's picture readers and its disparity loading on any file: the
// input is read as a photograph and as a disparity map, and an accepted map
// is resampled to its disparity size. Bad input may only raise InputError.
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
  static const std::string path = "/tmp/dofra_fuzz_picture." + std::to_string(getpid());
  FILE* file = fopen(path.c_str(), "wb");
  FUZZ_CHECK(file != nullptr && fwrite(data, 1, size, file) == size && fclose(file) == 0);
  try {
    bool has_alpha = false;
    const Image picture = ReadPicture(path, &has_alpha);
    FUZZ_CHECK(picture.channels == 4 &&
               picture.pixels.size() == 4u * picture.width * picture.height);
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
