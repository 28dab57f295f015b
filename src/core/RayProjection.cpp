// SPDX-License-Identifier: Apache-2.0
// Projects rays into an eye.
#include "src/core/RayProjection.hpp"

#include <cmath>

#include "src/core/KernelVariants.hpp"

namespace stereo::core {

namespace {

// The order of sums and products is part of the result.
STEREO_CAMERA_ALWAYS_INLINE void projectBody(const RayProjection& projection, const double* __restrict X,
                                             const double* __restrict Y, const double* __restrict Z, int count,
                                             float* __restrict u, float* __restrict v) {
  const RayProjection e = projection;
  for (int k = 0; k < count; ++k) {
    const double x = (e.m[0][0] * X[k] + e.m[0][1] * Y[k]) + e.m[0][2] * Z[k];
    const double y = (e.m[1][0] * X[k] + e.m[1][1] * Y[k]) + e.m[1][2] * Z[k];
    const double z = (e.m[2][0] * X[k] + e.m[2][1] * Y[k]) + e.m[2][2] * Z[k];
    const double n = std::sqrt((x * x + y * y) + z * z);
    const double Xs = x / n;
    const double Ys = y / n;
    const double Zs = z / n;
    const double xu = Xs / (Zs + e.xi);
    const double yu = Ys / (Zs + e.xi);
    const double r2 = xu * xu + yu * yu;
    const double r4 = r2 * r2;
    const double g = (e.k1 * r2 + 1) + e.k2 * r4;
    const double xd = g * xu + 2 * e.p1 * xu * yu + e.p2 * (r2 + 2 * xu * xu);
    const double yd = g * yu + 2 * e.p2 * xu * yu + e.p1 * (r2 + 2 * yu * yu);
    u[k] = static_cast<float>(e.fx * xd + e.s * yd + e.cx);
    v[k] = static_cast<float>(e.fy * yd + e.cy);
  }
}

STEREO_CAMERA_KERNEL(project,
                     (const RayProjection& projection, const double* X, const double* Y, const double* Z, int count,
                      float* u, float* v),
                     (projection, X, Y, Z, count, u, v))

}  // namespace

void projectRays(const RayProjection& projection, const double* X, const double* Y, const double* Z, int count,
                 float* u, float* v) {
  project(projection, X, Y, Z, count, u, v);
}

}  // namespace stereo::core
