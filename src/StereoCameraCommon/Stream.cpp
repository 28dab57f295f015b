// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <mutex>
#include <string>

#include "StereoCamera.hpp"
#include "src/StereoCameraCommon/Internals.hpp"
#include "src/StereoCameraCommon/RelaxedAccess.hpp"
#include "src/core/Numbers.hpp"

using stereo::relaxed;
using stereo::core::wrappingSum;

namespace {

constexpr const char* networkPrefix = STEREO_CAMERA_STREAM_NETWORK;  // three octets, each with its dot
constexpr int firstPort = 9200;
constexpr int gstreamerChoosesCodec = 0;

// Size of the images of a stream mode; empty for a mode that does not exist.
cv::Size streamedSize(int mode, cv::Size raw, cv::Size rectified) {
  switch (mode) {
    case 0:
      return {raw.width >> 1, raw.height};
    case 1:
      return raw;
    case 2:
      return rectified;
    case 3:
    case 4:
      return {wrappingSum(rectified.width, rectified.width), rectified.height};
    default:
      return {};
  }
}

}  // namespace

// On the capture worker. Nothing tells whether the pipeline could be made: without it the camera works as ever.
void StereoCamera::openStream() {
  const std::string host = std::string("host=") + networkPrefix + std::to_string(relaxed(m_ipLastSegment)) + " ";
  const std::string port = "port=" + std::to_string(wrappingSum(getPosNumber(), firstPort));
  const std::string pipeline =
      "appsrc ! videoconvert ! omxh264enc ! video/x-h264, stream-format=byte-stream ! rtph264pay ! udpsink " + host +
      port;
  std::cout << "hostIp+portString:" << host << port << std::endl;
  std::cout << pipeline << std::endl;
  const int mode = relaxed(m_transmode);
  const int octet = relaxed(m_ipLastSegment);
  // What is no address would be looked up as a name, and whoever answers chooses where the pictures go.
  if (mode < 0 || mode > 4 || octet < 0 || octet > 255) {
    return;
  }
  cv::VideoWriter writer(pipeline, gstreamerChoosesCodec, relaxed(m_transrate),
                         streamedSize(mode, relaxed(m_rawFrameSize), relaxed(m_rectFrameSize)), true);
  {
    const std::lock_guard lock(m_internals->writerMutex);
    std::swap(m_videoWriter, writer);
  }
  // What an earlier start opened is closed here, outside the lock: it drains first.
}

void StereoCamera::writeStream(const cv::Mat& image) {
  const std::lock_guard lock(m_internals->writerMutex);
  m_videoWriter.write(image);
}
