// SPDX-License-Identifier: Apache-2.0
// What wide depth is judged on: cases, rigs, scenes.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/Conditions.hpp"
#include "sim/Rig.hpp"

namespace stereo::wide {

/// Conditions under which all scenes are seen.
struct Case {
  std::string name;
  sim::Conditions conditions;
};

/// rich, hard and plain, and rich with thin poles, with poles at arm's length, and with checkered plates.
std::vector<Case> allCases();

/// One random still room, seen by one rig.
struct SceneOfRig {
  sim::Rig::Options rig;
  std::uint32_t seed = 1;
  int nearThings = 0;  ///< things nearer than the engines are asked to measure
};

/// Scenes to tune an engine on: the default rig and another.
std::vector<SceneOfRig> tuningScenes();
/// Scenes for the final figures: rigs and seeds that are not among those for tuning.
std::vector<SceneOfRig> finalScenes();

}  // namespace stereo::wide
