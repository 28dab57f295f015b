// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <thread>

namespace stereo::test {

/// How long a test waits for something that is bound to happen. Generous: it only passes on failure.
constexpr std::chrono::seconds deadline{60};

/// Looks at `condition` until it holds or the deadline has passed; returns whether it holds.
template <typename Condition>
bool await(Condition condition, std::chrono::milliseconds limit = deadline) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) {
      return condition();
    }
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

/// The clock of the timestamps, since 1970.
inline std::chrono::microseconds timeOfDay() {
  return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch());
}

}  // namespace stereo::test
