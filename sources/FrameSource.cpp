// SPDX-License-Identifier: Apache-2.0
#include "sources/FrameSource.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <thread>

namespace stereo::sources {

namespace {

// Without a rate, a source that has nothing to deliver waits this long, so that its reader does not spin.
constexpr std::chrono::milliseconds idlePause{10};

bool isRate(double rate) { return std::isfinite(rate) && rate >= 0.0; }

std::chrono::nanoseconds periodOf(double rate) {
  // At least a frame an hour, so that the cast stays in range.
  return std::chrono::nanoseconds(static_cast<std::int64_t>(1e9 / std::max(rate, 1.0 / 3600.0)));
}

}  // namespace

FrameSource::FrameSource(double rate) : m_rate(rate), m_due(Clock::now()) {
  if (!isRate(rate)) {
    throw std::invalid_argument("a frame rate is 0 (as fast as possible) or above");
  }
}

bool FrameSource::isOpened() const {
  const std::lock_guard lock(m_mutex);
  return m_open;
}

void FrameSource::release() {
  {
    const std::lock_guard lock(m_mutex);
    m_open = false;
    m_grabbed.release();
  }
  m_released.notify_all();
}

bool FrameSource::grab() {
  const cv::Mat frame = take();
  const std::lock_guard lock(m_mutex);
  m_grabbed = m_open ? frame : cv::Mat();
  return !m_grabbed.empty();
}

bool FrameSource::retrieve(cv::OutputArray image, int /*flag*/) {
  cv::Mat frame;
  {
    const std::lock_guard lock(m_mutex);
    frame = m_grabbed;
  }
  if (frame.empty()) {
    image.release();
    return false;
  }
  frame.copyTo(image);
  return true;
}

bool FrameSource::read(cv::OutputArray image) {
  // Not through the grabbed frame, since another thread's grab could come in between.
  const cv::Mat frame = take();
  if (frame.empty()) {
    image.release();
    return false;
  }
  frame.copyTo(image);
  return true;
}

bool FrameSource::set(int propId, double value) {
  const std::lock_guard lock(m_mutex);
  switch (propId) {
    case cv::CAP_PROP_FPS:
      if (!isRate(value)) {
        return false;
      }
      m_rate = value;
      m_due = Clock::now();
      m_asked = false;
      return true;
    case cv::CAP_PROP_FRAME_WIDTH:
    case cv::CAP_PROP_FRAME_HEIGHT:
      return resize(propId, value);
    default:
      return false;
  }
}

double FrameSource::get(int propId) const {
  const std::lock_guard lock(m_mutex);
  switch (propId) {
    case cv::CAP_PROP_FPS:
      return m_rate;
    case cv::CAP_PROP_FRAME_WIDTH:
      return frameSize().width;
    case cv::CAP_PROP_FRAME_HEIGHT:
      return frameSize().height;
    case cv::CAP_PROP_POS_FRAMES:
      return static_cast<double>(framesDelivered());
    default:
      return 0.0;
  }
}

std::chrono::nanoseconds FrameSource::framePeriod() const { return periodOf(m_rate); }

cv::Mat FrameSource::take() {
  std::unique_lock lock(m_mutex);
  if (m_open && m_rate > 0.0) {
    const Clock::time_point now = Clock::now();
    const auto period = framePeriod();
    const bool late = now > m_due + period;
    if (late && m_asked) {
      m_missed += static_cast<std::uint64_t>((now - m_due) / period);
    }
    m_asked = true;
    const Clock::time_point due = late ? now : m_due;
    m_due = due + period;
    m_released.wait_until(lock, due, [this] { return !m_open; });
  }
  cv::Mat frame = m_open ? next() : cv::Mat();
  if (!frame.empty()) {
    ++m_delivered;
  } else if (!m_open || m_rate == 0.0) {
    lock.unlock();
    std::this_thread::sleep_for(idlePause);
  }
  return frame;
}

}  // namespace stereo::sources
