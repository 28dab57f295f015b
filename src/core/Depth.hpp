// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/core.hpp>

namespace stereo::core {

/// What turns a disparity (CV_32FC1, pixels) into metres.
struct DepthModel {
  int mode = 1;            ///< 1: longitude-latitude pair, 2: perspective pair, other: no depth.
  float b = 0;             ///< Baseline, metres.
  double f = 0;            ///< Focal length of the perspective view, pixels (mode 2).
  int W = 0;               ///< Width of the rectified view, pixels (mode 1).
  double lonLatFov = 180;  ///< Degrees that mode 1 takes the view to span.
  float minDepth = 0.05F;  ///< Near limit, metres; its number is also the least disparity of the metric depth, pixels.
  float maxDepth = 1.0F;   ///< Far limit, metres.
};

/// Smallest and largest depth in metres.
struct DepthRange {
  float min;
  float max;
};

/// Baseline in metres from the translation in millimetres, b = 0.001 |t|; 0 for an empty matrix.
float baselineMetres(const cv::Mat& translation);

/// Depth in metres, CV_32FC1 of the disparity's size: -1 where d <= minDepth, 0 where the depth is out of limits.
/// Empty for an empty disparity. Throws cv::Exception if the disparity is not CV_32FC1.
cv::Mat metricDepth(const cv::Mat& disparity, const DepthModel& model);

/// Range of the depths of all pixels with d > minDepth, then narrowed to the limits; {1e11, 0} narrowed if there is
/// none. Throws as above.
DepthRange depthRange(const cv::Mat& disparity, const DepthModel& model);

/// Every pixel with d > 0 and a depth within limits in its colour on the scale `range`, all others black; CV_8UC3 of
/// the disparity's size, turned by 180 degrees. Throws as above.
cv::Mat paintDepth(const cv::Mat& disparity, const DepthModel& model, const DepthRange& range);

}  // namespace stereo::core
