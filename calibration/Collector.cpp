// SPDX-License-Identifier: Apache-2.0
#include "calibration/Collector.hpp"

#include <algorithm>

namespace stereo::calibration {

namespace {

// Mean distance between the corners of two pictures, as a share of an eye's width: below the first, the picture is not
// new; above the second, the board is not held still.
constexpr double leastMove = 0.05;
constexpr double mostShake = 0.003;

}  // namespace

Collector::Collector(const cv::Size& eyeSize, bool still) : m_eyeSize(eyeSize), m_still(still), m_coverage(eyeSize) {}

double Collector::distance(const BoardView& a, const BoardView& b) const {
  const std::vector<cv::Point2d>& first = a.corners[0];
  const std::vector<cv::Point2d>& second = b.corners[0];
  // The board may be counted from either end.
  double along = 0;
  double against = 0;
  for (std::size_t k = 0; k < first.size(); ++k) {
    along += cv::norm(first[k] - second[k]);
    against += cv::norm(first[k] - second[second.size() - 1 - k]);
  }
  return std::min(along, against) / static_cast<double>(first.size()) / m_eyeSize.width;
}

Collector::Verdict Collector::offer(const BoardView& view) {
  const BoardView last = m_last;
  m_last = view;
  if (!view.seesBoth()) {
    return view.sees(0) ? Verdict::leftOnly : view.sees(1) ? Verdict::rightOnly : Verdict::nowhere;
  }
  if (m_still && (!last.seesBoth() || distance(view, last) > mostShake)) {
    return Verdict::moving;
  }
  if (std::any_of(m_views.begin(), m_views.end(),
                  [&](const BoardView& each) { return distance(view, each) < leastMove; })) {
    return Verdict::known;
  }
  m_views.push_back(view);
  m_coverage.add(view);
  return Verdict::taken;
}

std::string describe(Collector::Verdict verdict) {
  switch (verdict) {
    case Collector::Verdict::taken:
      return "taken";
    case Collector::Verdict::nowhere:
      return "neither eye shows the whole board";
    case Collector::Verdict::leftOnly:
      return "the right eye does not show the whole board";
    case Collector::Verdict::rightOnly:
      return "the left eye does not show the whole board";
    case Collector::Verdict::moving:
      return "hold the board still";
    case Collector::Verdict::known:
      return "too similar to an earlier picture: move or tilt the board";
  }
  return "";
}

}  // namespace stereo::calibration
