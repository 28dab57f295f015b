// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>

namespace stereo {

/// Who is inside a read of the device, and for how long. A device that stalls may keep a read for ever, and the worker
/// with it; this is what lets a stop notice.
class DeviceReads {
public:
  /// How long a stop lets a read go on that began before it, and how long one that begins afterwards.
  static constexpr std::chrono::milliseconds firstGrace{2000};
  static constexpr std::chrono::milliseconds laterGrace{100};

  /// A worker's life, from before its thread starts to the last thing that the thread does with the camera.
  void workerStarts();
  void workerEnds();

  /// Runs one read; workers take turns.
  template <typename Read>
  void run(const Read& read) {
    const std::lock_guard turn(m_deviceMutex);
    const Inside inside(*this);
    read();
  }

  /// Waits until all workers have ended, and has `interrupt(attempt)` called, from 0 on, whenever a read outlives its
  /// grace. `interrupt` runs on the caller's thread, without a lock, while the read may still go on.
  void awaitWorkers(const std::function<void(int)>& interrupt);

private:
  using Clock = std::chrono::steady_clock;

  class Inside {
  public:
    explicit Inside(DeviceReads& reads);
    ~Inside();
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

  private:
    DeviceReads& m_reads;
  };

  std::mutex m_deviceMutex;  // held through a read
  std::mutex m_mutex;        // a leaf: guards the rest
  std::condition_variable m_ended;
  int m_workers = 0;
  bool m_reading = false;
  Clock::time_point m_readSince;
};

}  // namespace stereo
