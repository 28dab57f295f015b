// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/pictures/Pictures.hpp"

#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/Output.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/Signals.hpp"

namespace stereo::app {

namespace {

[[noreturn]] void nothingToSee(const char* what) {
  throw Failure(ExitCode::noFrames, std::string("the camera delivers ") + what +
                                        " without pixels: does it deliver both eyes side by side?");
}

}  // namespace

void readPictures(OpenedCamera& opened, Watchdog& watch, std::vector<Picture>& pictures) {
  sources::HostCamera& camera = *opened.camera;
  const auto add = [&pictures](const char* file, const char* title, const char* caption, const cv::Mat& image) {
    pictures.push_back({file, title, caption, image});
  };
  cv::Mat frame;
  cv::Mat left;
  cv::Mat right;
  cv::Mat view;
  std::chrono::microseconds timestamp{0};
  if (!watch.run([&] { return camera.getRawFrame(frame, timestamp); })) {
    nothingToSee("frames");
  }
  add("raw.png", "Raw frame", "Both eyes side by side, black outside the image circles.", frame);
  if (!watch.run([&] { return camera.getStereoFrame(left, right, timestamp); })) {
    nothingToSee("eyes");
  }
  add("left.png", "Left eye", "As the lens sees it.", left.clone());
  add("right.png", "Right eye", "As the lens sees it.", right.clone());
  if (!opened.calibrated) {
    return;
  }
  left.release();
  right.release();
  if (!watch.run([&] { return camera.getRectStereoFrame(left, right); })) {
    nothingToSee("rectified eyes");
  }
  add("perspective-left.png", "Perspective, left", "Straight lines are straight; rows match those of the right eye.",
      left.clone());
  add("perspective-right.png", "Perspective, right", "The same rows, shifted by the disparity.", right.clone());
  const int depthMode = camera.depthMode();
  if (depthMode != 1) {
    camera.setDepthMode(1);
  }
  if (!watch.run([&] { return camera.getRectStereoFrame(left, right, view, timestamp); })) {
    nothingToSee("longitude-latitude eyes");
  }
  add("lonlat-left.png", "Longitude-latitude, left", "Equal angles are equal distances; almost the whole field.",
      left.clone());
  add("lonlat-right.png", "Longitude-latitude, right", "The same rows, shifted by the disparity.", right.clone());
  if (depthMode != 1) {
    camera.setDepthMode(depthMode);
  }
}

void readEyes(StereoCamera& camera, Watchdog& watch, cv::Mat& left, cv::Mat& right) {
  std::chrono::microseconds timestamp{0};
  if (!watch.run([&] { return camera.getStereoFrame(left, right, timestamp); })) {
    throw Failure(ExitCode::noFrames, "the camera delivers frames without pixels");
  }
  if (left.size() != right.size() || left.type() != CV_8UC3 || right.type() != CV_8UC3) {
    throw Failure(ExitCode::noFrames, "the camera does not deliver two color pictures of one size side by side");
  }
}

void writePictures(const std::vector<Picture>& pictures, const std::filesystem::path& folder) {
  for (const Picture& picture : pictures) {
    writeImage(folder / picture.file, picture.image);
  }
}

void startCapture(OpenedCamera& opened, bool useTransmit, bool useShareMemory) {
  // On a slow machine, rendering ahead takes longer than the watchdog's limit.
  {
    ProgressLine line;
    opened.camera->prepare([&line](std::size_t done, std::size_t all) {
      checkSignals();
      if (all > 1) {
        line.show("rendered " + std::to_string(done) + " of " + std::to_string(all) + " frames");
      }
    });
  }
  checkSignals();
  try {
    opened.camera->startCapture(useTransmit, useShareMemory);
  } catch (const cv::Exception& error) {
    throw Failure(ExitCode::calibration,
                  "the maps cannot be built from this calibration and rectified size: " + error.err);
  }
}

}  // namespace stereo::app
