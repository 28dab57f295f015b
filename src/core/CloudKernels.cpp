// SPDX-License-Identifier: Apache-2.0
// Vector kernels of the point clouds.
#include "src/core/CloudKernels.hpp"

#include <cmath>

#include "src/core/KernelVariants.hpp"

namespace stereo::core {

namespace {

constexpr double pi = 3.141592653589793;

// acos(t) for -1 <= t <= 1, within 3e-8 radians: a square root for the steep ends, times a polynomial (Abramowitz and
// Stegun, 4.4.46).
STEREO_CAMERA_ALWAYS_INLINE double approximateArcCosine(double t) {
  const double a = std::abs(t);
  double rest = -0.0012624911;
  rest = rest * a + 0.0066700901;
  rest = rest * a - 0.0170881256;
  rest = rest * a + 0.0308918810;
  rest = rest * a - 0.0501743046;
  rest = rest * a + 0.0889789874;
  rest = rest * a - 0.2145988016;
  rest = rest * a + 1.5707963050;
  const double inside = 1.0 - a;
  const double positive = std::sqrt(inside > 0 ? inside : 0.0) * rest;
  return t < 0 ? pi - positive : positive;
}

// A scaled angle closer than this to an integer, in pixels, leaves a doubt about its integer part. The largest scale,
// in pixels per radian, is one at which this margin is still far above the error of the angle.
constexpr double margin = 1e-3;
constexpr double maxScale = 5000;

// Squares between these have neither overflowed nor lost digits to underflow.
constexpr double minSquare = 1e-200;
constexpr double maxSquare = 1e200;

// Integer part of `value`, or `uncertainPixel` if it may be another one or lie outside [0, limit).
STEREO_CAMERA_ALWAYS_INLINE std::int32_t indexOf(double value, double limit) {
  const bool within = (value > margin) & (value < limit - margin);
  const double held = within ? value : 0.0;
  const auto index = static_cast<std::int32_t>(held);
  const double rest = held - static_cast<double>(index);
  return ((rest > margin) & (rest < 1.0 - margin)) != 0 ? index : uncertainPixel;
}

STEREO_CAMERA_ALWAYS_INLINE void unprojectBody(const double* __restrict dx, const double* __restrict x, int count,
                                               double dy, double y, const UnprojectModel& given,
                                               double* __restrict lambdas, std::int32_t* __restrict rowOf,
                                               std::int32_t* __restrict columnOf) {
  const UnprojectModel m = given;
  const bool scaled = (m.rowScale < maxScale) & (m.columnScale < maxScale);
  const std::int32_t all = scaled ? 0 : uncertainPixel;
  for (int k = 0; k < count; ++k) {
    const double r2 = x[k] * x[k] + y * y;
    const double lambda = (m.xi + std::sqrt(1 + (1 - m.xi * m.xi) * r2)) / (1 + r2);
    const double X = lambda * x[k];
    const double Y = lambda * y;
    const double Z = lambda - m.xi;
    const double h2 = Y * Y + Z * Z;
    const std::int32_t exact = ((h2 > minSquare) & (h2 < maxSquare)) != 0 ? 0 : uncertainPixel;
    const std::int32_t row = indexOf(approximateArcCosine(-Y / std::sqrt(h2)) * m.rowScale, m.rows);
    const std::int32_t column = indexOf(approximateArcCosine(-X) * m.columnScale, m.cols);
    const double squared = dx[k] * dx[k] + dy * dy;
    const std::int32_t inside = squared < m.radius.surelyInside ? 0 : uncertainPixel;
    // Doubts have the sign bit set, indices do not.
    const std::int32_t found = (row | column | inside | exact | all) < 0 ? uncertainPixel : row;
    lambdas[k] = lambda;
    rowOf[k] = squared > m.radius.surelyOutside ? noPixel : found;
    columnOf[k] = column;
  }
}

STEREO_CAMERA_KERNEL(unproject,
                     (const double* dx, const double* x, int count, double dy, double y, const UnprojectModel& model,
                      double* lambda, std::int32_t* row, std::int32_t* column),
                     (dx, x, count, dy, y, model, lambda, row, column))

STEREO_CAMERA_ALWAYS_INLINE void keyBody(const double* __restrict X, const double* __restrict Y,
                                         const double* __restrict Z, const float* __restrict z, int count,
                                         double* __restrict keys) {
  for (int k = 0; k < count; ++k) {
    const auto depth = static_cast<double>(z[k]);
    const double key = std::sqrt(depth * (X[k] * X[k]) + depth * (Y[k] * Y[k]) + depth * (Z[k] * Z[k]));
    keys[k] = z[k] > 0 ? key : -1.0;
  }
}

STEREO_CAMERA_KERNEL(key, (const double* X, const double* Y, const double* Z, const float* z, int count, double* keys),
                     (X, Y, Z, z, count, keys))

}  // namespace

void unprojectRow(const double* dx, const double* x, int count, double dy, double y, const UnprojectModel& model,
                  double* lambda, std::int32_t* row, std::int32_t* column) {
  unproject(dx, x, count, dy, y, model, lambda, row, column);
}

void keyRow(const double* X, const double* Y, const double* Z, const float* z, int count, double* keys) {
  key(X, Y, Z, z, count, keys);
}

}  // namespace stereo::core
