// SPDX-License-Identifier: Apache-2.0
// Drops refined disparities that are not to be trusted, and says why.
#pragma once

#include <cstdint>
#include <vector>

#include "src/depth/Refine.hpp"

namespace stereo::depth {

/// Marks in `hidden` (0 or 255, by row) the pixels of rows [from, to) that something nearer hides from the right eye:
/// it projects to the same column there.
void findHidden(const Plane& disparity, int width, int from, int to, float step, std::uint8_t* hidden);

/// What counts as the edge of something nearer: disparities of at least `least` and above `factor` d + `step`, within
/// `reach` pixels of one of d.
struct BesideRule {
  int reach;
  float least;
  float factor;
  float step;
};

/// Marks with 255 in `beside` the pixels of rows [from, to) of `disparity` that are next to something nearer in
/// `evidence`; leaves the others as they are.
void findBeside(const Plane& disparity, const Plane& evidence, int width, int from, int to, const BesideRule& rule,
                std::uint8_t* beside);

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
