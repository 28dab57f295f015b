// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "tests/campaigns/soak/CheckingReaders.hpp"
#include "tests/campaigns/soak/Resources.hpp"

namespace stereo::soak {

/// Figures of a run so far.
struct Totals {
  double seconds = 0;
  std::uint64_t frames = 0;  ///< published
  ReadCounts reads{};
  std::uint64_t checks = 0;
  std::uint64_t failures = 0;
  std::uint64_t images = 0;  ///< that the consumer took
  std::uint64_t restarts = 0;
  std::uint64_t lives = 0;
  std::uint64_t disparityStarts = 0;
  std::uint64_t streams = 0;
  std::uint64_t packets = 0;
  Resources resources;
};

/// Tells of the run on what was standard output when it was made; from then on, what the library says on standard
/// output goes to a file.
class SoakReport {
public:
  /// Throws std::runtime_error if the file cannot be written.
  explicit SoakReport(const std::string& libraryOutput);
  ~SoakReport();
  SoakReport(const SoakReport&) = delete;
  SoakReport& operator=(const SoakReport&) = delete;

  void line(const std::string& text);
  void figures(const Totals& totals);

private:
  std::FILE* m_output;
};

/// The figures, what was held after each life, and the verdict as a JSON document.
std::string json(const Totals& totals, const std::vector<Resources>& atRest, bool good,
                 const std::vector<std::string>& reasons);

}  // namespace stereo::soak
