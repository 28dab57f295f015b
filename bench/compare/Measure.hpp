// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

#include "bench/compare/Unit.hpp"

namespace stereo::compare {

/// Times of one of a unit's calls.
struct Times {
  std::size_t calls = 0;   ///< 0: the unit has no such call.
  double median = 0;       ///< Wall clock, milliseconds.
  double p90 = 0;          ///< Nine calls in ten took no longer; milliseconds.
  double cpu = 0;          ///< Mean processor time of all threads, milliseconds.
  double allocations = 0;  ///< Mean, a call, on all threads.
};

struct Result {
  std::string name;
  std::string peerName;
  std::string floorName;
  std::string difference;  ///< Of library and plain form; empty if there is none.
  Times scalar;
  Times library;
  Times peer;
  Times floor;
  Wanted wanted;

  /// Ratios of medians, 0 where one of the two was not measured.
  double scalarOverLibrary() const;
  double peerOverLibrary() const;
  double libraryOverFloor() const;
  /// Whether every ratio that is asked for was reached.
  bool reached() const;
};

/// Compares, warms up, then measures the unit's calls in turns, so that a machine that slows down or speeds up does so
/// for all of them: whole rounds until `seconds` have passed, but at least `minRounds`.
Result measure(const Unit& unit, double seconds, std::size_t minRounds);

}  // namespace stereo::compare
