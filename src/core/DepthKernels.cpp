// SPDX-License-Identifier: Apache-2.0
#include "core/DepthKernels.hpp"

#include <algorithm>

#include "core/KernelVariants.hpp"

namespace stereo::core {

namespace {

STEREO_CAMERA_ALWAYS_INLINE float zeroOutOfLimits(float z, const DepthLimits& limits) {
  return ((z > limits.farthest) | (z < limits.nearest)) != 0 ? 0.0F : z;
}

// Low eight bits of x rounded half away from zero; 0 for what no 32-bit integer holds, NaN included. The remainder
// after truncation is exact, so nothing is rounded twice.
STEREO_CAMERA_ALWAYS_INLINE std::uint32_t roundedByte(float x) {
  const float held = ((x > -2147483648.0F) & (x < 2147483648.0F)) != 0 ? x : 0.0F;
  const auto whole = static_cast<std::int32_t>(held);
  const float rest = held - static_cast<float>(whole);
  const std::int32_t away = rest >= 0.5F ? 1 : (rest <= -0.5F ? -1 : 0);
  return static_cast<std::uint32_t>(whole + away) & 0xFFU;
}

STEREO_CAMERA_ALWAYS_INLINE void metricBody(const float* __restrict d, int count, double fb, const DepthLimits& given,
                                            float* __restrict out) {
  const DepthLimits limits = given;
  for (int k = 0; k < count; ++k) {
    const auto z = zeroOutOfLimits(static_cast<float>(fb / static_cast<double>(d[k])), limits);
    out[k] = d[k] > limits.cutOff ? z : -1.0F;
  }
}

STEREO_CAMERA_KERNEL(metric, (const float* d, int count, double fb, const DepthLimits& limits, float* out),
                     (d, count, fb, limits, out))

// One place of a row and the lane that it falls to.
STEREO_CAMERA_ALWAYS_INLINE void measureOne(float d, double fb, const DepthLimits& limits, float& depth, float& min,
                                            float& max) {
  const auto z = static_cast<float>(fb / static_cast<double>(d));
  const bool counts = d > limits.cutOff;
  max = (counts & (z > max)) != 0 ? z : max;
  min = (counts & (z < min)) != 0 ? z : min;
  depth = d > 0 ? zeroOutOfLimits(z, limits) : 0.0F;
}

STEREO_CAMERA_ALWAYS_INLINE void measureBody(const float* __restrict d, int count, double fb, const DepthLimits& given,
                                             float* __restrict depths, RangeLanes& lanes) {
  const DepthLimits limits = given;
  RangeLanes met = lanes;
  int k = 0;
  for (; k + RangeLanes::count <= count; k += RangeLanes::count) {
    for (int lane = 0; lane < RangeLanes::count; ++lane) {
      measureOne(d[k + lane], fb, limits, depths[k + lane], met.min[lane], met.max[lane]);
    }
  }
  for (; k < count; ++k) {
    measureOne(d[k], fb, limits, depths[k], met.min[0], met.max[0]);
  }
  lanes = met;
}

STEREO_CAMERA_KERNEL(measure,
                     (const float* d, int count, double fb, const DepthLimits& limits, float* depths,
                      RangeLanes& lanes),
                     (d, count, fb, limits, depths, lanes))

STEREO_CAMERA_ALWAYS_INLINE void colourBody(const float* __restrict depths, int count, float lo, float hi,
                                            std::uint32_t* __restrict colours) {
  const float half = (hi - lo) / 2;
  const float mid = lo + half;
  const float lowerHalf = mid - lo;
  const float upperHalf = hi - mid;
  for (int k = 0; k < count; ++k) {
    const float v = depths[k];
    const bool lower = v <= mid;
    const float span = lower ? lowerHalf : upperHalf;
    const std::uint32_t falling = roundedByte(255 * ((hi - v) / span));
    const std::uint32_t rising = roundedByte(255 * ((v - lo) / span));
    const std::uint32_t colour = lower ? falling | (rising << 8) : (falling << 8) | (rising << 16);
    colours[k] = v > 0 ? colour : 0;
  }
}

STEREO_CAMERA_KERNEL(colour, (const float* depths, int count, float lo, float hi, std::uint32_t* colours),
                     (depths, count, lo, hi, colours))

}  // namespace

RangeLanes::RangeLanes(float smallest, float largest) {
  std::fill_n(min, count, smallest);
  std::fill_n(max, count, largest);
}

void RangeLanes::widen(float& smallest, float& largest) const {
  smallest = std::min(smallest, *std::min_element(min, min + count));
  largest = std::max(largest, *std::max_element(max, max + count));
}

void metricPinholeRow(const float* d, int count, double fb, const DepthLimits& limits, float* out) {
  metric(d, count, fb, limits, out);
}

void measurePinholeRow(const float* d, int count, double fb, const DepthLimits& limits, float* depths,
                       RangeLanes& lanes) {
  measure(d, count, fb, limits, depths, lanes);
}

void colourRow(const float* depths, int count, float lo, float hi, std::uint32_t* colours) {
  colour(depths, count, lo, hi, colours);
}

}  // namespace stereo::core
