// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstring>

#include <opencv2/core.hpp>

namespace stereo::test {

/// The two sizes of a frame, width x height, both eyes side by side.
inline const cv::Size halfSize(928, 400);
inline const cv::Size fullSize(1856, 800);

/// Uniform noise in which no channel is 0. The same number gives the same image.
inline cv::Mat noise(cv::Size size, int number, int type = CV_8UC3) {
  cv::Mat image(size, type);
  cv::RNG random(static_cast<std::uint64_t>(number) + 1);
  if (!image.empty()) {
    random.fill(image, cv::RNG::UNIFORM, 1, 256);
  }
  return image;
}

/// Same size, type and bits (NaN included).
inline bool sameBits(const cv::Mat& a, const cv::Mat& b) {
  if (a.size() != b.size() || a.type() != b.type()) {
    return false;
  }
  for (int row = 0; row < a.rows; ++row) {
    if (std::memcmp(a.ptr(row), b.ptr(row), static_cast<std::size_t>(a.cols) * a.elemSize()) != 0) {
      return false;
    }
  }
  return true;
}

}  // namespace stereo::test
