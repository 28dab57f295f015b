// SPDX-License-Identifier: Apache-2.0
// Base class of devices that deliver frames at a steady rate.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

namespace stereo::sources {

/// A `cv::VideoCapture` without hardware that delivers frames at a steady rate, as a camera does.
///
/// `read` (or `grab` and `retrieve`) waits until the next frame is due. Frames are due one period after each other
/// whether or not they are read, so a reader that is late by less than a period doesn't slow the source down; a later
/// one gets the next frame at once, and periods count from there. With nothing (more) to deliver, `read` waits for up
/// to one period (10 ms without a rate), empties its output and returns false, so that a reader in a loop doesn't spin.
///
/// All operations may be called from any thread. The caller owns delivered pixels.
class FrameSource : public cv::VideoCapture {
public:
  ~FrameSource() override = default;

  bool isOpened() const override;
  /// Ends delivery: a waiting `read`, and all later ones, return false.
  void release() override;
  bool grab() override;
  /// Copies the frame grabbed last; if there is none, empties the output and returns false.
  bool retrieve(cv::OutputArray image, int flag = 0) override;
  bool read(cv::OutputArray image) override;
  /// CAP_PROP_FPS: frames per second, 0 for as fast as possible; false if negative or not a number. Derived classes
  /// document what else they accept; all other properties are refused.
  bool set(int propId, double value) override;
  /// CAP_PROP_FRAME_WIDTH, _HEIGHT, _FPS and _POS_FRAMES (frames delivered so far); 0 for any other.
  double get(int propId) const override;

  /// Frames delivered since construction.
  std::uint64_t framesDelivered() const { return m_delivered.load(); }
  /// Frames that were due, from the first `read` on, but not read in time: the whole periods by which reads were late.
  /// None without a rate, or when it was just set.
  std::uint64_t framesMissed() const { return m_missed.load(); }

protected:
  /// `rate` in frames per second, 0: as fast as possible. Throws std::invalid_argument if negative or not a number.
  explicit FrameSource(double rate);

  /// The next frame, or an empty one if there is none. Its pixels are not changed. Called with the source's lock held,
  /// so never by two threads at once.
  virtual cv::Mat next() = 0;
  /// Size of the next frames, pixels. The source's lock is held.
  virtual cv::Size frameSize() const = 0;
  /// Requests one side of the frame size (CAP_PROP_FRAME_WIDTH or _HEIGHT), pixels; false if refused. The source's lock
  /// is held.
  virtual bool resize(int propId, double value) = 0;
  /// Time from the next frame to the one after it, if there is a rate; by default the rate's period. The source's lock
  /// is held.
  virtual std::chrono::nanoseconds framePeriod() const;

  /// The source's lock, for derived classes that access their frames outside the operations above.
  std::unique_lock<std::mutex> lockSource() { return std::unique_lock(m_mutex); }

private:
  using Clock = std::chrono::steady_clock;

  /// Waits until this call's frame is due and takes it; empty if there is none.
  cv::Mat take();

  mutable std::mutex m_mutex;  // guards everything below except the counters; not held while waiting for a frame
  std::condition_variable m_released;
  bool m_open = true;
  double m_rate;
  Clock::time_point m_due;  // of the next frame
  bool m_asked = false;     // whether a frame was read since the rate was last set
  cv::Mat m_grabbed;
  std::atomic<std::uint64_t> m_delivered{0};
  std::atomic<std::uint64_t> m_missed{0};
};

}  // namespace stereo::sources
