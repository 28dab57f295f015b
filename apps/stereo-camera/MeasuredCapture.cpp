// SPDX-License-Identifier: Apache-2.0
#include "MeasuredCapture.hpp"

#include <utility>

namespace stereo::app {

MeasuredCapture::MeasuredCapture(std::unique_ptr<cv::VideoCapture> device, RunRecord& record,
                                 std::function<std::chrono::microseconds()> newestStamp)
    : m_device(std::move(device)), m_record(record), m_newestStamp(std::move(newestStamp)) {
  // Shared with the device, which does the work: whoever asks for the back end's name asks this.
  cv::Ptr<cv::IVideoCapture> cv::VideoCapture::*const opened = &MeasuredCapture::icap;
  icap = (*m_device).*opened;
}

template <typename Ask>
bool MeasuredCapture::measure(Ask ask) {
  m_record.published(m_newestStamp().count());
  DeviceFrame frame;
  frame.cpu = threadMicroseconds();
  frame.called = systemMicroseconds();
  const bool got = ask();
  if (got) {
    frame.returned = systemMicroseconds();
    m_record.frames.add(frame);
    ++m_record.framesRead;
  }
  return got;
}

bool MeasuredCapture::read(cv::OutputArray image) {
  return measure([&] { return m_device->read(image) && !image.empty(); });
}

bool MeasuredCapture::grab() {
  return measure([&] { return m_device->grab(); });
}

bool MeasuredCapture::retrieve(cv::OutputArray image, int flag) { return m_device->retrieve(image, flag); }

bool MeasuredCapture::set(int propId, double value) { return m_device->set(propId, value); }

double MeasuredCapture::get(int propId) const { return m_device->get(propId); }

bool MeasuredCapture::isOpened() const { return m_device->isOpened(); }

void MeasuredCapture::release() {
  icap.release();
  m_device->release();
}

}  // namespace stereo::app
