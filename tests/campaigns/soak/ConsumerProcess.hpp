// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <random>
#include <string>
#include <thread>

#include <sys/types.h>

#include "tests/campaigns/soak/Failures.hpp"
#include "tests/campaigns/soak/SharedCounters.hpp"

namespace stereo::soak {

/// What is wrong with how the process that takes images ended: nothing if it was killed, as it has to be, and had no
/// last words.
std::string faultOfEnd(int waitStatus, bool wasKilled, const std::string& lastWords);

/// Keeps a process that takes images from the segment, kills it at random times and starts the next.
class ConsumerProcess {
public:
  /// What is referred to has to outlive this. `seed` draws the times.
  ConsumerProcess(const SharedCounters& shared, int key, std::uint32_t seed, Failures& failures);
  /// Ends the process.
  ~ConsumerProcess();
  ConsumerProcess(const ConsumerProcess&) = delete;
  ConsumerProcess& operator=(const ConsumerProcess&) = delete;

  std::uint64_t taken() const { return m_shared.counters().taken; }
  std::uint64_t restarts() const { return m_restarts; }

private:
  void run();
  pid_t start() const;
  /// Waits until the stop is asked for, the process has ended by itself, or its time has come.
  void awaitEnd(pid_t process);
  bool ended(pid_t process);
  void noteEnd(int waitStatus, bool wasKilled);

  const SharedCounters& m_shared;
  const int m_key;
  std::mt19937 m_random;  // the thread's
  Failures& m_failures;
  std::atomic<std::uint64_t> m_restarts{0};
  bool m_reaped = false;  // the thread's: the process ended by itself and is gone
  std::mutex m_mutex;     // guards m_over
  std::condition_variable m_ending;
  bool m_over = false;
  std::thread m_thread;
};

}  // namespace stereo::soak
