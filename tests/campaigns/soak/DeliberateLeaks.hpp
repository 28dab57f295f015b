// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/campaigns/soak/Plan.hpp"

namespace stereo::soak {

/// Loses resources on purpose, for a run that has to fail.
class DeliberateLeaks {
public:
  explicit DeliberateLeaks(const Breaks& breaks) : m_breaks(breaks) {}
  /// Gives everything back after all.
  ~DeliberateLeaks();
  DeliberateLeaks(const DeliberateLeaks&) = delete;
  DeliberateLeaks& operator=(const DeliberateLeaks&) = delete;

  void lose();

private:
  const Breaks m_breaks;
  std::vector<std::vector<char>> m_memory;
  std::vector<int> m_descriptors;
  std::vector<int> m_segments;
  std::vector<std::thread> m_threads;
  std::mutex m_mutex;  // guards m_over
  std::condition_variable m_ending;
  bool m_over = false;
};

}  // namespace stereo::soak
