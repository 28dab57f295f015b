// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

namespace stereo::sim {

/// Solid texture: noise over several octaves in three dimensions, a pure function of its arguments.
///
/// Only octaves that a viewer can resolve take part: cells from about twice `footprint`, the width in metres that one
/// pixel covers on the surface, up to `coarsest`. So there is detail at every distance and none that aliases.
///
/// @param position in metres, in the frame that the surface is fixed to.
/// @param footprint in metres, above 0.
/// @param coarsest in metres, above 0.
/// @return blue, green, red, each 0 to 1.
cv::Vec3f textureColor(const cv::Vec3d& position, double footprint, double coarsest, const cv::Vec3f& baseColor,
                       std::uint32_t seed);

/// Evenly spread 32 bits for (a, b): the seed of all that is random in the scene and the rig.
std::uint32_t mixBits(std::uint32_t a, std::uint32_t b);

/// Number in [0, 1) drawn for (a, b).
double unitNumber(std::uint32_t a, std::uint32_t b);

}  // namespace stereo::sim
