// SPDX-License-Identifier: Apache-2.0
#include "src/StereoCameraCommon/DeviceReads.hpp"

#include <algorithm>
#include <utility>

namespace stereo {

DeviceReads::Inside::Inside(DeviceReads& reads) : m_reads(reads) {
  const std::lock_guard lock(m_reads.m_mutex);
  m_wanted = !m_reads.m_givenUp;
  m_reads.m_reading = true;
  m_reads.m_readSince = Clock::now();
}

DeviceReads::Inside::~Inside() {
  const std::lock_guard lock(m_reads.m_mutex);
  m_reads.m_reading = false;
}

void DeviceReads::workerStarts() {
  const std::lock_guard lock(m_mutex);
  ++m_workers;
}

void DeviceReads::workerEnds() {
  // Notified under the lock: whoever waits may destroy this as soon as it has the lock.
  const std::lock_guard lock(m_mutex);
  --m_workers;
  m_ended.notify_all();
}

void DeviceReads::resume() {
  const std::lock_guard lock(m_mutex);
  m_givenUp = false;
}

bool DeviceReads::awaitWorkers(const std::function<void(int)>& interrupt, int mostAttempts) {
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
    if (attempts == mostAttempts) {
      if (m_queued == m_workers - 1) {
        m_abandoned = true;
        return false;
      }
      lastAttempt = now;  // another worker is busy elsewhere, and soon waits for its turn
      continue;
    }
    m_givenUp = true;
    lock.unlock();
    interrupt(attempts++);
    lock.lock();
    lastAttempt = Clock::now();
  }
  return true;
}

void DeviceReads::keep(std::shared_ptr<void> something) {
  const std::lock_guard lock(m_mutex);
  m_kept = std::move(something);
}

void DeviceReads::queue() {
  const std::lock_guard lock(m_mutex);
  ++m_queued;
}

void DeviceReads::leaveQueue() {
  const std::lock_guard lock(m_mutex);
  --m_queued;
  if (m_abandoned) {
    throw Abandoned();
  }
}

void DeviceReads::throwIfAbandoned() {
  const std::lock_guard lock(m_mutex);
  if (m_abandoned) {
    throw Abandoned();
  }
}

}  // namespace stereo
