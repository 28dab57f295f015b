// SPDX-License-Identifier: Apache-2.0
// Under which conditions the simulated camera works.
#pragma once

#include <string>

#include "sim/Degradation.hpp"
#include "sim/Rig.hpp"
#include "sim/Scene.hpp"

namespace stereo::sim {

/// How hard the simulated camera makes it. The defaults change nothing, to the bit.
struct Conditions {
  Degradation picture;
  Scenery scenery;
  CalibrationError calibration;
};

/// From text: values such as "noise=3,plain-things=40,poles=4", or the names of sets of them, "rich", "hard" or
/// "plain", which later values add to. docs/using.md lists the names. Throws std::invalid_argument, with a message of
/// one line, for anything else and for values out of range.
Conditions parseConditions(const std::string& text);

}  // namespace stereo::sim
