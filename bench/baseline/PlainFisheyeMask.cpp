// SPDX-License-Identifier: Apache-2.0
// Masks of the image circle, plain form.
#include "bench/baseline/PlainFisheyeMask.hpp"

#include <cmath>
#include <cstdint>

namespace stereo::baseline {

int convertRawFisheyeImage(int radius, cv::Mat& first, cv::Mat& second) {
  // 64 bits for a radius and its square, so that neither overflows.
  const int cx = first.cols >> 1;
  const int cy = first.rows >> 1;
  const auto R2 = static_cast<float>(static_cast<std::int64_t>(radius) * radius);
  for (int i = 0; i < first.rows; ++i) {
    auto* inFirst = first.ptr<cv::Vec3b>(i);
    auto* inSecond = second.ptr<cv::Vec3b>(i);
    const std::int64_t d = cy - i;
    const float rest = R2 - static_cast<float>(d * d);
    const bool outside = rest < 0;  // the whole row
    const auto half = outside ? 0 : static_cast<std::int64_t>(std::sqrt(rest));
    const std::int64_t left = cx - half;
    const std::int64_t right = cx + half;
    for (int j = 0; j < first.cols; ++j) {
      if (outside || j < left || j > right) {
        *inFirst = cv::Vec3b(0, 0, 0);
        *inSecond = cv::Vec3b(0, 0, 0);
      }
      ++inFirst;
      ++inSecond;
    }
  }
  return 0;
}

int convertRawFisheyeImage(cv::Mat& first, cv::Mat& second, float dRadiusY, float dRadiusX, float dCenterX,
                           float dCenterY) {
  const auto hw = static_cast<float>(first.cols >> 1);
  const auto hh = static_cast<float>(first.rows >> 1);
  const float cxe = hw + dCenterX;
  const float cye = hh + dCenterY;
  const float ry = hh + dRadiusY;
  const float rx = hw + dRadiusX;
  const float ry2 = ry * ry;
  const float rx2 = rx * rx;
  for (int i = 0; i < first.rows; ++i) {
    auto* inFirst = first.ptr<cv::Vec3b>(i);
    auto* inSecond = second.ptr<cv::Vec3b>(i);
    for (int j = 0; j < first.cols; ++j) {
      const float dy = static_cast<float>(i) - cye;
      const float dx = static_cast<float>(j) - cxe;
      const float e = dx * dx / rx2 + dy * dy / ry2;
      if (e > 1.0) {
        *inFirst = cv::Vec3b(0, 0, 0);
        *inSecond = cv::Vec3b(0, 0, 0);
      }
      ++inFirst;
      ++inSecond;
    }
  }
  return 0;
}

}  // namespace stereo::baseline
