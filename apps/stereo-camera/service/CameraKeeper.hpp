// SPDX-License-Identifier: Apache-2.0
// Keeps a camera running: makes a new one whenever no more frames come.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>

#include "apps/stereo-camera/calibrate/FitCheck.hpp"
#include "apps/stereo-camera/observe/LiveTap.hpp"
#include "apps/stereo-camera/record/LiveRecording.hpp"
#include "apps/stereo-camera/record/RecordingRing.hpp"
#include "apps/stereo-camera/service/CameraPlan.hpp"
#include "apps/stereo-camera/service/CameraStatus.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"
#include "apps/stereo-camera/view/CameraFeed.hpp"
#include "apps/stereo-camera/view/LiveState.hpp"

namespace stereo::app {

/// Keeps one camera running, on a thread of its own, which is the camera's host thread.
///
/// A camera that delivers nothing for as long as its patience lasts, that was unplugged, or that cannot be opened, is
/// given up, and a new one is made: at once when its device appears again, otherwise after 0.2 s, doubling to 5 s. It
/// gets the same settings. Whoever watches (`feed`) stays, the ring goes on with the new camera, and a recording that
/// was asked for ends.
class CameraKeeper {
public:
  /// Begins at once. `log` is called with lines for the log, on the keeper's threads. Throws Failure (usage) for
  /// options that cannot be.
  CameraKeeper(CameraPlan plan, ServiceFolders folders, std::function<void(const std::string&)> log);
  /// Stops the camera, and waits for that.
  ~CameraKeeper();
  CameraKeeper(const CameraKeeper&) = delete;
  CameraKeeper& operator=(const CameraKeeper&) = delete;

  // Any thread. Nothing of this waits for the camera.

  const CameraPlan& plan() const { return m_plan; }
  CameraFeed& feed() { return m_feed; }
  WideState& wide() { return m_wide; }
  CameraStatus status() const;

  /// Begins or ends a recording into a folder of its own.
  void record(bool on);
  /// Writes pictures and clouds into a folder of its own.
  void takeSnapshot();
  /// Begins the check of the calibration.
  void check();
  /// Makes a new camera with settings and calibration as their files are now. Keeps the running one, with a line in the
  /// log, if they cannot be used.
  void reload();
  /// Asks it to stop, without waiting.
  void requestStop();
  /// Whether it has stopped.
  bool hasStopped() const { return m_hasStopped; }

  /// When its thread last went through its loop.
  std::chrono::steady_clock::time_point lastTurn() const {
    return std::chrono::steady_clock::time_point(std::chrono::steady_clock::duration(m_lastTurn.load()));
  }

private:
  using Clock = std::chrono::steady_clock;
  class Session;

  void run();
  bool awaitDevice();
  void runCamera();
  /// Waits for a request or the time's end.
  void pause(Clock::duration time);
  void turn();
  void waitingFor(const std::string& reason);
  void change(const std::function<void(CameraStatus&)>& edit);
  bool areFilesUsable();

  const CameraPlan m_plan;
  const ServiceFolders m_folders;
  const std::function<void(const std::string&)> m_log;
  CameraFeed m_feed;
  StageTimes m_times;
  WideState m_wide;
  LiveTap m_tap;
  std::optional<RecordingRing> m_ring;
  cv::Size m_deliveredSize;  // if the device delivers another size than asked for; empty: as asked
  Clock::duration m_backOff{};
  bool m_wasOpen = false;

  mutable std::mutex m_mutex;  // guards what follows
  std::condition_variable m_changed;
  CameraStatus m_status;
  struct Requests {
    std::optional<bool> record;
    bool snapshot = false;
    bool check = false;
    bool reload = false;
    bool any() const { return record || snapshot || check || reload; }
  } m_requests;
  bool m_isStopping = false;

  std::atomic<std::int64_t> m_lastTurn{0};
  std::atomic<bool> m_hasStopped{false};
  std::thread m_thread;
};

}  // namespace stereo::app
