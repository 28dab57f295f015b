// SPDX-License-Identifier: Apache-2.0
// Doctor's checks of a video device.
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "apps/stereo-camera/doctor/Findings.hpp"

namespace stereo::app {

/// Checks that /dev/video<node> exists, is readable and writable, captures, and supports the frame size and rate; then
/// what each of OpenCV's back ends delivers on request.
Findings checkDevice(int node, cv::Size size, double rate);

/// Tries one back end ("gstreamer" or "v4l2"). Prints two lines on standard output: "began" before it opens the device,
/// then "frame WxH R" with the size of a frame and the reported rate, or "fails REASON". Blocks as long as the device
/// does, so it runs in a process of its own.
void probeBackEnd(int node, const std::string& backEnd, cv::Size size, double rate);

}  // namespace stereo::app
