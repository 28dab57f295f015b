// SPDX-License-Identifier: Apache-2.0
// Checks that a camera's calibration is complete and well formed.
#pragma once

#include <string>

#include "StereoCamera.hpp"

namespace stereo::app {

/// Throws Failure (calibration), naming keys that are missing or have the wrong shape, unless maps can be built from
/// the camera's calibration. `complete`: what loading the file returned.
void checkCalibration(StereoCamera& camera, const std::string& file, bool complete);

}  // namespace stereo::app
