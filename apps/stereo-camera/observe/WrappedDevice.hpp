// SPDX-License-Identifier: Apache-2.0
// Base class of devices that observe another one.
#pragma once

#include <memory>
#include <mutex>

#include <opencv2/videoio.hpp>

namespace stereo::app {

/// What observes a camera's device, as the device knows it. A read that does not end is abandoned with its device, and
/// may return when camera and observer are gone.
template <typename Observer>
class ObserverLink {
public:
  /// The observer outlives the link's last use before `cut`.
  explicit ObserverLink(Observer& observer) : m_observer(&observer) {}

  /// Calls `use` with the observer, unless the link was cut.
  template <typename Use>
  void with(Use use) {
    const std::lock_guard lock(m_mutex);
    if (m_observer != nullptr) {
      use(*m_observer);
    }
  }
  /// Waits for a call under way. None follows.
  void cut() {
    const std::lock_guard lock(m_mutex);
    m_observer = nullptr;
  }

private:
  std::mutex m_mutex;  // guards the observer, and is held during calls
  Observer* m_observer;
};

/// Owns an open device and forwards everything to it, including the back end's name where OpenCV opened it. As
/// thread-safe as the device.
class WrappedDevice : public cv::VideoCapture {
public:
  bool read(cv::OutputArray image) override { return m_device->read(image); }
  bool grab() override { return m_device->grab(); }
  bool retrieve(cv::OutputArray image, int flag = 0) override { return m_device->retrieve(image, flag); }
  bool set(int propId, double value) override { return m_device->set(propId, value); }
  double get(int propId) const override { return m_device->get(propId); }
  bool isOpened() const override { return m_device->isOpened(); }
  void release() override {
    icap.release();
    m_device->release();
  }

protected:
  explicit WrappedDevice(std::unique_ptr<cv::VideoCapture> device) : m_device(std::move(device)) {
    // Shared with the device only so that `getBackendName`, which is not virtual, works here.
    cv::Ptr<cv::IVideoCapture> cv::VideoCapture::*const opened = &WrappedDevice::icap;
    icap = (*m_device).*opened;
  }

  cv::VideoCapture& device() { return *m_device; }

private:
  const std::unique_ptr<cv::VideoCapture> m_device;
};

}  // namespace stereo::app
