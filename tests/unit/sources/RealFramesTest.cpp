// SPDX-License-Identifier: Apache-2.0
// The library's rectified pictures of recorded frames, where there are any on this machine.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "sources/ReplayCamera.hpp"
#include "tests/support/Threads.hpp"
#include "tests/unit/sim/Matching.hpp"

namespace stereo::sources {
namespace {

namespace fs = std::filesystem;

const fs::path dataFolder = STEREO_CAMERA_TEST_DATA;

/// Perspective pair of one recorded frame, of this size and horizontal field (degrees).
void rectify(const fs::path& image, const fs::path& calibration, const cv::Size& size, double field, cv::Mat& left,
             cv::Mat& right) {
  ReplayCamera camera({.path = image.string(), .rate = 0, .rectFrameSize = size});
  camera.setHorizontalField(field);
  ASSERT_TRUE(camera.loadCalibParams(calibration.string()));
  ASSERT_TRUE(camera.startCapture(false, false));
  ASSERT_TRUE(camera.getRectStereoFrame(left, right));
}

bool findBoard(const cv::Mat& picture, std::vector<cv::Point2f>& corners) {
  cv::Mat gray;
  cv::cvtColor(picture, gray, cv::COLOR_BGR2GRAY);
  if (!cv::findChessboardCorners(gray, {8, 6}, corners)) {
    return false;
  }
  cv::cornerSubPix(gray, corners, {3, 3}, {-1, -1},
                   cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 100, 0.001));
  return true;
}

TEST(RealFrames, ChessboardCornersLieInTheSameRows) {
  // OpenCV's search for a board locks mutexes on this stack from threads of its own, which race detectors cannot
  // follow.
  const stereo::test::Threads single(1);
  const fs::path folder = dataFolder / "boards";
  if (!fs::exists(folder / "calibration.yml")) {
    GTEST_SKIP() << "no recorded frames at " << folder;
  }
  double sum = 0.0;
  int corners = 0;
  int boards = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() != ".png") {
      continue;
    }
    cv::Mat left;
    cv::Mat right;
    // The boards were held towards the edges as well: a wide view, at about the scale of 464 x 400 pixels over 90
    // degrees.
    ASSERT_NO_FATAL_FAILURE(rectify(entry.path(), folder / "calibration.yml", {928, 800}, 120.0, left, right));
    std::vector<cv::Point2f> inLeft;
    std::vector<cv::Point2f> inRight;
    if (!findBoard(left, inLeft) || !findBoard(right, inRight)) {
      continue;
    }
    // The board looks the same upside down: both lists have to start at the same corner.
    if ((inLeft.back() - inLeft.front()).dot(inRight.back() - inRight.front()) < 0.0F) {
      std::reverse(inRight.begin(), inRight.end());
    }
    for (std::size_t i = 0; i < inLeft.size(); ++i) {
      EXPECT_GT(inLeft[i].x, inRight[i].x) << "what both eyes see is farther right in the left one";
      sum += std::abs(inLeft[i].y - inRight[i].y);
      ++corners;
    }
    ++boards;
  }
  ASSERT_GE(boards, 10);
  RecordProperty("boards", boards);
  RecordProperty("meanRowDifference", std::to_string(sum / corners));
  EXPECT_LT(sum / corners, 0.3);
}

class Robot : public testing::TestWithParam<const char*> {};

TEST_P(Robot, FeaturesLieInTheSameRows) {
  const fs::path folder = dataFolder / "robot";
  const fs::path image = folder / GetParam();
  if (!fs::exists(image)) {
    GTEST_SKIP() << "no recorded frames at " << folder;
  }
  cv::Mat left;
  cv::Mat right;
  ASSERT_NO_FATAL_FAILURE(rectify(image, folder / "calibration.yml", {464, 400}, 90.0, left, right));
  ASSERT_EQ(left.size(), cv::Size(464, 400));
  const std::vector<sim::test::Match> matches = sim::test::matchPictures(left, right);
  ASSERT_GT(matches.size(), 50U);
  const double rows = sim::test::medianRowDifference(matches);
  RecordProperty("matches", static_cast<int>(matches.size()));
  RecordProperty("medianRowDifference", std::to_string(rows));
  EXPECT_LT(rows, 0.3);
}

INSTANTIATE_TEST_SUITE_P(Scenes, Robot, testing::Values("vehicle.png", "room.png"),
                         [](const testing::TestParamInfo<const char*>& instance) {
                           return fs::path(instance.param).stem().string();
                         });

}  // namespace
}  // namespace stereo::sources
