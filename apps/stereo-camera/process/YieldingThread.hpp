// SPDX-License-Identifier: Apache-2.0
// A thread that gives way to all others.
#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <stop_token>
#include <thread>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

namespace stereo::app {

/// Does long work on a thread that gets a processor only where nobody else wants it much (nice 10). For work without
/// locks that others wait for: they would have to wait for a processor, too.
class YieldingThread {
public:
  YieldingThread() : m_thread([this](const std::stop_token& stop) { loop(stop); }) {}

  /// Returns, or throws, what the work does. One caller at a time.
  void run(std::function<void()> work) {
    std::unique_lock lock(m_mutex);
    m_work = std::move(work);
    m_changed.notify_all();
    m_changed.wait(lock, [this] { return !m_work; });
    if (const std::exception_ptr failure = std::exchange(m_failure, nullptr)) {
      std::rethrow_exception(failure);
    }
  }

private:
  void loop(const std::stop_token& stop) {
    // The system's interface: a process's priority, asked for a thread, is that thread's.
    static_cast<void>(setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 10));
    std::unique_lock lock(m_mutex);
    while (m_changed.wait(lock, stop, [this] { return m_work != nullptr; })) {
      const std::function<void()> work = m_work;
      lock.unlock();
      try {
        work();
      } catch (...) {
        m_failure = std::current_exception();
      }
      lock.lock();
      m_work = nullptr;
      m_changed.notify_all();
    }
  }

  std::mutex m_mutex;
  std::condition_variable_any m_changed;
  std::function<void()> m_work;  // null: none
  std::exception_ptr m_failure;
  std::jthread m_thread;  // last, so that it ends first
};

}  // namespace stereo::app
