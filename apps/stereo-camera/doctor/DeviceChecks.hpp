// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "apps/stereo-camera/doctor/Findings.hpp"

namespace stereo::app {

/// Whether /dev/video<node> is there, may be read and written, captures, and offers the frame size and rate; then what
/// each of OpenCV's back ends delivers when it is asked for them.
Findings checkDevice(int node, cv::Size size, double rate);

/// What one back end ("gstreamer" or "v4l2") delivers: two lines on standard output, "began" before the device is
/// opened, then "frame WxH R" with the size of a frame that was read and the rate that the back end tells, or "fails
/// REASON". Blocks as long as the device does, so it is run in a process of its own.
void probeBackEnd(int node, const std::string& backEnd, cv::Size size, double rate);

}  // namespace stereo::app
