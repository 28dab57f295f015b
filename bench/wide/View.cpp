// SPDX-License-Identifier: Apache-2.0
#include "bench/wide/View.hpp"

#include <cmath>

namespace stereo::wide {

cv::Point2d View::pixel(const cv::Vec3d& direction) const {
  const double longitude = std::atan2(direction[0], std::hypot(direction[1], direction[2]));
  const double latitude = std::atan2(direction[1], direction[2]);
  const double degree = CV_PI / 180.0;
  return {0.5 * size.width - 0.5 + longitude / degree * size.width / horizontalField,
          0.5 * size.height - 0.5 + latitude / degree * size.height / verticalField};
}

cv::Mat View::rays() const {
  cv::Mat rays(size, CV_32FC3);
  for (int row = 0; row < size.height; ++row) {
    for (int col = 0; col < size.width; ++col) {
      const double lon = longitude(col);
      const double lat = latitude(row);
      rays.at<cv::Vec3f>(row, col) =
          cv::Vec3d(std::sin(lon), std::cos(lon) * std::sin(lat), std::cos(lon) * std::cos(lat));
    }
  }
  return rays;
}

}  // namespace stereo::wide
