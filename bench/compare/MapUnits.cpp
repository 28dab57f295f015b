// SPDX-License-Identifier: Apache-2.0
// Units of comparison: lookup maps.
#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/ccalib/omnidir.hpp>

#include "StereoCamera.hpp"
#include "bench/baseline/Difference.hpp"
#include "bench/baseline/PlainRectifyMap.hpp"
#include "bench/compare/Unit.hpp"
#include "bench/support/Inputs.hpp"

namespace stereo::compare {

namespace {

using bench::Eye;
using bench::leftEye;
using bench::lonLatMode;
using bench::perspectiveMode;
using bench::rightEye;
using bench::viewMatrix;

struct Maps {
  cv::Mat columns;
  cv::Mat rows;
};

// One pair of maps: the eye, the view, and how each of the three builds the maps.
struct Case {
  Eye eye;
  cv::Size size;
  int mode;
  cv::Mat P = viewMatrix(size, mode);
  double xi2 = mode == perspectiveMode ? eye.mirror() : 0.0;  // as in `startCapture`

  void scalar(Maps& maps) const {
    baseline::initRectifyMap(eye.K, eye.D, eye.R, P, eye.mirror(), xi2, size, mode, maps.columns, maps.rows);
  }
  void library(Maps& maps) const {
    ::initRectifyMap(eye.K, eye.D, eye.R, P, eye.mirror(), xi2, size, mode, maps.columns, maps.rows);
  }
  void peer(Maps& maps) const {
    cv::omnidir::initUndistortRectifyMap(
        eye.K, eye.D, eye.xi, eye.R, P, size, CV_32FC1, maps.columns, maps.rows,
        mode == perspectiveMode ? cv::omnidir::RECTIFY_PERSPECTIVE : cv::omnidir::RECTIFY_LONGLATI);
  }
  std::string difference() const {
    Maps expected;
    Maps actual;
    scalar(expected);
    library(actual);
    const std::string columns = baseline::difference(expected.columns, actual.columns);
    return columns.empty() ? baseline::difference(expected.rows, actual.rows) : columns;
  }
};

struct KeptMaps {
  Case of;
  Maps scalar, library, peer;
};

std::string sizeName(cv::Size size) { return std::to_string(size.width) + "x" + std::to_string(size.height); }

Unit onePair(const std::string& name, cv::Size size, int mode, const Targets& targets) {
  const auto kept = std::make_shared<KeptMaps>(KeptMaps{{leftEye(), size, mode}, {}, {}, {}});
  Unit unit;
  unit.name = name + " " + sizeName(size);
  unit.scalar = [kept] { kept->of.scalar(kept->scalar); };
  unit.library = [kept] { kept->of.library(kept->library); };
  unit.peer = [kept] { kept->of.peer(kept->peer); };
  unit.peerName = "omnidir::initUndistortRectifyMap";
  unit.difference = [kept] { return kept->of.difference(); };
  unit.targets = targets;
  return unit;
}

// Both views of both eyes, as `startCapture` builds them: the first time in new memory, later in memory that was kept.
Unit allFour(const char* name, cv::Size size, bool intoKept, const Targets& targets) {
  const auto cases = std::make_shared<const std::vector<Case>>(std::vector<Case>{{leftEye(), size, perspectiveMode},
                                                                                 {rightEye(), size, perspectiveMode},
                                                                                 {leftEye(), size, lonLatMode},
                                                                                 {rightEye(), size, lonLatMode}});
  const auto each = [cases, intoKept](void (Case::*make)(Maps&) const) {
    return [cases, intoKept, make, kept = std::make_shared<std::vector<Maps>>(cases->size())] {
      std::vector<Maps> fresh(cases->size());
      std::vector<Maps>& maps = intoKept ? *kept : fresh;
      for (std::size_t k = 0; k < cases->size(); ++k) {
        ((*cases)[k].*make)(maps[k]);
      }
    };
  };
  Unit unit;
  unit.name = std::string(name) + " " + sizeName(size);
  unit.scalar = each(&Case::scalar);
  unit.library = each(&Case::library);
  unit.peer = each(&Case::peer);
  unit.peerName = "omnidir::initUndistortRectifyMap x 4";
  unit.difference = [cases] {
    for (const Case& one : *cases) {
      std::string difference = one.difference();
      if (!difference.empty()) {
        return difference;
      }
    }
    return std::string();
  };
  if (!intoKept) {
    // The system's time to hand out the pages, on one thread.
    unit.floor = [size, count = 2 * cases->size()] {
      std::vector<cv::Mat> maps(count);
      for (cv::Mat& map : maps) {
        map.create(size, CV_32FC1);
        map.setTo(cv::Scalar(0));
      }
    };
    unit.floorName = "zeros in eight new matrices";
  }
  unit.targets = targets;
  return unit;
}

}  // namespace

void addMapUnits(std::vector<Unit>& units) {
  for (const cv::Size size : {cv::Size(464, 400), cv::Size(928, 800)}) {
    units.push_back(onePair("perspective map", size, perspectiveMode, {25, 5, 0}));
  }
  for (const cv::Size size : {cv::Size(464, 400), cv::Size(928, 800)}) {
    units.push_back(onePair("longitude-latitude map", size, lonLatMode, {30, 10, 0}));
  }
  units.push_back(allFour("four maps of a first start", {464, 400}, false, {25, 6, 0}));
  units.push_back(allFour("four maps of a later start", {464, 400}, true, {25, 6, 0}));
}

}  // namespace stereo::compare
