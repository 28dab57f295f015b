// SPDX-License-Identifier: Apache-2.0
// Which ray a pixel of the view has, where an eye sees it, and how far away a parallax is.
#include "src/depth/Geometry.hpp"

#include <algorithm>
#include <cmath>

#include "src/core/Numbers.hpp"
#include "src/depth/Tasks.hpp"

namespace stereo::depth {

namespace {

constexpr double largestXi = 10.0;
constexpr double notARotation = 1e-2;  // largest deviation of R R^T from the identity, and of its determinant from 1

[[noreturn]] void refuse(const char* why) { CV_Error(cv::Error::StsBadArg, why); }

cv::Matx33d rotationOf(const cv::Mat& given) {
  core::requireDoubles(given, 3, 3, "rotation");
  const cv::Matx33d R(given(cv::Rect(0, 0, 3, 3)));
  const double error = cv::norm(R * R.t() - cv::Matx33d::eye(), cv::NORM_INF);
  if (!(error < notARotation) || !(std::abs(cv::determinant(R) - 1.0) < notARotation)) {
    refuse("the calibration's rotation matrix is not a rotation");
  }
  return R;
}

core::RayProjection eyeOf(const cv::Mat& K, const cv::Mat& D, const cv::Mat& xi, const cv::Matx33d& R, double scale) {
  core::requireDoubles(K, 2, 3, "intrinsic matrix");
  core::requireDoubles(D, 1, 4, "distortion");
  core::RayProjection eye{};
  for (int row = 0; row < 3; ++row) {
    for (int column = 0; column < 3; ++column) {
      eye.m[row][column] = R(column, row);
    }
  }
  eye.fx = K.at<double>(0, 0) * scale;
  eye.s = K.at<double>(0, 1) * scale;
  eye.cx = K.at<double>(0, 2) * scale;
  eye.fy = K.at<double>(1, 1) * scale;
  eye.cy = K.at<double>(1, 2) * scale;
  eye.k1 = D.at<double>(0, 0);
  eye.k2 = D.at<double>(0, 1);
  eye.p1 = D.at<double>(0, 2);
  eye.p2 = D.at<double>(0, 3);
  eye.xi = core::scalarOf(xi);
  if (!(eye.xi >= 0.0 && eye.xi <= largestXi)) {
    refuse("the calibration's xi is not between 0 and 10");
  }
  const double values[] = {eye.fx, eye.s, eye.cx, eye.fy, eye.cy, eye.k1, eye.k2, eye.p1, eye.p2};
  if (!std::all_of(std::begin(values), std::end(values), [](double v) { return std::isfinite(v); }) ||
      !(eye.fx > 0.0) || !(eye.fy > 0.0)) {
    refuse("the calibration's intrinsic matrix or distortion is not of a lens");
  }
  return eye;
}

// Radius on the plane (xu, yu) up to which the model is one to one: beyond, the distortion folds back.
double planeLimit(const core::RayProjection& eye) {
  // r (1 + k1 q + k2 q^2), q = r^2, turns back where 1 + 3 k1 q + 5 k2 q^2 = 0.
  double limit = std::numeric_limits<double>::infinity();
  const double a = 5.0 * eye.k2;
  const double b = 3.0 * eye.k1;
  if (a == 0.0) {
    if (b < 0.0) {
      limit = -1.0 / b;
    }
  } else if (b * b - 4.0 * a >= 0.0) {
    const double root = std::sqrt(b * b - 4.0 * a);
    for (const double q : {(-b - root) / (2.0 * a), (-b + root) / (2.0 * a)}) {
      if (q > 0.0) {
        limit = std::min(limit, q);
      }
    }
  }
  return limit;
}

}  // namespace

ViewGrid ViewGrid::of(const WideDepthOptions& options) {
  constexpr double degree = CV_PI / 180.0;
  const cv::Size size = options.size;
  return {size.width,
          size.height,
          options.horizontalField * degree / size.width,
          options.verticalField * degree / size.height,
          0.5 * size.width,
          0.5 * size.height};
}

ViewGrid ViewGrid::coarser(int factor) const {
  return {(width + factor - 1) / factor, (height + factor - 1) / factor,
          columnStep * factor,           rowStep * factor,
          middleColumn / factor,         middleRow / factor};
}

ViewGrid ViewGrid::finerColumns() const {
  return {2 * width, height, 0.5 * columnStep, rowStep, 2.0 * middleColumn, middleRow};
}

EyePair eyePair(const WideDepthCalibration& calibration, cv::Size eye) {
  if (eye.width < 16 || eye.height < 16 || eye.width > 8192 || eye.height > 8192) {
    refuse("an eye's image must have 16 x 16 to 8192 x 8192 pixels");
  }
  if (!(calibration.frameWidth > 0.0) || !std::isfinite(calibration.frameWidth)) {
    refuse("the width of the calibration's raw frame must be above 0");
  }
  const double scale = 2.0 * eye.width / calibration.frameWidth;
  const cv::Matx33d leftR = rotationOf(calibration.leftRotation);
  const cv::Matx33d rightR = rotationOf(calibration.rightRotation);
  EyePair pair;
  pair.eyes[0] = eyeOf(calibration.leftIntrinsic, calibration.leftDistortion, calibration.leftXi, leftR, scale);
  pair.eyes[1] = eyeOf(calibration.rightIntrinsic, calibration.rightDistortion, calibration.rightXi, rightR, scale);
  const cv::Mat& t = calibration.translation;
  if (t.type() != CV_64FC1 || t.dims != 2 || t.total() != 3 || !t.isContinuous()) {
    refuse("the calibration's translation must be three doubles");
  }
  // Position of the right eye in the rectified frame: -R_right t, along x if the calibration is right.
  const cv::Vec3d position = -1e-3 * (rightR * cv::Vec3d(t.ptr<double>()));
  pair.baseline = cv::norm(position);
  if (!(pair.baseline >= 1e-4) || !(pair.baseline <= 10.0)) {
    refuse("the calibration's eyes are less than 0.1 mm or more than 10 m apart");
  }
  if (!(position[0] > 0.99 * pair.baseline)) {
    refuse("the calibration's rotations don't have the right eye to the right of the left one");
  }
  return pair;
}

void buildSampleMap(const core::RayProjection& eye, cv::Size image, const ViewGrid& grid, int first, int width,
                    int stride, std::int32_t outside, int threads, SampleMap& map) {
  const auto total = static_cast<std::size_t>(width) * static_cast<std::size_t>(grid.height);
  map.width = width;
  map.height = grid.height;
  map.offset.resize(total);
  map.right.resize(total);
  map.lower.resize(total);
  map.seen.resize(total);
  std::vector<double> sines(static_cast<std::size_t>(width));
  std::vector<double> cosines(static_cast<std::size_t>(width));
  for (int k = 0; k < width; ++k) {
    sines[static_cast<std::size_t>(k)] = std::sin(grid.longitude(first + k));
    cosines[static_cast<std::size_t>(k)] = std::cos(grid.longitude(first + k));
  }
  const double behind = eye.xi > 1.0 ? -1.0 / eye.xi : -eye.xi;
  const double limit = planeLimit(eye);
  // The camera blackens what is outside this circle.
  const cv::Point middle = image / 2;
  const double centerX = middle.x;
  const double centerY = middle.y;
  const double radius = middle.x - 2.0;
  forStrips(grid.height, 32, threads, [&](int from, int to) {
    std::vector<double> rays(3 * static_cast<std::size_t>(width));
    std::vector<float> pixels(2 * static_cast<std::size_t>(width));
    double* const X = rays.data();
    double* const Y = X + width;
    double* const Z = Y + width;
    float* const u = pixels.data();
    float* const v = u + width;
    for (int row = from; row < to; ++row) {
      const double latitude = grid.latitude(row);
      const double sine = std::sin(latitude);
      const double cosine = std::cos(latitude);
      for (int k = 0; k < width; ++k) {
        X[k] = sines[static_cast<std::size_t>(k)];
        Y[k] = cosines[static_cast<std::size_t>(k)] * sine;
        Z[k] = cosines[static_cast<std::size_t>(k)] * cosine;
      }
      core::projectRays(eye, X, Y, Z, width, u, v);
      for (int k = 0; k < width; ++k) {
        const auto at = static_cast<std::size_t>(row) * static_cast<std::size_t>(width) + static_cast<std::size_t>(k);
        const double x = eye.m[0][0] * X[k] + eye.m[0][1] * Y[k] + eye.m[0][2] * Z[k];
        const double y = eye.m[1][0] * X[k] + eye.m[1][1] * Y[k] + eye.m[1][2] * Z[k];
        const double z = eye.m[2][0] * X[k] + eye.m[2][1] * Y[k] + eye.m[2][2] * Z[k];
        const double away = z + eye.xi;
        const double dx = u[k] - centerX;
        const double dy = v[k] - centerY;
        const bool seen = std::abs(grid.longitude(first + k)) < CV_PI / 2 && z > behind && away > 1e-3 &&
                          x * x + y * y < limit * away * away && dx * dx + dy * dy <= radius * radius && u[k] >= 0.0F &&
                          v[k] >= 0.0F && u[k] <= static_cast<float>(image.width - 1) &&
                          v[k] <= static_cast<float>(image.height - 1);
        map.offset[at] = outside;
        map.right[at] = 0;
        map.lower[at] = 0;
        map.seen[at] = seen ? 255 : 0;
        if (seen) {
          // NOLINTBEGIN(bugprone-incorrect-roundings): neither is negative
          const int across = std::min(static_cast<int>(u[k] * 128.0F + 0.5F), (image.width - 1) * 128);
          const int down = std::min(static_cast<int>(v[k] * 128.0F + 0.5F), (image.height - 1) * 128);
          // NOLINTEND(bugprone-incorrect-roundings)
          const int column = std::min(across / 128, image.width - 2);
          const int line = std::min(down / 128, image.height - 2);
          map.offset[at] = line * stride + column;
          map.right[at] = static_cast<std::uint8_t>(across - column * 128);
          map.lower[at] = static_cast<std::uint8_t>(down - line * 128);
        }
      }
    }
  });
}

cv::Mat unitRays(const ViewGrid& grid) {
  cv::Mat rays(grid.height, grid.width, CV_32FC3);
  for (int row = 0; row < grid.height; ++row) {
    for (int column = 0; column < grid.width; ++column) {
      const double longitude = grid.longitude(column);
      const double latitude = grid.latitude(row);
      rays.at<cv::Vec3f>(row, column) = {static_cast<float>(std::sin(longitude)),
                                         static_cast<float>(std::cos(longitude) * std::sin(latitude)),
                                         static_cast<float>(std::cos(longitude) * std::cos(latitude))};
    }
  }
  return rays;
}

double largestParallax(double baseline, double range) {
  return range > baseline ? std::asin(baseline / range) : CV_PI / 2;
}

}  // namespace stereo::depth
