// Generated scenes with a known full-resolution disparity, made to look like
// photographs where it matters for depth edges: textured surfaces, edges
// antialiased as a lens and sensor leave them, and sensor noise.
#ifndef DOFRA_TOOLS_QUALITY_SCENES_H
#define DOFRA_TOOLS_QUALITY_SCENES_H

#include <string>
#include <vector>

#include "cli.h"
#include "image_io.h"

namespace dofra_tool {

// A named part of a scene measured on its own (one bar of the bars scene).
struct SceneRegion {
  std::string name;
  int x0, y0, x1, y1;  // [x0, x1) x [y0, y1)
};

struct QualityScene {
  std::string name;
  Image picture;    // RGBA
  Image disparity;  // gray, the picture's size; larger = nearer, no unknown pixels
  Point focus;      // on the subject
  std::vector<SceneRegion> parts;
};

// A textured disc before a patterned wall; thin bars (3 to 12 pixels, slightly
// tilted) hanging from a beam; a tilted board whose depth runs across it; and
// a blob whose texture has the same statistics as the background behind it.
std::vector<QualityScene> MakeQualityScenes(Size size);

// The glow scene: a bright disc in focus (disparity 120) before a dark
// textured wall far behind it (disparity 40), and the same wall alone.
struct GlowScene {
  QualityScene disc;  // focus at the disc's centre
  Image wall;         // RGBA, the wall without the disc
  double cx, cy, radius;
};
GlowScene MakeGlowScene(Size size, double radius);

// The calibration the scenes' disparities are chosen for (dofra blur's
// default): depth = 2400 / (disparity + 6).
Calibration QualityCalibration();

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_QUALITY_SCENES_H
