// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/observe/MeasuredCapture.hpp"

#include <utility>

namespace stereo::app {

MeasuredCapture::MeasuredCapture(std::unique_ptr<cv::VideoCapture> device, std::shared_ptr<Link> link,
                                 std::function<std::chrono::microseconds()> newestTimestamp)
    : WrappedDevice(std::move(device)), m_link(std::move(link)), m_newestTimestamp(std::move(newestTimestamp)) {}

template <typename Ask>
bool MeasuredCapture::measure(Ask ask) {
  m_link->with([this](RunRecord& record) { record.published(m_newestTimestamp().count()); });
  DeviceFrame frame;
  frame.cpu = threadMicroseconds();
  frame.called = systemMicroseconds();
  const bool got = ask();
  if (got) {
    frame.returned = systemMicroseconds();
    m_link->with([&frame](RunRecord& record) {
      record.frames.add(frame);
      ++record.framesRead;
    });
  }
  return got;
}

bool MeasuredCapture::read(cv::OutputArray image) {
  return measure([&] { return device().read(image) && !image.empty(); });
}

bool MeasuredCapture::grab() {
  return measure([&] { return device().grab(); });
}

}  // namespace stereo::app
