// SPDX-License-Identifier: Apache-2.0
// Units of comparison: metric and colored depth.
#include <memory>
#include <string>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "bench/baseline/Difference.hpp"
#include "bench/baseline/PlainDepth.hpp"
#include "bench/compare/Unit.hpp"
#include "bench/support/Inputs.hpp"
#include "src/core/Depth.hpp"

namespace stereo::compare {

namespace {

struct Case {
  Case(cv::Size size, int mode)
      : disparity(bench::matchedDisparity(size, 1)),
        model(bench::depthModel(size, mode)),
        Q(bench::reprojection(size)) {}

  cv::Mat disparity;
  core::DepthModel model;
  cv::Mat Q;
  cv::Mat scalar, library, depths, peer, meters, bytes;  // memory reused from call to call
};

std::string unitName(const char* what, cv::Size size, int mode) {
  return std::string(what) + " mode " + std::to_string(mode) + " " + std::to_string(size.width) + "x" +
         std::to_string(size.height);
}

Unit metricUnit(cv::Size size, int mode, const Targets& targets) {
  const auto kept = std::make_shared<Case>(size, mode);
  Unit unit;
  unit.name = unitName("metric depth", size, mode);
  unit.scalar = [kept] { baseline::metricDepth(kept->disparity, kept->model, kept->scalar); };
  unit.library = [kept] { core::writeMetricDepth(kept->disparity, kept->model, kept->library); };
  if (mode == bench::perspectiveMode) {
    unit.peer = [kept] { cv::reprojectImageTo3D(kept->disparity, kept->peer, kept->Q); };
    unit.peerName = "reprojectImageTo3D";
  }
  unit.difference = [kept, scalar = unit.scalar, library = unit.library] {
    scalar();
    library();
    return baseline::difference(kept->scalar, kept->library);
  };
  unit.targets = targets;
  return unit;
}

// Depth scaled to bytes, colored through a table, rotated by 180 degrees.
void paintByTable(Case& kept) {
  cv::divide(kept.model.f * kept.model.b, kept.disparity, kept.meters);
  cv::normalize(kept.meters, kept.bytes, 0, 255, cv::NORM_MINMAX, CV_8U);
  cv::applyColorMap(kept.bytes, kept.peer, cv::COLORMAP_JET);
  cv::flip(kept.peer, kept.peer, -1);
}

Unit coloredUnit(cv::Size size, int mode, const Targets& targets) {
  const auto kept = std::make_shared<Case>(size, mode);
  Unit unit;
  unit.name = unitName("coloured depth", size, mode);
  unit.scalar = [kept] { baseline::coloredDepth(kept->disparity, kept->model, kept->scalar); };
  unit.library = [kept] { core::writeDepthPicture(kept->disparity, kept->model, kept->depths, kept->library); };
  if (mode == bench::perspectiveMode) {
    unit.peer = [kept] { paintByTable(*kept); };
    unit.peerName = "divide, normalize, applyColorMap, flip";
  }
  unit.difference = [kept, scalar = unit.scalar, library = unit.library] {
    scalar();
    library();
    return baseline::difference(kept->scalar, kept->library);
  };
  unit.targets = targets;
  return unit;
}

}  // namespace

void addDepthUnits(std::vector<Unit>& units) {
  for (const cv::Size size : {cv::Size(464, 400), cv::Size(928, 800)}) {
    units.push_back(metricUnit(size, bench::perspectiveMode, {5, 20, 0}));
  }
  units.push_back(metricUnit({464, 400}, bench::lonLatMode, {1.8, 0, 0}));
  units.push_back(coloredUnit({464, 400}, bench::lonLatMode, {3.5, 0, 0}));
  units.push_back(coloredUnit({464, 400}, bench::perspectiveMode, {6, 1, 0}));
}

}  // namespace stereo::compare
