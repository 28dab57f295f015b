// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/DeviceWishes.hpp"

#include <cmath>

#include "apps/stereo-camera/process/Failure.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

constexpr double nearRate = 0.5;  // frames a second; 29.97 is what is meant by 30

std::string giveSize(const DeviceWishes& wishes, const std::string& which) {
  return wishes.fromFile ? "set \"FrameSize\" in the settings to " + which : "give --size " + which;
}

std::string giveRate(const DeviceWishes& wishes, const std::string& which) {
  return wishes.fromFile ? "set \"FrameRate\" in the settings to " + which : "give --rate " + which;
}

std::string asked(const DeviceWishes& wishes) {
  return model::sizeText(wishes.size) + " at " + numberText(wishes.rate) + " frames a second";
}

std::string backEndOf(const cv::VideoCapture& device) {
  try {
    return device.getBackendName();
  } catch (const cv::Exception&) {
    return "";  // not one of OpenCV's, or closed
  }
}

}  // namespace

std::string takenInstead(cv::Size size, double rate, const DeviceWishes& wishes) {
  if (size != wishes.size) {
    return "the device gives " + model::sizeText(size) + " instead of " + model::sizeText(wishes.size) + ": " +
           giveSize(wishes, model::sizeOption(size)) + ", or try another of its nodes";
  }
  // 0: the driver has no say in its rate.
  if (rate > 0 && std::abs(rate - wishes.rate) >= nearRate) {
    return "the device gives " + numberText(rate) + " frames a second instead of " + numberText(wishes.rate) + ": " +
           giveRate(wishes, numberText(rate));
  }
  return "";
}

std::string notOffered(const DeviceOffers& offers, const DeviceWishes& wishes) {
  if (offers.formats.empty() && !offers.otherSizes.empty()) {
    return "the device does not offer " + model::sizeText(wishes.size) + ": " +
           giveSize(wishes, "one that it offers (" + sizesText(offers) + ")");
  }
  if (!offers.formats.empty() && !offers.hasRate(wishes.rate)) {
    return "the device does not offer " + numberText(wishes.rate) + " frames a second at " +
           model::sizeText(wishes.size) + ": " + giveRate(wishes, ratesText(offers));
  }
  return "";
}

std::string wishesUnmet(const DeviceCamera& camera, const DeviceWishes& wishes, bool& isAboutSize) {
  isAboutSize = false;
  const cv::VideoCapture* const device = camera.device();
  if (device == nullptr) {
    return "";
  }
  const std::string backEnd = backEndOf(*device);
  if (!device->isOpened()) {
    const std::string reason = notOffered(offersOfNode(camera.nodeNumber(), wishes.size), wishes);
    throw Failure(ExitCode::source, "the device closed when it was asked for " + asked(wishes) + "; " +
                                        (reason.empty() ? "ask for a size and rate that it has" : reason) +
                                        ", or let V4L2 choose the nearest (OPENCV_VIDEOIO_PRIORITY_V4L2=999)");
  }
  if (backEnd == "V4L2") {
    const cv::Size size(static_cast<int>(device->get(cv::CAP_PROP_FRAME_WIDTH)),
                        static_cast<int>(device->get(cv::CAP_PROP_FRAME_HEIGHT)));
    isAboutSize = size != wishes.size;
    return takenInstead(size, device->get(cv::CAP_PROP_FPS), wishes);
  }
  const DeviceOffers offers = offersOfNode(camera.nodeNumber(), wishes.size);
  isAboutSize = offers.formats.empty() && offers.tellsSizes();
  return notOffered(offers, wishes);
}

}  // namespace stereo::app
