// SPDX-License-Identifier: Apache-2.0
// Drops refined disparities that are not to be trusted, and says why.
#pragma once

#include <cstdint>
#include <vector>

#include "src/depth/Refine.hpp"

namespace stereo::depth {

/// How far a disparity must be from a doubt to be kept.
struct FilterLimits {
  float correlation = 0.6F;
  float relativeSigma = 0.1F;  ///< largest sigma / disparity
  float step = 1.5F;           ///< columns by which something nearer must be nearer to count as another thing
  int nearby = 2;              ///< pixels around something nearer that are dropped
  int speck = 60;              ///< pixels: smaller connected surfaces are dropped
};

/// Marks in `hidden` (0 or 255, by row) the pixels of rows [from, to) that something nearer hides from the right eye:
/// it projects to the same column there.
void findHidden(const Plane& disparity, int width, int from, int to, float step, std::uint8_t* hidden);

/// Marks in `beside` the pixels of rows [from, to) that have something nearer within `nearby` pixels. 
void findBeside(const Plane& disparity, int width, int from, int to, float step, int nearby, std::uint8_t* beside);

/// Finds connected surfaces: pixels next to each other whose disparities differ by at most `step`.
class SpeckFinder {
public:
  SpeckFinder(int width, int height);

  /// Marks in `specks` (0 or 255) the pixels of surfaces smaller than `least`; pixels without disparity are not marked.
  void find(const Plane& disparity, float step, int least, std::uint8_t* specks);

private:
  int root(int label);

  int m_width;
  int m_height;
  std::vector<std::int32_t> m_labels;
  std::vector<std::int32_t> m_parents;
  std::vector<std::int32_t> m_sizes;
};

}  // namespace stereo::depth
