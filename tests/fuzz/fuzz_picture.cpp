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

namespace {

constexpr int kDisparityStep = 8;  // one disparity sample per 8 x 8 pixels

const std::string& InputPath() {
  static const std::string path = [] {
    char name[] = "/tmp/dofra_fuzz_picture_XXXXXX";
    const int fd = mkstemp(name);
    FUZZ_CHECK(fd >= 0);
    close(fd);
    return std::string(name);
  }();
  return path;
}

template <typename Read>
void ReadOrRefuse(Read read) {
  try {
    read();
  } catch (const dofra_tool::InputError&) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  FILE* file = fopen(InputPath().c_str(), "wb");
  FUZZ_CHECK(file != nullptr && fwrite(data, 1, size, file) == size && fclose(file) == 0);
  ReadOrRefuse([] {
    bool has_alpha = false;
    const dofra_tool::Image picture = dofra_tool::ReadPicture(InputPath(), &has_alpha);
    FUZZ_CHECK(picture.channels == 4 &&
               picture.pixels.size() == 4u * picture.width * picture.height);
  });
  ReadOrRefuse([] {
    const dofra_tool::Image map = dofra_tool::ReadGrayMap(InputPath());
    FUZZ_CHECK(map.channels == 1 && map.pixels.size() == size_t{1} * map.width * map.height);
    dofra_tool::ResizeGray(map, std::max(1, map.width / kDisparityStep),
                           std::max(1, map.height / kDisparityStep));
  });
  return 0;
}
