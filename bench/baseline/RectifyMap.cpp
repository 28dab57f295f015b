// SPDX-License-Identifier: Apache-2.0
#include "baseline/RectifyMap.hpp"

#include <cmath>

#include "baseline/MatRowMul.hpp"

namespace stereo::baseline {

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
  const cv::Mat iP = P.inv();
  const cv::Mat iR = R.inv();
  const cv::Mat iKR = cv::Mat(P * R).inv();
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
