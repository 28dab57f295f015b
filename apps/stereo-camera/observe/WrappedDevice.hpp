// SPDX-License-Identifier: Apache-2.0
// Base class of devices that observe another one.
#pragma once

#include <memory>

#include <opencv2/videoio.hpp>

namespace stereo::app {

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
