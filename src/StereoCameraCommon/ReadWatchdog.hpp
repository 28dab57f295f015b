// SPDX-License-Identifier: Apache-2.0
// Lets a stop notice, and end, a read that does not return.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

namespace stereo {

/// Knows which workers run and how long one of them has been inside a read. A source that stalls may block a read, and
/// with it the worker, forever. One watchdog guards the capture worker's reads of the device, another the disparity
/// worker's reads of frames.
///
/// Capture workers share ownership of theirs: a worker that was abandoned inside its read outlives the camera.
class ReadWatchdog {
public:
  /// How long a stop lets a read go on before it interrupts it, and the time between two attempts.
  static constexpr std::chrono::milliseconds firstGrace{2000};
  static constexpr std::chrono::milliseconds laterGrace{100};
  /// As a number of attempts: a read that does not end blocks the stop.
  static constexpr int never = -1;

  /// Thrown from `run` on a worker that was abandoned: the camera may no longer exist, and the thread has to end.
  struct Abandoned {};

  /// Frame a worker's life, from before its thread starts to the last thing that the thread does with the camera.
  void workerStarts();
  void workerEnds();

  /// Marks the calling worker as inside a read.
  class ReadScope {
  public:
    explicit ReadScope(ReadWatchdog& reads);
    ~ReadScope();
    /// False once a read has been interrupted.
    bool mayRead() const { return m_mayRead; }
    ReadScope(const ReadScope&) = delete;
    ReadScope& operator=(const ReadScope&) = delete;

  private:
    ReadWatchdog& m_reads;
    bool m_mayRead = true;
  };

  /// Runs one read; workers take turns. Skips it once a read has been interrupted: each of the ten reads of a warm-up
  /// would wait as long as the first. Throws Abandoned if the stop has abandoned this worker.
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

  /// Allows reads again after an interruption: the device is said to be open.
  void resume();

  /// Waits until all workers have ended. While a read exceeds its grace period, calls `interrupt(attempt)`, counting
  /// from 0, on the caller's thread, without a lock, while the read may still go on.
  ///
  /// False if a read goes on after `maxAttempts` attempts: that worker, and others that wait for their turn, are
  /// abandoned. They touch nothing but this object and their own stacks from then on.
  bool awaitWorkers(const std::function<void(int)>& interrupt, int maxAttempts = never);

  /// Keeps an object that an abandoned read works on alive until that read returns.
  void keep(std::shared_ptr<void> something);

private:
  using Clock = std::chrono::steady_clock;

  void queue();
  void leaveQueue();
  void throwIfAbandoned();

  std::shared_ptr<void> m_kept;  // destroyed last, after the read that worked on it has returned
  std::mutex m_deviceMutex;      // held through a read
  std::mutex m_mutex;            // a leaf: guards the rest
  std::condition_variable m_ended;
  int m_workers = 0;
  int m_queued = 0;  // workers that wait for their turn
  bool m_reading = false;
  bool m_interrupted = false;  // a read has been interrupted
  bool m_abandoned = false;    // and did not return
  Clock::time_point m_readSince;
};

}  // namespace stereo
