// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "apps/stereo-camera/bench/LatencyFigures.hpp"
#include "apps/stereo-camera/output/Json.hpp"

namespace stereo::app {

/// What a measured run has to tell.
struct BenchReport {
  std::vector<std::pair<std::string, std::string>> facts;  ///< machine, source, sizes: name and value
  double seconds = 0;                                      ///< that were measured
  std::uint64_t framesRead = 0;
  std::uint64_t framesLost = 0;
  std::string lostHow;  ///< how the lost ones were told: "counted", "estimated ..."
  std::uint64_t framesPublished = 0;
  double waiting = 0;  ///< part of the time that the capture worker waited for the device, 0 to 1
  std::vector<Figures> products;
  std::vector<std::pair<std::string, double>> processor;  ///< who, and percent of one core
  double peakMegabytes = 0;
  std::string note;  ///< what the reader has to know beside; may be empty
};

/// As a table of text.
std::string benchTable(const BenchReport& report);
/// As JSON. Names become keys, with '_' for all that is no letter or digit.
Json benchJson(const BenchReport& report);

}  // namespace stereo::app
