// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/DeliberateLeaks.hpp"

#include <fcntl.h>
#include <sys/shm.h>
#include <unistd.h>

namespace stereo::soak {

namespace {

constexpr std::size_t lostBytes = std::size_t{4} << 20U;

}  // namespace

void DeliberateLeaks::lose() {
  if (m_breaks.memory) {
    m_memory.emplace_back(lostBytes, 'x');
  }
  if (m_breaks.descriptor) {
    m_descriptors.push_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  }
  if (m_breaks.segment) {
    m_segments.push_back(shmget(IPC_PRIVATE, 4096, IPC_CREAT | 0600));
  }
  if (m_breaks.thread) {
    m_threads.emplace_back([this] {
      std::unique_lock lock(m_mutex);
      m_ending.wait(lock, [this] { return m_over; });
    });
  }
}

DeliberateLeaks::~DeliberateLeaks() {
  {
    const std::lock_guard lock(m_mutex);
    m_over = true;
  }
  m_ending.notify_all();
  for (std::thread& thread : m_threads) {
    thread.join();
  }
  for (const int descriptor : m_descriptors) {
    close(descriptor);
  }
  for (const int segment : m_segments) {
    shmctl(segment, IPC_RMID, nullptr);
  }
}

}  // namespace stereo::soak
