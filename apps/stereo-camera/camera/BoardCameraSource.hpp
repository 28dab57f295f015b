// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "calibration/BoardGeometry.hpp"

namespace stereo::app {

/// Opens what `openCamera` would, but the simulated camera with this board moved about before it, in place of the room.
/// Throws Failure.
OpenedCamera openBoardCamera(const SourceOptions& options, const calibration::Board& board);

}  // namespace stereo::app
