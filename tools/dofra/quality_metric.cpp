#include "quality_metric.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace dofra_tool {

namespace {

constexpr double kMapScale = 255.0 / 1024.0;
constexpr int kLabelWidth = 24;
constexpr int kCellWidth = 15;

// Square dilation, rows then columns.
std::vector<uint8_t> Dilate(const std::vector<uint8_t>& mask, int w, int h, int radius) {
  std::vector<uint8_t> rows(mask.size()), out(mask.size());
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      uint8_t any = 0;
      for (int k = std::max(0, x - radius); k <= std::min(w - 1, x + radius) && !any; ++k)
        any = mask[static_cast<size_t>(y) * w + k];
      rows[static_cast<size_t>(y) * w + x] = any;
    }
  }
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      uint8_t any = 0;
      for (int k = std::max(0, y - radius); k <= std::min(h - 1, y + radius) && !any; ++k)
        any = rows[static_cast<size_t>(k) * w + x];
      out[static_cast<size_t>(y) * w + x] = any;
    }
  }
  return out;
}

std::string Cell(const Score& s) {
  char text[32];
  snprintf(text, sizeof(text), "%5.1f %5.1f%%", s.mean, 100 * s.share_off);
  return text;
}

}  // namespace

std::vector<uint8_t> EdgeBand(const Image& disparity, int radius, int step) {
  const int w = disparity.width, h = disparity.height;
  std::vector<uint8_t> edge(static_cast<size_t>(w) * h, 0);
  for (int y = 0; y < h; ++y) {
    const uint8_t* row = disparity.Row(y);
    const uint8_t* below = disparity.Row(std::min(y + 1, h - 1));
    for (int x = 0; x < w; ++x) {
      const int right = row[std::min(x + 1, w - 1)];
      if (std::abs(row[x] - right) >= step || std::abs(row[x] - below[x]) >= step)
        edge[static_cast<size_t>(y) * w + x] = 1;
    }
  }
  return Dilate(edge, w, h, radius);
}

Score ScoreMap(const uint16_t* map, const uint16_t* reference, const std::vector<uint8_t>& band,
               int width, const SceneRegion& region) {
  Score s;
  double sum = 0;
  int64_t off = 0;
  for (int y = region.y0; y < region.y1; ++y) {
    for (int x = region.x0; x < region.x1; ++x) {
      const size_t i = static_cast<size_t>(y) * width + x;
      if (!band[i]) continue;
      const double e = std::fabs((static_cast<double>(map[i]) - reference[i]) * kMapScale);
      sum += e;
      off += e > kOffLimit;
      ++s.pixels;
    }
  }
  if (s.pixels > 0) {
    s.mean = sum / s.pixels;
    s.share_off = static_cast<double>(off) / s.pixels;
  }
  return s;
}

double ShareChange(const ScoreRow& row, const ScoreTable& table) {
  const double base = row.cells[table.baseline].share_off;
  return base > 0 ? 100 * (row.cells[table.candidate].share_off - base) / base : 0;
}

std::string FormatTable(const ScoreTable& table) {
  std::string text = table.title + "\n";
  char buf[64];
  snprintf(buf, sizeof(buf), "%-*s", kLabelWidth, "");
  text += buf;
  for (const std::string& c : table.columns) {
    snprintf(buf, sizeof(buf), " %*s", kCellWidth, c.c_str());
    text += buf;
  }
  if (table.baseline >= 0) {
    snprintf(buf, sizeof(buf), " %*s", kCellWidth, (table.columns[table.candidate] + " vs " +
                                                   table.columns[table.baseline]).c_str());
    text += buf;
  }
  text += "\n";
  snprintf(buf, sizeof(buf), "%-*s", kLabelWidth, "");
  text += buf;
  for (size_t i = 0; i < table.columns.size(); ++i) {
    snprintf(buf, sizeof(buf), " %*s", kCellWidth, "mean  >32");
    text += buf;
  }
  text += "\n";
  for (const ScoreRow& row : table.rows) {
    snprintf(buf, sizeof(buf), "%-*s", kLabelWidth, row.label.c_str());
    text += buf;
    for (const Score& s : row.cells) text += " " + std::string(kCellWidth - 12, ' ') + Cell(s);
    if (table.baseline >= 0) {
      snprintf(buf, sizeof(buf), " %*.0f%%", kCellWidth - 1, ShareChange(row, table));
      text += buf;
    }
    text += "\n";
  }
  return text;
}

}  // namespace dofra_tool
