// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/doctor/DeviceChecks.hpp"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>

#include <opencv2/videoio.hpp>

#include "apps/stereo-camera/camera/SupportedFormats.hpp"
#include "apps/stereo-camera/doctor/ProbeProcess.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/process/Descriptor.hpp"
#include "apps/stereo-camera/process/Signals.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

constexpr std::chrono::seconds patience{20};       // a back end may block forever; slow boards need five
constexpr std::chrono::seconds startPatience{60};  // a process may load its libraries from a slow card

// Whether the driver supports the size and rate.
void checkSupportedFormats(Findings& findings, int device, cv::Size size, double rate) {
  const SupportedFormats supported = supportedFormats(device, size);
  if (!supported.reportsSizes()) {
    add(findings, "device: reports no sizes; what it delivers is below", "");
    return;
  }
  if (supported.formats.empty()) {
    add(findings, "device: " + model::sizeText(size) + " is not supported", "it supports " + sizesText(supported));
    return;
  }
  std::string formats;
  for (const std::string& format : supported.formats) {
    formats += " " + format;
  }
  add(findings, "device: " + model::sizeText(size) + " supported as" + formats, "");
  if (supported.reportsRates()) {
    add(findings, "device: " + ratesText(supported) + " frames a second at that size",
        supported.hasRate(rate) ? "" : "request one of these (--rate, or \"FrameRate\" in the settings)");
  }
}

void checkBackEnd(Findings& findings, int node, const std::string& backEnd, cv::Size size, double rate) {
  const ProbeAnswer answer = askProcess("/proc/self/exe",
                                        {"stereo-camera", "doctor", "--device", std::to_string(node), "--size",
                                         model::sizeOption(size), "--rate", numberText(rate), "--probe", backEnd},
                                        startPatience, patience);
  const std::string head = "device: through " + backEnd + " ";
  cv::Size delivered;
  double told = 0;
  switch (answer.how) {
    case ProbeAnswer::How::answered:
      // NOLINTNEXTLINE(cert-err34-c): this program's own line; the sizes are compared with those requested
      if (std::sscanf(answer.line.c_str(), "frame %dx%d %lf", &delivered.width, &delivered.height, &told) == 3) {
        add(findings, head + model::sizeText(delivered) + " at " + numberText(told) + " frames a second",
            delivered == size ? ""
                              : "requested " + model::sizeText(size) +
                                    ": set --size, or \"FrameSize\" in the settings, to what it delivers");
      } else {
        add(findings, head + answer.line.substr(std::string("fails ").size()),
            "see its supported formats above; another program may use it (fuser -v /dev/video" + std::to_string(node) +
                ")");
      }
      break;
    case ProbeAnswer::How::keptWaiting:
      add(findings, head + "no frame within " + std::to_string(patience.count()) + " s",
          "the device has stalled: unplug it, or reload its driver");
      break;
    case ProbeAnswer::How::endedWithout:
      add(findings, head + "nothing: the process that tried it ended without an answer",
          "see its output: stereo-camera doctor --device " + std::to_string(node) + " --probe " + backEnd);
      break;
    case ProbeAnswer::How::neverBegan:
      add(findings, head + "nothing: another process of this program did not start",
          "try again when the machine is less busy, and check that /proc is mounted");
      break;
  }
}

}  // namespace

Findings checkDevice(int node, cv::Size size, double rate) {
  Findings findings;
  const std::string path = "/dev/video" + std::to_string(node);
  struct stat about {};
  if (stat(path.c_str(), &about) != 0) {
    add(findings, "device: no " + path, "plug the camera in and list the devices: ls /dev/video*");
    return findings;
  }
  const Descriptor device(open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (device < 0) {
    const bool denied = errno == EACCES || errno == EPERM;
    add(findings, "device: cannot open " + path + ": " + std::strerror(errno),
        denied ? "become a member of the group video (usermod -aG video USER, then log in again)"
               : "unplug the camera and plug it in again");
    return findings;
  }
  v4l2_capability can{};
  if (ioctl(device, VIDIOC_QUERYCAP, &can) != 0) {
    add(findings, "device: " + path + " is not a video device", "name the camera's: ls -l /dev/v4l/by-id");
    return findings;
  }
  const __u32 abilities = (can.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? can.device_caps : can.capabilities;
  const bool captures = (abilities & V4L2_CAP_VIDEO_CAPTURE) != 0 && (abilities & V4L2_CAP_STREAMING) != 0;
  add(findings,
      "device: " + path + " is " + reinterpret_cast<const char*>(can.card) + " (" +
          reinterpret_cast<const char*>(can.driver) + ")",
      captures ? "" : "it does not capture video: a camera often has several nodes, try the next");
  if (!captures) {
    return findings;
  }
  checkSupportedFormats(findings, device, size, rate);
  for (const char* const backEnd : {"gstreamer", "v4l2"}) {
    checkSignals();
    checkBackEnd(findings, node, backEnd, size, rate);
  }
  return findings;
}

void probeBackEnd(int node, const std::string& backEnd, cv::Size size, double rate) {
  results() << probeBegan << std::endl;
  cv::VideoCapture capture(node, backEnd == "gstreamer" ? cv::CAP_GSTREAMER : cv::CAP_V4L2);
  if (!capture.isOpened()) {
    results() << "fails it does not open" << std::endl;
    return;
  }
  // As the camera requests it; only a frame shows the outcome.
  capture.set(cv::CAP_PROP_FRAME_WIDTH, size.width);
  capture.set(cv::CAP_PROP_FRAME_HEIGHT, size.height);
  capture.set(cv::CAP_PROP_FPS, rate);
  if (!capture.isOpened()) {
    results() << "fails it closes on the request for " << model::sizeText(size) << " at " << numberText(rate)
              << std::endl;
    return;
  }
  cv::Mat frame;
  if (!capture.read(frame) || frame.empty()) {
    results() << "fails it delivers no frame" << std::endl;
    return;
  }
  results() << "frame " << frame.cols << "x" << frame.rows << " " << capture.get(cv::CAP_PROP_FPS) << std::endl;
}

}  // namespace stereo::app
