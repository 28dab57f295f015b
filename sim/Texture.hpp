// SPDX-License-Identifier: Apache-2.0
// Procedural texture of the scene.
#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

namespace stereo::sim {

/// Solid texture: noise over several octaves in three dimensions, a pure function of its arguments.
///
/// Only octaves that a viewer can resolve contribute: cells from about twice `footprint`, the width in meters that one
/// pixel covers on the surface, up to `coarsest`. So there is detail at every distance, without aliasing.
///
/// @param position in meters, in the frame of the surface.
/// @param footprint in meters, above 0.
/// @param coarsest in meters, above 0.
/// @return blue, green, red, each 0 to 1.
cv::Vec3f textureColor(const cv::Vec3d& position, double footprint, double coarsest, const cv::Vec3f& baseColor,
                       std::uint32_t seed);

/// Hashes (a, b) to 32 uniform bits, the source of all randomness in scene and rig.
std::uint32_t mixBits(std::uint32_t a, std::uint32_t b);

/// Pseudorandom number in [0, 1) for (a, b).
double unitNumber(std::uint32_t a, std::uint32_t b);

}  // namespace stereo::sim
