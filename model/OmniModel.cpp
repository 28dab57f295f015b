// SPDX-License-Identifier: Apache-2.0
#include "model/OmniModel.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace stereo::model {

namespace {

// Plane coordinates are of the order of 1, so this is a few units in the last place of a double.
constexpr double convergedError = 1e-14;
constexpr double acceptedError = 1e-12;
constexpr int maxIterations = 60;

}  // namespace

std::optional<cv::Point2d> OmniModel::project(const cv::Vec3d& ray) const {
  const cv::Vec3d unit = ray / cv::norm(ray);
  // Beyond -1/xi (for xi > 1) the sphere is seen from behind and the plane radius shrinks again; for xi < 1 the
  // plane radius runs to infinity at -xi.
  if (unit[2] <= -std::min(xi, 1.0 / xi) || std::acos(std::clamp(unit[2], -1.0, 1.0)) > halfField) {
    return std::nullopt;
  }
  const cv::Vec2d plane(unit[0] / (unit[2] + xi), unit[1] / (unit[2] + xi));
  if (cv::norm(plane) > planeLimit()) {
    return std::nullopt;
  }
  const cv::Vec2d d = distort(plane);
  return cv::Point2d(fx * d[0] + skew * d[1] + cx, fy * d[1] + cy);
}

std::optional<cv::Vec3d> OmniModel::unproject(const cv::Point2d& pixel) const {
  const double yd = (pixel.y - cy) / fy;
  const double xd = (pixel.x - cx - skew * yd) / fx;
  const auto plane = undistort({xd, yd});
  if (!plane) {
    return std::nullopt;
  }
  const double r2 = plane->dot(*plane);
  const double root = 1.0 + (1.0 - xi * xi) * r2;
  if (root < 0.0) {
    return std::nullopt;
  }
  const double eta = (xi + std::sqrt(root)) / (1.0 + r2);
  const cv::Vec3d ray(eta * (*plane)[0], eta * (*plane)[1], eta - xi);
  if (std::acos(std::clamp(ray[2], -1.0, 1.0)) > halfField) {
    return std::nullopt;
  }
  return ray;
}

OmniModel OmniModel::scaled(double factor) const {
  OmniModel model = *this;
  for (double* value : {&model.fx, &model.fy, &model.skew, &model.cx, &model.cy}) {
    *value *= factor;
  }
  return model;
}

cv::Matx33d OmniModel::intrinsic() const { return {fx, skew, cx, 0.0, fy, cy, 0.0, 0.0, 1.0}; }

cv::Vec4d OmniModel::distortion() const { return {k1, k2, p1, p2}; }

cv::Vec2d OmniModel::distort(const cv::Vec2d& plane) const {
  const double x = plane[0];
  const double y = plane[1];
  const double r2 = x * x + y * y;
  const double g = 1.0 + r2 * (k1 + k2 * r2);
  return {g * x + 2.0 * p1 * x * y + p2 * (r2 + 2.0 * x * x), g * y + 2.0 * p2 * x * y + p1 * (r2 + 2.0 * y * y)};
}

cv::Matx22d OmniModel::distortSlope(const cv::Vec2d& plane) const {
  const double x = plane[0];
  const double y = plane[1];
  const double r2 = x * x + y * y;
  const double g = 1.0 + r2 * (k1 + k2 * r2);
  const double slope = 2.0 * (k1 + 2.0 * k2 * r2);  // dg/dx = slope x, dg/dy = slope y
  const double mixed = slope * x * y + 2.0 * p1 * x + 2.0 * p2 * y;
  return {g + slope * x * x + 2.0 * p1 * y + 6.0 * p2 * x, mixed, mixed,
          g + slope * y * y + 2.0 * p2 * x + 6.0 * p1 * y};
}

std::optional<cv::Vec2d> OmniModel::undistort(const cv::Vec2d& distorted) const {
  const double limit = planeLimit();
  const auto pulledInside = [limit](cv::Vec2d& plane) {
    const double radius = cv::norm(plane);
    if (radius <= limit) {
      return false;
    }
    plane *= limit / radius;
    return true;
  };

  // Newton's method, restricted to the disk where the model is one to one. If the root is outside, the iteration keeps
  // hitting the rim; then no ray belongs to the pixel.
  cv::Vec2d plane = distorted;
  pulledInside(plane);
  int pushes = 0;
  for (int step = 0; step < maxIterations; ++step) {
    const cv::Vec2d miss = distort(plane) - distorted;
    if (cv::norm(miss) < convergedError) {
      break;
    }
    const cv::Matx22d m = distortSlope(plane);
    const double det = m(0, 0) * m(1, 1) - m(0, 1) * m(1, 0);
    if (std::abs(det) < 1e-9) {
      break;
    }
    plane -= cv::Vec2d((m(1, 1) * miss[0] - m(0, 1) * miss[1]) / det, (m(0, 0) * miss[1] - m(1, 0) * miss[0]) / det);
    pushes = pulledInside(plane) ? pushes + 1 : 0;
    if (pushes > 3) {
      break;
    }
  }
  if (!(cv::norm(distort(plane) - distorted) < acceptedError)) {
    return std::nullopt;
  }
  return plane;
}

double OmniModel::planeLimit() const {
  double limit = xi > 1.0 ? 1.0 / std::sqrt(xi * xi - 1.0) : std::numeric_limits<double>::infinity();
  // The radial part r g(r) turns back where 1 + 3 k1 q + 5 k2 q^2 = 0, q = r^2: the smallest positive root.
  double q = std::numeric_limits<double>::infinity();
  if (k2 == 0.0) {
    if (k1 < 0.0) {
      q = -1.0 / (3.0 * k1);
    }
  } else {
    const double disc = 9.0 * k1 * k1 - 20.0 * k2;
    if (disc >= 0.0) {
      for (const double root :
           {(-3.0 * k1 - std::sqrt(disc)) / (10.0 * k2), (-3.0 * k1 + std::sqrt(disc)) / (10.0 * k2)}) {
        if (root > 0.0) {
          q = std::min(q, root);
        }
      }
    }
  }
  return std::min(limit, std::sqrt(q));
}

}  // namespace stereo::model
