// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "apps/stereo-camera/doctor/Findings.hpp"

namespace stereo::app {

/// Whether a settings file loads, says all it has to and nothing that is replaced, and has no names that nobody reads.
Findings checkSettingsFile(const std::string& path);

/// Whether a calibration file is complete and makes sense: rotations that are rotations, a baseline in millimetres,
/// mirror parameters, focal lengths and centres that a fisheye of this camera can have.
Findings checkCalibrationFile(const std::string& path);

}  // namespace stereo::app
