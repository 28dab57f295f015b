// SPDX-License-Identifier: Apache-2.0
// Metric and colored depth, plain form.
#pragma once

#include <opencv2/core.hpp>

#include "src/core/Depth.hpp"

namespace stereo::baseline {

// Depth pixel by pixel, every term evaluated for each. Disparities are CV_32FC1, pixels; nothing checks that.

/// Meters in a new CV_32FC1 image: -1 where the disparity is not above the near limit's number, 0 outside the limits.
void metricDepth(const cv::Mat& disparity, const core::DepthModel& model, cv::Mat& depth);

/// Range of the depths, narrowed to the limits.
core::DepthRange depthRange(const cv::Mat& disparity, const core::DepthModel& model);

/// False-color picture, a new CV_8UC3 image rotated by 180 degrees. Evaluates every depth twice: for the range and for
/// the color.
void coloredDepth(const cv::Mat& disparity, const core::DepthModel& model, cv::Mat& picture);

}  // namespace stereo::baseline
