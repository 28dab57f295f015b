// SPDX-License-Identifier: Apache-2.0
// Stops a camera that delivers nothing, so that no read waits forever.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>

#include "sources/HostCamera.hpp"

namespace stereo::app {

struct OpenedCamera;

/// Keeps the program from waiting forever on a camera that delivers nothing: reads have no timeout of their own.
///
/// The watchdog stops the camera, which releases waiting readers, if `alive` was not called for as long as the patience
/// lasts, if the source is over, or if a signal asked the program to end. If even the stop does not return, because a
/// driver never returns from its read, it ends the process with ExitCode::noFrames.
///
/// Made and used by the host's thread after `startCapture`; has a thread of its own.
class Watchdog {
public:
  using Clock = std::chrono::steady_clock;

  /// `patience` in seconds. The camera is started, and outlives the watchdog, which reports at the end how many frames
  /// its source skipped.
  Watchdog(OpenedCamera& opened, double patience);
  /// With `askedSize`, the first successful read reports in one line on standard error if frames have another size.
  Watchdog(sources::HostCamera& camera, std::chrono::milliseconds patience, cv::Size askedSize = {});
  /// Stops the camera, if `finish` has not.
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  std::chrono::milliseconds patience() const { return m_patience; }

  /// A read has returned.
  void alive();

  /// From here on, a change of what this returns counts as a read: for a host's thread that does other things
  /// meanwhile. Called on the watchdog's thread, many times a second, until the watchdog goes.
  void follow(std::function<std::uint64_t()> progress);

  /// Starts the camera's disparity worker. Only the watchdog may do so, since it may be stopping the camera meanwhile.
  /// Throws as `run` does if it has stopped it.
  void startStereoCompute();

  /// Calls `read` and returns its result, whether it got anything. If it got nothing because the camera was stopped,
  /// throws Failure (noFrames) if no frames come, Ended if the source is over or a signal came.
  template <typename Read>
  bool run(Read read) {
    const bool got = read();
    checkAfterRead(got);
    if (got) {
      checkFrameSize();
    }
    return got;
  }

  /// Stops the camera and returns when it is stopped. Guarded as well, since a stop waits for the device's read.
  void finish();

private:
  enum class Phase { watching, stopping, done };
  enum class Reason { none, noFrames, over, signal };

  Reason reasonToStop() const;
  void checkAfterRead(bool got);
  void checkFrameSize();
  void loop();
  void stopCamera(std::unique_lock<std::mutex>& lock);

  sources::HostCamera& m_camera;
  const std::chrono::milliseconds m_patience;
  const cv::Size m_askedSize;
  bool m_toldOfSkipped = false;
  std::once_flag m_sizeChecked;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  Phase m_phase = Phase::watching;            // guarded by m_mutex
  Clock::time_point m_last;                   // guarded by m_mutex
  std::function<std::uint64_t()> m_progress;  // guarded by m_mutex; may be null
  std::uint64_t m_lastProgress = 0;
  std::atomic<Reason> m_reason{Reason::none};
  std::mutex m_disparityMutex;  // started by the host's thread, stopped by the watchdog's
  std::thread m_thread;
};

}  // namespace stereo::app
