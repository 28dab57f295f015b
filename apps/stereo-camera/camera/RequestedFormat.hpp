// SPDX-License-Identifier: Apache-2.0
// Compares the format requested from a device with what it supports or chose.
#pragma once

#include <string>

#include "apps/stereo-camera/camera/DeviceCamera.hpp"
#include "apps/stereo-camera/camera/SupportedFormats.hpp"

namespace stereo::app {

/// A frame size and rate requested from a device, and where the user set them.
struct RequestedFormat {
  cv::Size size;
  double rate = 0;        ///< frames a second
  bool fromFile = false;  ///< set in the settings file, not by options
};

/// Checks, before any frame has come, whether the device accepted the requested format. Returns a line with the remedy
/// for the user, empty where all seems well; `isAboutSize` says whether it is about the size. Throws Failure (source)
/// with such a line if the device closed because of the request. V4L2 reports what the driver chose; GStreamer keeps
/// reporting the initial values, so there the driver's supported formats decide.
std::string unmetRequest(const DeviceCamera& camera, const RequestedFormat& requested, bool& isAboutSize);

/// The same from the size and rate (frames a second) that V4L2 reports.
std::string chosenInstead(cv::Size size, double rate, const RequestedFormat& requested);
/// The same from the driver's supported formats; empty where it reports none.
std::string notSupported(const SupportedFormats& supported, const RequestedFormat& requested);

}  // namespace stereo::app
