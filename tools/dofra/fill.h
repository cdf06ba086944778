// Unknown disparity: stereo matchers and ground truth mark pixels they could
// not match with one value (0 by default). Left as they are, they read as the
// farthest depth and blur into blobs, so they are filled from their
// surroundings before the map is resampled.
#ifndef DOFRA_TOOLS_FILL_H
#define DOFRA_TOOLS_FILL_H

#include <cstdint>

#include "image_io.h"

namespace dofra_tool {

// Gives every pixel of a gray map that holds `unknown` the value of the
// nearest pixel that does not (chamfer 3-4 distance, one forward and one
// backward sweep), and returns how many pixels were filled. A map with no
// known pixel is left as it is.
int64_t FillUnknown(Image* gray, uint8_t unknown);

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_FILL_H
