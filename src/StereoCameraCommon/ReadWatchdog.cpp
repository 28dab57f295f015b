// SPDX-License-Identifier: Apache-2.0
// Lets a stop notice, and end, a read that does not return.
#include "src/StereoCameraCommon/ReadWatchdog.hpp"

#include <algorithm>
#include <utility>

namespace stereo {

ReadWatchdog::ReadScope::ReadScope(ReadWatchdog& reads) : m_reads(reads) {
  const std::lock_guard lock(m_reads.m_mutex);
  m_mayRead = !m_reads.m_interrupted;
  m_reads.m_reading = true;
  m_reads.m_readSince = Clock::now();
}

ReadWatchdog::ReadScope::~ReadScope() {
  const std::lock_guard lock(m_reads.m_mutex);
  m_reads.m_reading = false;
}

void ReadWatchdog::workerStarts() {
  const std::lock_guard lock(m_mutex);
  ++m_workers;
}

void ReadWatchdog::workerEnds() {
  // Notify under the lock: the waiting thread may destroy this object as soon as it gets the lock.
  const std::lock_guard lock(m_mutex);
  --m_workers;
  m_ended.notify_all();
}

void ReadWatchdog::resume() {
  const std::lock_guard lock(m_mutex);
  m_interrupted = false;
}

bool ReadWatchdog::awaitWorkers(const std::function<void(int)>& interrupt, int maxAttempts) {
  std::unique_lock lock(m_mutex);
  const Clock::time_point asked = Clock::now();
  Clock::time_point lastAttempt;
  int attempts = 0;
  while (m_workers > 0) {
    const Clock::time_point now = Clock::now();
    const Clock::time_point due = !m_reading     ? now + laterGrace
                                  : attempts > 0 ? lastAttempt + laterGrace
                                                 : std::max(asked, m_readSince) + firstGrace;
    if (now < due) {
      m_ended.wait_until(lock, due);
      continue;
    }
    if (attempts == maxAttempts) {
      if (m_queued == m_workers - 1) {
        m_abandoned = true;
        return false;
      }
      lastAttempt = now;  // another worker is busy outside a read and will soon wait for its turn
      continue;
    }
    m_interrupted = true;
    lock.unlock();
    interrupt(attempts++);
    lock.lock();
    lastAttempt = Clock::now();
  }
  return true;
}

void ReadWatchdog::keep(std::shared_ptr<void> something) {
  const std::lock_guard lock(m_mutex);
  m_kept = std::move(something);
}

void ReadWatchdog::queue() {
  const std::lock_guard lock(m_mutex);
  ++m_queued;
}

void ReadWatchdog::leaveQueue() {
  const std::lock_guard lock(m_mutex);
  --m_queued;
  if (m_abandoned) {
    throw Abandoned();
  }
}

void ReadWatchdog::throwIfAbandoned() {
  const std::lock_guard lock(m_mutex);
  if (m_abandoned) {
    throw Abandoned();
  }
}

}  // namespace stereo
