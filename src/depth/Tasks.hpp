// SPDX-License-Identifier: Apache-2.0
// Shares numbered tasks among OpenCV's threads.
#pragma once

#include <algorithm>
#include <atomic>

#include <opencv2/core/utility.hpp>

namespace stereo::depth {

namespace detail {

// The counters state in terms of the language what OpenCV's threads guarantee anyway: see core/Rows.hpp.
struct TaskCounters {
  std::atomic<int> next{0};
  std::atomic<int> done{0};
};

template <typename Work>
[[gnu::noinline]] void runTasks(const Work& work, TaskCounters& counters, int tasks) {
  // Before anything is written: ThreadSanitizer lets only a load pass what the caller wrote.
  counters.done.load(std::memory_order_acquire);
  for (int task = 0; (task = counters.next.fetch_add(1, std::memory_order_acquire)) < tasks;) {
    work(task);
  }
  counters.done.fetch_add(1, std::memory_order_release);
}

template <typename Work>
class TaskLoop final : public cv::ParallelLoopBody {
public:
  TaskLoop(const Work& work, TaskCounters& counters, int tasks) : m_work(work), m_counters(counters), m_tasks(tasks) {}
  __attribute__((no_sanitize("thread"))) void operator()(const cv::Range&) const override {
    runTasks(m_work, m_counters, m_tasks);
  }

private:
  const Work& m_work;
  TaskCounters& m_counters;
  int m_tasks;
};

}  // namespace detail

/// Calls `work(task)` once for each task in [0, tasks), on at most `threads` of OpenCV's threads and in any order.
/// What a task computes must not depend on the thread or the order, so that results don't.
template <typename Work>
void forTasks(int tasks, int threads, const Work& work) {
  const int workers = std::min(tasks, threads);
  if (workers < 2) {
    for (int task = 0; task < tasks; ++task) {
      work(task);
    }
    return;
  }
  detail::TaskCounters counters;
  counters.done.store(0, std::memory_order_release);
  cv::parallel_for_(cv::Range(0, workers), detail::TaskLoop<Work>(work, counters, tasks), workers);
  counters.done.load(std::memory_order_acquire);
}

/// The same for strips of at most `rows` rows: calls `work(from, to)`.
template <typename Work>
void forStrips(int height, int rows, int threads, const Work& work) {
  forTasks((height + rows - 1) / rows, threads,
           [&](int strip) { work(strip * rows, std::min(height, (strip + 1) * rows)); });
}

}  // namespace stereo::depth
