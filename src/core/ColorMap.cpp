// SPDX-License-Identifier: Apache-2.0
// The color scale of the depth picture.
#include "src/core/ColorMap.hpp"

#include <cmath>
#include <cstdint>

namespace stereo::core {

unsigned char lowByte(double value) {
  // Negated, so that NaN fails, too.
  if (!(value > -2147483649.0 && value < 2147483648.0)) {
    return 0;
  }
  return static_cast<unsigned char>(static_cast<std::uint32_t>(static_cast<std::int32_t>(value)) & 0xFFU);
}

// half = (hi - lo) / 2, range = hi - lo and x = v - lo are single precision, the results double.

unsigned char blueSegment(float lo, float hi, float v) {
  const float half = (hi - lo) / 2;
  const float x = v - lo;
  if (x >= half || x < 0) {
    return 0;
  }
  return lowByte(255.0 + (-255.0 * x) / half);
}

unsigned char greenSegment(float lo, float hi, float v) {
  const float half = (hi - lo) / 2;
  const float range = hi - lo;
  const float x = v - lo;
  if (x >= range || x <= 0) {
    return 0;
  }
  if (x > 0 && x <= half) {
    return lowByte((-255.0 * x) / half - (255.0 * 0) / half);
  }
  if (x > half && x <= range) {
    return lowByte((-255.0 * x) / (half - range) - (255.0 * range) / (half - range));
  }
  return 0;
}

unsigned char redSegment(float lo, float hi, float v) {
  const float half = (hi - lo) / 2;
  const float range = hi - lo;
  const float x = v - lo;
  if (x < half) {
    return 0;
  }
  return lowByte((255.0 * x) / (range - half) + (255.0 * half) / (range - half));
}

// half = (hi - lo) / 2, mid = lo + half, all single precision.
// v <= mid: B = 255 (hi - v) / (mid - lo), G = 255 (v - lo) / (mid - lo), R = 0
// else:     B = 0, G = 255 (hi - v) / (hi - mid), R = 255 (v - lo) / (hi - mid)
// Rounded half away from zero; B at lo and R at hi come to 510 and wrap to 254.
cv::Vec3b depthColor(float lo, float hi, float v) {
  const float half = (hi - lo) / 2;
  const float mid = lo + half;
  float B = 0;
  float G = 0;
  float R = 0;
  if (v <= mid) {
    B = 255 * ((hi - v) / (mid - lo));
    G = 255 * ((v - lo) / (mid - lo));
  } else {
    G = 255 * ((hi - v) / (hi - mid));
    R = 255 * ((v - lo) / (hi - mid));
  }
  return {lowByte(std::round(B)), lowByte(std::round(G)), lowByte(std::round(R))};
}

}  // namespace stereo::core
