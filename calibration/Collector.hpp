// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

#include "calibration/BoardGeometry.hpp"
#include "calibration/Coverage.hpp"

namespace stereo::calibration {

/// Chooses, of the frames of a running camera, those that are worth keeping: the whole board in both eyes, held still,
/// and somewhere else or otherwise than in all pictures so far.
class Collector {
public:
  /// @param still whether the board has to be held still from one frame to the next: both eyes of a rolling shutter,
  /// and
  ///              a hand's blur, ask for it; pictures that are single shots anyway don't.
  Collector(const cv::Size& eyeSize, bool still);

  enum class Verdict { taken, nowhere, leftOnly, rightOnly, moving, known };

  /// Looks at the next frame's corners and keeps them if they are worth it.
  Verdict offer(const BoardView& view);
  const std::vector<BoardView>& views() const { return m_views; }
  const Coverage& coverage() const { return m_coverage; }

private:
  double distance(const BoardView& a, const BoardView& b) const;

  cv::Size m_eyeSize;
  bool m_still;
  Coverage m_coverage;
  std::vector<BoardView> m_views;
  BoardView m_last;
};

/// One line's worth: "taken", "the right eye does not show the whole board", ...
std::string describe(Collector::Verdict verdict);

}  // namespace stereo::calibration
