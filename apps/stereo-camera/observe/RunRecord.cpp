// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/observe/RunRecord.hpp"

#include <chrono>

#include <time.h>

namespace stereo::app {

std::int64_t systemMicroseconds() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

std::int64_t threadMicroseconds() {
  timespec used{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  return std::int64_t{used.tv_sec} * 1'000'000 + used.tv_nsec / 1000;
}

void RunRecord::published(std::int64_t timestamp) {
  if (timestamp == m_newest) {
    return;
  }
  m_newest = timestamp;
  // A full list does not hold the frame that this belongs to.
  if (frames.count() > 0 && frames.count() == frames.kept().size()) {
    frames.kept().back().published = timestamp;
  }
}

}  // namespace stereo::app
