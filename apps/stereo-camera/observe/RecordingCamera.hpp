// SPDX-License-Identifier: Apache-2.0
// A camera that passes the frames it publishes to a recorder.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <utility>

#include "apps/stereo-camera/observe/WrappedDevice.hpp"
#include "sources/Recorder.hpp"

namespace stereo::app {

/// A wrapped device that passes a copy of each frame to a recorder. Read by one thread at a time.
class RecordedCapture final : public WrappedDevice {
public:
  /// `newestTimestamp` returns the timestamp of the raw frame published last. The reading thread calls it before each
  /// read, which shows what became of the previous frame. The recorder outlives this object.
  RecordedCapture(std::unique_ptr<cv::VideoCapture> wrapped, sources::Recorder& recorder,
                  std::function<std::chrono::microseconds()> newestTimestamp)
      : WrappedDevice(std::move(wrapped)), m_recorder(recorder), m_newestTimestamp(std::move(newestTimestamp)) {}

  bool read(cv::OutputArray image) override {
    m_recorder.published(m_newestTimestamp());
    if (!device().read(image) || image.empty()) {
      return false;
    }
    m_recorder.read(image.getMat());
    return true;
  }

private:
  sources::Recorder& m_recorder;
  const std::function<std::chrono::microseconds()> m_newestTimestamp;
};

/// A `sources::HostCamera` whose published frames are recorded as its device delivered them, with its timestamps.
template <typename Camera>
class RecordingCamera final : public Camera {
public:
  /// The recorder outlives the camera; the other arguments are the camera's own.
  template <typename... Arguments>
  explicit RecordingCamera(sources::Recorder& recorder, Arguments&&... arguments)
      : Camera(std::forward<Arguments>(arguments)...), m_recorder(recorder) {
    if (this->m_videoCapture != nullptr) {
      std::unique_ptr<cv::VideoCapture> device(std::exchange(this->m_videoCapture, nullptr));
      // Only the reading thread writes this timestamp, so it needs no lock to read it.
      this->m_videoCapture =
          new RecordedCapture(std::move(device), recorder, [this] { return this->m_rawFrame.timestamp; });
    }
  }

  ~RecordingCamera() override {
    this->stopWorkers();  // they call virtual operations, which must not change under them
  }

  /// No read follows the last frame to show what became of it.
  bool stopCapture() override {
    const bool stopped = Camera::stopCapture();
    m_recorder.published(this->m_rawFrame.timestamp);
    return stopped;
  }

private:
  sources::Recorder& m_recorder;
};

}  // namespace stereo::app
