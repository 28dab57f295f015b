// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>

#include <opencv2/core/utility.hpp>

namespace stereo::core {

namespace detail {

// One chunk of rows on whatever thread. The counter tells the language what OpenCV's threads see to anyway: what was
// written before the call is seen by the work, and what the work writes is seen after it. (OpenCV's own synchronization
// is invisible to ThreadSanitizer.)
template <typename Work>
[[gnu::noinline]] void runChunk(const Work& work, std::atomic<int>& passed, int from, int to) {
  passed.load(std::memory_order_acquire);
  work(from, to);
  passed.fetch_add(1, std::memory_order_release);
}

template <typename Work>
class Chunks final : public cv::ParallelLoopBody {
public:
  Chunks(const Work& work, std::atomic<int>& passed) : m_work(work), m_passed(passed) {}
  // Reads its own members ahead of the counter, hence the exception.
  __attribute__((no_sanitize("thread"))) void operator()(const cv::Range& range) const override {
    runChunk(m_work, m_passed, range.start, range.end);
  }

private:
  const Work& m_work;
  std::atomic<int>& m_passed;
};

}  // namespace detail

/// Pixels that are worth another thread's attention where each takes some nanoseconds, and where it takes less than
/// one.
constexpr std::size_t kGrain = 16384;
constexpr std::size_t kCoarseGrain = 8 * kGrain;

/// Calls `work(from, to)` for chunks of the rows [0, rows) that together cover them once, on OpenCV's worker threads
/// where the image is worth it: a chunk has at least `grain` pixels, there are no more than a few a thread, and an
/// image below two of them stays on the calling thread. `work` may be called by several threads at once.
template <typename Work>
void forRows(int rows, int cols, const Work& work, std::size_t grain = kGrain) {
  if (rows <= 0) {
    return;
  }
  constexpr std::size_t chunksPerThread = 4;  // so that a thread that is late does not keep the others waiting
  const std::size_t pixels = static_cast<std::size_t>(rows) * static_cast<std::size_t>(std::max(cols, 0));
  const std::size_t threads = static_cast<std::size_t>(std::max(cv::getNumThreads(), 1));
  const std::size_t chunks = std::min({pixels / grain, static_cast<std::size_t>(rows), chunksPerThread * threads});
  if (threads < 2 || chunks < 2) {
    work(0, rows);
    return;
  }
  std::atomic<int> passed{0};
  passed.store(0, std::memory_order_release);
  cv::parallel_for_(cv::Range(0, rows), detail::Chunks<Work>(work, passed), static_cast<double>(chunks));
  passed.load(std::memory_order_acquire);
}

}  // namespace stereo::core
