// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "sources/HostCamera.hpp"

namespace CLI {
class App;
}

namespace stereo::app {

struct OpenedCamera;

/// Adds --patience: after how many seconds without a frame to give up.
void addPatienceOption(CLI::App& command, double& seconds);

/// Keeps the program from waiting for ever on a camera that delivers nothing: reads have no time-out of their own.
///
/// The watch stops the camera, and with that releases whoever is blocked in a read, when `alive` was not called for as
/// long as the patience lasts, when the source is over, and when a signal asks for the program's end. Where even the
/// stop does not end, because a driver never returns from its read, the watch ends the process with ExitCode::noFrames.
///
/// Made and used by the host's thread after `startCapture`; has a thread of its own.
class Watchdog {
public:
  using Clock = std::chrono::steady_clock;

  /// `patience` in seconds. The camera is started, and outlives the watch, which says at the end how many frames its
  /// source had to leave out.
  Watchdog(OpenedCamera& opened, double patience);
  /// With `askedSize` the first read that succeeds says on standard error, in one line, if the frames have another
  /// size.
  Watchdog(sources::HostCamera& camera, std::chrono::milliseconds patience, cv::Size askedSize = {});
  /// Stops the camera, if `finish` has not.
  ~Watchdog();
  Watchdog(const Watchdog&) = delete;
  Watchdog& operator=(const Watchdog&) = delete;

  std::chrono::milliseconds patience() const { return m_patience; }

  /// A read has returned.
  void alive();

  /// Starts the camera's disparity worker, which only this may do while it watches: its own stop may come meanwhile.
  /// Throws what `run` throws if it has come.
  void startStereoCompute();

  /// Calls `read`, which returns whether it got anything. If it did not because the camera was stopped, throws Failure
  /// (noFrames) where nothing comes any more and Ended where the source is over or a signal came.
  template <typename Read>
  bool run(Read read) {
    const bool got = read();
    checkAfterRead(got);
    if (got) {
      checkFrameSize();
    }
    return got;
  }

  /// Stops the camera. Under guard as well: a stop waits for the device's read. Back when it is stopped.
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
  Phase m_phase = Phase::watching;  // guarded by m_mutex
  Clock::time_point m_last;         // guarded by m_mutex
  std::atomic<Reason> m_reason{Reason::none};
  std::mutex m_disparityMutex;  // start by the host's thread, stop by the watch's
  std::thread m_thread;
};

}  // namespace stereo::app
