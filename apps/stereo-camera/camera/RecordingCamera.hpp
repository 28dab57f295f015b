// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

#include "StereoCamera.hpp"
#include "apps/stereo-camera/camera/InEffect.hpp"
#include "apps/stereo-camera/observe/WrappedDevice.hpp"
#include "apps/stereo-camera/record/Recorder.hpp"

namespace stereo::app {

/// A wrapped device that hands a copy of each frame to a recorder. Read by one thread at a time.
class RecordedCapture final : public WrappedDevice {
public:
  /// `newestStamp` tells the stamp of the raw frame that was published last. It is called by the reading thread before
  /// each read, and so tells what became of the frame before. The recorder outlives this object.
  RecordedCapture(std::unique_ptr<cv::VideoCapture> wrapped, Recorder& recorder,
                  std::function<std::chrono::microseconds()> newestStamp)
      : WrappedDevice(std::move(wrapped)), m_recorder(recorder), m_newestStamp(std::move(newestStamp)) {}

  bool read(cv::OutputArray image) override {
    m_recorder.published(m_newestStamp());
    if (!device().read(image) || image.empty()) {
      return false;
    }
    m_recorder.read(image.getMat());
    return true;
  }

private:
  Recorder& m_recorder;
  const std::function<std::chrono::microseconds()> m_newestStamp;
};

/// A camera whose published frames are recorded as its device delivered them, with the stamps that it gave them.
template <typename Camera>
class RecordingCamera final : public Camera, public TellsSettings {
public:
  /// The recorder outlives the camera; the other arguments are the camera's own.
  template <typename... Arguments>
  explicit RecordingCamera(Recorder& recorder, Arguments&&... arguments)
      : Camera(std::forward<Arguments>(arguments)...), m_recorder(recorder) {
    if (this->m_videoCapture != nullptr) {
      std::unique_ptr<cv::VideoCapture> device(std::exchange(this->m_videoCapture, nullptr));
      // The reading thread is the only one that writes this stamp, so it needs no lock to look at it.
      this->m_videoCapture =
          new RecordedCapture(std::move(device), recorder, [this] { return this->m_rawFrame.timestamp; });
    }
  }

  ~RecordingCamera() override {
    // The workers call virtual operations, which must not change under them.
    if constexpr (requires { this->stopWorkers(); }) {
      this->stopWorkers();
    } else {
      this->stopStereoCompute();
      this->stopCapture();
    }
  }

  /// The last frame has no read after it that would tell what became of it.
  bool stopCapture() override {
    const bool stopped = Camera::stopCapture();
    m_recorder.published(this->m_rawFrame.timestamp);
    return stopped;
  }

  SettingsInEffect settingsInEffect() const override {
    return {.logLevel = this->m_logLevel,
            .deviceNode = this->m_deviceNode,
            .frameSize = this->m_rawFrameSize,
            .rectifiedSize = this->m_rectFrameSize,
            .frameRate = static_cast<int>(this->m_frameRate),
            .threshold = this->m_threshold,
            .algorithm = this->m_algorithm,
            .ipLastSegment = this->m_ipLastSegment,
            .hFov = this->m_hFov,
            .transrate = this->m_transrate,
            .transmode = this->m_transmode,
            .depthmode = this->m_depthmode,
            .fisheyeRadius = this->m_fisheyeRadius};
  }

private:
  Recorder& m_recorder;
};

}  // namespace stereo::app
