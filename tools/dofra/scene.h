// The demo's built-in scene: a sharply textured ball near the camera, brick
// pillars in the middle distance, a tiled floor receding to a detailed far
// skyline, with the matching disparity (larger = nearer).
#ifndef DOFRA_TOOLS_SCENE_H
#define DOFRA_TOOLS_SCENE_H

#include "cli.h"
#include "image_io.h"

namespace dofra_tool {

struct Scene {
  Image picture;    // RGBA, W x H
  Image disparity;  // gray, W x H; the caller resamples it to the map size
  Point focus;      // the centre of the ball
};

Scene MakeScene(Size size);

// The calibration the scene's disparities are chosen for: A = 1572864000,
// B = 524288, M = 1280, N = 320, so depth = 300 / (disparity - 3).
Calibration SceneCalibration();

}  // namespace dofra_tool

#endif  // DOFRA_TOOLS_SCENE_H
