// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "StereoCamera.hpp"

namespace stereo::app {

/// Throws Failure (calibration), naming the keys that are missing or of the wrong shape, unless the camera has a
/// calibration that maps can be built from. `complete` is what loading the file returned.
void checkCalibration(StereoCamera& camera, const std::string& file, bool complete);

}  // namespace stereo::app
