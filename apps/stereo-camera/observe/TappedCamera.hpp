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
  using Link = ObserverLink<sources::FrameTap>;

  /// `newestTimestamp` returns the timestamp of the raw frame published last. The reading thread calls it before each
  /// read, which shows what became of the previous frame, as long as the link is not cut.
  TappedCapture(std::unique_ptr<cv::VideoCapture> wrapped, std::shared_ptr<Link> link,
                std::function<std::chrono::microseconds()> newestTimestamp)
      : WrappedDevice(std::move(wrapped)), m_link(std::move(link)), m_newestTimestamp(std::move(newestTimestamp)) {}

  bool read(cv::OutputArray image) override {
    m_link->with([this](sources::FrameTap& tap) { tap.published(m_newestTimestamp()); });
    if (!device().read(image) || image.empty()) {
      return false;
    }
    m_link->with([&image](sources::FrameTap& tap) { tap.read(image.getMat()); });
    return true;
  }

private:
  const std::shared_ptr<Link> m_link;
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
      : Camera(std::forward<Arguments>(arguments)...), m_tap(tap), m_link(std::make_shared<TappedCapture::Link>(tap)) {
    if (this->m_videoCapture != nullptr) {
      std::unique_ptr<cv::VideoCapture> device(std::exchange(this->m_videoCapture, nullptr));
      m_source = dynamic_cast<const sources::FrameSource*>(device.get());
      // Only the reading thread writes this timestamp, so it needs no lock to read it.
      m_tapped = this->m_videoCapture =
          new TappedCapture(std::move(device), m_link, [this] { return this->m_rawFrame.timestamp; });
    }
  }

  ~TappedCamera() override {
    this->stopWorkers();  // they call virtual operations, which must not change under them
  }

  /// No read follows the last frame to show what became of it.
  bool stopCapture() override {
    const bool stopped = Camera::stopCapture();
    if (this->m_videoCapture != m_tapped) {
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
  const std::shared_ptr<TappedCapture::Link> m_link;
  const cv::VideoCapture* m_tapped = nullptr;      // only to compare
  const sources::FrameSource* m_source = nullptr;  // the wrapped device; null: it does not count
};

}  // namespace stereo::app
