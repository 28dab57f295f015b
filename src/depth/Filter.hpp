// SPDX-License-Identifier: Apache-2.0
// Drops refined disparities that are not to be trusted, and says why.
#pragma once

#include <cstdint>
#include <vector>

#include "src/depth/Refine.hpp"
#include "src/depth/Repeats.hpp"

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

  /// Of the surfaces that were found last: marks in `marks` (0 or 255) the pixels where texture repeats, and all others
  /// of a surface of which that is much. Not where the surface ends as only one with the matched disparity can.
  void markRepeats(const RepeatFinder& repeats, std::uint8_t* marks);

private:
  // What samples of texture that repeats say of a surface.
  struct Doubt {
    std::int32_t samples = 0;
    std::int32_t marked = 0;
    std::int32_t periods = 0;  // sum over those
    std::int32_t rows = 0;     // that have some
    std::int32_t lastRow = 0;  // that has some, plus one
    std::int32_t ends = 0;     // samples where something nearer would end
    bool isSettled = false;    // there are enough of these
    bool isWhole = false;      // all of it is in doubt
  };

  int root(int label);
  Doubt* doubtOf(std::ptrdiff_t k);  // of a pixel's surface; null without a surface or a sample

  int m_width;
  int m_height;
  std::vector<std::int32_t> m_labels;
  std::vector<std::int32_t> m_parents;  // once all are found, the first label of each one's surface
  std::vector<std::int32_t> m_sizes;    // of a surface; once all are found, of each label's
  std::vector<std::int32_t> m_doubtOf;  // number of the doubt of each surface, -1 without samples
  std::vector<Doubt> m_doubts;
};

}  // namespace stereo::depth
