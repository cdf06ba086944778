#include "scene.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace dofra_tool {

namespace {

// Disparities of the layers: depth 100 far, 23 middle, 7..8 on the ball.
constexpr int kFarDisparity = 6;
constexpr int kPillarDisparity = 16;
constexpr int kBallDisparity = 40;
constexpr int kBallBulge = 4;
constexpr int kNearestFloorDisparity = 64;

constexpr double kHorizon = 0.42;  // of the height
constexpr double kPi = 3.14159265358979323846;

struct Rgb {
  double r, g, b;
};

uint32_t Hash(uint32_t x, uint32_t y, uint32_t seed) {
  uint32_t h = x * 0x8da6b343u ^ y * 0xd8163841u ^ seed * 0xcb1ab31fu;
  h ^= h >> 13;
  h *= 0x5bd1e995u;
  return h ^ (h >> 15);
}

double Noise(int x, int y, uint32_t seed) { return (Hash(x, y, seed) & 255) / 255.0 - 0.5; }

Rgb Mix(Rgb a, Rgb b, double t) {
  return Rgb{a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

Rgb Scaled(Rgb c, double k) { return Rgb{c.r * k, c.g * k, c.b * k}; }

// Row of the floor whose disparity is d (the floor's disparity grows
// linearly from the horizon to the bottom row, as a flat plane's does).
double FloorRow(double d, int height) {
  const double horizon = kHorizon * height;
  return horizon +
         (d - kFarDisparity) / (kNearestFloorDisparity - kFarDisparity) * (height - horizon);
}

struct Layout {
  int width, height;
  double horizon;
  double ball_x, ball_y, ball_r;
  double pillar_base, pillar_height, pillar_width;
};

Layout MakeLayout(Size size) {
  Layout l;
  l.width = size.width;
  l.height = size.height;
  l.horizon = kHorizon * size.height;
  l.ball_r = 0.2 * size.height;
  l.ball_x = 0.5 * size.width;
  l.ball_y = FloorRow(kBallDisparity, size.height) - l.ball_r;
  l.pillar_base = FloorRow(kPillarDisparity, size.height);
  l.pillar_height = 0.36 * size.height;
  l.pillar_width = 0.05 * size.width;
  return l;
}

// Far skyline: buildings with lit and dark windows under a graded sky.
Rgb Skyline(const Layout& l, int x, int y) {
  const double unit = std::max(2.0, l.height / 270.0);
  const int building = static_cast<int>(x / (unit * 14));
  const double roof = l.horizon - (0.08 + 0.22 * (Hash(building, 0, 7) & 255) / 255.0) * l.height;
  if (y < roof) {
    const double t = static_cast<double>(y) / l.horizon;
    return Mix(Rgb{40, 90, 170}, Rgb{235, 170, 120}, t);
  }
  const Rgb wall = Mix(Rgb{70, 75, 95}, Rgb{120, 110, 105}, (Hash(building, 1, 7) & 255) / 255.0);
  const int wx = static_cast<int>(x / unit);
  const int wy = static_cast<int>((y - roof) / unit);
  if (wx % 3 == 0 || wy % 3 == 0) return wall;
  const bool lit = (Hash(wx / 3, wy / 3, building) & 3) != 0;
  return lit ? Rgb{255, 225, 130} : Rgb{30, 35, 50};
}

// Tiled floor seen in perspective.
Rgb Floor(const Layout& l, int x, int y) {
  const double t = (y - l.horizon + 0.5) / (l.height - l.horizon);
  const double z = 1.0 / t;
  const double u = (x - 0.5 * l.width) / l.height * z * 3.0;
  const double v = z * 2.5;
  const double fu = u - std::floor(u);
  const double fv = v - std::floor(v);
  if (fu < 0.04 || fv < 0.04 * z) return Rgb{60, 55, 50};  // grout
  const bool dark = ((static_cast<int>(std::floor(u)) + static_cast<int>(std::floor(v))) & 1) != 0;
  const Rgb tile = dark ? Rgb{110, 80, 60} : Rgb{215, 200, 175};
  return Scaled(tile, 1.0 + 0.35 * Noise(x, y, 3));
}

// Brick texture of the middle-distance pillars.
Rgb Bricks(const Layout& l, int x, int y) {
  const double brick_w = l.pillar_width / 3.5;
  const double brick_h = brick_w / 2.5;
  const int row = static_cast<int>(y / brick_h);
  const double shifted = x + (row & 1) * brick_w / 2;
  const int col = static_cast<int>(shifted / brick_w);
  const double fx = shifted - col * brick_w;
  const double fy = y - row * brick_h;
  if (fx < 2 || fy < 2) return Rgb{200, 195, 185};  // mortar
  const double tone = (Hash(col, row, 11) & 255) / 255.0;
  return Scaled(Mix(Rgb{150, 55, 40}, Rgb{190, 100, 60}, tone), 1.0 + 0.3 * Noise(x, y, 5));
}

int PillarAt(const Layout& l, int x, int y) {
  static const double kCentres[] = {0.1, 0.3, 0.72, 0.9};
  if (y > l.pillar_base || y < l.pillar_base - l.pillar_height) return -1;
  for (int i = 0; i < 4; ++i) {
    if (std::fabs(x - kCentres[i] * l.width) < l.pillar_width / 2) return i;
  }
  return -1;
}

// The ball: coloured segments, a fine black grid, a checker inside every
// other cell, and shading.
Rgb Ball(const Layout& l, double dx, double dy, double rho) {
  static const Rgb kSegments[] = {{230, 40, 40},   {250, 210, 30}, {40, 150, 230},
                                  {250, 250, 250}, {40, 180, 80},  {240, 120, 20}};
  const double nx = dx / l.ball_r;
  const double ny = dy / l.ball_r;
  const double nz = std::sqrt(std::max(0.0, 1.0 - rho * rho));
  const double lon = std::atan2(nx, nz);
  const double lat = std::asin(std::max(-1.0, std::min(1.0, ny)));
  const int segment = static_cast<int>(std::floor((lon + kPi) / (kPi / 6))) % 6;
  Rgb c = kSegments[segment];
  const double grid = 24.0;
  const double gx = (lon + kPi) * grid / kPi;
  const double gy = (lat + kPi) * grid / kPi;
  const double fx = gx - std::floor(gx);
  const double fy = gy - std::floor(gy);
  if (fx < 0.1 || fy < 0.1) {
    c = Rgb{20, 20, 25};
  } else if (((static_cast<int>(gx) + static_cast<int>(gy)) & 1) != 0 &&
             ((static_cast<int>(fx * 4) + static_cast<int>(fy * 4)) & 1) != 0) {
    c = Scaled(c, 0.55);
  }
  const double light = 0.45 + 0.6 * std::max(0.0, -0.45 * nx - 0.45 * ny + 0.75 * nz);
  return Scaled(c, std::min(1.1, light));
}

uint8_t Clamp8(double v) { return static_cast<uint8_t>(std::max(0.0, std::min(255.0, v + 0.5))); }

void Render(const Layout& l, int x, int y, Rgb* color, int* disparity) {
  const double dx = x + 0.5 - l.ball_x;
  const double dy = y + 0.5 - l.ball_y;
  const double rho = std::sqrt(dx * dx + dy * dy) / l.ball_r;
  if (rho < 1.0) {
    *color = Ball(l, dx, dy, rho);
    *disparity = kBallDisparity + static_cast<int>(kBallBulge * std::sqrt(1.0 - rho * rho));
  } else if (PillarAt(l, x, y) >= 0) {
    *color = Bricks(l, x, y);
    *disparity = kPillarDisparity;
  } else if (y >= l.horizon) {
    *color = Floor(l, x, y);
    const double t = (y - l.horizon) / (l.height - l.horizon);
    *disparity =
        kFarDisparity + static_cast<int>(t * (kNearestFloorDisparity - kFarDisparity) + 0.5);
  } else {
    *color = Skyline(l, x, y);
    *disparity = kFarDisparity;
  }
}

}  // namespace

Calibration SceneCalibration() {
  Calibration calib;
  calib.calib_num = 1572864000;
  calib.calib_den = 524288;
  calib.map_scale_den = 1280;
  calib.map_scale_num = 320;
  return calib;
}

Scene MakeScene(Size size) {
  const Layout layout = MakeLayout(size);
  Scene scene;
  scene.picture = Image(size.width, size.height, 4);
  scene.disparity = Image(size.width, size.height, 1);
  for (int y = 0; y < size.height; ++y) {
    uint8_t* rgba = scene.picture.Row(y);
    uint8_t* disparity = scene.disparity.Row(y);
    for (int x = 0; x < size.width; ++x) {
      Rgb color{};
      int d = 0;
      Render(layout, x, y, &color, &d);
      rgba[4 * x + 0] = Clamp8(color.r);
      rgba[4 * x + 1] = Clamp8(color.g);
      rgba[4 * x + 2] = Clamp8(color.b);
      rgba[4 * x + 3] = 255;
      disparity[x] = static_cast<uint8_t>(d);
    }
  }
  scene.focus = Point{static_cast<int>(layout.ball_x), static_cast<int>(layout.ball_y)};
  return scene;
}

}  // namespace dofra_tool
