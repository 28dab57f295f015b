// SPDX-License-Identifier: Apache-2.0
#include "ReplayCamera.hpp"

#include <cmath>
#include <memory>
#include <utility>

#include "Rig.hpp"

namespace stereo::sim {

namespace {

// Frames that the capture worker reads and throws away before it publishes the first one.
constexpr int kWarmUpReads = 10;

int radiusFor(const cv::Size& frameSize) {
  if (isCameraFormat(frameSize)) {
    return frameSize.width / 4;
  }
  return static_cast<int>(std::ceil(std::hypot(frameSize.width / 2, frameSize.height))) + 1;
}

}  // namespace

/// What exists before the camera: its device is handed to the base class and referred to afterwards.
struct ReplayCamera::Parts {
  explicit Parts(const Options& options)
      : source(std::make_unique<ReplayCapture>(
            ReplayCapture::Options{options.path, options.rate, options.loop, options.loop ? 0 : kWarmUpReads})),
        capture(*source) {}

  std::unique_ptr<ReplayCapture> source;
  ReplayCapture& capture;
};

ReplayCamera::ReplayCamera(const Options& options) : ReplayCamera(options, Parts(options)) {}

ReplayCamera::ReplayCamera(const Options& options, Parts parts)
    : VirtualCamera(std::move(parts.source), options.rate), m_capture(parts.capture) {
  // The recording's size cannot be chosen, and may be none of the camera's own: so not by way of `setRawFrameSize`.
  m_rawFrameSize = m_capture.firstFrameSize();
  m_fisheyeRadius = options.fisheyeRadius >= 0 ? options.fisheyeRadius : radiusFor(m_rawFrameSize);
  setRectFrameSize(options.rectFrameSize);
}

ReplayCamera::~ReplayCamera() { stopWorkers(); }

}  // namespace stereo::sim
