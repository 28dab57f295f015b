// SPDX-License-Identifier: Apache-2.0
#include "sim/FaultyCapture.hpp"

#include <utility>

#include <opencv2/imgproc.hpp>

namespace stereo::sim {

namespace {

using Kind = Fault::Kind;

constexpr double byteToWord = 257.0;  // 255 becomes 65535

/// Upper half of one picture, lower half of another of the same size and type.
cv::Mat torn(const cv::Mat& upper, const cv::Mat& lower) {
  cv::Mat picture = lower.clone();
  upper.rowRange(0, upper.rows / 2).copyTo(picture.rowRange(0, upper.rows / 2));
  return picture;
}

cv::Mat resized(const cv::Mat& picture, const cv::Size& size) {
  cv::Mat result;
  cv::resize(picture, result, size, 0, 0, cv::INTER_NEAREST);
  return result;
}

cv::Mat gray(const cv::Mat& picture) {
  cv::Mat result = picture;
  if (picture.channels() == 3) {
    cv::cvtColor(picture, result, cv::COLOR_BGR2GRAY);
  }
  return result;
}

cv::Mat deep(const cv::Mat& picture) {
  cv::Mat result = picture;
  if (picture.depth() == CV_8U) {
    picture.convertTo(result, CV_16U, byteToWord);
  }
  return result;
}

}  // namespace

FaultyCapture::FaultyCapture(std::unique_ptr<cv::VideoCapture> device, FaultScript script)
    : m_device(std::move(device)), m_script(std::move(script)), m_unplugged(m_script.size(), false) {}

bool FaultyCapture::read(cv::OutputArray image) { return deliver(take(), image); }

bool FaultyCapture::grab() {
  Answer answer = take();
  const bool success = answer.success;
  const std::lock_guard lock(m_mutex);
  m_grabbed = m_released ? Answer() : std::move(answer);
  return success && !m_released;
}

bool FaultyCapture::retrieve(cv::OutputArray image, int /*flag*/) {
  Answer answer;
  {
    const std::lock_guard lock(m_mutex);
    answer = m_grabbed;
  }
  return deliver(answer, image);
}

bool FaultyCapture::set(int propId, double value) { return m_device->set(propId, value); }

double FaultyCapture::get(int propId) const { return m_device->get(propId); }

bool FaultyCapture::isOpened() const {
  {
    const std::lock_guard lock(m_mutex);
    if (m_released || m_gone || Clock::now() < m_backAt) {
      return false;
    }
  }
  return m_device->isOpened();
}

void FaultyCapture::release() {
  {
    const std::lock_guard lock(m_mutex);
    m_released = true;
    m_grabbed = {};
  }
  m_wake.notify_all();
  m_device->release();
}

std::uint64_t FaultyCapture::frames() const {
  const std::lock_guard lock(m_mutex);
  return m_next;
}

bool FaultyCapture::isHeldBack() const {
  const std::lock_guard lock(m_mutex);
  return m_heldBack;
}

FaultyCapture::Answer FaultyCapture::take() {
  const std::lock_guard turn(m_takeMutex);
  std::uint64_t frame = 0;
  {
    const std::lock_guard lock(m_mutex);
    if (m_released || !pluggedIn()) {
      return {};
    }
    frame = m_next++;
  }
  if (!holdBack(Kind::stall, frame)) {
    return {};
  }
  Answer answer;
  // A new image each time, since the previous one may be needed again.
  answer.success = m_device->read(answer.picture) && !answer.picture.empty();
  if (!answer.success) {
    return {};
  }
  if (!holdBack(Kind::delay, frame)) {
    return {};
  }
  spoil(answer, frame);
  if (answer.success && !answer.untouched && !answer.picture.empty()) {
    m_before = answer.picture;
  }
  return answer;
}

void FaultyCapture::spoil(Answer& answer, std::uint64_t frame) {
  cv::Mat& picture = answer.picture;
  for (const Fault& fault : m_script) {
    if (!fault.falls(frame)) {
      continue;
    }
    switch (fault.kind) {
      case Kind::drop:
        answer = {};
        return;
      case Kind::empty:
        answer = {.success = true, .untouched = false, .picture = {}};
        return;
      case Kind::untouched:
        answer = {.success = true, .untouched = true, .picture = {}};
        return;
      case Kind::duplicate:
        picture = m_before.empty() ? picture : m_before;
        break;
      case Kind::tear:
        if (m_before.size() == picture.size() && m_before.type() == picture.type()) {
          picture = torn(picture, m_before);
        }
        break;
      case Kind::size:
        picture = resized(picture, fault.size);
        break;
      case Kind::gray:
        picture = gray(picture);
        break;
      case Kind::deep:
        picture = deep(picture);
        break;
      case Kind::black:
        picture = cv::Mat(picture.size(), picture.type(), cv::Scalar::all(0));
        break;
      case Kind::delay:
      case Kind::stall:
      case Kind::unplug:
        break;  // handled elsewhere
    }
  }
}

bool FaultyCapture::holdBack(Kind kind, std::uint64_t frame) {
  std::chrono::milliseconds time{0};
  for (const Fault& fault : m_script) {
    if (fault.kind == kind && fault.falls(frame)) {
      time += fault.time;
    }
  }
  std::unique_lock lock(m_mutex);
  if (time.count() > 0) {
    m_heldBack = true;
    m_wake.wait_until(lock, Clock::now() + time, [this] { return m_released; });
    m_heldBack = false;
  }
  return !m_released;
}

bool FaultyCapture::pluggedIn() {
  const Clock::time_point now = Clock::now();
  for (std::size_t i = 0; i < m_script.size() && !m_gone && now >= m_backAt; ++i) {
    const Fault& fault = m_script[i];
    if (fault.kind == Kind::unplug && fault.first == m_next && !m_unplugged[i]) {
      m_unplugged[i] = true;
      m_gone = fault.time == Fault::forever;
      m_backAt = m_gone ? m_backAt : now + fault.time;
    }
  }
  return !m_gone && now >= m_backAt;
}

bool FaultyCapture::deliver(const Answer& answer, cv::OutputArray image) {
  if (answer.untouched) {
    return true;
  }
  if (answer.picture.empty()) {
    image.release();
  } else {
    answer.picture.copyTo(image);
  }
  return answer.success;
}

}  // namespace stereo::sim
