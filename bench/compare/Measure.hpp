// SPDX-License-Identifier: Apache-2.0
// Times the calls of a unit in turns.
#pragma once

#include <cstddef>
#include <string>

#include "bench/compare/Unit.hpp"

namespace stereo::compare {

/// Times of one of the calls of a unit.
struct Times {
  std::size_t calls = 0;   ///< 0: the unit has no such call.
  double median = 0;       ///< Wall clock, milliseconds.
  double p90 = 0;          ///< 90th percentile, milliseconds.
  double cpu = 0;          ///< Mean processor time of all threads, milliseconds.
  double allocations = 0;  ///< Mean per call, on all threads.
};

struct Result {
  std::string name;
  std::string peerName;
  std::string floorName;
  std::string difference;  ///< Between library and plain form; empty if there is none.
  Times scalar;
  Times library;
  Times peer;
  Times floor;
  Targets targets;

  /// Ratios of medians, 0 if one of the two was not measured.
  double scalarOverLibrary() const;
  double peerOverLibrary() const;
  double libraryOverFloor() const;
  /// Whether every target was reached.
  bool reached() const;
};

/// Compares the results, warms up, then times the unit's calls in turns, so that changes in the computer's speed affect
/// all of them: whole rounds until `seconds` have passed, but at least `minRounds`.
Result measure(const Unit& unit, double seconds, std::size_t minRounds);

}  // namespace stereo::compare
