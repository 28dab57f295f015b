// SPDX-License-Identifier: Apache-2.0
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
  // Asked of the base class, whatever a derived one makes of it: -1 where OpenCV has nothing open. (Asking for the back
  // end's name raises an error there.)
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
  // OpenCV 4.6 stops a running pipeline before it sets any property. Of most it then starts it again, and waits for a
  // frame; not of this one, which is given the value that it has.
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
    // Others are left alone: closing a duplicate would take the process's locks off its file.
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
