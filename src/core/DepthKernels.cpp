// SPDX-License-Identifier: Apache-2.0
// Vector kernels of depth: one row at a time.
#include "src/core/DepthKernels.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

#include "src/core/KernelVariants.hpp"

namespace stereo::core {

namespace {

constexpr double pi = 3.141592653589793;
constexpr float maxFloat = std::numeric_limits<float>::max();

STEREO_CAMERA_ALWAYS_INLINE float zeroOutOfLimits(float z, const DepthLimits& limits) {
  return ((z > limits.farthest) | (z < limits.nearest)) != 0 ? 0.0F : z;
}

// Low eight bits of x rounded half away from zero; 0 for NaN and values outside the range of a 32-bit integer. The
// remainder after truncation is exact, so nothing is rounded twice.
STEREO_CAMERA_ALWAYS_INLINE std::uint32_t roundedByte(float x) {
  const float held = ((x > -2147483648.0F) & (x < 2147483648.0F)) != 0 ? x : 0.0F;
  const auto whole = static_cast<std::int32_t>(held);
  const float rest = held - static_cast<float>(whole);
  const std::int32_t away = rest >= 0.5F ? 1 : (rest <= -0.5F ? -1 : 0);
  return static_cast<std::uint32_t>(whole + away) & 0xFFU;
}

// Depth of a pixel of the row: given, or f b / d.
struct GivenDepth {
  const float* __restrict z;
  [[gnu::always_inline]] float at(int k, float) const { return z[k]; }
};
struct PinholeDepth {
  double fb;
  [[gnu::always_inline]] float at(int, float d) const { return static_cast<float>(fb / static_cast<double>(d)); }
};

// Largest valid argument of `approximateSine`, radians.
constexpr double maxAngle = 50.0;

// Smallest sine that is accurate: closer to a multiple of pi, the missing digits of pi matter.
constexpr double minSine = 1e-8;

// sin(x) for |x| <= maxAngle with a relative error of about 1e-15, in operations that compilers turn into vector code.
// x = n pi + r with |r| <= pi / 2. Pi is split in two: the first part ends in so many zeros that n times it is exact,
// and the digits that both parts lack matter only for sines below minSine. Then the power series up to r^21; the next
// term is below 2e-18.
STEREO_CAMERA_ALWAYS_INLINE double approximateSine(double x) {
  constexpr double piHigh = 0x1.921fb544p+1;
  constexpr double piLow = 0x1.0b4611a62633145c1p-33;
  // Adding and subtracting 1.5 * 2^52 rounds to an integer.
  constexpr double rounder = 0x1.8p52;
  const double n = (x * 0.3183098861837907 + rounder) - rounder;
  const double r = (x - n * piHigh) - n * piLow;
  const double s = r * r;
  double series = 1.0 / 51090942171709440000.0;
  series = series * s - 1.0 / 121645100408832000.0;
  series = series * s + 1.0 / 355687428096000.0;
  series = series * s - 1.0 / 1307674368000.0;
  series = series * s + 1.0 / 6227020800.0;
  series = series * s - 1.0 / 39916800.0;
  series = series * s + 1.0 / 362880.0;
  series = series * s - 1.0 / 5040.0;
  series = series * s + 1.0 / 120.0;
  series = series * s - 1.0 / 6.0;
  // (-1)^n: n / 2 lies halfway between two integers if n is odd.
  const double halved = n * 0.5;
  const double away = halved - ((halved + rounder) - rounder);
  const double sign = 1.0 - 8.0 * (away * away);
  return sign * (r + r * (s * series));
}

// The depth of one pixel by the standard library's sine.
float angularDepth(float d, float column, const AngularModel& model) {
  const float a = (column - d) / model.W;
  const float ratio = d / model.W;
  return static_cast<float>(model.b * std::sin(pi * (a + model.o)) / std::sin(pi * ratio));
}

// The result is rounded to float, 29 bits shorter than the double. A slightly different sine gives the same float
// unless the exact quotient lies next to a rounding boundary; `doubt` marks pixels where it may. (The margin, 1e-12 of
// the value, is a thousand times the difference between this sine and the standard library's.)
STEREO_CAMERA_ALWAYS_INLINE void angularBody(const float* __restrict d, int first, int count, const AngularModel& given,
                                             float* __restrict z, std::uint32_t* __restrict doubt) {
  const AngularModel model = given;
  for (int k = 0; k < count; ++k) {
    const float a = (static_cast<float>(first + k) - d[k]) / model.W;
    const float ratio = d[k] / model.W;
    const double x = pi * (a + model.o);
    const double y = pi * ratio;
    const double sineX = approximateSine(x);
    const double sineY = approximateSine(y);
    const double quotient = model.b * sineX / sineY;
    const auto low = static_cast<float>(quotient * (1.0 - 1e-12));
    const auto high = static_cast<float>(quotient * (1.0 + 1e-12));
    z[k] = low;
    const bool sure = (low == high) & (low != 0.0F) & (std::abs(low) <= maxFloat) & (std::abs(x) < maxAngle) &
                      (std::abs(y) < maxAngle) & (std::abs(sineX) > minSine) & (std::abs(sineY) > minSine);
    doubt[k] = sure ? 0 : 1;
  }
}

STEREO_CAMERA_KERNEL(angular,
                     (const float* d, int first, int count, const AngularModel& model, float* z, std::uint32_t* doubt),
                     (d, first, count, model, z, doubt))

template <typename Depth>
STEREO_CAMERA_ALWAYS_INLINE void metricBody(const float* __restrict d, const Depth depth, int count,
                                            const DepthLimits& given, float* __restrict out) {
  const DepthLimits limits = given;
  for (int k = 0; k < count; ++k) {
    out[k] = d[k] > limits.cutoff ? zeroOutOfLimits(depth.at(k, d[k]), limits) : -1.0F;
  }
}

STEREO_CAMERA_ALWAYS_INLINE void metricGivenBody(const float* d, const float* z, int count, const DepthLimits& limits,
                                                 float* out) {
  metricBody(d, GivenDepth{z}, count, limits, out);
}
STEREO_CAMERA_KERNEL(metricGiven, (const float* d, const float* z, int count, const DepthLimits& limits, float* out),
                     (d, z, count, limits, out))

STEREO_CAMERA_ALWAYS_INLINE void metricPinholeBody(const float* d, double fb, int count, const DepthLimits& limits,
                                                   float* out) {
  metricBody(d, PinholeDepth{fb}, count, limits, out);
}
STEREO_CAMERA_KERNEL(metricPinhole, (const float* d, double fb, int count, const DepthLimits& limits, float* out),
                     (d, fb, count, limits, out))

// One pixel of a row and its lane.
STEREO_CAMERA_ALWAYS_INLINE void measureOne(float d, float z, const DepthLimits& limits, float& depth, float& min,
                                            float& max) {
  const bool counts = d > limits.cutoff;
  max = (counts & (z > max)) != 0 ? z : max;
  min = (counts & (z < min)) != 0 ? z : min;
  depth = d > 0 ? zeroOutOfLimits(z, limits) : 0.0F;
}

template <typename Depth>
STEREO_CAMERA_ALWAYS_INLINE void measureBody(const float* __restrict d, const Depth depth, int count,
                                             const DepthLimits& given, float* __restrict depths, RangeLanes& lanes) {
  const DepthLimits limits = given;
  RangeLanes met = lanes;
  int k = 0;
  for (; k + RangeLanes::count <= count; k += RangeLanes::count) {
    for (int lane = 0; lane < RangeLanes::count; ++lane) {
      measureOne(d[k + lane], depth.at(k + lane, d[k + lane]), limits, depths[k + lane], met.min[lane], met.max[lane]);
    }
  }
  for (; k < count; ++k) {
    measureOne(d[k], depth.at(k, d[k]), limits, depths[k], met.min[0], met.max[0]);
  }
  lanes = met;
}

STEREO_CAMERA_ALWAYS_INLINE void measureGivenBody(const float* d, const float* z, int count, const DepthLimits& limits,
                                                  float* depths, RangeLanes& lanes) {
  measureBody(d, GivenDepth{z}, count, limits, depths, lanes);
}
STEREO_CAMERA_KERNEL(measureGiven,
                     (const float* d, const float* z, int count, const DepthLimits& limits, float* depths,
                      RangeLanes& lanes),
                     (d, z, count, limits, depths, lanes))

STEREO_CAMERA_ALWAYS_INLINE void measurePinholeBody(const float* d, double fb, int count, const DepthLimits& limits,
                                                    float* depths, RangeLanes& lanes) {
  measureBody(d, PinholeDepth{fb}, count, limits, depths, lanes);
}
STEREO_CAMERA_KERNEL(measurePinhole,
                     (const float* d, double fb, int count, const DepthLimits& limits, float* depths,
                      RangeLanes& lanes),
                     (d, fb, count, limits, depths, lanes))

STEREO_CAMERA_ALWAYS_INLINE void colorBody(const float* __restrict depths, int count, float lo, float hi,
                                           std::uint32_t* __restrict colors) {
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
    // Blue and green, or green and red.
    const std::uint32_t pair = falling | (rising << 8);
    const std::uint32_t shown = 0U - static_cast<std::uint32_t>(v > 0);
    colors[k] = (lower ? pair : pair << 8) & shown;
  }
}

STEREO_CAMERA_KERNEL(color, (const float* depths, int count, float lo, float hi, std::uint32_t* colors),
                     (depths, count, lo, hi, colors))

}  // namespace

