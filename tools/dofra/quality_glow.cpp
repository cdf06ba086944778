#include "quality_glow.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>

#include "convert.h"
#include "engine.h"
#include "quality_edges.h"
#include "quality_scenes.h"

namespace dofra_tool {

namespace {

constexpr int kMapDivisor = 8;  // disparity at W/8, as dofra blur gives it
constexpr int kGlowGap = 4;     // white between the crops of GlowPicture

// Mean luma over the pixels whose distance outside the disc's edge lies in
// [lo, hi] (lo < 0 reaches inside the disc).
double RingMean(const uint8_t* luma, const GlowScene& g, Size size, double lo, double hi) {
  double sum = 0;
  int64_t count = 0;
  for (int y = 0; y < size.height; ++y)
    for (int x = 0; x < size.width; ++x) {
      const double d = std::hypot(x + 0.5 - g.cx, y + 0.5 - g.cy) - g.radius;
      if (d < lo || d > hi) continue;
      sum += luma[static_cast<size_t>(y) * size.width + x];
      ++count;
    }
  return count > 0 ? sum / count : 0;
}

// The scene, a blur handle of its size and the two maps of its disc.
struct GlowSetup {
  explicit GlowSetup(const GlowSettings& settings)
      : size(settings.size), scene(MakeGlowScene(size, settings.radius)),
        session(BlurSession::Open(size, settings.scale)), level(settings.level) {
    if (!session) throw InputError("the library does not accept the glow scene's size " + SizeText(size));
    guide.resize(Nv21Bytes(size.width, size.height));
    RgbaToNv21(scene.disc.picture, guide.data());
    const Size map_size{size.width / kMapDivisor, size.height / kMapDivisor};
    for (bool refine : {false, true})
      maps[refine] = SceneWeights(scene.disc, guide.data(), map_size,
                                  refine ? MapMethod::kRefined : MapMethod::kPlain, level,
                                  settings.tuning);
  }
  // Blurs `picture` with the row's mode under the disc's map of that mode;
  // the NV21 frame.
  const uint8_t* Blur(const Image& picture, const GlowRow& row) {
    RgbaToNv21(picture, session->source());
    session->PrimeDestination();
    session->SetWeights(maps[row.refine].data());
    session->SetNoBleed({row.no_bleed ? 1 : 0, level, row.pullback, row.threshold});
    if (!session->Blur()) throw InputError("the library refused to blur the glow scene");
    return session->destination();
  }
  Size size;
  GlowScene scene;
  std::unique_ptr<BlurSession> session;
  int level;
  std::vector<uint8_t> guide;
  std::vector<uint16_t> maps[2];
};

std::vector<GlowRow> Modes(const GlowSettings& settings) {
  std::vector<GlowRow> rows;
  for (bool refine : {false, true}) {
    const std::string base = refine ? "--refine" : "default";
    GlowRow row;
    row.label = base;
    row.refine = refine;
    rows.push_back(row);
    row.no_bleed = true;
    row.label = refine ? "--refine --no-bleed" : "--no-bleed";
    rows.push_back(row);
    const std::string no_bleed = refine ? "--refine --no-bleed" : "--no-bleed";
    for (int p : settings.pullbacks) {
      if (p == DOFRA_NO_BLEED_PULLBACK_DEFAULT) continue;
      row.pullback = p;
      row.label = no_bleed + " --pullback " + std::to_string(p);
      rows.push_back(row);
    }
    row.pullback = DOFRA_NO_BLEED_PULLBACK_DEFAULT;
    for (int t : settings.thresholds) {
      if (t == DOFRA_NO_BLEED_THRESHOLD_DEFAULT) continue;
      row.threshold = t;
      row.label = no_bleed + " --threshold " + std::to_string(t);
      rows.push_back(row);
    }
    row.threshold = DOFRA_NO_BLEED_THRESHOLD_DEFAULT;
  }
  return rows;
}

}  // namespace

GlowTable MeasureGlow(const GlowSettings& settings) {
  GlowSetup setup(settings);
  const Size size = settings.size;
  const GlowScene& g = setup.scene;
  // The contrast: the sharp disc inside its edge against the sharp wall.
  std::vector<uint8_t> wall_luma(setup.guide.size());
  RgbaToNv21(g.wall, wall_luma.data());
  const double contrast = RingMean(setup.guide.data(), g, size, -settings.radius, -kGlowNear[0]) -
                          RingMean(wall_luma.data(), g, size, kGlowWide[0], kGlowWide[1]);

  GlowTable table;
  table.title = "glow: wall brightening outside the disc, % of the disc-to-wall contrast (" +
                SizeText(size) + ", factor " + std::to_string(settings.scale) + ", level " +
                std::to_string(settings.level) + ")";
  const size_t luma = static_cast<size_t>(size.width) * size.height;
  for (GlowRow row : Modes(settings)) {
    const uint8_t* y = setup.Blur(g.disc.picture, row);
    const std::vector<uint8_t> with(y, y + luma);
    const uint8_t* without = setup.Blur(g.wall, row);
    auto glow = [&](const int* ring) {
      return 100 * (RingMean(with.data(), g, size, ring[0], ring[1]) -
                    RingMean(without, g, size, ring[0], ring[1])) /
             contrast;
    };
    row.near = glow(kGlowNear);
    row.wide = glow(kGlowWide);
    table.rows.push_back(row);
  }
  return table;
}

Image GlowPicture(const GlowSettings& settings, int crop) {
  GlowSetup setup(settings);
  const GlowScene& g = setup.scene;
  GlowRow modes[3];
  modes[1].no_bleed = modes[2].no_bleed = true;
  modes[2].refine = true;
  // The disc's right edge, the wall beside it.
  const int x0 = static_cast<int>(g.cx + g.radius) - crop / 2, y0 = static_cast<int>(g.cy) - crop / 2;
  Image out(3 * crop + 2 * kGlowGap, crop, 4);
  std::fill(out.pixels.begin(), out.pixels.end(), 255);
  for (int m = 0; m < 3; ++m) {
    const Image frame = Nv21ToRgba(setup.Blur(g.disc.picture, modes[m]), setup.size.width,
                                   setup.size.height);
    for (int y = 0; y < crop; ++y)
      std::memcpy(out.Row(y) + 4 * m * (crop + kGlowGap), frame.Row(y0 + y) + 4 * x0,
                  4 * static_cast<size_t>(crop));
  }
  return out;
}

std::string FormatGlowTable(const GlowTable& table) {
  std::string text = table.title + "\n";
  char line[128];
  snprintf(line, sizeof(line), "%-36s %9s %9s\n", "", "3..8 px", "3..24 px");
  text += line;
  for (const GlowRow& row : table.rows) {
    snprintf(line, sizeof(line), "%-36s %8.1f%% %8.1f%%\n", row.label.c_str(), row.near, row.wide);
    text += line;
  }
  return text;
}

}  // namespace dofra_tool
