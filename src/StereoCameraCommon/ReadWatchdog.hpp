// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace stereo {

/// Who is inside a read, and for how long. A source that stalls may keep a read for ever, and the worker with it; this
/// is what lets a stop notice. The capture worker's reads of the device have one, the disparity worker's reads of
/// frames another.
///
/// A worker holds a share of its own: one that had to be abandoned inside its read outlives the camera.
class ReadWatchdog {
public:
  /// How long a stop lets a read go on before it is interrupted, and how long between two attempts at that.
  static constexpr std::chrono::milliseconds firstGrace{2000};
  static constexpr std::chrono::milliseconds laterGrace{100};
  /// As a number of attempts: a read that does not end keeps the stop.
  static constexpr int never = -1;

  /// Thrown out of `run` on a worker that was abandoned: the camera may be gone, the thread has to end.
  struct Abandoned {};

  /// A worker's life, from before its thread starts to the last thing that the thread does with the camera.
  void workerStarts();
  void workerEnds();

  /// The calling worker is inside a read as long as this lives.
  class ReadScope {
  public:
    explicit ReadScope(ReadWatchdog& reads);
    ~ReadScope();
    /// False once a read had to be interrupted.
    bool mayRead() const { return m_mayRead; }
    ReadScope(const ReadScope&) = delete;
    ReadScope& operator=(const ReadScope&) = delete;

  private:
    ReadWatchdog& m_reads;
    bool m_mayRead = true;
  };

  /// Runs one read; workers take turns. Leaves it out once one had to be interrupted: the ten reads of a warm-up would
  /// each wait as long as the first. Throws Abandoned where the stop has given this worker up.
  template <typename Read>
  void run(const Read& read) {
    queue();
    const std::lock_guard turn(m_deviceMutex);
    leaveQueue();
    {
      const ReadScope scope(*this);
      if (scope.mayRead()) {
        read();
      }
    }
    throwIfAbandoned();
  }

  /// Reads are made again: a device is said to be open.
  void resume();

  /// Waits until all workers have ended, and has `interrupt(attempt)` called, from 0 on, while a read outlives its
  /// grace. `interrupt` runs on the caller's thread, without a lock, while the read may still go on.
  ///
  /// False where a read goes on after `maxAttempts` of them: that worker, and others that wait for their turn, are
  /// abandoned. None of them touches anything but this object and its own stack any more.
  bool awaitWorkers(const std::function<void(int)>& interrupt, int maxAttempts = never);

  /// Keeps something that an abandoned read works on for as long as that read goes on.
  void keep(std::shared_ptr<void> something);

private:
  using Clock = std::chrono::steady_clock;

  void queue();
  void leaveQueue();
  void throwIfAbandoned();

  std::shared_ptr<void> m_kept;  // goes last: the read that worked on it has returned
  std::mutex m_deviceMutex;      // held through a read
  std::mutex m_mutex;            // a leaf: guards the rest
  std::condition_variable m_ended;
  int m_workers = 0;
  int m_queued = 0;  // workers that wait for their turn
  bool m_reading = false;
  bool m_interrupted = false;  // a read had to be interrupted
  bool m_abandoned = false;    // and did not end
  Clock::time_point m_readSince;
};

}  // namespace stereo
