// SPDX-License-Identifier: Apache-2.0
// Doctor's checks of settings and calibration files.
#pragma once

#include <string>

#include "apps/stereo-camera/doctor/Findings.hpp"

namespace stereo::app {

/// Checks that a settings file loads, has what depth needs, has no value that the camera would replace, and no unknown
/// name.
Findings checkSettingsFile(const std::string& path);

/// Checks that a calibration file is complete and plausible: orthonormal rotations, a baseline in millimeters, and
/// mirror parameters, focal lengths and centers possible for this camera's fisheyes.
Findings checkCalibrationFile(const std::string& path);

}  // namespace stereo::app
