// SPDX-License-Identifier: Apache-2.0
// Lookup maps that turn a fisheye eye into another view.
#include "src/core/RectifyMap.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

#include <opencv2/imgproc.hpp>

#include "src/core/Numbers.hpp"
#include "src/core/OutputReuse.hpp"
#include "src/core/RayProjection.hpp"
#include "src/core/Rows.hpp"

namespace stereo::core {

namespace {

constexpr double pi = 3.141592653589793;

// The upper left 3 x 3 elements of a matrix, for loops that would be slowed down by a matrix header.
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

  Matrix3 times(const Matrix3& other) const {
    Matrix3 product;
    for (int r = 0; r < 3; ++r) {
      for (int c = 0; c < 3; ++c) {
        product.m[r][c] = row(r, other.m[0][c], other.m[1][c], other.m[2][c]);
      }
    }
    return product;
  }

  // The adjugate times 1 / det; zeros for a determinant of 0. OpenCV's inverse and product have the same sums in the
  // same order, but are compiled with fused multiply-add on architectures where every processor has it, such as 64-bit
  // Arm.
  Matrix3 inverse() const {
    Matrix3 inverted;
    const double det = (m[0][0] * minorOf(1, 1, 2, 2) - m[0][1] * minorOf(1, 0, 2, 2)) + m[0][2] * minorOf(1, 0, 2, 1);
    if (det == 0.0) {
      return inverted;
    }
    const double scale = 1.0 / det;
    inverted.m[0][0] = minorOf(1, 1, 2, 2) * scale;
    inverted.m[0][1] = minorOf(0, 2, 2, 1) * scale;
    inverted.m[0][2] = minorOf(0, 1, 1, 2) * scale;
    inverted.m[1][0] = minorOf(1, 2, 2, 0) * scale;
    inverted.m[1][1] = minorOf(0, 0, 2, 2) * scale;
    inverted.m[1][2] = minorOf(0, 2, 1, 0) * scale;
    inverted.m[2][0] = minorOf(1, 0, 2, 1) * scale;
    inverted.m[2][1] = minorOf(0, 1, 2, 0) * scale;
    inverted.m[2][2] = minorOf(0, 0, 1, 1) * scale;
    return inverted;
  }

private:
  Matrix3() : m{} {}

  // m(r, c) m(s, d) - m(r, d) m(s, c): the sign depends on the order of the columns.
  double minorOf(int r, int c, int s, int d) const { return m[r][c] * m[s][d] - m[r][d] * m[s][c]; }
};

RayProjection projectionOf(const RectifyModel& model, const Matrix3& turn) {
  RayProjection projection;
  for (int row = 0; row < 3; ++row) {
    std::copy_n(turn.m[row], 3, projection.m[row]);
  }
  projection.fx = model.K.at<double>(0, 0);
  projection.fy = model.K.at<double>(1, 1);
  projection.cx = model.K.at<double>(0, 2);
  projection.cy = model.K.at<double>(1, 2);
  projection.s = model.K.at<double>(0, 1);
  projection.k1 = model.D.at<double>(0, 0);
  projection.k2 = model.D.at<double>(0, 1);
  projection.p1 = model.D.at<double>(0, 2);
  projection.p2 = model.D.at<double>(0, 3);
  projection.xi = model.xi;
  return projection;
}

// Rays of one row of a view, by component, not rotated yet.
class RowOfRays {
public:
  explicit RowOfRays(int width) : m_width(static_cast<std::size_t>(width)), m_values(3 * m_width) {}

  double* X() { return m_values.data(); }
  double* Y() { return X() + m_width; }
  double* Z() { return Y() + m_width; }

private:
  std::size_t m_width;
  cv::AutoBuffer<double> m_values;
};

// (j, i, 1) for the column j and the row i; (P R)^-1 turns it into a ray.
class PerspectiveRays {
public:
  void prepare(RowOfRays& rays, int width) const {
    std::iota(rays.X(), rays.X() + width, 0.0);
    std::fill_n(rays.Z(), width, 1.0);
  }
  void fill(RowOfRays& rays, int width, int i) const { std::fill_n(rays.Y(), width, static_cast<double>(i)); }
};

// Angles a = (P^-1 (j, i, 1))_0, b = (P^-1 (j, i, 1))_1; (X, Y, Z) = (-cos a, -sin a cos b, sin a sin b)
class LonLatRays {
public:
  explicit LonLatRays(const Matrix3& iP) : m_iP(iP) {}
  void prepare(RowOfRays&, int) const {}
  void fill(RowOfRays& rays, int width, int i) const {
    for (int j = 0; j < width; ++j) {
      const double a = m_iP.row(0, j, i, 1.0);
      const double b = m_iP.row(1, j, i, 1.0);
      rays.X()[j] = -std::cos(a);
      rays.Y()[j] = -std::sin(a) * std::cos(b);
      rays.Z()[j] = std::sin(a) * std::sin(b);
    }
  }

private:
  Matrix3 m_iP;
};

// The same if a does not depend on the row nor b on the column: W + H pairs of sine and cosine instead of W x H. The
// zero in P^-1 gives a zero of the same sign for every row or column, so the angles can be taken at row 0 and column 0
// without changing a bit.
class SeparableLonLatRays {
public:
  static bool suits(const Matrix3& iP) { return iP.m[0][1] == 0.0 && iP.m[1][0] == 0.0; }

