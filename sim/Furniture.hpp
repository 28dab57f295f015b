// SPDX-License-Identifier: Apache-2.0
// What rooms are made of. Not installed: programs choose a room by `Scenery`.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/Scene.hpp"

namespace stereo::sim {

/// The room that `Scene` shows unless told otherwise, the room itself first.
std::vector<Solid> furnishedRoom(std::uint32_t seed);

/// A room of random size with `things` random boxes, spheres and panels from 0.1 m to several meters away, the room
/// itself first.
std::vector<Solid> randomRoom(std::uint32_t seed, int things);

/// Adds the near things and poles, and makes surfaces plain, as `scenery` asks for.
void applyScenery(const Scenery& scenery, std::uint32_t seed, std::vector<Solid>& solids);

}  // namespace stereo::sim
