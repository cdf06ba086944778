// The edge-quality figures of dofra quality at its default size, pinned
// within 10 % of those recorded, and the margins the refined map must keep
// over the plain map without smoothing.
#include <gtest/gtest.h>

#include <algorithm>

#include <string>
#include <vector>

#include "quality_edges.h"
#include "quality_glow.h"

namespace dofra_tool {
namespace {

// Recorded at 640x480, level 1, the library's tuning: mean error and share
// off by more than 32, for the columns default, no smoothing, refined.
struct Pinned {
  const char* label;
  double figures[3][2];
};

const Pinned kScenes[] = {
    {"disc W/8", {{52.4, .593}, {27.3, .224}, {9.4, .093}}},
    {"disc W/4", {{23.0, .278}, {11.5, .114}, {6.5, .076}}},
    {"bars W/8", {{57.6, .556}, {37.6, .324}, {16.2, .159}}},
    {"bars W/4", {{35.7, .397}, {16.4, .146}, {11.7, .115}}},
    {"slanted plane W/8", {{48.5, .443}, {31.5, .233}, {11.5, .080}}},
    {"slanted plane W/4", {{23.0, .231}, {13.6, .110}, {8.2, .066}}},
    {"same texture W/8", {{54.3, .615}, {28.6, .235}, {7.3, .078}}},
    {"same texture W/4", {{23.8, .284}, {11.8, .111}, {4.9, .055}}},
};

// The refined share's change against no smoothing: at most these.
const struct {
  const char* label;
  double most;
} kMargins[] = {{"same texture W/8", -35}, {"same texture W/4", -35}, {"bars W/8", -20},
                {"bars W/4", -20}};

const ScoreRow* Find(const ScoreTable& table, const std::string& label) {
  for (const ScoreRow& row : table.rows)
    if (row.label == label) return &row;
  return nullptr;
}

TEST(EdgeQuality, FiguresAsRecordedAndRefinedAhead) {
  EdgeSettings settings;
  settings.size = Size{640, 480};
  const std::vector<ScoreTable> tables = MeasureEdges(settings);
  ASSERT_EQ(tables.size(), 2u);
  const ScoreTable& scenes = tables[0];
  for (const Pinned& p : kScenes) {
    const ScoreRow* row = Find(scenes, p.label);
    ASSERT_NE(row, nullptr) << p.label;
    for (int c = 0; c < 3; ++c) {
      EXPECT_NEAR(row->cells[c].mean, p.figures[c][0], 0.1 * p.figures[c][0])
          << p.label << " " << scenes.columns[c];
      EXPECT_NEAR(row->cells[c].share_off, p.figures[c][1], 0.1 * p.figures[c][1])
          << p.label << " " << scenes.columns[c];
    }
  }
  for (const auto& m : kMargins) EXPECT_LE(ShareChange(*Find(scenes, m.label), scenes), m.most);
  // Bar by bar: from 4 pixels wide on, refined keeps fewer pixels off.
  for (const ScoreRow& row : tables[1].rows) {
    if (row.label.rfind("bar 3 px", 0) == 0) continue;
    EXPECT_LT(ShareChange(row, tables[1]), 0) << row.label;
  }
}

// The band: a pixel is in it exactly when a depth jump lies within the
// radius, counted as a square.
TEST(EdgeQuality, BandAroundDepthJumps) {
  Image disparity(40, 30, 1);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) disparity.Row(y)[x] = static_cast<uint8_t>(x < 20 ? 100 : 150 + x % 3);
  const std::vector<uint8_t> band = EdgeBand(disparity, 3, 8);
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x) EXPECT_EQ(band[y * 40 + x], x >= 16 && x <= 22) << x << "," << y;
  const std::vector<uint16_t> map(40 * 30, 512), reference(40 * 30, 1024);
  const Score s = ScoreMap(map.data(), reference.data(), band, 40, {"all", 0, 0, 40, 30});
  EXPECT_EQ(s.pixels, 7 * 30);
  EXPECT_DOUBLE_EQ(s.mean, 127.5);
  EXPECT_DOUBLE_EQ(s.share_off, 1.0);
}

// The glow table at its defaults: figures within 10 % (or 0.5 points near
// 0), and the goals: with the refined map at most 3 % and 1 %, with
// the plain map at most 10 % and 3 %.
TEST(GlowQuality, FiguresAsRecordedAndGoalsMet) {
  const struct {
    const char* label;
    double near, wide;
  } pinned[] = {{"default", 13.0, 3.8},
                {"--no-bleed", 4.6, 1.1},
                {"--no-bleed --threshold 8", 9.9, 2.8},
                {"--refine", 20.5, 5.7},
                {"--refine --no-bleed", 0.0, 0.0}};
  const GlowTable table = MeasureGlow(GlowSettings{});
  auto find = [&](const std::string& label) -> const GlowRow& {
    for (const GlowRow& row : table.rows)
      if (row.label == label) return row;
    ADD_FAILURE() << "no row " << label;
    return table.rows.front();
  };
  for (const auto& p : pinned) {
    const GlowRow& row = find(p.label);
    EXPECT_NEAR(row.near, p.near, std::max(0.1 * p.near, 0.5)) << p.label;
    EXPECT_NEAR(row.wide, p.wide, std::max(0.1 * p.wide, 0.5)) << p.label;
  }
  EXPECT_LE(find("--refine --no-bleed").near, 3.0);
  EXPECT_LE(find("--refine --no-bleed").wide, 1.0);
  EXPECT_LE(find("--no-bleed").near, 10.0);
  EXPECT_LE(find("--no-bleed").wide, 3.0);
}

}  // namespace
}  // namespace dofra_tool
