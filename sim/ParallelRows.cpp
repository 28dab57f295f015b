// SPDX-License-Identifier: Apache-2.0
#include "sim/ParallelRows.hpp"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include <opencv2/core/utility.hpp>

namespace stereo::sim {

namespace {

// Rows taken at a time: few, to balance uneven work.
constexpr int rowsPerChunk = 8;

}  // namespace

void forEachRow(int rows, const std::function<void(int)>& work) {
  std::atomic<int> nextRow{0};
  std::mutex mutex;  // guards failure
  std::exception_ptr failure;
  const auto takeRows = [&] {
    try {
      for (int start = nextRow.fetch_add(rowsPerChunk); start < rows; start = nextRow.fetch_add(rowsPerChunk)) {
        for (int row = start; row < std::min(start + rowsPerChunk, rows); ++row) {
          work(row);
        }
      }
    } catch (...) {
      nextRow = rows;
      const std::lock_guard lock(mutex);
      if (!failure) {
        failure = std::current_exception();
      }
    }
  };
  {
    const int helpers = std::clamp(cv::getNumThreads(), 1, std::max(1, rows / rowsPerChunk)) - 1;
    std::vector<std::jthread> threads;
    threads.reserve(static_cast<std::size_t>(helpers));
    for (int i = 0; i < helpers; ++i) {
      threads.emplace_back(takeRows);
    }
    takeRows();
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
}

}  // namespace stereo::sim
