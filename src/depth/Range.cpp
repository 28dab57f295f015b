// SPDX-License-Identifier: Apache-2.0
// Range from parallax.
#include "src/depth/Range.hpp"

#include <algorithm>
#include <cmath>

#include "src/depth/Refine.hpp"

namespace stereo::depth {

namespace {

// Sine and cosine by their series, for angles up to 2: the same bits everywhere, to 1e-10.
struct SineCosine {
  double sine;
  double cosine;
};

SineCosine sineCosine(double x) {
  const double q = x * x;
  double s = 1.0;
  double c = 1.0;
  for (int n = 9; n >= 1; --n) {
    s = 1.0 - s * (q / ((2 * n) * (2 * n + 1)));
    c = 1.0 - c * (q / ((2 * n - 1) * (2 * n)));
  }
  return {x * s, c};
}

}  // namespace

RangeModel::RangeModel(const ViewGrid& grid, double b, double from, double to)
    : columnStep(grid.columnStep()), baseline(b), nearest(from), farthest(to) {
  for (int column = 0; column < grid.width; ++column) {
    sines.push_back(std::sin(grid.longitude(column)));
    cosines.push_back(std::cos(grid.longitude(column)));
  }
}

void rangeRow(const RangeModel& model, const float* disparity, const float* sigma, const float* correlation, int count,
              float* range, std::uint8_t* state, std::uint8_t* confidence) {
  constexpr auto measured = static_cast<std::uint8_t>(RangeState::measured);
  for (int x = 0; x < count; ++x) {
    range[x] = 0.0F;
    confidence[x] = 0;
    if (state[x] != measured) {
      continue;
    }
    const double parallax = disparity[x] * model.columnStep;
    const SineCosine d = sineCosine(parallax);
    const double cosine = model.cosines[static_cast<std::size_t>(x)];
    // Nothing is at or beyond infinity.
    const double r = parallax > 1e-6 ? model.baseline * (cosine * d.cosine / d.sine +
                                                         model.sines[static_cast<std::size_t>(x)])
                                     : model.farthest * 2.0;
    if (!(r > 0.0 && r >= model.nearest)) {
      state[x] = static_cast<std::uint8_t>(RangeState::tooNear);
    } else if (r > model.farthest) {
      state[x] = static_cast<std::uint8_t>(RangeState::tooFar);
    } else {
      range[x] = static_cast<float>(r);
      // dr / r for an error of sigma: b cos t / sin^2 d / r.
      const double error = model.baseline * cosine / (d.sine * d.sine) * sigma[x] * model.columnStep / r;
      const double score = std::clamp((correlation[x] - 0.5) * 2.0, 0.0, 1.0) * (0.02 / (0.02 + error));
      confidence[x] = static_cast<std::uint8_t>(1.0 + 254.0 * score);
    }
  }
}

}  // namespace stereo::depth
