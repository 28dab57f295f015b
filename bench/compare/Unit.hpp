// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace stereo::compare {

/// Ratios of times that the library is meant to reach; 0 where nothing is asked.
struct Wanted {
  double scalar = 0;  ///< Plain form over library, at least.
  double peer = 0;    ///< Peer over library, at least.
  double floor = 0;   ///< Library over floor, at most.
};

/// One thing that the library does, and others who do it. Each call does it once, on inputs made beforehand; those that
/// a unit has no use for are empty.
struct Unit {
  std::string name;
  std::function<void()> scalar;   ///< The plain form.
  std::function<void()> library;  ///< Never empty.
  std::function<void()> peer;     ///< Another implementation of the same or of something close to it.
  std::function<void()> floor;    ///< What cannot be done without, such as the plain copies.
  std::string peerName;
  std::string floorName;
  /// Does it by plain form and library and compares to the bit: empty if they agree, otherwise what differs.
  std::function<std::string()> difference;
  Wanted wanted;
};

void addMapUnits(std::vector<Unit>& units);
void addMaskUnits(std::vector<Unit>& units);
void addDepthUnits(std::vector<Unit>& units);
void addCloudUnits(std::vector<Unit>& units);
void addFrameUnits(std::vector<Unit>& units);

}  // namespace stereo::compare
