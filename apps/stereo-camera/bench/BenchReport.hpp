// SPDX-License-Identifier: Apache-2.0
// The results of bench, as text and JSON.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "apps/stereo-camera/bench/LatencyFigures.hpp"
#include "apps/stereo-camera/output/Json.hpp"

namespace stereo::app {

/// The results of a measured run.
struct BenchReport {
  std::vector<std::pair<std::string, std::string>> facts;  ///< machine, source, sizes: name and value
  double seconds = 0;                                      ///< measured
  std::uint64_t framesRead = 0;
  std::uint64_t framesLost = 0;
  std::string lostHow;  ///< how losses were found: "counted ...", "estimated ..."
  std::uint64_t framesPublished = 0;
  double waiting = 0;  ///< share of the time that the capture worker waited for the device, 0 to 1
  std::vector<Figures> products;
  std::vector<std::pair<std::string, double>> processor;  ///< name, and percent of one core
  double peakMegabytes = 0;
  std::string note;  ///< what else to know; may be empty
};

/// As a text table.
std::string benchTable(const BenchReport& report);
/// As JSON. Names become keys, with '_' for everything but letters and digits.
Json benchJson(const BenchReport& report);

}  // namespace stereo::app