RangeLanes::RangeLanes(float smallest, float largest) {
  std::fill_n(min, count, smallest);
  std::fill_n(max, count, largest);
}

void RangeLanes::widen(float& smallest, float& largest) const {
  smallest = std::min(smallest, *std::min_element(min, min + count));
  largest = std::max(largest, *std::max_element(max, max + count));
}

void angularRow(const float* d, int count, const AngularModel& model, float* z) {
  // In chunks, so that the doubts fit on the stack.
  constexpr int chunk = 256;
  std::uint32_t doubt[chunk];
  for (int from = 0; from < count; from += chunk) {
    const int length = std::min(chunk, count - from);
    angular(d + from, from, length, model, z + from, doubt);
    for (int k = 0; k < length; ++k) {
      if (doubt[k] != 0) {
        z[from + k] = angularDepth(d[from + k], static_cast<float>(from + k), model);
      }
    }
  }
}

void metricRow(const float* d, const float* z, int count, const DepthLimits& limits, float* out) {
  metricGiven(d, z, count, limits, out);
}

void metricPinholeRow(const float* d, double fb, int count, const DepthLimits& limits, float* out) {
  metricPinhole(d, fb, count, limits, out);
}

void measureRow(const float* d, const float* z, int count, const DepthLimits& limits, float* depths,
                RangeLanes& lanes) {
  measureGiven(d, z, count, limits, depths, lanes);
}

void measurePinholeRow(const float* d, double fb, int count, const DepthLimits& limits, float* depths,
                       RangeLanes& lanes) {
  measurePinhole(d, fb, count, limits, depths, lanes);
}

void colorRow(const float* depths, int count, float lo, float hi, std::uint32_t* colors) {
  color(depths, count, lo, hi, colors);
}

}  // namespace stereo::core
