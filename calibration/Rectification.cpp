// SPDX-License-Identifier: Apache-2.0
#include "calibration/Rectification.hpp"

#include <stdexcept>

namespace stereo::calibration {

std::array<cv::Matx33d, 2> rectify(const Pose& rightFromLeft) {
  const cv::Matx33d Q = rotationMatrix(rightFromLeft.rotation);
  // Position and direction of the right eye in the frame of the left one.
  const cv::Vec3d position = -(Q.t() * rightFromLeft.translation);
  const cv::Vec3d axis(Q(2, 0), Q(2, 1), Q(2, 2));
  const double baseline = cv::norm(position);
  if (!(baseline > 0)) {
    throw std::invalid_argument("both eyes are at the same place");
  }
  const cv::Vec3d x = position / baseline;
  const cv::Vec3d middle = cv::Vec3d(0, 0, 1) + axis;
  cv::Vec3d z = middle - middle.dot(x) * x;
  const double length = cv::norm(z);
  if (!(length > 1e-6)) {
    throw std::invalid_argument("the eyes look along the line between them");
  }
  z /= length;
  const cv::Vec3d y = z.cross(x);
  const cv::Matx33d left(x[0], x[1], x[2], y[0], y[1], y[2], z[0], z[1], z[2]);
  return {left, left * Q.t()};
}

}  // namespace stereo::calibration
