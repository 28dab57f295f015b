// SPDX-License-Identifier: Apache-2.0
#include "core/FisheyeMask.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace stereo::core {

namespace {

// False where there is no pixel to mask; throws where masking would leave an image or misread its pixels.
bool maskable(const cv::Mat& first, const cv::Mat& second) {
  if (first.empty()) {
    return false;
  }
  CV_Assert(first.dims == 2 && first.type() == CV_8UC3);
  CV_Assert(second.dims == 2 && second.type() == CV_8UC3);
  CV_Assert(second.rows >= first.rows && second.cols >= first.cols);
  return true;
}

void blacken(cv::Vec3b* row, std::int64_t from, std::int64_t to) {
  if (from < to) {
    std::fill(row + from, row + to, cv::Vec3b());
  }
}

}  // namespace

// Row i keeps the closed span [cx - half, cx + half], half = floor(sqrt(R^2 - (cy - i)^2)); a row beyond the radius
// keeps nothing. The squares are integers turned into floats, in 64 bits so that no radius overflows.
void maskCircle(int radius, cv::Mat& first, cv::Mat& second) {
  if (!maskable(first, second)) {
    return;
  }
  const std::int64_t cols = first.cols;
  const std::int64_t cx = first.cols >> 1;
  const std::int64_t cy = first.rows >> 1;
  const auto R2 = static_cast<float>(static_cast<std::int64_t>(radius) * radius);
  for (int i = 0; i < first.rows; ++i) {
    const std::int64_t d = cy - i;
    const float rest = R2 - static_cast<float>(d * d);
    std::int64_t left = cols;
    std::int64_t right = cols;
    if (rest >= 0) {
      const auto half = static_cast<std::int64_t>(std::sqrt(rest));
      left = std::clamp<std::int64_t>(cx - half, 0, cols);
      right = std::clamp<std::int64_t>(cx + half + 1, 0, cols);
    }
    for (cv::Mat* image : {&first, &second}) {
      auto* row = image->ptr<cv::Vec3b>(i);
      blacken(row, 0, left);
      blacken(row, right, cols);
    }
  }
}

// e = ((j - cxe) / rx)^2 + ((i - cye) / ry)^2, evaluated as dx^2 / rx^2 + dy^2 / ry^2 in single precision; a pixel
// with e = 1 stays, and so does one where a semi-axis of zero leaves e undefined.
void maskEllipse(cv::Mat& first, cv::Mat& second, const EllipseShift& shift) {
  if (!maskable(first, second)) {
    return;
  }
  const auto hw = static_cast<float>(first.cols >> 1);
  const auto hh = static_cast<float>(first.rows >> 1);
  const float cxe = hw + shift.centerX;
  const float cye = hh + shift.centerY;
  const float ry = hh + shift.radiusY;
  const float rx = hw + shift.radiusX;
  const float ry2 = ry * ry;
  const float rx2 = rx * rx;
  for (int i = 0; i < first.rows; ++i) {
    const float dy = static_cast<float>(i) - cye;
    const float ey = dy * dy / ry2;
    auto* inFirst = first.ptr<cv::Vec3b>(i);
    auto* inSecond = second.ptr<cv::Vec3b>(i);
    for (int j = 0; j < first.cols; ++j) {
      const float dx = static_cast<float>(j) - cxe;
      const float e = dx * dx / rx2 + ey;
      if (e > 1.0F) {
        inFirst[j] = cv::Vec3b();
        inSecond[j] = cv::Vec3b();
      }
    }
  }
}

}  // namespace stereo::core
