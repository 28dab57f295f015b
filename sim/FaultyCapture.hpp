// SPDX-License-Identifier: Apache-2.0
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

/// A device that goes wrong as a script tells; otherwise it does what the device does that it owns.
///
/// `read` and `grab` take the next frame, one at a time whoever calls: unplugging comes first, then stalls, then the
/// owned device is read, then the rest, in the script's order. `grab` is true, and `retrieve` goes by the last one, as
/// `read` would. "Delivered before", for what comes twice or torn, is the last picture that was not empty, as it was
/// delivered; a frame is torn only with one of the same size and type.
///
/// All operations may be called from any thread, if the owned device's may. Delivered pixels are the caller's own.
/// `isOpened`, `get`, `set` and `release` never wait for a read that stalls.
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
  /// Releases the owned device. A read that stalls or is delayed ends at once, with false, and so do all to come.
  void release() override;

  /// Frames taken so far, failed ones included: the number of the next.
  std::uint64_t frames() const;
  /// Whether a read is being held back by a stall or a delay right now.
  bool isHeldBack() const;

private:
  using Clock = std::chrono::steady_clock;

  /// What a read is to do to the caller's image.
  struct Answer {
    bool success = false;
    bool untouched = false;
    cv::Mat picture;  // read only; empty: the image is emptied
  };

  Answer take();
  /// Applies all that changes the answer rather than the time. `m_takeMutex` is held.
  void spoil(Answer& answer, std::uint64_t frame);
  /// Waits for as long as the faults of this kind that fall on the frame add up to; false if released meanwhile.
  bool holdBack(Fault::Kind kind, std::uint64_t frame);
  /// Unplugs what is to be unplugged at the next frame. Whether the device is plugged in now; `m_mutex` is held.
  bool pluggedIn();
  static bool deliver(const Answer& answer, cv::OutputArray image);

  const std::unique_ptr<cv::VideoCapture> m_device;
  const FaultScript m_script;

  std::mutex m_takeMutex;  // serialises the taking of frames; taken before `m_mutex`
  cv::Mat m_before;        // the picture delivered before; guarded by `m_takeMutex`, its pixels never change

  mutable std::mutex m_mutex;  // guards what follows; never held across a wait or a call of the device
  std::condition_variable m_wake;
  bool m_released = false;
  bool m_heldBack = false;
  std::uint64_t m_next = 0;       // number of the next frame
  std::vector<bool> m_unplugged;  // beside `m_script`: whether that unplugging has begun
  bool m_gone = false;            // for ever
  Clock::time_point m_backAt{};   // when an unplugged device is there again
  Answer m_grabbed;
};

}  // namespace stereo::sim
