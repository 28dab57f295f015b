// SPDX-License-Identifier: Apache-2.0
// Finds out what reads a video device, and stops its stream from outside.
#include "src/system/VideoDevice.hpp"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <string>
#include <typeinfo>

namespace stereo::sys {

namespace {

bool isDevice(const struct stat& file, dev_t device) { return S_ISCHR(file.st_mode) && file.st_rdev == device; }

bool streamOff(int descriptor) {
  bool was = false;
  for (int type : {V4L2_BUF_TYPE_VIDEO_CAPTURE, V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE}) {
    was = ioctl(descriptor, VIDIOC_STREAMOFF, &type) == 0 || was;
  }
  return was;
}

}  // namespace

BackEnd backEndOf(const cv::VideoCapture& device) {
  // Asks the base class, whatever a derived one overrides: -1 if OpenCV has nothing open. (Asking for the name of the
  // back end would raise an error then.)
  const auto backEnd = static_cast<int>(device.cv::VideoCapture::get(cv::CAP_PROP_BACKEND));
  if (backEnd == cv::CAP_GSTREAMER) {
    return BackEnd::gstreamer;
  }
  if (backEnd == cv::CAP_V4L2) {
    return BackEnd::kernel;
  }
  const bool isPlain = typeid(device) == typeid(cv::VideoCapture);
  return backEnd > 0 && isPlain ? BackEnd::otherOfOpenCv : BackEnd::foreign;
}

void stopPipeline(cv::VideoCapture& device) {
  // OpenCV 4.6 stops a running pipeline before it sets any property. After most of them it starts the pipeline again
  // and waits for a frame, but not after this one. The property gets the value that it has.
  constexpr int property = cv::CAP_PROP_GSTREAMER_QUEUE_LENGTH;
  device.set(property, device.get(property));
}

void forEachDescriptor(const std::string& path, const std::function<void(int)>& visit) {
  struct stat device {};
  if (stat(path.c_str(), &device) != 0 || !S_ISCHR(device.st_mode)) {
    return;
  }
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    struct stat file {};
    const std::string name = entry.path().filename();
    int number = -1;
    std::from_chars(name.data(), name.data() + name.size(), number);
    // Do not duplicate other descriptors: closing a duplicate would release the process's locks on that file.
    if (fstat(number, &file) != 0 || !isDevice(file, device.st_rdev)) {
      continue;
    }
    const int descriptor = fcntl(number, F_DUPFD_CLOEXEC, 0);
    if (descriptor < 0) {
      continue;
    }
    if (fstat(descriptor, &file) == 0 && isDevice(file, device.st_rdev)) {
      visit(descriptor);
    }
    close(descriptor);
  }
}

int stopStreaming(int node) {
  int stopped = 0;
  forEachDescriptor("/dev/video" + std::to_string(node),
                    [&](int descriptor) { stopped += streamOff(descriptor) ? 1 : 0; });
  return stopped;
}

}  // namespace stereo::sys
