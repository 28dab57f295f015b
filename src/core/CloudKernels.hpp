// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

namespace stereo::core {

// In all of these the arrays hold `count` places of one row of the view and do not overlap.

/// Squared distances from the principal point, pixels, below and above which there is no question of the radius.
struct RadiusSquares {
  double surelyInside;
  double surelyOutside;
};

/// What a lifted look-up needs beside the place; see `unprojectRow`.
struct UnprojectModel {
  double xi;                     ///< mirror parameter
  double rowScale, columnScale;  ///< pixels per radian of latitude and longitude
  int rows, cols;                ///< of the images that are looked into
  RadiusSquares radius;
};

/// Where a place has no look-up, and where whether and which is to be found out with care.
constexpr std::int32_t kNoPixel = -1;
constexpr std::int32_t kUncertainPixel = -2;

/// Lifts the places (x, y) of the plane at distance 1 onto the unit sphere,
///   r2 = x^2 + y^2,  lambda = (xi + sqrt(1 + (1 - xi^2) r2)) / (1 + r2),
///   (X, Y, Z) = (lambda x, lambda y, lambda - xi),
/// and gives the pixel that the ray's longitude acos(-X) and latitude acos(-Y / |(Y, Z)|) fall in. `dx`, `dy` are the
/// distances from the principal point, pixels. `row` is one of the two values above where there is no such pixel, the
/// place lies outside the radius or the rounding of the angles leaves a doubt.
void unprojectRow(const double* dx, const double* x, int count, double dy, double y, const UnprojectModel& model,
                  double* lambda, std::int32_t* row, std::int32_t* column);

/// Ranking keys sqrt(z X^2 + z Y^2 + z Z^2): the depth multiplies each squared component once.
/// -1 where z is not above 0.
void keyRow(const double* X, const double* Y, const double* Z, const float* z, int count, double* keys);

}  // namespace stereo::core
