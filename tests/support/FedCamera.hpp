// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <utility>

#include "tests/support/TestCamera.hpp"

namespace stereo::test {

/// What one call of the rectified read gives to the disparity worker.
struct RectifiedFrame {
  cv::Mat left;
  cv::Mat right;
  cv::Mat view;
  std::chrono::microseconds timestamp{0};
};

/// A camera whose disparity worker is fed by a function instead of a device.
class FedCamera : public TestCamera {
public:
  /// Makes the pair of the call with this number (from 0); false as the read's own answer.
  using Feed = std::function<bool(int, RectifiedFrame&)>;

  explicit FedCamera(Feed feed) : m_feed(std::move(feed)) {}
  ~FedCamera() override { stopStereoCompute(); }

  using TestCamera::getRectStereoFrame;
  bool getRectStereoFrame(cv::Mat& left, cv::Mat& right, cv::Mat& view, std::chrono::microseconds& timestamp) override {
    RectifiedFrame frame;
    const bool answer = m_feed(m_calls++, frame);
    if (answer) {
      left = frame.left;
      right = frame.right;
      view = frame.view;
      timestamp = frame.timestamp;
    }
    return answer;
  }

  int calls() const { return m_calls; }

  /// Publishes an (empty) raw frame with this timestamp, as a capture worker would.
  void publishRaw(std::chrono::microseconds timestamp) {
    const std::lock_guard lock(m_frameMutex);
    m_rawFrame.timestamp = timestamp;
    m_frameCond.notify_all();
  }

  /// Publishes a view and a disparity, as the disparity worker would.
  void publishDisparity(const cv::Mat& view, const cv::Mat& disparity) {
    const std::lock_guard lock(m_disparityMutex);
    m_disparityFrame.first = view.clone();
    m_disparityFrame.second = disparity.clone();
    m_disparityCond.notify_all();
  }

private:
  Feed m_feed;
  std::atomic<int> m_calls{0};
};

/// Textured pair of `size`, the right one shifted to the left by `shift` pixels.
inline RectifiedFrame shiftedPair(cv::Size size, int shift, int number) {
  cv::Mat wide(size.height, size.width + shift, CV_8UC3);
  cv::RNG random(static_cast<std::uint64_t>(number) + 1);
  random.fill(wide, cv::RNG::UNIFORM, 0, 256);
  RectifiedFrame frame;
  frame.left = wide.colRange(0, size.width).clone();
  frame.right = wide.colRange(shift, size.width + shift).clone();
  frame.view = frame.left / 2;
  frame.timestamp = std::chrono::microseconds(1000 + number);
  return frame;
}

}  // namespace stereo::test
