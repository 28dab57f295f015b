// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <utility>

#include <opencv2/videoio.hpp>

namespace stereo::test {

/// An OpenCV pipeline whose reads stall after the first few; nothing that a camera does ends them.
class StalledPipeline : public cv::VideoCapture {
public:
  /// Shared by the test and the device, which outlives its camera.
  struct Fate {
    std::mutex mutex;
    std::condition_variable changed;
    bool isLetGo = false;
    std::atomic<bool> isStalled{false};
    std::atomic<int> releases{0};
    std::atomic<bool> isGone{false};

    /// The read returns.
    void letGo() {
      {
        const std::lock_guard lock(mutex);
        isLetGo = true;
      }
      changed.notify_all();
    }
  };

  static constexpr int framesBefore = 12;

  explicit StalledPipeline(std::shared_ptr<Fate> fate)
      : cv::VideoCapture("videotestsrc ! video/x-raw,format=BGR,width=64,height=32 ! appsink", cv::CAP_GSTREAMER),
        m_fate(std::move(fate)) {}
  ~StalledPipeline() override { m_fate->isGone = true; }

  bool read(cv::OutputArray image) override {
    if (m_reads++ >= framesBefore) {
      std::unique_lock lock(m_fate->mutex);
      m_fate->isStalled = true;
      m_fate->changed.wait(lock, [this] { return m_fate->isLetGo; });
    }
    cv::Mat(32, 64, CV_8UC3, cv::Scalar::all(9)).copyTo(image);
    return true;
  }
  bool set(int /*property*/, double /*value*/) override { return false; }
  void release() override { ++m_fate->releases; }

private:
  std::shared_ptr<Fate> m_fate;
  int m_reads = 0;
};

}  // namespace stereo::test
