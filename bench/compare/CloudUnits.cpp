// SPDX-License-Identifier: Apache-2.0
// Units of comparison: point clouds.
#include <memory>
#include <string>
#include <vector>

#include <opencv2/calib3d.hpp>

#include "StereoCamera.hpp"
#include "bench/baseline/Difference.hpp"
#include "bench/baseline/PlainCloud.hpp"
#include "bench/compare/Unit.hpp"
#include "bench/support/Inputs.hpp"
#include "src/core/AppendCloud.hpp"

namespace stereo::compare {

namespace {

template <typename Point>
struct Case {
  core::CloudImages images;
  core::CloudModel model;
  cv::Mat Q;
  std::vector<Point> scalar, library;
  cv::Mat peer;
};

template <typename Point>
using Sample = void (*)(const core::CloudImages&, const core::CloudModel&, std::vector<Point>&);

template <typename Point>
Unit cloudUnit(const char* form, cv::Size size, int mode, Sample<Point> scalar, Sample<Point> library,
               const Targets& targets) {
  const auto kept = std::make_shared<Case<Point>>(Case<Point>{
      bench::cloudImages(size, mode), bench::cloudModel(size, mode), bench::reprojection(size), {}, {}, {}});
  Unit unit;
  unit.name = std::string(form) + " cloud mode " + std::to_string(mode) + " " + std::to_string(size.width) + "x" +
              std::to_string(size.height);
  unit.scalar = [kept, scalar] {
    kept->scalar.clear();
    scalar(kept->images, kept->model, kept->scalar);
  };
  unit.library = [kept, library] {
    kept->library.clear();
    library(kept->images, kept->model, kept->library);
  };
  if (mode == bench::perspectiveMode) {
    unit.peer = [kept] { cv::reprojectImageTo3D(kept->images.disparity, kept->peer, kept->Q); };
    unit.peerName = "reprojectImageTo3D";
  }
  unit.difference = [kept, scalarCall = unit.scalar, libraryCall = unit.library]() -> std::string {
    scalarCall();
    libraryCall();
    return kept->scalar.empty() ? "the cloud is empty" : baseline::difference(kept->scalar, kept->library);
  };
  unit.targets = targets;
  return unit;
}

}  // namespace

void addCloudUnits(std::vector<Unit>& units) {
  const auto add = [&units](cv::Size size, int mode, const Targets& targets) {
    units.push_back(cloudUnit<cv::Vec3f>("plain", size, mode, baseline::plainCloud, core::appendPlainCloud, targets));
    units.push_back(
        cloudUnit<PCL>("coloured", size, mode, baseline::coloredCloud, core::appendColoredCloud<PCL>, targets));
  };
  add({464, 400}, bench::lonLatMode, {3, 0, 0});
  add({464, 400}, bench::perspectiveMode, {3, 5, 0});
  // Square: the lookups of the perspective cloud swap rows and columns, so here none of them leaves the image.
  add({464, 464}, bench::perspectiveMode, {3, 5, 0});
}

}  // namespace stereo::compare
