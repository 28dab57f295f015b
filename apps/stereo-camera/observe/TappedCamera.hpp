// SPDX-License-Identifier: Apache-2.0
// A camera whose frames pass a tap: a recorder, or whatever else looks at each.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "apps/stereo-camera/observe/WrappedDevice.hpp"
#include "sources/FrameSource.hpp"
#include "sources/FrameTap.hpp"

namespace stereo::app {

/// A camera's tap as its device knows it. A read that does not end is abandoned with its device, and may return when
/// camera and tap are gone.
class TapLink {
public:
  /// `newestTimestamp` returns the timestamp of the raw frame published last. Both arguments are used until `cut`.
  TapLink(sources::FrameTap& tap, std::function<std::chrono::microseconds()> newestTimestamp)
      : m_tap(&tap), m_newestTimestamp(std::move(newestTimestamp)) {}

  void published() {
    const std::lock_guard lock(m_mutex);
    if (m_tap != nullptr) {
      m_tap->published(m_newestTimestamp());
    }
  }
  void read(const cv::Mat& frame) {
    const std::lock_guard lock(m_mutex);
    if (m_tap != nullptr) {
      m_tap->read(frame);
    }
  }
  /// From now on the tap sees nothing. Waits while it sees a frame.
  void cut() {
    const std::lock_guard lock(m_mutex);
    m_tap = nullptr;
  }

private:
  std::mutex m_mutex;  // guards the tap, and is held while that is called
  sources::FrameTap* m_tap;
  const std::function<std::chrono::microseconds()> m_newestTimestamp;
};

/// A wrapped device that shows each frame to a tap. Read by one thread at a time, which says before each read what
/// became of the previous frame.
class TappedCapture final : public WrappedDevice {
public:
  TappedCapture(std::unique_ptr<cv::VideoCapture> wrapped, std::shared_ptr<TapLink> link)
      : WrappedDevice(std::move(wrapped)), m_link(std::move(link)) {}

  bool read(cv::OutputArray image) override {
    m_link->published();
    if (!device().read(image) || image.empty()) {
      return false;
    }
    m_link->read(image.getMat());
    return true;
  }

private:
  const std::shared_ptr<TapLink> m_link;
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
      m_link = std::make_shared<TapLink>(tap, [this] { return this->m_rawFrame.timestamp; });
      m_tapped = this->m_videoCapture = new TappedCapture(std::move(device), m_link);
    }
  }

  ~TappedCamera() override {
    this->stopWorkers();  // they call virtual operations, which must not change under them
  }

  /// No read follows the last frame to show what became of it.
  bool stopCapture() override {
    const bool stopped = Camera::stopCapture();
    if (m_link && this->m_videoCapture != m_tapped) {
      m_link->cut();  // the device was abandoned
    }
    m_tap.published(this->m_rawFrame.timestamp);
    return stopped;
  }

  std::optional<std::uint64_t> missedFrames() const override {
    return m_source == nullptr ? std::nullopt : std::optional(m_source->framesMissed());
  }

private:
  sources::FrameTap& m_tap;
  std::shared_ptr<TapLink> m_link;                 // null: no device
  const cv::VideoCapture* m_tapped = nullptr;      // only to compare
  const sources::FrameSource* m_source = nullptr;  // the wrapped device; null: it does not count
};

}  // namespace stereo::app
