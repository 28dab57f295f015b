// SPDX-License-Identifier: Apache-2.0
// The network stream: opening it, and what the reads send.
#include <iostream>
#include <mutex>
#include <string>

#include "StereoCamera.hpp"
#include "model/CameraFacts.hpp"
#include "model/RelaxedAccess.hpp"
#include "src/StereoCameraCommon/Internals.hpp"
#include "src/core/Numbers.hpp"
#include "src/core/StreamMode.hpp"
#include "src/system/ImageMemory.hpp"

using stereo::loadRelaxed;
using stereo::core::StreamMode;
using stereo::core::StreamSource;
using stereo::core::wrappingSum;

namespace {

constexpr const char* networkPrefix = STEREO_CAMERA_STREAM_NETWORK;  // three octets, each with its dot
constexpr int gstreamerChoosesCodec = 0;

}  // namespace

// Runs on the capture worker. A pipeline that cannot be created is not reported; the camera works without it.
void StereoCamera::openStream() {
  const std::string host = std::string("host=") + networkPrefix + std::to_string(loadRelaxed(m_ipLastSegment)) + " ";
  const std::string port = "port=" + std::to_string(wrappingSum(getPosNumber(), stereo::model::firstStreamPort));
  const std::string pipeline =
      "appsrc ! videoconvert ! omxh264enc ! video/x-h264, stream-format=byte-stream ! rtph264pay ! udpsink " + host +
      port;
  std::cout << "hostIp+portString:" << host << port << std::endl;
  std::cout << pipeline << std::endl;
  const StreamMode mode = stereo::core::streamMode(loadRelaxed(m_transmode));
  const int octet = loadRelaxed(m_ipLastSegment);
  // GStreamer would look up an invalid address as a host name, and the answer would decide where the pictures go.
  if (mode.source == StreamSource::none || octet < 0 || octet > 255) {
    return;
  }
  cv::VideoWriter writer(pipeline, gstreamerChoosesCodec, loadRelaxed(m_transrate),
                         stereo::core::streamedSize(mode, loadRelaxed(m_rawFrameSize), loadRelaxed(m_rectFrameSize)),
                         true);
  {
    const std::lock_guard lock(m_internals->writerMutex);
    std::swap(m_videoWriter, writer);
  }
  // The writer of an earlier start is closed here, outside the lock, because it drains first.
}

// What the stream takes from the reads at the moment; nothing while it is off.
StreamMode StereoCamera::wantedStream() const {
  return m_useTransmit ? stereo::core::streamMode(loadRelaxed(m_transmode)) : StreamMode{};
}

// Sends what the mode takes from a read's pair of images. Runs on the reader's thread.
void StereoCamera::sendToStream(const StreamMode& mode, const cv::Mat& first, const cv::Mat& second) {
  cv::Mat joined;
  if (mode.isJoined) {
    joined = stereo::sys::recycledImage();
    cv::hconcat(first, second, joined);
  }
  const std::lock_guard lock(m_internals->writerMutex);
  m_videoWriter.write(mode.isJoined ? joined : second);
}
