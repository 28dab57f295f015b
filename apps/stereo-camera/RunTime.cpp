// SPDX-License-Identifier: Apache-2.0
#include "RunTime.hpp"

#include <atomic>

namespace stereo::app {

namespace {

constexpr int endingSignals[] = {SIGINT, SIGTERM};

// Set by the handler, which may run on any thread of the process: OpenCV and GStreamer have theirs.
std::atomic<bool> interrupted{false};
static_assert(std::atomic<bool>::is_always_lock_free, "a handler must not wait for a lock");

void interrupt(int) { interrupted.store(true, std::memory_order_relaxed); }

}  // namespace

RunTime::RunTime(double seconds) : m_seconds(seconds) {
  interrupted = false;
  struct sigaction action {};
  action.sa_handler = interrupt;
  // Reset: the second signal ends the process. Restart: no library's system call fails because of the first.
  action.sa_flags = static_cast<int>(SA_RESETHAND | SA_RESTART);
  sigemptyset(&action.sa_mask);
  for (int i = 0; i < 2; ++i) {
    sigaction(endingSignals[i], &action, &m_former[i]);
  }
}

RunTime::~RunTime() {
  for (int i = 0; i < 2; ++i) {
    sigaction(endingSignals[i], &m_former[i], nullptr);
  }
}

void RunTime::begin() {
  if (!m_begun) {
    m_begun = true;
    m_start = Clock::now();
  }
}

bool RunTime::over() const {
  return interrupted.load(std::memory_order_relaxed) || (m_seconds > 0 && m_begun && elapsed() >= m_seconds);
}

double RunTime::elapsed() const {
  return m_begun ? std::chrono::duration<double>(Clock::now() - m_start).count() : 0.0;
}

}  // namespace stereo::app
