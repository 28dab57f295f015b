// SPDX-License-Identifier: Apache-2.0
#include "core/RectifyMap.hpp"

#include <cmath>

#include "core/Numbers.hpp"

namespace stereo::core {

namespace {

constexpr double pi = 3.141592653589793;

struct Ray {
  double x;
  double y;
  double z;
};

// The upper left 3 x 3 elements of a matrix, kept where the loop reads them without a header in between.
struct Matrix3 {
  double m[3][3];

  explicit Matrix3(const cv::Mat& source) {
    for (int row = 0; row < 3; ++row) {
      for (int column = 0; column < 3; ++column) {
        m[row][column] = source.at<double>(row, column);
      }
    }
  }

  // The order of the sums is part of the result.
  double row(int r, double a, double b, double c) const { return (m[r][0] * a + m[r][1] * b) + m[r][2] * c; }

  Ray operator*(const Ray& v) const { return {row(0, v.x, v.y, v.z), row(1, v.x, v.y, v.z), row(2, v.x, v.y, v.z)}; }
};

// Unified omnidirectional model of one eye, from ray to pixel.
struct Eye {
  double fx, fy, cx, cy, s;
  double k1, k2, p1, p2;
  double xi;

  explicit Eye(const RectifyModel& model)
      : fx(model.K.at<double>(0, 0)),
        fy(model.K.at<double>(1, 1)),
        cx(model.K.at<double>(0, 2)),
        cy(model.K.at<double>(1, 2)),
        s(model.K.at<double>(0, 1)),
        k1(model.D.at<double>(0, 0)),
        k2(model.D.at<double>(0, 1)),
        p1(model.D.at<double>(0, 2)),
        p2(model.D.at<double>(0, 3)),
        xi(model.xi) {}

  // Unit sphere:   (Xs, Ys, Zs) = (x, y, z) / |(x, y, z)|
  // Projection:    xu = Xs / (Zs + xi),  yu = Ys / (Zs + xi)
  // Distortion:    r2 = xu^2 + yu^2,  g = 1 + k1 r2 + k2 r2^2
  //                xd = g xu + 2 p1 xu yu + p2 (r2 + 2 xu^2)
  //                yd = g yu + 2 p2 xu yu + p1 (r2 + 2 yu^2)
  // Pixels:        u = fx xd + s yd + cx,  v = fy yd + cy
  // A ray of length 0 gives NaN; rays at or behind Zs = -xi are projected like any other.
  void project(const Ray& ray, float& u, float& v) const {
    const double n = std::sqrt((ray.x * ray.x + ray.y * ray.y) + ray.z * ray.z);
    const double Xs = ray.x / n;
    const double Ys = ray.y / n;
    const double Zs = ray.z / n;
    const double xu = Xs / (Zs + xi);
    const double yu = Ys / (Zs + xi);
    const double r2 = xu * xu + yu * yu;
    const double r4 = r2 * r2;
    const double g = (k1 * r2 + 1) + k2 * r4;
    const double xd = g * xu + 2 * p1 * xu * yu + p2 * (r2 + 2 * xu * xu);
    const double yd = g * yu + 2 * p2 * xu * yu + p1 * (r2 + 2 * yu * yu);
    u = static_cast<float>(fx * xd + s * yd + cx);
    v = static_cast<float>(fy * yd + cy);
  }
};

// Ray of the view's pixel (j, i), j and i being column and row, in the eye's frame.
struct View {
  Matrix3 iP;
  Matrix3 iR;
  Matrix3 iKR;
  double xi2;

  Ray ray(int mode, double j, double i) const {
    switch (mode) {
      case perspective:
        // (x, y, z) = (P R)^-1 (j, i, 1)
        return iKR * Ray{j, i, 1.0};
      case longitudeLatitude: {
        // Angles a = (P^-1 (j, i, 1))_0, b = (P^-1 (j, i, 1))_1; (x, y, z) = R^-1 (-cos a, -sin a cos b, sin a sin b)
        const double a = iP.row(0, j, i, 1.0);
        const double b = iP.row(1, j, i, 1.0);
        return iR * Ray{-std::cos(a), -std::sin(a) * std::cos(b), std::sin(a) * std::sin(b)};
      }
      case liftedPlane: {
        // Point (a, b) of the normalised plane onto the sphere: eta = (xi2 + sqrt(1 + (1 - xi2^2) r2)) / (1 + r2),
        // (x, y, z) = R^-1 (eta a, eta b, eta - xi2)
        const double a = iP.row(0, j, i, 1.0);
        const double b = iP.row(1, j, i, 1.0);
        const double r2 = b * b + a * a;
        const double eta = (std::sqrt(1 + (1 - xi2 * xi2) * r2) + xi2) / (1 + r2);
        return iR * Ray{eta * a, eta * b, eta - xi2};
      }
      default:
        return {0.0, 0.0, 0.0};
    }
  }
};

void requireSquare(const cv::Mat& matrix, const char* what) {
  requireDoubles(matrix, 3, 3, what);
  CV_Assert(matrix.rows == 3 && matrix.cols == 3);
}

}  // namespace

void requireEye(const cv::Mat& K, const cv::Mat& D, const cv::Mat& R) {
  requireDoubles(K, 2, 3, "intrinsic matrix");
  requireDoubles(D, 1, 4, "distortion");
  requireSquare(R, "rotation");
}

void buildRectifyMap(const RectifyModel& model, cv::Size size, int mode, cv::Mat& map1, cv::Mat& map2) {
  requireEye(model.K, model.D, model.R);
  requireSquare(model.P, "camera matrix of the view");
  map1.create(size, CV_32FC1);
  map2.create(size, CV_32FC1);
  const cv::Mat product = model.P * model.R;
  const Eye eye(model);
  const View view{Matrix3(model.P.inv()), Matrix3(model.R.inv()), Matrix3(product.inv()), model.xi2};
  for (int i = 0; i < size.height; ++i) {
    auto* columns = map1.ptr<float>(i);
    auto* rows = map2.ptr<float>(i);
    for (int j = 0; j < size.width; ++j) {
      eye.project(view.ray(mode, j, i), columns[j], rows[j]);
    }
  }
}

cv::Mat perspectiveCameraMatrix(cv::Size size, double hFov) {
  const double W = size.width;
  const double H = size.height;
  const double theta = hFov / 180 * pi;
  const double f = (W / 2) / std::tan(theta / 2);
  return (cv::Mat_<double>(3, 3) << f, 0, W / 2 - 0.5, 0, f, H / 2 - 0.5, 0, 0, 1);
}

cv::Mat lonLatCameraMatrix(cv::Size size, double field) {
  const double W = size.width;
  const double H = size.height;
  const double alpha = field / 222 * pi;
  const double cx = -W * (pi - alpha) / (2 * alpha);
  const double cy = -H * (pi - alpha) / (2 * alpha);
  return (cv::Mat_<double>(3, 3) << W / alpha, 0, cx, 0, H / alpha, cy, 0, 0, 1);
}

}  // namespace stereo::core
