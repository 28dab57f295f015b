// SPDX-License-Identifier: Apache-2.0
// Projects rays into an eye.
#pragma once

namespace stereo::core {

/// Unified omnidirectional model of one eye, from ray to pixel, with the matrix that takes the rays of a view to the
/// eye's frame.
struct RayProjection {
  double m[3][3];         ///< rays (X, Y, Z) of the view become (x, y, z) = m (X, Y, Z)
  double fx, fy, cx, cy;  ///< intrinsic matrix of the eye, pixels
  double s;               ///< skew, pixels
  double k1, k2, p1, p2;  ///< distortion, radial and tangential
  double xi;              ///< mirror parameter
};

/// Projects `count` rays, given by component, into the eye: `u[k]`, `v[k]` are column and row in pixels. Each ray is
/// rotated, normalized to the unit sphere, projected, distorted and converted to pixels:
///
///   (x, y, z) = m (X, Y, Z),  (Xs, Ys, Zs) = (x, y, z) / |(x, y, z)|
///   xu = Xs / (Zs + xi),  yu = Ys / (Zs + xi)
///   r2 = xu^2 + yu^2,  g = 1 + k1 r2 + k2 r2^2
///   xd = g xu + 2 p1 xu yu + p2 (r2 + 2 xu^2)
///   yd = g yu + 2 p2 xu yu + p1 (r2 + 2 yu^2)
///   u = fx xd + s yd + cx,  v = fy yd + cy
///
/// All in double, rounded to float at the end. A ray of length 0 gives NaN; rays at or behind Zs = -xi are projected
/// like any other. The arrays do not overlap.
void projectRays(const RayProjection& projection, const double* X, const double* Y, const double* Z, int count,
                 float* u, float* v);

}  // namespace stereo::core
