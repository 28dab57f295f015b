// SPDX-License-Identifier: Apache-2.0
#include "sources/ReplayCamera.hpp"

#include <cmath>
#include <memory>
#include <utility>

#include "model/CameraFacts.hpp"

namespace stereo::sources {

namespace {

int radiusFor(const std::optional<Recording>& recording, const cv::Size& frameSize) {
  if (recording && recording->fisheyeRadius >= 0) {
    return recording->fisheyeRadius;
  }
  if (model::isFrameSize(frameSize)) {
    return frameSize.width / 4;
  }
  return static_cast<int>(std::ceil(std::hypot(frameSize.width / 2, frameSize.height))) + 1;
}

}  // namespace

/// Made before the camera: the base class takes over the device, which is still referred to afterward.
struct ReplayCamera::Parts {
  explicit Parts(const Options& options)
      : source(
            std::make_unique<ReplayCapture>(ReplayCapture::Options{.path = options.path,
                                                                   .rate = options.rate,
                                                                   .recordedTiming = options.recordedTiming,
                                                                   .loop = options.loop,
                                                                   .leadIn = options.loop ? 0 : model::warmUpReads})),
        capture(*source) {}

  std::unique_ptr<ReplayCapture> source;
  ReplayCapture& capture;
};

ReplayCamera::ReplayCamera(const Options& options) : ReplayCamera(options, Parts(options)) {}

ReplayCamera::ReplayCamera(const Options& options, Parts parts)
    : VirtualCamera(std::move(parts.source), parts.capture.get(cv::CAP_PROP_FPS)), m_capture(parts.capture) {
  // Not with `setRawFrameSize`: the recording's size is fixed and may be none of the camera's own.
  m_rawFrameSize = m_capture.firstFrameSize();
  m_fisheyeRadius =
      options.fisheyeRadius >= 0 ? options.fisheyeRadius : radiusFor(m_capture.recording(), m_rawFrameSize);
  setRectFrameSize(options.rectFrameSize);
}

ReplayCamera::~ReplayCamera() { stopWorkers(); }

}  // namespace stereo::sources
