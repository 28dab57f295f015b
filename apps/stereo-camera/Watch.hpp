// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "StereoCamera.hpp"

namespace stereo::app {

/// Keeps the program from waiting for ever on a camera that delivers nothing: reads have no time-out of their own.
///
/// When `alive` was not called for as long as the patience lasts, the watch says so, stops the camera, and with that
/// sends home whoever is blocked in a read. Where even that does not end, because a driver never returns from its read,
/// the watch ends the process with ExitCode::noFrames.
///
/// Made and used by the host's thread after `startCapture`; has a thread of its own.
class Watch {
public:
  using Clock = std::chrono::steady_clock;

  /// With `askedSize` the first read that succeeds says on standard error, in one line, if the frames have another
  /// size.
  Watch(StereoCamera& camera, std::chrono::milliseconds patience, cv::Size askedSize = {});
  /// Stops the camera, if `finish` has not.
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// A read has returned.
  void alive();

  /// Starts the camera's disparity worker, which only this may do while it watches: its own stop may come meanwhile.
  /// Throws Failure (noFrames) if it has come.
  void startStereoCompute();

  /// Calls `read`, which returns whether it got anything, and throws Failure (noFrames) if it did not because nothing
  /// comes any more.
  template <typename Read>
  bool run(Read read) {
    const bool got = read();
    checkAfterRead();
    if (got) {
      checkFrameSize();
    }
    return got;
  }

  /// Stops the camera. Under guard as well: a stop waits for the device's read.
  void finish();

private:
  enum class Phase { watching, stopping, done };

  void checkAfterRead();
  void checkFrameSize();
  void loop();

  StereoCamera& m_camera;
  const std::chrono::milliseconds m_patience;
  const cv::Size m_askedSize;
  std::once_flag m_sizeChecked;
  std::mutex m_mutex;
  std::condition_variable m_changed;
  Phase m_phase = Phase::watching;  // guarded by m_mutex
  Clock::time_point m_last;         // guarded by m_mutex
  std::atomic<bool> m_expired{false};
  std::mutex m_disparityMutex;  // start by the host's thread, stop by the watch's
  std::thread m_thread;
};

}  // namespace stereo::app
