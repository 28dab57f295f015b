// SPDX-License-Identifier: Apache-2.0
#include "calibration/Collector.hpp"

#include <gtest/gtest.h>

namespace stereo::calibration {
namespace {

const cv::Size collectedSize(900, 900);

// A board as a grid of 50 pixels, its first corner at (x, y).
BoardView viewAt(double x, double y, bool left = true, bool right = true) {
  BoardView view;
  for (std::size_t eye = 0; eye < 2; ++eye) {
    for (int k = 0; (eye == 0 ? left : right) && k < 48; ++k) {
      const int row = k / 8;
      view.corners[eye].emplace_back(x + 50 * (k % 8), y + 50 * row);
    }
  }
  return view;
}

TEST(Collector, TakesWhatIsNewAndTellsWhyNot) {
  Collector collector(collectedSize, false);
  EXPECT_EQ(collector.offer(viewAt(100, 100)), Collector::Verdict::taken);
  EXPECT_EQ(collector.offer(viewAt(110, 105)), Collector::Verdict::known);
  EXPECT_EQ(collector.offer(viewAt(200, 100, true, false)), Collector::Verdict::leftOnly);
  EXPECT_EQ(collector.offer(viewAt(200, 100, false, true)), Collector::Verdict::rightOnly);
  EXPECT_EQ(collector.offer(BoardView()), Collector::Verdict::nowhere);
  EXPECT_EQ(collector.offer(viewAt(300, 300)), Collector::Verdict::taken);
  EXPECT_EQ(collector.views().size(), 2U);
}

TEST(Collector, KnowsABoardThatIsCountedFromTheOtherEnd) {
  Collector collector(collectedSize, false);
  BoardView view = viewAt(100, 100);
  EXPECT_EQ(collector.offer(view), Collector::Verdict::taken);
  for (std::vector<cv::Point2d>& corners : view.corners) {
    std::reverse(corners.begin(), corners.end());
  }
  EXPECT_EQ(collector.offer(view), Collector::Verdict::known);
}

TEST(Collector, WaitsUntilTheBoardIsHeldStill) {
  Collector collector(collectedSize, true);
  EXPECT_EQ(collector.offer(viewAt(100, 100)), Collector::Verdict::moving);
  EXPECT_EQ(collector.offer(viewAt(120, 100)), Collector::Verdict::moving);
  EXPECT_EQ(collector.offer(viewAt(121, 100)), Collector::Verdict::taken);
}

TEST(Coverage, CountsSquaresOfTheCircle) {
  Coverage coverage(collectedSize);
  EXPECT_EQ(coverage.share(0), 0);
  EXPECT_NE(coverage.emptiest(), "");
  BoardView view;
  for (int x = 5; x < 900; x += 10) {
    for (int y = 5; y < 900; y += 10) {
      view.corners[0].emplace_back(x, y);
      if (x < 450) {
        view.corners[1].emplace_back(x, y);
      }
    }
  }
  coverage.add(view);
  EXPECT_EQ(coverage.share(0), 1);
  EXPECT_NEAR(coverage.share(1), 0.5, 0.1);
  EXPECT_EQ(coverage.emptiest(), "");
}

TEST(Coverage, TellsWhereMostIsMissing) {
  Coverage coverage(collectedSize);
  BoardView view;
  for (int x = 5; x < 900; x += 10) {
    for (int y = 5; y < 900; y += 10) {
      if (x < 600 || y < 300 || y >= 600) {
        view.corners[0].emplace_back(x, y);
      }
    }
  }
  coverage.add(view);
  EXPECT_EQ(coverage.emptiest(), "right");
}

}  // namespace
}  // namespace stereo::calibration
