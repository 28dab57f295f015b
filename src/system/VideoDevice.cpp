// SPDX-License-Identifier: Apache-2.0
#include "system/VideoDevice.hpp"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

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

// Calls `visit` with a descriptor for each that this process holds of /dev/video<node>. It is one of our own for the
// same open file: its owner may close his meanwhile, and the number may then be another file's.
template <typename Visit>
void forEachDescriptor(int node, const Visit& visit) {
  struct stat device {};
  const std::string path = "/dev/video" + std::to_string(node);
  if (stat(path.c_str(), &device) != 0 || !S_ISCHR(device.st_mode)) {
    return;
  }
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", error)) {
    const int descriptor = fcntl(std::atoi(entry.path().filename().c_str()), F_DUPFD_CLOEXEC, 0);
    if (descriptor < 0) {
      continue;
    }
    struct stat file {};
    if (fstat(descriptor, &file) == 0 && isDevice(file, device.st_rdev)) {
      visit(descriptor);
    }
    close(descriptor);
  }
}

}  // namespace

BackEnd backEndOf(const cv::VideoCapture& device) {
  try {
    const cv::String name = device.getBackendName();
    return name == "GSTREAMER" ? BackEnd::gstreamer : name == "V4L2" ? BackEnd::kernel : BackEnd::other;
  } catch (const cv::Exception&) {
    return BackEnd::other;  // not opened by OpenCV
  }
}

void restartPipeline(cv::VideoCapture& device) {
  // Setting any property of a running pipeline goes that way; this one is given the value that it has.
  constexpr int property = cv::CAP_PROP_GSTREAMER_QUEUE_LENGTH;
  device.set(property, device.get(property));
}

int stopStreaming(int node) {
  int stopped = 0;
  forEachDescriptor(node, [&](int descriptor) { stopped += streamOff(descriptor) ? 1 : 0; });
  return stopped;
}

bool isOpenHere(int node) {
  bool found = false;
  forEachDescriptor(node, [&](int) { found = true; });
  return found;
}

}  // namespace stereo::sys
