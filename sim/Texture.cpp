// SPDX-License-Identifier: Apache-2.0
#include "sim/Texture.hpp"

#include <algorithm>
#include <cmath>

namespace stereo::sim {

namespace {

// Cells of octave k are largestCell / 2^k meters wide.
constexpr double largestCell = 1.28;
constexpr int octaves = 13;
// Cells narrower than this many footprints are omitted. At both ends octaves fade over a factor of two, so that nothing
// appears suddenly along a receding surface.
constexpr double finestCell = 1.6;

std::uint32_t finish(std::uint32_t h) {
  h ^= h >> 16U;
  h *= 0x85EBCA6BU;
  h ^= h >> 13U;
  h *= 0xC2B2AE35U;
  h ^= h >> 16U;
  return h;
}

float cornerValue(std::uint32_t x, std::uint32_t y, std::uint32_t z, std::uint32_t seed) {
  const std::uint32_t h = finish((x * 0x9E3779B1U) ^ (y * 0x85EBCA77U) ^ (z * 0xC2B2AE3DU) ^ seed);
  return static_cast<float>(static_cast<std::int32_t>(h >> 8U) - (1 << 23U)) * (1.0F / static_cast<float>(1 << 23U));
}

float smooth(float t) { return t * t * (3.0F - 2.0F * t); }

float mixFloat(float a, float b, float t) { return a + (b - a) * t; }

/// Smooth noise in [-1, 1] with independent values at the corners of unit cells.
float cellNoise(const cv::Vec3d& p, std::uint32_t seed) {
  const double fx = std::floor(p[0]);
  const double fy = std::floor(p[1]);
  const double fz = std::floor(p[2]);
  const auto x = static_cast<std::uint32_t>(static_cast<std::int64_t>(fx));
  const auto y = static_cast<std::uint32_t>(static_cast<std::int64_t>(fy));
  const auto z = static_cast<std::uint32_t>(static_cast<std::int64_t>(fz));
  const float tx = smooth(static_cast<float>(p[0] - fx));
  const float ty = smooth(static_cast<float>(p[1] - fy));
  const float tz = smooth(static_cast<float>(p[2] - fz));
  float planes[2];
  for (std::uint32_t k = 0; k < 2; ++k) {
    const float top = mixFloat(cornerValue(x, y, z + k, seed), cornerValue(x + 1, y, z + k, seed), tx);
    const float bottom = mixFloat(cornerValue(x, y + 1, z + k, seed), cornerValue(x + 1, y + 1, z + k, seed), tx);
    planes[k] = mixFloat(top, bottom, ty);
  }
  return mixFloat(planes[0], planes[1], tz);
}

/// 0 below `from`, 1 above `to`.
double fade(double from, double to, double value) {
  const double t = std::clamp((value - from) / (to - from), 0.0, 1.0);
  return t * t * (3.0 - 2.0 * t);
}

/// A rotation about an arbitrary axis, since surfaces parallel to the cells would show their grid.
cv::Vec3d turn(const cv::Vec3d& position) {
  return cv::Matx33d(0.36, 0.48, -0.8, -0.8, 0.6, 0.0, 0.48, 0.64, 0.6) * position;
}

}  // namespace

cv::Vec3f textureColor(const cv::Vec3d& position, double footprint, double coarsest, const cv::Vec3f& baseColor,
                       std::uint32_t seed) {
  const cv::Vec3d turned = turn(position);
  float brightness = 0.0F;
  float tint = 0.0F;
  double cell = largestCell;
  // NOLINTNEXTLINE(cert-flp30-c): halving is exact, and the octaves are counted in whole numbers
  for (int octave = 0; octave < octaves; ++octave, cell *= 0.5) {
    const double ratio = cell / footprint;
    if (ratio <= finestCell) {
      break;
    }
    if (cell >= coarsest) {
      continue;
    }
    const double weight = fade(finestCell, 2.0 * finestCell, ratio) * (1.0 - fade(0.5 * coarsest, coarsest, cell));
    const std::uint32_t octaveSeed = mixBits(seed, static_cast<std::uint32_t>(octave));
    brightness += static_cast<float>(weight) * cellNoise(turned / cell, octaveSeed);
    if (cell > 0.33 * coarsest) {
      tint += static_cast<float>(weight) * cellNoise(turned / cell, octaveSeed ^ 0x5BD1E995U);
    }
  }
  cv::Vec3f color;
  const cv::Vec3f tintOf(-0.10F, 0.01F, 0.10F);
  for (int c = 0; c < 3; ++c) {
    color[c] = std::clamp(baseColor[c] * (1.0F + 0.42F * brightness) + tintOf[c] * tint, 0.0F, 1.0F);
  }
  return color;
}

std::uint32_t mixBits(std::uint32_t a, std::uint32_t b) { return finish(finish(a + 0x9E3779B9U) ^ (b * 0x27D4EB2FU)); }

double unitNumber(std::uint32_t a, std::uint32_t b) { return mixBits(a, b) / 4294967296.0; }

}  // namespace stereo::sim
