// SPDX-License-Identifier: Apache-2.0
// Inputs of the benchmarks; the same in every run.
#pragma once

#include <opencv2/core.hpp>

#include "src/core/Cloud.hpp"
#include "src/core/Depth.hpp"

namespace stereo::bench {

constexpr int perspectiveMode = 2;
constexpr int lonLatMode = 1;
constexpr double lonLatField = 180.0;  ///< Degrees, the setting's default.

/// Calibration of one eye for a raw frame 1856 pixels wide; all CV_64FC1.
struct Eye {
  cv::Mat K;
  cv::Mat D;
  cv::Mat R;
  cv::Mat xi;  ///< 1 x 1

  double mirror() const { return xi.at<double>(0, 0); }
};

Eye leftEye();
Eye rightEye();

/// Camera matrix of a view as `startCapture` builds it: 90 degrees wide in mode 2, longitude-latitude in mode 1.
cv::Mat viewMatrix(cv::Size size, int mode);

/// A textured picture, CV_8UC3; the same for the same seed.
cv::Mat picture(cv::Size size, int seed);

/// A disparity like that of a matcher, CV_32FC1: smooth surfaces in sixteenths of a pixel, with patches of -1, about a
/// tenth of the pixels. With `depthModel(size, mode)`, most depths are between 0.2 and 1 meter.
cv::Mat matchedDisparity(cv::Size size, int seed);

/// Model of the view of `size` for a baseline of 60 mm; a perspective view is 90 degrees wide.
core::DepthModel depthModel(cv::Size size, int mode);

/// View, disparity and metric depth of `size`, and the matching model.
core::CloudImages cloudImages(cv::Size size, int mode);
core::CloudModel cloudModel(cv::Size size, int mode);

/// The matrix for cv::reprojectImageTo3D that yields the points of the perspective view.
cv::Mat reprojection(cv::Size size);

/// CV_8UC1 of `size`, 255 where the mask blacks out a pixel: circle of `radius` pixels, inscribed ellipse.
cv::Mat circleMask(cv::Size size, int radius);
cv::Mat ellipseMask(cv::Size size);

}  // namespace stereo::bench
