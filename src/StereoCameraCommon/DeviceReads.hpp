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
  /// How long a stop lets a read go on before it is interrupted, and how long between two attempts at that.
  static constexpr std::chrono::milliseconds firstGrace{2000};
  static constexpr std::chrono::milliseconds laterGrace{100};

  /// A worker's life, from before its thread starts to the last thing that the thread does with the camera.
  void workerStarts();
  void workerEnds();

  /// Runs one read; workers take turns. Leaves it out once one had to be interrupted: the ten reads of a warm-up would
  /// each wait as long as the first.
  template <typename Read>
  void run(const Read& read) {
    const std::lock_guard turn(m_deviceMutex);
    const Inside inside(*this);
    if (inside.isWanted()) {
      read();
    }
  }

  /// Reads are made again: a device is said to be open.
  void resume();

  /// Waits until all workers have ended, and has `interrupt(attempt)` called, from 0 on, while a read outlives its
  /// grace. `interrupt` runs on the caller's thread, without a lock, while the read may still go on.
  void awaitWorkers(const std::function<void(int)>& interrupt);

private:
  using Clock = std::chrono::steady_clock;

  class Inside {
  public:
    explicit Inside(DeviceReads& reads);
    ~Inside();
    bool isWanted() const { return m_wanted; }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;

  private:
    DeviceReads& m_reads;
    bool m_wanted = true;
  };

  std::mutex m_deviceMutex;  // held through a read
  std::mutex m_mutex;        // a leaf: guards the rest
  std::condition_variable m_ended;
  int m_workers = 0;
  bool m_reading = false;
  bool m_givenUp = false;  // a read had to be interrupted
  Clock::time_point m_readSince;
};

}  // namespace stereo
