#include "quality_scenes.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>

namespace dofra_tool {

namespace {

constexpr int kNearDisparity = 120;  // depth 19
constexpr int kWallDisparity = 40;   // depth 52: fully blurred at focus depth 19
constexpr int kFarDisparity = 30;
constexpr int kSubsamples = 4;  // per side, for the coverage of an edge pixel
constexpr double kNoise = 6.0;  // sensor noise, peak to peak
constexpr double kPi = 3.14159265358979323846;
constexpr int kBarWidths[] = {3, 4, 6, 8, 12};
constexpr double kBarTilt = 0.07;  // about 4 degrees: every phase against the cells

struct Rgb {
  double r, g, b;
};

uint32_t Hash(int32_t x, int32_t y, uint32_t seed) {
  uint32_t h = static_cast<uint32_t>(x) * 0x8da6b343u ^ static_cast<uint32_t>(y) * 0xd8163841u ^
               seed * 0xcb1ab31fu;
  h ^= h >> 13;
  h *= 0x5bd1e995u;
  return h ^ (h >> 15);
}

double Lattice(int x, int y, uint32_t seed) { return (Hash(x, y, seed) & 0xFFFF) / 65535.0; }

// Value noise, smoothly interpolated, 0..1.
double ValueNoise(double x, double y, uint32_t seed) {
  const int x0 = static_cast<int>(std::floor(x)), y0 = static_cast<int>(std::floor(y));
  double fx = x - x0, fy = y - y0;
  fx = fx * fx * (3 - 2 * fx);
  fy = fy * fy * (3 - 2 * fy);
  const double top = Lattice(x0, y0, seed) * (1 - fx) + Lattice(x0 + 1, y0, seed) * fx;
  const double bottom = Lattice(x0, y0 + 1, seed) * (1 - fx) + Lattice(x0 + 1, y0 + 1, seed) * fx;
  return top * (1 - fy) + bottom * fy;
}

// Octaves from 32 pixels down to 2, amplitudes falling with the scale as in
// natural images; about 0..1 around 0.5.
double Fractal(double x, double y, uint32_t seed) {
  double sum = 0, norm = 0, scale = 32, amp = 1;
  for (int o = 0; o < 5; ++o, scale /= 2, amp *= 0.6) {
    sum += amp * ValueNoise(x / scale, y / scale, seed + o);
    norm += amp;
  }
  return sum / norm;
}

Rgb Mix(Rgb a, Rgb b, double t) {
  return Rgb{a.r + (b.r - a.r) * t, a.g + (b.g - a.g) * t, a.b + (b.b - a.b) * t};
}

// A patterned wall: a diamond lattice of motifs on a mottled plaster.
Rgb Wall(int x, int y) {
  const double plaster = Fractal(x, y, 101);
  Rgb c = Mix(Rgb{150, 140, 120}, Rgb{215, 205, 185}, plaster);
  const double u = (x + y) / 24.0, v = (x - y) / 24.0;
  const double du = u - std::floor(u) - 0.5, dv = v - std::floor(v) - 0.5;
  const double motif = std::max(0.0, 1 - 9 * (du * du + dv * dv));
  return Mix(c, Rgb{110, 60, 70}, 0.8 * motif);
}

// A dark wall far behind: mottled slate with a fine brick grid.
Rgb DarkWall(int x, int y) {
  const Rgb c = Mix(Rgb{30, 32, 38}, Rgb{75, 70, 68}, Fractal(x, y, 606));
  const bool joint = y % 18 < 2 || (x + (y / 18 % 2) * 20) % 40 < 2;
  return joint ? Mix(c, Rgb{15, 15, 18}, 0.7) : c;
}

// A bright, lightly textured subject.
Rgb BrightDisc(int x, int y) {
  return Mix(Rgb{215, 205, 190}, Rgb{250, 245, 235}, Fractal(x * 0.7, y * 0.7, 707));
}

// Leaves: green with veins and light spots.
Rgb Foliage(int x, int y) {
  const double n = Fractal(x * 1.3, y * 1.3, 202);
  const double vein = std::fabs(std::sin((x * 0.8 + y * 0.3) / 5.0));
  Rgb c = Mix(Rgb{40, 90, 30}, Rgb{120, 180, 70}, n);
  return Mix(c, Rgb{170, 210, 120}, vein > 0.97 ? 0.6 : 0.0);
}

Rgb Wood(int x, int y) {
  const double grain = std::sin((y + 8 * Fractal(x, y, 303)) / 3.0) * 0.5 + 0.5;
  return Mix(Rgb{120, 75, 40}, Rgb{200, 150, 95}, 0.3 + 0.6 * grain);
}

// The same statistics for subject and background; only the seed differs.
Rgb Shared(int x, int y, uint32_t seed) {
  const double n = Fractal(x, y, seed);
  const double m = Fractal(x + 500, y + 500, seed + 50);
  return Mix(Mix(Rgb{60, 70, 90}, Rgb{200, 190, 170}, n), Rgb{170, 90, 60}, 0.5 * m);
}

uint8_t Clamp8(double v) { return static_cast<uint8_t>(std::max(0.0, std::min(255.0, v + 0.5))); }

// A subject over a background: colour by the share of the pixel's
// subsamples inside the subject (and noise), disparity by its centre.
struct Layers {
  std::function<Rgb(int, int)> background;
  std::function<int(int, int)> background_disparity;
  std::function<bool(double, double)> inside;
  std::function<Rgb(int, int)> subject;
  std::function<int(int, int)> subject_disparity;
};

void Render(const Layers& l, QualityScene* scene) {
  const int w = scene->picture.width, h = scene->picture.height;
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      int hits = 0;
      for (int sy = 0; sy < kSubsamples; ++sy)
        for (int sx = 0; sx < kSubsamples; ++sx)
          hits += l.inside(x + (sx + 0.5) / kSubsamples, y + (sy + 0.5) / kSubsamples);
      const double cover = static_cast<double>(hits) / (kSubsamples * kSubsamples);
      Rgb c = cover > 0 ? l.subject(x, y) : Rgb{};
      if (cover < 1) c = Mix(l.background(x, y), c, cover);
      const double noise = ((Hash(x, y, 909) & 255) / 255.0 - 0.5) * kNoise;
      uint8_t* p = scene->picture.Row(y) + 4 * x;
      p[0] = Clamp8(c.r + noise);
      p[1] = Clamp8(c.g + noise);
      p[2] = Clamp8(c.b + noise);
      p[3] = 255;
      const bool near = l.inside(x + 0.5, y + 0.5);
      scene->disparity.Row(y)[x] =
          static_cast<uint8_t>(near ? l.subject_disparity(x, y) : l.background_disparity(x, y));
    }
  }
}

