// SPDX-License-Identifier: Apache-2.0
// Selects frames of a running camera for calibration.
#pragma once

#include <string>
#include <vector>

#include "calibration/BoardGeometry.hpp"
#include "calibration/Coverage.hpp"

namespace stereo::calibration {

/// Selects frames of a running camera for calibration: those with the whole board in both eyes, held still, and placed
/// differently than in all pictures so far.
class Collector {
public:
  /// @param still whether the board must be still from one frame to the next. Needed against rolling shutters and
  /// motion blur, not for single shots.
  Collector(const cv::Size& eyeSize, bool still);

  enum class Verdict { taken, nowhere, leftOnly, rightOnly, moving, known };

  /// Checks the corners of the next frame and keeps them if they are useful.
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

/// One line: "taken", "the right eye does not show the whole board", ...
std::string describe(Collector::Verdict verdict);

}  // namespace stereo::calibration
