// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/campaigns/soak/Checks.hpp"
#include "tests/campaigns/soak/Failures.hpp"
#include "tests/campaigns/soak/SoakCamera.hpp"

namespace stereo::soak {

/// Everything that is read, each by a thread of its own.
enum class Product {
  frame,         ///< both raw eyes side by side
  eyes,          ///< the raw eyes
  pair,          ///< perspective views
  pairAndView,   ///< what depth is computed from, without a timestamp
  stampedPair,   ///< what depth is computed from
  coloredDepth,  ///< false colors
  disparity,     ///< the latest disparity, and meters from it
  plainCloud,
  coloredCloud,
};
inline constexpr std::array<const char*, 9> productNames = {"frame",         "eyes",         "pair",
                                                            "pair and view", "stamped pair", "colored depth",
                                                            "disparity",     "plain cloud",  "colored cloud"};

using ReadCounts = std::array<std::uint64_t, productNames.size()>;

/// Reads one camera for a while and checks every result.
class CheckingReaders {
public:
  /// The threads begin to read at once. All that is referred to has to outlive this.
  CheckingReaders(SoakCamera& camera, const Checks& checks, Failures& failures);
  ~CheckingReaders();
  CheckingReaders(const CheckingReaders&) = delete;
  CheckingReaders& operator=(const CheckingReaders&) = delete;

  /// Whether the disparity worker runs: reads of colored depth fail at once without, so they pause meanwhile.
  void setComputing(bool computing);
  /// No read begins from now on. Those that wait are ended by stopping the camera.
  void end();
  /// Waits for the threads.
  void join();

  ReadCounts counts() const;

private:
  /// Reads and checks once; nothing if there was nothing to read.
  class Reader;

  void run(Product product);

  SoakCamera& m_camera;
  const Checks& m_checks;
  Failures& m_failures;
  std::atomic<bool> m_over{false};
  std::atomic<bool> m_computing{false};
  std::array<std::atomic<std::uint64_t>, productNames.size()> m_counts{};
  std::vector<std::thread> m_threads;
};

}  // namespace stereo::soak
