// SPDX-License-Identifier: Apache-2.0
// Range from parallax.
#include "src/depth/Range.hpp"

#include <algorithm>
#include <cmath>

#include "src/core/KernelVariants.hpp"
#include "src/depth/Refine.hpp"

namespace stereo::depth {

namespace {

constexpr float typicalError = 0.02F;  // relative error of the range whose confidence is half of the best

using core::InstructionSet;
using core::instructionSet;

// Sine and cosine of angles up to 2 by their series: the same bits on all processors, to 1e-9.
struct SineCosine {
  double sine;
  double cosine;
};

STEREO_CAMERA_ALWAYS_INLINE SineCosine sineCosine(double x) {
  const double q = x * x;
  double s = 1.0;
  double c = 1.0;
#pragma GCC unroll 8
  for (int n = 8; n >= 1; --n) {
    s = 1.0 - s * (q * (1.0 / ((2 * n) * (2 * n + 1))));
    c = 1.0 - c * (q * (1.0 / ((2 * n - 1) * (2 * n))));
  }
  return {x * s, c};
}

// Range, and its relative error for the error sigma of the disparity: b cos t / sin^2 d / r.
STEREO_CAMERA_ALWAYS_INLINE void rangesBody(const double* __restrict sines, const double* __restrict cosines,
                                            const float* __restrict disparity, const float* __restrict sigma, int count,
                                            double step, double baseline, float* __restrict range,
                                            float* __restrict error) {
  for (int x = 0; x < count; ++x) {
    const double given = disparity[x] * step;
    // Nothing is at infinity or beyond.
    const double parallax = given > 1e-6 ? (given < 2.0 ? given : 2.0) : 1e-6;
    const SineCosine d = sineCosine(parallax);
    const double r = baseline * (cosines[x] * (d.cosine / d.sine) + sines[x]);
    range[x] = static_cast<float>(r);
    error[x] = static_cast<float>(baseline * cosines[x] / (d.sine * d.sine) * (sigma[x] * step) / r);
  }
}

STEREO_CAMERA_KERNEL(ranges,
                     (const double* sines, const double* cosines, const float* disparity, const float* sigma, int count,
                      double step, double baseline, float* range, float* error),
                     (sines, cosines, disparity, sigma, count, step, baseline, range, error))

}  // namespace

RangeModel::RangeModel(const ViewGrid& grid, double b, double from, double to)
    : columnStep(grid.columnStep), baseline(b), nearest(from), farthest(to) {
  for (int column = 0; column < grid.width; ++column) {
    // Rounded to float, so that other processors' last bits don't show.
    sines.push_back(static_cast<float>(std::sin(grid.longitude(column))));
    cosines.push_back(static_cast<float>(std::cos(grid.longitude(column))));
  }
}

void rangeRow(const RangeModel& model, const float* disparity, const float* sigma, int count, float* range,
              std::uint8_t* state, std::uint8_t* confidence) {
  constexpr auto measured = static_cast<std::uint8_t>(RangeState::measured);
  constexpr int widest = 4096;
  float error[widest];
  ranges(model.sines.data(), model.cosines.data(), disparity, sigma, count, model.columnStep, model.baseline, range,
         error);
  const auto nearest = static_cast<float>(model.nearest);
  const auto farthest = static_cast<float>(model.farthest);
  for (int x = 0; x < count; ++x) {
    if (state[x] == measured) {
      if (!(range[x] > 0.0F && range[x] >= nearest)) {
        state[x] = static_cast<std::uint8_t>(RangeState::tooNear);
      } else if (range[x] > farthest) {
        state[x] = static_cast<std::uint8_t>(RangeState::tooFar);
      }
    }
    const bool kept = state[x] == measured;
    const float score = typicalError / (typicalError + error[x]);
    range[x] = kept ? range[x] : 0.0F;
    confidence[x] = static_cast<std::uint8_t>(kept ? 1.0F + 254.0F * score : 0.0F);
  }
}

}  // namespace stereo::depth
