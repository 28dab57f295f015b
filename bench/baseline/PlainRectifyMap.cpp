// SPDX-License-Identifier: Apache-2.0
// Lookup maps, plain form.
#include "bench/baseline/PlainRectifyMap.hpp"

#include <cmath>

#include "bench/baseline/MatRowMul.hpp"

namespace stereo::baseline {

cv::Mat inverse(const cv::Mat& m) {
  const auto at = [&](int r, int c) { return m.at<double>(r % 3, c % 3); };
  // Cofactor of the element (r, c); the cyclic indices include its sign.
  const auto cofactor = [&](int r, int c) {
    return at(r + 1, c + 1) * at(r + 2, c + 2) - at(r + 1, c + 2) * at(r + 2, c + 1);
  };
  cv::Mat inverted = cv::Mat::zeros(3, 3, CV_64FC1);
  const double det = (at(0, 0) * cofactor(0, 0) + at(0, 1) * cofactor(0, 1)) + at(0, 2) * cofactor(0, 2);
  if (det == 0.0) {
    return inverted;
  }
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      inverted.at<double>(r, c) = cofactor(c, r) * (1.0 / det);
    }
  }
  return inverted;
}

cv::Mat product(const cv::Mat& a, const cv::Mat& b) {
  cv::Mat all(3, 3, CV_64FC1);
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      all.at<double>(r, c) = MatRowMul(a, b.at<double>(0, c), b.at<double>(1, c), b.at<double>(2, c), r);
    }
  }
  return all;
}

bool initRectifyMap(cv::Mat K, cv::Mat D, cv::Mat R, cv::Mat P, double xi, double xi2, cv::Size size, int mode,
                    cv::Mat& map1, cv::Mat& map2) {
  map1.create(size, CV_32FC1);
  map2.create(size, CV_32FC1);
  const double fx = K.at<double>(0, 0);
  const double fy = K.at<double>(1, 1);
  const double cx = K.at<double>(0, 2);
  const double cy = K.at<double>(1, 2);
  const double s = K.at<double>(0, 1);
  const double k1 = D.at<double>(0, 0);
  const double k2 = D.at<double>(0, 1);
  const double p1 = D.at<double>(0, 2);
  const double p2 = D.at<double>(0, 3);
  const cv::Mat iP = inverse(P);
  const cv::Mat iR = inverse(R);
  const cv::Mat iKR = inverse(product(P, R));
  for (int i = 0; i < size.height; ++i) {
    for (int j = 0; j < size.width; ++j) {
      double x = 0;
      double y = 0;
      double z = 0;
      if (mode == 2) {
        x = MatRowMul(iKR, j, i, 1.0, 0);
        y = MatRowMul(iKR, j, i, 1.0, 1);
        z = MatRowMul(iKR, j, i, 1.0, 2);
      } else if (mode == 1 || mode == 0) {
        const double a = MatRowMul(iP, j, i, 1.0, 0);
        const double b = MatRowMul(iP, j, i, 1.0, 1);
        double X = 0;
        double Y = 0;
        double Z = 0;
        if (mode == 1) {
          X = -std::cos(a);
          Y = -std::sin(a) * std::cos(b);
          Z = std::sin(a) * std::sin(b);
        } else {
          const double r2 = b * b + a * a;
          const double eta = (std::sqrt(1 + (1 - xi2 * xi2) * r2) + xi2) / (1 + r2);
          X = eta * a;
          Y = eta * b;
          Z = eta - xi2;
        }
        x = MatRowMul(iR, X, Y, Z, 0);
        y = MatRowMul(iR, X, Y, Z, 1);
        z = MatRowMul(iR, X, Y, Z, 2);
      }
      const double n = std::sqrt((x * x + y * y) + z * z);
      const double Xs = x / n;
      const double Ys = y / n;
      const double Zs = z / n;
      const double xu = Xs / (Zs + xi);
      const double yu = Ys / (Zs + xi);
      const double r2 = xu * xu + yu * yu;
      const double r4 = r2 * r2;
      const double g = (k1 * r2 + 1) + k2 * r4;
      const double xd = g * xu + 2 * p1 * xu * yu + p2 * (r2 + 2 * xu * xu);
      const double yd = g * yu + 2 * p2 * xu * yu + p1 * (r2 + 2 * yu * yu);
      map1.at<float>(i, j) = static_cast<float>(fx * xd + s * yd + cx);
      map2.at<float>(i, j) = static_cast<float>(fy * yd + cy);
    }
  }
  return true;
}

}  // namespace stereo::baseline
