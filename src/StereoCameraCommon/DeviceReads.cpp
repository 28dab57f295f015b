// SPDX-License-Identifier: Apache-2.0
#include "StereoCameraCommon/DeviceReads.hpp"

#include <algorithm>

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
  // Notified under the lock: whoever waits may destroy this as soon as he has it.
  const std::lock_guard lock(m_mutex);
  --m_workers;
  m_ended.notify_all();
}

void DeviceReads::resume() {
  const std::lock_guard lock(m_mutex);
  m_givenUp = false;
}

void DeviceReads::awaitWorkers(const std::function<void(int)>& interrupt) {
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
    m_givenUp = true;
    lock.unlock();
    interrupt(attempts++);
    lock.lock();
    lastAttempt = Clock::now();
  }
}

}  // namespace stereo
