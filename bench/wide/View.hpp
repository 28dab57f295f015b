// SPDX-License-Identifier: Apache-2.0
// The view in which wide depth is judged.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::wide {

/// Equal angles: longitude over the columns, latitude over the rows, the axis forward in the middle. Pixel (column,
/// row) has longitude (column + 0.5 - W / 2) horizontalField / W and latitude (row + 0.5 - H / 2) verticalField / H;
/// its ray is (sin longitude, cos longitude sin latitude, cos longitude cos latitude), rectified left frame.
struct View {
  cv::Size size{464, 400};
  double horizontalField = 180.0;  ///< degrees
  double verticalField = 172.0;    ///< degrees

  /// Longitude of a column of pixels, radians.
  double longitude(double column) const {
    return (column + 0.5 - 0.5 * size.width) * horizontalField / size.width * CV_PI / 180.0;
  }
  double latitude(double row) const {
    return (row + 0.5 - 0.5 * size.height) * verticalField / size.height * CV_PI / 180.0;
  }
  /// Column and row of a direction of any length.
  cv::Point2d pixel(const cv::Vec3d& direction) const;
  /// CV_32FC3 of `size`: unit ray of each pixel.
  cv::Mat rays() const;
};

}  // namespace stereo::wide
