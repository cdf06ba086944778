#include "quality_glow.h"

#include <cmath>
#include <cstdio>
#include <memory>

#include "convert.h"
#include "engine.h"
#include "quality_edges.h"
#include "quality_scenes.h"

namespace dofra_tool {

namespace {

constexpr int kMapDivisor = 8;  // disparity at W/8, as dofra blur gives it

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

// Blurs `picture` under `weights` with the row's mode; the luma plane.
std::vector<uint8_t> BlurLuma(BlurSession* session, const Image& picture,
                              std::vector<uint16_t>* weights, const GlowRow& row, int level) {
  RgbaToNv21(picture, session->source());
  session->PrimeDestination();
  session->SetWeights(weights->data());
  session->SetNoBleed({row.no_bleed ? 1 : 0, level, row.pullback});
  if (!session->Blur()) throw InputError("the library refused to blur the glow scene");
  const uint8_t* y = session->destination();
  return std::vector<uint8_t>(y, y + static_cast<size_t>(picture.width) * picture.height);
}

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
    for (int p : settings.pullbacks) {
      if (p == DOFRA_NO_BLEED_PULLBACK_DEFAULT) continue;
      row.pullback = p;
      row.label = (refine ? "--refine --no-bleed --pullback " : "--no-bleed --pullback ") +
                  std::to_string(p);
      rows.push_back(row);
    }
  }
  return rows;
}

}  // namespace

GlowTable MeasureGlow(const GlowSettings& settings) {
  const Size size = settings.size;
  const GlowScene g = MakeGlowScene(size, settings.radius);
  std::unique_ptr<BlurSession> session = BlurSession::Open(size, settings.scale);
  if (!session) throw InputError("the library does not accept the glow scene's size " + SizeText(size));
  std::vector<uint8_t> guide(Nv21Bytes(size.width, size.height));
  RgbaToNv21(g.disc.picture, guide.data());
  const Size map_size{size.width / kMapDivisor, size.height / kMapDivisor};
  std::vector<uint16_t> maps[2];
  for (bool refine : {false, true})
    maps[refine] = SceneWeights(g.disc, guide.data(), map_size,
                                refine ? MapMethod::kRefined : MapMethod::kPlain, settings.level,
                                settings.tuning);
  // The contrast: the sharp disc inside its edge against the sharp wall.
  std::vector<uint8_t> wall_luma(guide.size());
  RgbaToNv21(g.wall, wall_luma.data());
  const double contrast = RingMean(guide.data(), g, size, -settings.radius, -kGlowNear[0]) -
                          RingMean(wall_luma.data(), g, size, kGlowWide[0], kGlowWide[1]);

  GlowTable table;
  table.title = "glow: wall brightening outside the disc, % of the disc-to-wall contrast (" +
                SizeText(size) + ", factor " + std::to_string(settings.scale) + ", level " +
                std::to_string(settings.level) + ")";
  for (GlowRow row : Modes(settings)) {
    std::vector<uint16_t>& map = maps[row.refine];
    const std::vector<uint8_t> with = BlurLuma(session.get(), g.disc.picture, &map, row, settings.level);
    const std::vector<uint8_t> without = BlurLuma(session.get(), g.wall, &map, row, settings.level);
    auto glow = [&](const int* ring) {
      return 100 * (RingMean(with.data(), g, size, ring[0], ring[1]) -
                    RingMean(without.data(), g, size, ring[0], ring[1])) /
             contrast;
    };
    row.near = glow(kGlowNear);
    row.wide = glow(kGlowWide);
    table.rows.push_back(row);
  }
  return table;
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
