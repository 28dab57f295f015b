// SPDX-License-Identifier: Apache-2.0
// Vector kernels of the point clouds.
#pragma once

#include <cstdint>

namespace stereo::core {

// All arrays hold `count` samples of one row of the view and do not overlap.

/// Squared distances from the principal point, pixels: below the one a pixel is surely inside the radius, above the
/// other surely outside.
struct RadiusSquares {
  double surelyInside;
  double surelyOutside;
};

/// The parameters of `unprojectRow`.
struct UnprojectModel {
  double xi;                     ///< mirror parameter
  double rowScale, columnScale;  ///< pixels per radian of latitude and longitude
  int rows, cols;                ///< of the images to look up
  RadiusSquares radius;
};

/// Instead of a row: no pixel is to be looked up, or the exact functions have to decide.
constexpr std::int32_t noPixel = -1;
constexpr std::int32_t uncertainPixel = -2;

/// Unprojects the points (x, y) of the plane at distance 1 to the unit sphere,
///   r2 = x^2 + y^2,  lambda = (xi + sqrt(1 + (1 - xi^2) r2)) / (1 + r2),
///   (X, Y, Z) = (lambda x, lambda y, lambda - xi),
/// and finds the pixel that the ray's longitude acos(-X) and latitude acos(-Y / |(Y, Z)|) fall into. `dx`, `dy` are the
/// distances from the principal point, pixels. `row` is `noPixel` outside the radius, and `uncertainPixel` if there
/// is no such pixel or the rounding of the angles leaves a doubt.
void unprojectRow(const double* dx, const double* x, int count, double dy, double y, const UnprojectModel& model,
                  double* lambda, std::int32_t* row, std::int32_t* column);

/// Ranking keys sqrt(z X^2 + z Y^2 + z Z^2): the depth multiplies each squared component once.
/// -1 where z is not above 0.
void keyRow(const double* X, const double* Y, const double* Z, const float* z, int count, double* keys);

}  // namespace stereo::core
