// SPDX-License-Identifier: Apache-2.0
// What is compared: units of work, each done by several implementations.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace stereo::compare {

/// Target ratios of times; 0 means no target.
struct Targets {
  double scalar = 0;  ///< Plain form over library, minimum.
  double peer = 0;    ///< Peer over library, minimum.
  double floor = 0;   ///< Library over floor, maximum.
};

/// A unit of the library's work, and other implementations of it. Each call does it once, on inputs prepared in
/// advance. Calls that a unit does not have are empty.
struct Unit {
  std::string name;
  std::function<void()> scalar;   ///< The plain form.
  std::function<void()> library;  ///< Never empty.
  std::function<void()> peer;     ///< Another implementation of the same, or of something similar.
  std::function<void()> floor;    ///< Lower bound: the indispensable part, such as plain copies.
  std::string peerName;
  std::string floorName;
  /// Runs plain form and library and compares the results bit for bit: empty if they agree, otherwise what differs.
  std::function<std::string()> difference;
  Targets targets;
};

void addMapUnits(std::vector<Unit>& units);
void addMaskUnits(std::vector<Unit>& units);
void addDepthUnits(std::vector<Unit>& units);
void addCloudUnits(std::vector<Unit>& units);
void addFrameUnits(std::vector<Unit>& units);
void addWideUnits(std::vector<Unit>& units);

}  // namespace stereo::compare
