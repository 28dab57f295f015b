// SPDX-License-Identifier: Apache-2.0
// The public free functions.
#include "StereoCamera.hpp"
#include "src/core/ColorMap.hpp"
#include "src/core/FisheyeMask.hpp"
#include "src/core/Numbers.hpp"
#include "src/core/RectifyMap.hpp"

bool initRectifyMap(cv::Mat K, cv::Mat D, cv::Mat R, cv::Mat P, double xi, double xi2, cv::Size size, int mode,
                    cv::Mat& map1, cv::Mat& map2) {
  stereo::core::buildRectifyMap({K, D, R, P, xi, xi2}, size, mode, map1, map2);
  return true;
}

double MatRowMul(const cv::Mat& m, double a, double b, double c, int row) {
  stereo::core::requireDoubles(m, 1, 3, "matrix");
  CV_Assert(row >= 0 && row < m.rows);
  const auto* elements = m.ptr<double>(row);
  return (elements[0] * a + elements[1] * b) + elements[2] * c;
}

int convertRawFisheyeImage(int radius, cv::Mat& first, cv::Mat& second) {
  stereo::core::maskCircle(radius, first, second);
  return 0;
}

int convertRawFisheyeImage(cv::Mat& first, cv::Mat& second, float dRadiusY, float dRadiusX, float dCenterX,
                           float dCenterY) {
  stereo::core::maskEllipse(first, second, {dRadiusY, dRadiusX, dCenterX, dCenterY});
  return 0;
}

unsigned char getBlueSegVal(float lo, float hi, float v) { return stereo::core::blueSegment(lo, hi, v); }

unsigned char getGreenSegVal(float lo, float hi, float v) { return stereo::core::greenSegment(lo, hi, v); }

unsigned char getRedSegVal(float lo, float hi, float v) { return stereo::core::redSegment(lo, hi, v); }

cv::Vec3b getclolor(float lo, float hi, float v) { return stereo::core::depthColor(lo, hi, v); }
