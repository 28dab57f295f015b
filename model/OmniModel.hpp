// SPDX-License-Identifier: Apache-2.0
// The unified omnidirectional camera model of one eye.
#pragma once

#include <optional>

#include <opencv2/core.hpp>

namespace stereo::model {

/// One fisheye eye, by the unified omnidirectional model. Frame of the eye: x right, y down, z along the axis.
///
/// A ray (x, y, z), normalized to (Xs, Ys, Zs), projects to the pixel (u, v):
///   xu = Xs / (Zs + xi),  yu = Ys / (Zs + xi),  r2 = xu^2 + yu^2,  g = 1 + k1 r2 + k2 r2^2
///   xd = g xu + 2 p1 xu yu + p2 (r2 + 2 xu^2)
///   yd = g yu + 2 p2 xu yu + p1 (r2 + 2 yu^2)
///   u = fx xd + skew yd + cx,  v = fy yd + cy
///
/// The library's maps are checked against this, so it shares no code with them. Pure; any thread.
struct OmniModel {
  double xi = 1.0;
  double fx = 1.0;    ///< pixels
  double fy = 1.0;    ///< pixels
  double skew = 0.0;  ///< pixels
  double cx = 0.0;    ///< pixels
  double cy = 0.0;    ///< pixels
  double k1 = 0.0;
  double k2 = 0.0;
  double p1 = 0.0;
  double p2 = 0.0;
  double halfField = CV_PI;  ///< largest angle off the axis that the lens sees, radians

  /// Pixel of a ray of any length other than 0; nothing if the lens doesn't see it or the model folds over.
  std::optional<cv::Point2d> project(const cv::Vec3d& ray) const;

  /// Unit ray of a pixel; nothing if no ray within the field reaches it.
  std::optional<cv::Vec3d> unproject(const cv::Point2d& pixel) const;

  /// The same lens at `factor` times the resolution (pixel u becomes factor * u).
  OmniModel scaled(double factor) const;

  cv::Matx33d intrinsic() const;
  /// k1, k2, p1, p2.
  cv::Vec4d distortion() const;

private:
  cv::Vec2d distort(const cv::Vec2d& plane) const;
  /// Derivative of `distort`: [dxd/dxu, dxd/dyu; dyd/dxu, dyd/dyu].
  cv::Matx22d distortSlope(const cv::Vec2d& plane) const;
  std::optional<cv::Vec2d> undistort(const cv::Vec2d& distorted) const;
  /// Radius on the plane (xu, yu) up to which the model is one to one: rays beyond fold back onto used pixels.
  double planeLimit() const;
};

}  // namespace stereo::model
