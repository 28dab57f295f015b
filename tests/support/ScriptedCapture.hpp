// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include <opencv2/videoio.hpp>

namespace stereo::test {

/// A video device that delivers what a function makes. Safe to read and set from several threads.
class ScriptedCapture : public cv::VideoCapture {
public:
  /// Makes the frame of the read with this number (from 0); an empty one makes the read fail.
  using Script = std::function<cv::Mat(int)>;

  explicit ScriptedCapture(Script script) : m_script(std::move(script)) {}

  bool read(cv::OutputArray image) override;
  bool set(int property, double value) override;
  double get(int property) const override;
  bool isOpened() const override { return true; }

  /// Properties that were set, in order.
  std::vector<std::pair<int, double>> settings() const;
  int reads() const { return m_reads; }

  /// What `set` answers; the camera is to ignore it.
  bool answer = true;

private:
  Script m_script;
  std::atomic<int> m_reads{0};
  mutable std::mutex m_mutex;
  std::vector<std::pair<int, double>> m_settings;
};

/// Lets a script's reads through one by one.
class Gate {
public:
  /// Waits until one more pass was granted; false once the gate was opened for good.
  bool pass();
  void grant(int passes = 1);
  /// From now on nobody waits.
  void open();

private:
  std::mutex m_mutex;
  std::condition_variable m_condition;
  int m_passes = 0;
  bool m_open = false;
};

/// A side-by-side frame of one color an eye.
cv::Mat twoColors(cv::Size size, const cv::Scalar& left, const cv::Scalar& right);

}  // namespace stereo::test
