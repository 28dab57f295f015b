// SPDX-License-Identifier: Apache-2.0
// Splits the rows of an image among OpenCV's threads.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>

#include <opencv2/core/utility.hpp>

namespace stereo::core {

namespace detail {

// Runs one chunk of rows on any thread. The counter states in terms of the language what OpenCV's threads guarantee
// anyway: the work sees what was written before the call, and the caller sees what the work wrote. (OpenCV's own
// synchronization is invisible to ThreadSanitizer.)
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
  // Reads its members before the counter, hence the attribute.
  __attribute__((no_sanitize("thread"))) void operator()(const cv::Range& range) const override {
    runChunk(m_work, m_passed, range.start, range.end);
  }

private:
  const Work& m_work;
  std::atomic<int>& m_passed;
};

}  // namespace detail

/// Minimum number of pixels for another thread: if each takes some nanoseconds, and if each takes less than one.
constexpr std::size_t fineGrain = 16384;
constexpr std::size_t coarseGrain = 8 * fineGrain;

/// Calls `work(from, to)` for chunks that cover the rows [0, rows) once, on OpenCV's worker threads if the image is
/// large enough: a chunk has at least `grain` pixels, each thread gets a few chunks, and an image of less than two
/// chunks stays on the calling thread. Several threads may call `work` at once.
template <typename Work>
void forRows(int rows, int cols, const Work& work, std::size_t grain = fineGrain) {
  if (rows <= 0) {
    return;
  }
  constexpr std::size_t chunksPerThread = 4;  // so that the others need not wait for a late thread
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
