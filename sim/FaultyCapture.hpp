// SPDX-License-Identifier: Apache-2.0
// A device wrapper that applies a fault script.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "sim/FaultScript.hpp"

namespace stereo::sim {

/// Wraps a device and applies the faults of a script; otherwise it behaves as the device.
///
/// `read` and `grab` take the next frame, one at a time whoever calls: unplugging comes first, then stalls, then the
/// owned device is read, then the rest in the script's order. `grab` returns true, and `retrieve` returns what `read`
/// would have for the last grab. The previous picture, for `duplicate` and `tear`, is the last one delivered that was
/// not empty; a frame is torn only with one of the same size and type.
///
/// All operations may be called from any thread if the owned device's may. The caller owns delivered pixels.
/// `isOpened`, `get`, `set` and `release` never wait for a stalled read.
class FaultyCapture final : public cv::VideoCapture {
public:
  FaultyCapture(std::unique_ptr<cv::VideoCapture> device, FaultScript script);

  bool read(cv::OutputArray image) override;
  bool grab() override;
  bool retrieve(cv::OutputArray image, int flag = 0) override;
  bool set(int propId, double value) override;
  double get(int propId) const override;
  /// False while unplugged, and once released.
  bool isOpened() const override;
  /// Releases the owned device. A stalled or delayed read returns false at once, and so do all later ones.
  void release() override;

  /// Frames taken so far, including failed ones: the number of the next.
  std::uint64_t frames() const;
  /// Whether a read is blocked by a stall or delay right now.
  bool isHeldBack() const;

private:
  using Clock = std::chrono::steady_clock;

  /// What a read does to the caller's image.
  struct Answer {
    bool success = false;
    bool untouched = false;
    cv::Mat picture;  // read only; empty: the image is emptied
  };

  Answer take();
  /// Applies the faults that change the picture rather than the time. `m_takeMutex` is held.
  void spoil(Answer& answer, std::uint64_t frame);
  /// Waits for the sum of the times of this kind of fault at the frame; false if released meanwhile.
  bool holdBack(Fault::Kind kind, std::uint64_t frame);
  /// Unplugs the device if that is due at the next frame. Returns whether it is plugged in; `m_mutex` is held.
  bool pluggedIn();
  static bool deliver(const Answer& answer, cv::OutputArray image);

  const std::unique_ptr<cv::VideoCapture> m_device;
  const FaultScript m_script;

  std::mutex m_takeMutex;  // serializes reads; locked before `m_mutex`
  cv::Mat m_before;        // the previous picture; guarded by `m_takeMutex`, its pixels never change

  mutable std::mutex m_mutex;  // guards what follows; never held across a wait or a call of the device
  std::condition_variable m_wake;
  bool m_released = false;
  bool m_heldBack = false;
  std::uint64_t m_next = 0;       // number of the next frame
  std::vector<bool> m_unplugged;  // parallel to `m_script`: whether that unplugging has begun
  bool m_gone = false;            // forever
  Clock::time_point m_backAt{};   // when an unplugged device returns
  Answer m_grabbed;
};

}  // namespace stereo::sim
