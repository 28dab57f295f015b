// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include "apps/stereo-camera/camera/DeviceCamera.hpp"
#include "apps/stereo-camera/camera/SupportedFormats.hpp"

namespace stereo::app {

/// A frame size and rate that a device was asked for, and how the user asked.
struct RequestedFormat {
  cv::Size size;
  double rate = 0;        ///< frames a second
  bool fromFile = false;  ///< by the settings, not by options
};

/// What became of the wishes once they were told to the device, as far as that shows before a frame has come: a line
/// with the remedy for the user, empty where all seems well. Throws Failure (source) with such a line where the device
/// has closed over it. OpenCV's answers differ: V4L2 tells what the driver chose, GStreamer only ever what was there at
/// first, so there it is what the driver offers that counts.
/// Whether it is about the size goes to `isAboutSize`.
std::string unmetRequest(const DeviceCamera& camera, const RequestedFormat& requested, bool& isAboutSize);

/// The same for what V4L2 tells (`took`: size and rate).
std::string chosenInstead(cv::Size size, double rate, const RequestedFormat& requested);
/// The same for what the driver offers; nothing where it does not tell.
std::string notSupported(const SupportedFormats& supported, const RequestedFormat& requested);

}  // namespace stereo::app
