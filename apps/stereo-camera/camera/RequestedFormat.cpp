// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/RequestedFormat.hpp"

#include <cmath>

#include "apps/stereo-camera/process/Failure.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

constexpr double nearRate = 0.5;  // frames a second; 29.97 counts as 30

std::string giveSize(const RequestedFormat& requested, const std::string& which) {
  return requested.fromFile ? "set \"FrameSize\" in the settings to " + which : "give --size " + which;
}

std::string giveRate(const RequestedFormat& requested, const std::string& which) {
  return requested.fromFile ? "set \"FrameRate\" in the settings to " + which : "give --rate " + which;
}

std::string asked(const RequestedFormat& requested) {
  return model::sizeText(requested.size) + " at " + numberText(requested.rate) + " frames a second";
}

std::string backEndOf(const cv::VideoCapture& device) {
  try {
    return device.getBackendName();
  } catch (const cv::Exception&) {
    return "";  // not one of OpenCV's, or closed
  }
}

}  // namespace

std::string chosenInstead(cv::Size size, double rate, const RequestedFormat& requested) {
  if (size != requested.size) {
    return "the device delivers " + model::sizeText(size) + " instead of " + model::sizeText(requested.size) + ": " +
           giveSize(requested, model::sizeOption(size)) + ", or try another of its nodes";
  }
  // 0: the driver does not report a rate.
  if (rate > 0 && std::abs(rate - requested.rate) >= nearRate) {
    return "the device delivers " + numberText(rate) + " frames a second instead of " + numberText(requested.rate) +
           ": " + giveRate(requested, numberText(rate));
  }
  return "";
}

std::string notSupported(const SupportedFormats& supported, const RequestedFormat& requested) {
  if (supported.formats.empty() && !supported.otherSizes.empty()) {
    return "the device does not support " + model::sizeText(requested.size) + ": " +
           giveSize(requested, "one that it supports (" + sizesText(supported) + ")");
  }
  if (!supported.formats.empty() && !supported.hasRate(requested.rate)) {
    return "the device does not support " + numberText(requested.rate) + " frames a second at " +
           model::sizeText(requested.size) + ": " + giveRate(requested, ratesText(supported));
  }
  return "";
}

std::string unmetRequest(const DeviceCamera& camera, const RequestedFormat& requested, bool& isAboutSize) {
  isAboutSize = false;
  const cv::VideoCapture* const device = camera.device();
  if (device == nullptr) {
    return "";
  }
  const std::string backEnd = backEndOf(*device);
  if (!device->isOpened()) {
    const std::string reason = notSupported(supportedFormatsOfNode(camera.nodeNumber(), requested.size), requested);
    throw Failure(ExitCode::source, "the device closed when it was asked for " + asked(requested) + "; " +
                                        (reason.empty() ? "request a size and rate that it supports" : reason) +
                                        ", or let V4L2 choose the nearest (OPENCV_VIDEOIO_PRIORITY_V4L2=999)");
  }
  if (backEnd == "V4L2") {
    const cv::Size size(static_cast<int>(device->get(cv::CAP_PROP_FRAME_WIDTH)),
                        static_cast<int>(device->get(cv::CAP_PROP_FRAME_HEIGHT)));
    isAboutSize = size != requested.size;
    return chosenInstead(size, device->get(cv::CAP_PROP_FPS), requested);
  }
  const SupportedFormats supported = supportedFormatsOfNode(camera.nodeNumber(), requested.size);
  isAboutSize = supported.formats.empty() && supported.reportsSizes();
  return notSupported(supported, requested);
}

}  // namespace stereo::app