  SeparableLonLatRays(const Matrix3& iP, int width) : m_iP(iP), m_minusCosA(width), m_sinA(width) {
    for (int j = 0; j < width; ++j) {
      const double a = m_iP.row(0, j, 0.0, 1.0);
      m_minusCosA[static_cast<std::size_t>(j)] = -std::cos(a);
      m_sinA[static_cast<std::size_t>(j)] = std::sin(a);
    }
  }
  void prepare(RowOfRays& rays, int width) const { std::copy_n(m_minusCosA.data(), width, rays.X()); }
  void fill(RowOfRays& rays, int width, int i) const {
    const double b = m_iP.row(1, 0.0, i, 1.0);
    const double cosB = std::cos(b);
    const double sinB = std::sin(b);
    const double* const sinA = m_sinA.data();
    double* const Y = rays.Y();
    double* const Z = rays.Z();
    for (int j = 0; j < width; ++j) {
      Y[j] = -sinA[j] * cosB;
      Z[j] = sinA[j] * sinB;
    }
  }

private:
  Matrix3 m_iP;
  cv::AutoBuffer<double> m_minusCosA;
  cv::AutoBuffer<double> m_sinA;
};

// Unprojects the point (a, b) of the normalized plane, as above, to the sphere:
// eta = (xi2 + sqrt(1 + (1 - xi2^2) r2)) / (1 + r2), (X, Y, Z) = (eta a, eta b, eta - xi2)
class UnifiedModelRays {
public:
  UnifiedModelRays(const Matrix3& iP, double xi2) : m_iP(iP), m_xi2(xi2) {}
  void prepare(RowOfRays&, int) const {}
  void fill(RowOfRays& rays, int width, int i) const {
    for (int j = 0; j < width; ++j) {
      const double a = m_iP.row(0, j, i, 1.0);
      const double b = m_iP.row(1, j, i, 1.0);
      const double r2 = b * b + a * a;
      const double eta = (std::sqrt(1 + (1 - m_xi2 * m_xi2) * r2) + m_xi2) / (1 + r2);
      rays.X()[j] = eta * a;
      rays.Y()[j] = eta * b;
      rays.Z()[j] = eta - m_xi2;
    }
  }

private:
  Matrix3 m_iP;
  double m_xi2;
};

// For unknown modes: rays of length 0.
class NoRays {
public:
  void prepare(RowOfRays& rays, int width) const { std::fill_n(rays.X(), 3 * static_cast<std::size_t>(width), 0.0); }
  void fill(RowOfRays&, int, int) const {}
};

template <typename Rays>
void project(const Rays& view, const RayProjection& projection, cv::Mat& map1, cv::Mat& map2) {
  const int width = map1.cols;
  if (width == 0) {
    return;
  }
  forRows(map1.rows, width, [&](int from, int to) {
    RowOfRays rays(width);
    view.prepare(rays, width);
    for (int i = from; i < to; ++i) {
      view.fill(rays, width, i);
      projectRays(projection, rays.X(), rays.Y(), rays.Z(), width, map1.ptr<float>(i), map2.ptr<float>(i));
    }
  });
}

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

namespace {

// For maps that share memory: pixel by pixel, the last value written stays.
void writeInTurns(const cv::Mat& columns, const cv::Mat& rows, cv::Mat& map1, cv::Mat& map2) {
  for (int i = 0; i < columns.rows; ++i) {
    for (int j = 0; j < columns.cols; ++j) {
      map1.at<float>(i, j) = columns.at<float>(i, j);
      map2.at<float>(i, j) = rows.at<float>(i, j);
    }
  }
}

// The maps share no memory.
void fillRectifyMap(const RectifyModel& model, cv::Size size, int mode, cv::Mat& map1, cv::Mat& map2) {
  map1.create(size, CV_32FC1);
  map2.create(size, CV_32FC1);
  const Matrix3 P(model.P);
  const Matrix3 R(model.R);
  const Matrix3 iP = P.inverse();
  const Matrix3 iR = R.inverse();
  const RayProjection projection = projectionOf(model, iR);
  switch (mode) {
    case perspective:
      return project(PerspectiveRays(), projectionOf(model, P.times(R).inverse()), map1, map2);
    case longitudeLatitude:
      return SeparableLonLatRays::suits(iP) ? project(SeparableLonLatRays(iP, size.width), projection, map1, map2)
                                            : project(LonLatRays(iP), projection, map1, map2);
    case unifiedModel:
      return project(UnifiedModelRays(iP, model.xi2), projection, map1, map2);
    default:
      return project(NoRays(), projection, map1, map2);
  }
}

}  // namespace

void buildRectifyMap(const RectifyModel& model, cv::Size size, int mode, cv::Mat& map1, cv::Mat& map2) {
  requireEye(model.K, model.D, model.R);
  requireSquare(model.P, "camera matrix of the view");
  map1.create(size, CV_32FC1);
  map2.create(size, CV_32FC1);
  if (overlap(map1, map2)) {
    cv::Mat columns;
    cv::Mat rows;
    fillRectifyMap(model, size, mode, columns, rows);
    writeInTurns(columns, rows, map1, map2);
    return;
  }
  fillRectifyMap(model, size, mode, map1, map2);
}

void rectify(const cv::Mat& eye, const EyeMaps& maps, cv::Mat& view) {
  writeInto(view, [&](cv::Mat& out) {
    cv::remap(eye, out, maps.columns, maps.rows, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar());
  });
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
