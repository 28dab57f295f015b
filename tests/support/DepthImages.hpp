// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "src/core/Depth.hpp"

namespace stereo::test {

inline cv::Mat metricDepth(const cv::Mat& disparity, const core::DepthModel& m) {
  cv::Mat metric;
  core::metricDepth(disparity, m, metric);
  return metric;
}

inline core::DepthRange depthRange(const cv::Mat& disparity, const core::DepthModel& m) {
  cv::Mat depths;
  return core::measureDepths(disparity, m, depths);
}

/// Every depth of the disparity painted on this scale.
inline cv::Mat paintDepth(const cv::Mat& disparity, const core::DepthModel& m, const core::DepthRange& range) {
  cv::Mat depths;
  core::measureDepths(disparity, m, depths);
  cv::Mat picture;
  core::paintDepths(depths, range, picture);
  return picture;
}

}  // namespace stereo::test
