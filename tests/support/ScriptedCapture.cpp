// SPDX-License-Identifier: Apache-2.0
#include "tests/support/ScriptedCapture.hpp"

namespace stereo::test {

bool ScriptedCapture::read(cv::OutputArray image) {
  const cv::Mat frame = m_script(m_reads++);
  if (frame.empty()) {
    image.release();
    return false;
  }
  frame.copyTo(image);
  return true;
}

bool ScriptedCapture::set(int property, double value) {
  const std::lock_guard lock(m_mutex);
  m_settings.emplace_back(property, value);
  return answer;
}

double ScriptedCapture::get(int property) const {
  const std::lock_guard lock(m_mutex);
  for (auto setting = m_settings.rbegin(); setting != m_settings.rend(); ++setting) {
    if (setting->first == property) {
      return setting->second;
    }
  }
  return 0;
}

std::vector<std::pair<int, double>> ScriptedCapture::settings() const {
  const std::lock_guard lock(m_mutex);
  return m_settings;
}

bool Gate::pass() {
  std::unique_lock lock(m_mutex);
  m_condition.wait(lock, [this] { return m_open || m_passes > 0; });
  if (m_passes > 0) {
    --m_passes;
    return true;
  }
  return false;
}

void Gate::grant(int passes) {
  {
    const std::lock_guard lock(m_mutex);
    m_passes += passes;
  }
  m_condition.notify_all();
}

void Gate::open() {
  {
    const std::lock_guard lock(m_mutex);
    m_open = true;
  }
  m_condition.notify_all();
}

cv::Mat twoColors(cv::Size size, const cv::Scalar& left, const cv::Scalar& right) {
  cv::Mat frame(size, CV_8UC3, left);
  frame(cv::Rect(size.width / 2, 0, size.width - size.width / 2, size.height)).setTo(right);
  return frame;
}

}  // namespace stereo::test
