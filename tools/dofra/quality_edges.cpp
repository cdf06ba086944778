#include "quality_edges.h"

#include <memory>
#include <string>

#include "convert.h"
#include "engine.h"
#include "quality_scenes.h"

namespace dofra_tool {

namespace {

struct Method {
  const char* name;
  MapMethod method;
};
const Method kMethods[] = {
    {"default", MapMethod::kPlain}, {"no smoothing", MapMethod::kUnsmoothed}, {"refined", MapMethod::kRefined}};
constexpr int kBaseline = 1;
constexpr int kCandidate = 2;

}  // namespace

std::vector<uint16_t> SceneWeights(const QualityScene& scene, const uint8_t* guide, Size map_size,
                                   MapMethod method, int level, const DofraRefineTuning* tuning) {
  const Size size{scene.picture.width, scene.picture.height};
  WeightMapper mapper(size, map_size, method);
  const Image disparity = map_size.width == size.width && map_size.height == size.height
                              ? scene.disparity
                              : ResizeGray(scene.disparity, map_size.width, map_size.height);
  mapper.SetDepth(QualityCalibration(), disparity);
  mapper.SetGuide(guide);
  mapper.SetTuning(tuning);
  if (!mapper.Compute(level, scene.focus))
    throw InputError("the library refused the weight map of scene '" + scene.name + "'");
  const uint16_t* w = mapper.weights();
  return std::vector<uint16_t>(w, w + static_cast<size_t>(size.width) * size.height);
}

namespace {

ScoreTable NewTable(const std::string& title) {
  ScoreTable t;
  t.title = title;
  for (const Method& m : kMethods) t.columns.push_back(m.name);
  t.baseline = kBaseline;
  t.candidate = kCandidate;
  return t;
}

}  // namespace

std::vector<ScoreTable> MeasureEdges(const EdgeSettings& settings) {
  const Size size = settings.size;
  ScoreTable scenes = NewTable("edge band of " + std::to_string(kEdgeBandRadius) +
                               " px, error against the map from full-resolution disparity (/255)");
  ScoreTable bars = NewTable("the bars scene, bar by bar");
  std::vector<uint8_t> guide(Nv21Bytes(size.width, size.height));
  for (const QualityScene& scene : MakeQualityScenes(size)) {
    RgbaToNv21(scene.picture, guide.data());
    const std::vector<uint16_t> reference =
        SceneWeights(scene, guide.data(), size, MapMethod::kPlain, settings.level, settings.tuning);
    const std::vector<uint8_t> band = EdgeBand(scene.disparity, kEdgeBandRadius, kEdgeStep);
    const SceneRegion whole = {scene.name, 0, 0, size.width, size.height};
    for (int divisor : settings.divisors) {
      const Size map_size{size.width / divisor, size.height / divisor};
      const std::string at = " W/" + std::to_string(divisor);
      ScoreRow row{scene.name + at, {}};
      std::vector<ScoreRow> parts;
      for (const SceneRegion& part : scene.parts) parts.push_back({part.name + at, {}});
      for (const Method& m : kMethods) {
        const std::vector<uint16_t> map = SceneWeights(scene, guide.data(), map_size, m.method,
                                                         settings.level, settings.tuning);
        row.cells.push_back(ScoreMap(map.data(), reference.data(), band, size.width, whole));
        for (size_t p = 0; p < scene.parts.size(); ++p)
          parts[p].cells.push_back(
              ScoreMap(map.data(), reference.data(), band, size.width, scene.parts[p]));
      }
      scenes.rows.push_back(row);
      bars.rows.insert(bars.rows.end(), parts.begin(), parts.end());
    }
  }
  return {scenes, bars};
}

}  // namespace dofra_tool
