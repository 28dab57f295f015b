// SPDX-License-Identifier: Apache-2.0
#include "calibration/BoardGeometry.hpp"

#include <algorithm>

#include <opencv2/calib3d.hpp>

namespace stereo::calibration {

cv::Vec3d Board::point(std::size_t index) const {
  const int column = static_cast<int>(index) % corners.width;
  const int row = static_cast<int>(index) / corners.width;
  return {column * square, row * square, 0.0};
}

cv::Vec3d Board::bend(std::size_t index) const {
  const int column = static_cast<int>(index) % corners.width;
  const int row = static_cast<int>(index) / corners.width;
  const double half = 0.5 * std::max({corners.width - 1, corners.height - 1, 1});
  const double u = (column - 0.5 * (corners.width - 1)) / half;
  const double v = (row - 0.5 * (corners.height - 1)) / half;
  return {u * u, u * v, v * v};
}

cv::Vec3d Board::point(std::size_t index, const cv::Vec3d& sags) const {
  cv::Vec3d result = point(index);
  result[2] = sags.dot(bend(index));
  return result;
}

cv::Matx33d rotationMatrix(const cv::Vec3d& rotation) {
  cv::Matx33d matrix;
  cv::Rodrigues(rotation, matrix);
  return matrix;
}

Pose combined(const Pose& a, const Pose& b) {
  const cv::Matx33d turn = rotationMatrix(a.rotation);
  Pose result;
  cv::Rodrigues(turn * rotationMatrix(b.rotation), result.rotation);
  result.translation = turn * b.translation + a.translation;
  return result;
}

Pose inverse(const Pose& pose) { return {-pose.rotation, -(rotationMatrix(pose.rotation).t() * pose.translation)}; }

cv::Vec3d moved(const Pose& pose, const cv::Vec3d& point) {
  return rotationMatrix(pose.rotation) * point + pose.translation;
}

}  // namespace stereo::calibration
