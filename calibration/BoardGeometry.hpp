// SPDX-License-Identifier: Apache-2.0
// The chessboard, its views and poses, and the pair of eyes.
#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "model/OmniModel.hpp"

namespace stereo::calibration {

/// A chessboard, described by its inner corners. The two counts differ, or the board would look the same rotated by 90
/// degrees.
///
/// Frame: x along a row, y along a column, z away from the viewer; the first corner is the origin; millimeters. No
/// board is flat. Three numbers, the sags (millimeters), describe how most of them bend:
///   z = s1 u^2 + s2 u v + s3 v^2,  u = (x - middle) / a,  v = (y - middle) / a,  a half the longer side.
struct Board {
  cv::Size corners{8, 6};  ///< inner corners in a row and in a column
  double square = 39.0;    ///< side of a square, millimeters

  std::size_t count() const { return static_cast<std::size_t>(corners.area()); }
  /// Corner `index`, row by row, of the flat board.
  cv::Vec3d point(std::size_t index) const;
  /// u^2, u v, v^2 of a corner.
  cv::Vec3d bend(std::size_t index) const;
  /// The corner of a board with these sags.
  cv::Vec3d point(std::size_t index, const cv::Vec3d& sags) const;
};

/// The corners found in one side-by-side picture: [0] the left eye, [1] the right one. Empty if the eye did not see the
/// whole board, otherwise `Board::count` points in the board's order, pixels of the eye's image.
struct BoardView {
  std::string name;
  std::array<std::vector<cv::Point2d>, 2> corners;

  bool sees(int eye) const { return !corners[static_cast<std::size_t>(eye)].empty(); }
  bool seesBoth() const { return sees(0) && sees(1); }
};

/// A rigid motion: p' = R p + t, where R rotates by the vector's length (radians) about the vector.
struct Pose {
  cv::Vec3d rotation;
  cv::Vec3d translation;  ///< millimeters
};

/// Both eyes and their relative pose: x_right = R x_left + t.
struct StereoRig {
  std::array<model::OmniModel, 2> eyes;  ///< pixels of the eye's original image
  Pose rightFromLeft;
};

/// Product of two motions: first `b`, then `a`.
Pose combined(const Pose& a, const Pose& b);
Pose inverse(const Pose& pose);
cv::Vec3d moved(const Pose& pose, const cv::Vec3d& point);
/// Rotation matrix of a rotation vector.
cv::Matx33d rotationMatrix(const cv::Vec3d& rotation);

}  // namespace stereo::calibration
