// SPDX-License-Identifier: Apache-2.0
// Blacks out what lies outside the image circle.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::core {

/// Differences between the elliptical mask and the ellipse inscribed in the image, pixels.
struct EllipseShift {
  float radiusY;
  float radiusX;
  float centerX;
  float centerY;
};

/// Blacks out what lies outside the circle of `radius` pixels, in place; see `convertRawFisheyeImage`. No allocation.
/// Throws cv::Exception unless both are CV_8UC3 and the second covers the first's size.
void maskCircle(int radius, cv::Mat& first, cv::Mat& second);

/// Blacks out what lies outside the ellipse, in place; see `convertRawFisheyeImage`. No allocation. Throws as above.
void maskEllipse(cv::Mat& first, cv::Mat& second, const EllipseShift& shift);

}  // namespace stereo::core
