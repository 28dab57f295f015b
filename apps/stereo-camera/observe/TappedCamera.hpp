// SPDX-License-Identifier: Apache-2.0
// A camera whose frames pass a tap: a recorder, or whatever else looks at each.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

#include "apps/stereo-camera/observe/WrappedDevice.hpp"
#include "sources/FrameSource.hpp"
#include "sources/FrameTap.hpp"

namespace stereo::app {

/// A wrapped device that shows each frame to a tap. Read by one thread at a time.
class TappedCapture final : public WrappedDevice {
public:
  /// `newestTimestamp` returns the timestamp of the raw frame published last. The reading thread calls it before each
  /// read, which shows what became of the previous frame. The tap outlives this object.
  TappedCapture(std::unique_ptr<cv::VideoCapture> wrapped, sources::FrameTap& tap,
                std::function<std::chrono::microseconds()> newestTimestamp)
      : WrappedDevice(std::move(wrapped)), m_tap(tap), m_newestTimestamp(std::move(newestTimestamp)) {}

  bool read(cv::OutputArray image) override {
    m_tap.published(m_newestTimestamp());
    if (!device().read(image) || image.empty()) {
      return false;
    }
    m_tap.read(image.getMat());
    return true;
  }

private:
  sources::FrameTap& m_tap;
  const std::function<std::chrono::microseconds()> m_newestTimestamp;
};

/// A `sources::HostCamera` whose tap sees its frames as its device delivers them, with the timestamps that it publishes
/// them with.
template <typename Camera>
class TappedCamera final : public Camera {
public:
  /// The tap outlives the camera; the other arguments are the camera's own.
  template <typename... Arguments>
  explicit TappedCamera(sources::FrameTap& tap, Arguments&&... arguments)
      : Camera(std::forward<Arguments>(arguments)...), m_tap(tap) {
    if (this->m_videoCapture != nullptr) {
      std::unique_ptr<cv::VideoCapture> device(std::exchange(this->m_videoCapture, nullptr));
      m_source = dynamic_cast<const sources::FrameSource*>(device.get());
      // Only the reading thread writes this timestamp, so it needs no lock to read it.
      this->m_videoCapture = new TappedCapture(std::move(device), tap, [this] { return this->m_rawFrame.timestamp; });
    }
  }

  ~TappedCamera() override {
    this->stopWorkers();  // they call virtual operations, which must not change under them
  }

  /// No read follows the last frame to show what became of it.
  bool stopCapture() override {
    const bool stopped = Camera::stopCapture();
    m_tap.published(this->m_rawFrame.timestamp);
    return stopped;
  }

  std::optional<std::uint64_t> missedFrames() const override {
    return m_source == nullptr ? std::nullopt : std::optional(m_source->framesMissed());
  }

private:
  sources::FrameTap& m_tap;
  const sources::FrameSource* m_source = nullptr;  // the wrapped device; null: it does not count
};

}  // namespace stereo::app
