// SPDX-License-Identifier: Apache-2.0
// The library's rectified pictures of a scene whose depth is known.
#include <cmath>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "sim/SimulatedCamera.hpp"
#include "tests/unit/sim/Matching.hpp"

namespace stereo::sim {
namespace {

struct Case {
  int depthMode;  // 1: longitude-latitude, 2: perspective
  cv::Size frameSize;
  std::uint32_t seed;
};

/// What test listings show.
void PrintTo(const Case& tried, std::ostream* stream) {
  *stream << "depth mode " << tried.depthMode << ", " << tried.frameSize.width << " x " << tried.frameSize.height
          << ", seed " << tried.seed;
}

class Rectification : public testing::TestWithParam<Case> {};

TEST_P(Rectification, MatchesLieInOneRowAtTheTrueDisparity) {
  const Case& tried = GetParam();
  SimulatedCamera camera({.frameSize = tried.frameSize, .rate = 0, .seed = tried.seed, .moving = false});
  camera.setDepthMode(tried.depthMode);
  ASSERT_TRUE(camera.startCapture(false, false));
  cv::Mat left;
  cv::Mat right;
  cv::Mat view;
  ASSERT_TRUE(camera.getRectStereoFrame(left, right, view));
  camera.stopCapture();

  const std::vector<test::Match> matches = test::matchPictures(left, right);
  const Truth truth = camera.truth(tried.depthMode == 1 ? camera.lonLatView() : camera.perspectiveView());
  std::vector<test::Match> seen;
  std::vector<double> misses;
  for (const test::Match& match : matches) {
    const int col = cvRound(match.left.x);
    const int row = cvRound(match.left.y);
    if (col < 5 || row < 5 || col >= truth.seen.cols - 5 || row >= truth.seen.rows - 5) {
      continue;
    }
    // Clear of edges: the tracker's window would straddle two surfaces.
    const cv::Mat around = truth.surface(cv::Rect(col - 5, row - 5, 11, 11));
    if (truth.seen.at<unsigned char>(row, col) != 0 && cv::countNonZero(around != around.at<int>(5, 5)) == 0) {
      seen.push_back(match);
      misses.push_back(std::abs(match.left.x - match.right.x - truth.disparity.at<double>(row, col)));
    }
  }
  ASSERT_GT(seen.size(), 150U);
  const double rows = test::medianRowDifference(seen);
  const double columns = test::median(misses);
  RecordProperty("medianRowDifference", std::to_string(rows));
  RecordProperty("medianDisparityMiss", std::to_string(columns));
  EXPECT_LT(rows, 0.15);
  EXPECT_LT(columns, 0.25);
}

INSTANTIATE_TEST_SUITE_P(BothViews, Rectification,
                         testing::Values(Case{2, {928, 400}, 1}, Case{1, {928, 400}, 1}, Case{2, {1856, 800}, 2},
                                         Case{1, {1856, 800}, 2}),
                         [](const testing::TestParamInfo<Case>& instance) {
                           return std::string(instance.param.depthMode == 1 ? "LonLat" : "Perspective") +
                                  std::to_string(instance.param.frameSize.width);
                         });

TEST(RectifiedPair, PerspectivePairOfAMovingSceneLiesInRows) {
  SimulatedCamera camera({.frameSize = {928, 400}, .rate = 30, .seed = 5, .moving = true, .framesPerPeriod = 4});
  ASSERT_TRUE(camera.startCapture(false, false));
  for (int i = 0; i < 2; ++i) {
    cv::Mat left;
    cv::Mat right;
    ASSERT_TRUE(camera.getRectStereoFrame(left, right));
    const std::vector<test::Match> matches = test::matchPictures(left, right);
    ASSERT_GT(matches.size(), 150U);
    EXPECT_LT(test::medianRowDifference(matches), 0.5);
  }
}

}  // namespace
}  // namespace stereo::sim
