// SPDX-License-Identifier: Apache-2.0
// Residuals of the solver: a corner's reprojection error, with derivatives.
#pragma once

#include <ceres/rotation.h>
#include <opencv2/core.hpp>

namespace stereo::calibration {

/// The solver's parameters of an eye. Focal lengths are divided by 1 + xi, which is the magnification near the axis: xi
/// and focal length themselves are so correlated that a solver creeps.
enum EyeParameter : int {
  xi,
  reducedFocalX,
  reducedFocalY,
  centerX,
  centerY,
  radial1,
  radial2,
  tangential1,
  tangential2,
  skew
};
inline constexpr int eyeParameters = 10;
inline constexpr int poseParameters = 6;  // rotation vector, translation in millimeters
inline constexpr int sagParameters = 3;   // of the board, millimeters

/// Projects a point in the frame of the eye (model/OmniModel states the model; here with derivatives). False if the
/// model has no pixel for it.
template <typename T>
bool projectPoint(const T* eye, const T* p, T* pixel) {
  using std::sqrt;
  const T length = sqrt(p[0] * p[0] + p[1] * p[1] + p[2] * p[2]);
  const T depth = p[2] + eye[xi] * length;
  if (!(depth > 1e-6 * length)) {
    return false;
  }
  const T x = p[0] / depth;
  const T y = p[1] / depth;
  const T r2 = x * x + y * y;
  const T g = T(1) + r2 * (eye[radial1] + r2 * eye[radial2]);
  const T& p1 = eye[tangential1];
  const T& p2 = eye[tangential2];
  const T xd = g * x + T(2) * p1 * x * y + p2 * (r2 + T(2) * x * x);
  const T yd = g * y + T(2) * p2 * x * y + p1 * (r2 + T(2) * y * y);
  const T grown = T(1) + eye[xi];
  pixel[0] = eye[reducedFocalX] * grown * xd + eye[skew] * yd + eye[centerX];
  pixel[1] = eye[reducedFocalY] * grown * yd + eye[centerY];
  return true;
}

/// p' = R p + t.
template <typename T>
void move(const T* pose, const T* point, T* result) {
  ceres::AngleAxisRotatePoint(pose, point, result);
  for (int k = 0; k < 3; ++k) {
    result[k] += pose[3 + k];
  }
}

/// Reprojection error of a corner: the model's pixel minus the pixel found.
class CornerResidual {
public:
  /// `onBoard` and `bend` from `Board::point` and `Board::bend`.
  CornerResidual(const cv::Vec3d& onBoard, const cv::Vec3d& bend, const cv::Point2d& found)
      : m_onBoard(onBoard), m_bend(bend), m_found(found) {}

  /// The left eye: board into the eye.
  template <typename T>
  bool operator()(const T* eye, const T* board, const T* sags, T* residual) const {
    T point[3];
    T inEye[3];
    onSurface(sags, point);
    move(board, point, inEye);
    return compare(eye, inEye, residual);
  }

  /// The right eye: board into the left eye's frame, then into the right one's.
  template <typename T>
  bool operator()(const T* eye, const T* rightFromLeft, const T* board, const T* sags, T* residual) const {
    T point[3];
    T inLeft[3];
    T inEye[3];
    onSurface(sags, point);
    move(board, point, inLeft);
    move(rightFromLeft, inLeft, inEye);
    return compare(eye, inEye, residual);
  }

private:
  template <typename T>
  void onSurface(const T* sags, T* point) const {
    point[0] = T(m_onBoard[0]);
    point[1] = T(m_onBoard[1]);
    point[2] = sags[0] * m_bend[0] + sags[1] * m_bend[1] + sags[2] * m_bend[2];
  }

  template <typename T>
  bool compare(const T* eye, const T* inEye, T* residual) const {
    T pixel[2];
    if (!projectPoint(eye, inEye, pixel)) {
      return false;
    }
    residual[0] = pixel[0] - T(m_found.x);
    residual[1] = pixel[1] - T(m_found.y);
    return true;
  }

  cv::Vec3d m_onBoard;  // millimeters
  cv::Vec3d m_bend;
  cv::Point2d m_found;  // pixels
};

}  // namespace stereo::calibration
