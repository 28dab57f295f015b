// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/NumberedDevice.hpp"

#include "model/CameraFacts.hpp"
#include "tests/campaigns/soak/Numbering.hpp"

namespace stereo::soak {

namespace {

constexpr std::uint64_t tearEvery = 50;

}  // namespace

NumberedDevice::NumberedDevice(const ExpectedImages& book, Ledger& ledger, std::atomic<std::uint32_t>& newest,
                               bool tears)
    : FrameSource(0), m_book(book), m_ledger(ledger), m_newest(newest), m_tears(tears) {}

bool NumberedDevice::read(cv::OutputArray image) {
  m_ledger.asked();
  const bool success = FrameSource::read(image);
  if (success) {
    m_ledger.delivered(m_newest, m_reads++ < model::warmUpReads);
  }
  return success;
}

cv::Mat NumberedDevice::next() {
  const std::uint32_t number = ++m_newest;
  const cv::Mat before = m_tears && m_reads % tearEvery == tearEvery - 1 ? m_frame.clone() : cv::Mat();
  m_book.of(number).frame.copyTo(m_frame);
  const int width = m_frame.cols / 2;
  for (int eye = 0; eye < 2; ++eye) {
    drawNumber(m_frame.colRange(eye * width, (eye + 1) * width), number);
  }
  if (!before.empty()) {
    const cv::Range lowerHalf(m_frame.rows / 2, m_frame.rows);
    before.rowRange(lowerHalf).copyTo(m_frame.rowRange(lowerHalf));
  }
  return m_frame;
}

bool NumberedDevice::resize(int propId, double value) {
  return value == (propId == cv::CAP_PROP_FRAME_WIDTH ? frameSize().width : frameSize().height);
}

}  // namespace stereo::soak
