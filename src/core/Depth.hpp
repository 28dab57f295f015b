// SPDX-License-Identifier: Apache-2.0
// From disparity to metric depth and to its false-color picture.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::core {

/// The parameters that turn a disparity (CV_32FC1, pixels) into meters.
struct DepthModel {
  int mode = 1;            ///< 1: longitude-latitude pair, 2: perspective pair, other: no depth.
  float b = 0;             ///< Baseline, meters.
  double f = 0;            ///< Focal length of the perspective view, pixels (mode 2).
  int W = 0;               ///< Width of the rectified view, pixels (mode 1).
  double lonLatFov = 180;  ///< Degrees that mode 1 assumes the view to span.
  float minDepth = 0.05F;  ///< Near limit, meters; its number is also the least disparity of the metric depth, pixels.
  float maxDepth = 1.0F;   ///< Far limit, meters.
};

/// Smallest and largest depth in meters.
struct DepthRange {
  float min;
  float max;
};

/// Length of the translation (CV_64FC1 of three elements, millimeters), b = sqrt((x^2 + y^2) + z^2); OpenCV's norm for
/// another shape or type, 0 for an empty matrix.
double baselineMillimeters(const cv::Mat& translation);

/// Baseline in meters from the translation in millimeters, b = 0.001 |t|; 0 for an empty matrix.
float baselineMeters(const cv::Mat& translation);

/// Depth in meters, CV_32FC1 of the disparity's size: -1 where d <= minDepth, 0 where the depth is outside the limits.
/// Empty for an empty disparity. The memory of `metric` is reused, so it must not share pixels with the disparity.
/// Throws cv::Exception if the disparity is not CV_32FC1.
void metricDepth(const cv::Mat& disparity, const DepthModel& model, cv::Mat& metric);

/// First pass of the depth picture: the range of the depths of all pixels with d > minDepth, narrowed to the limits
/// ({1e11, 0} narrowed if there is none). `depths` (CV_32FC1 of the disparity's size, memory reused) gets what the
/// second pass needs: meters where d > 0 and the depth is within the limits, 0 elsewhere. The two cutoffs differ on
/// purpose. Throws as above.
DepthRange measureDepths(const cv::Mat& disparity, const DepthModel& model, cv::Mat& depths);

/// Second pass: every depth above 0 in its color on the scale `range`, everything else black. CV_8UC3 of the size of
/// `depths` (CV_32FC1), rotated by 180 degrees; memory reused. Throws as above.
void paintDepths(const cv::Mat& depths, const DepthRange& range, cv::Mat& picture);

/// `metricDepth` for a caller's image, which may be the disparity itself or share pixels with it. See `writeInto` for
/// when its memory is reused.
void writeMetricDepth(const cv::Mat& disparity, const DepthModel& model, cv::Mat& depth);

/// Both passes, for a caller's image; see `writeInto`. `depths` is the buffer between them.
void writeDepthPicture(const cv::Mat& disparity, const DepthModel& model, cv::Mat& depths, cv::Mat& picture);

}  // namespace stereo::core