QualityScene Blank(const std::string& name, Size size, Point focus) {
  QualityScene s;
  s.name = name;
  s.picture = Image(size.width, size.height, 4);
  s.disparity = Image(size.width, size.height, 1);
  s.focus = focus;
  return s;
}

int Constant(int v) { return v; }

QualityScene Disc(Size size) {
  const double cx = 0.45 * size.width, cy = 0.5 * size.height, r = 0.3 * size.height;
  QualityScene s = Blank("disc", size, Point{static_cast<int>(cx), static_cast<int>(cy)});
  Render({Wall, [](int, int) { return Constant(kWallDisparity); },
          [=](double x, double y) { return (x - cx) * (x - cx) + (y - cy) * (y - cy) < r * r; },
          Foliage, [](int, int) { return Constant(kNearDisparity); }},
         &s);
  return s;
}

// Bars hang from a beam; the focus is on the beam, so every bar should be as
// sharp as the beam. Each bar is measured on its own below the beam.
QualityScene Bars(Size size) {
  const double top = 0.1 * size.height, beam = 0.22 * size.height, bottom = 0.9 * size.height;
  const int count = static_cast<int>(sizeof(kBarWidths) / sizeof(kBarWidths[0]));
  const double spacing = size.width / (count + 1.0);
  QualityScene s = Blank("bars", size,
                         Point{size.width / 2, static_cast<int>((top + beam) / 2)});
  auto inside = [=](double x, double y) {
    if (y < top || y > bottom) return false;
    if (y < beam) return x > 0.05 * size.width && x < 0.95 * size.width;
    for (int i = 0; i < count; ++i) {
      const double centre = spacing * (i + 1) + (y - beam) * kBarTilt;
      if (std::fabs(x - centre) < kBarWidths[i] / 2.0) return true;
    }
    return false;
  };
  Render({Wall, [](int, int) { return Constant(kWallDisparity); }, inside, Foliage,
          [](int, int) { return Constant(kNearDisparity); }},
         &s);
  const int below = static_cast<int>(beam) + 14;
  for (int i = 0; i < count; ++i) {
    const int x0 = static_cast<int>(spacing * (i + 0.5)), x1 = static_cast<int>(spacing * (i + 1.5));
    s.parts.push_back({"bar " + std::to_string(kBarWidths[i]) + " px", x0, below, x1,
                       size.height});
  }
  return s;
}

