// SPDX-License-Identifier: Apache-2.0
// Prepares a camera for the network stream, and reads what the stream shows.
#pragma once

#include "apps/stereo-camera/camera/CameraSource.hpp"

namespace stereo::app {

constexpr int depthStream = 4;  ///< the stream mode that shows depth; it needs the disparity worker

/// Prepares a camera that is not started yet. `rate` in frames per second, 0: unknown. Throws Failure if it has no
/// calibration but the mode needs one, or if elements of GStreamer are missing.
void prepareStream(OpenedCamera& opened, int mode, double rate, int receiver);

/// One call of the operation whose images the mode streams. False if it returned none.
bool readForStream(StereoCamera& camera, int mode, cv::Mat& a, cv::Mat& b);

}  // namespace stereo::app
