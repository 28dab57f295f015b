// SPDX-License-Identifier: Apache-2.0
// Opens a camera that a calibration board is shown to.
#pragma once

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "calibration/BoardGeometry.hpp"

namespace stereo::app {

/// As `openCamera`, but the simulated camera sees this board, moved about, instead of the room. Throws Failure.
OpenedCamera openBoardCamera(const SourceOptions& options, const calibration::Board& board);

}  // namespace stereo::app