// A board turned by 10 degrees, nearer on its left than on its right.
QualityScene Slanted(Size size) {
  const double cx = 0.5 * size.width, cy = 0.5 * size.height;
  const double half_w = 0.3 * size.width, half_h = 0.25 * size.height;
  const double c = std::cos(10 * kPi / 180), sn = std::sin(10 * kPi / 180);
  QualityScene s = Blank("slanted plane", size, Point{static_cast<int>(cx), static_cast<int>(cy)});
  auto along = [=](double x, double y) { return (x - cx) * c + (y - cy) * sn; };
  auto across = [=](double x, double y) { return -(x - cx) * sn + (y - cy) * c; };
  Render({Wall, [](int, int) { return Constant(kFarDisparity); },
          [=](double x, double y) {
            return std::fabs(along(x, y)) < half_w && std::fabs(across(x, y)) < half_h;
          },
          Wood,
          [=](int x, int y) {
            const double t = along(x + 0.5, y + 0.5) / half_w;  // -1 .. 1
            return static_cast<int>(std::lround(115 - 55 * t));
          }},
         &s);
  return s;
}

// A blob whose texture shares the background's statistics: only the depth
// tells them apart.
QualityScene SameTexture(Size size) {
  const double cx = 0.5 * size.width, cy = 0.5 * size.height, r = 0.3 * size.height;
  QualityScene s = Blank("same texture", size, Point{static_cast<int>(cx), static_cast<int>(cy)});
  Render({[](int x, int y) { return Shared(x, y, 404); },
          [](int, int) { return Constant(kWallDisparity); },
          [=](double x, double y) {
            const double a = std::atan2(y - cy, x - cx);
            const double radius = r * (1 + 0.2 * std::sin(3 * a) + 0.1 * std::sin(5 * a));
            return (x - cx) * (x - cx) + (y - cy) * (y - cy) < radius * radius;
          },
          [](int x, int y) { return Shared(x, y, 505); },
          [](int, int) { return Constant(kNearDisparity); }},
         &s);
  return s;
}

}  // namespace

GlowScene MakeGlowScene(Size size, double radius) {
  GlowScene g;
  g.cx = size.width / 2.0;
  g.cy = size.height / 2.0;
  g.radius = radius;
  const double cx = g.cx, cy = g.cy;
  g.disc = Blank("disc and wall", size, Point{static_cast<int>(cx), static_cast<int>(cy)});
  auto wall_disparity = [](int, int) { return Constant(kWallDisparity); };
  auto near = [](int, int) { return Constant(kNearDisparity); };
  Render({DarkWall, wall_disparity,
          [=](double x, double y) { return (x - cx) * (x - cx) + (y - cy) * (y - cy) < radius * radius; },
          BrightDisc, near},
         &g.disc);
  QualityScene wall = Blank("wall", size, g.disc.focus);
  Render({DarkWall, wall_disparity, [](double, double) { return false; }, BrightDisc, near}, &wall);
  g.wall = wall.picture;
  return g;
}

std::vector<QualityScene> MakeQualityScenes(Size size) {
  return {Disc(size), Bars(size), Slanted(size), SameTexture(size)};
}

Calibration QualityCalibration() { return ParseCalibration("1572864000,65536,1280,320"); }

}  // namespace dofra_tool
