// SPDX-License-Identifier: Apache-2.0
// Recorded pictures of a real board, where there are any on this machine.
#include <algorithm>
#include <filesystem>

#include <gtest/gtest.h>
#include <opencv2/ccalib/omnidir.hpp>
#include <opencv2/imgcodecs.hpp>

#include "calibration/BoardFinder.hpp"
#include "calibration/Calibrate.hpp"
#include "calibration/Rectification.hpp"

namespace stereo::calibration {
namespace {

namespace fs = std::filesystem;

// Pixels of the default perspective view, by OpenCV's own inverse of the model.
std::vector<cv::Point2d> perspective(const model::OmniModel& eye, const cv::Matx33d& turn,
                                     const std::vector<cv::Point2d>& corners) {
  std::vector<cv::Point2d> plane;
  cv::omnidir::undistortPoints(corners, plane, cv::Mat(eye.intrinsic()), cv::Mat(eye.distortion()),
                               cv::Mat(1, 1, CV_64F, cv::Scalar(eye.xi)), cv::Mat(turn));
  for (cv::Point2d& point : plane) {
    point *= 232.0;
  }
  return plane;
}

TEST(RealBoards, FitToAQuarterOfAPixelAndRowsToLess) {
  const fs::path folder = fs::path(STEREO_CAMERA_TEST_DATA) / "boards";
  if (!fs::exists(folder / "calibration.yml")) {
    GTEST_SKIP() << "no recorded frames at " << folder;
  }
  const Board board{{8, 6}, 39.0};
  std::vector<fs::path> paths;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
    if (entry.path().extension() == ".png") {
      paths.push_back(entry.path());
    }
  }
  std::sort(paths.begin(), paths.end());
  std::vector<BoardView> views;
  cv::Size recordedSize;
  for (const fs::path& path : paths) {
    const cv::Mat picture = cv::imread(path.string(), cv::IMREAD_GRAYSCALE);
    recordedSize = cv::Size(picture.cols / 2, picture.rows);
    views.push_back(findBoard(picture, board, path.filename().string(), Effort::thorough));
  }
  const Calibration found = calibrate(views, board, recordedSize, [](const std::string&) {});
  EXPECT_GE(found.picturesKept() + 1, views.size());
  EXPECT_LE(found.rms(), 0.27);
  // The published distance, from which the squares' size was inferred as well.
  EXPECT_NEAR(found.baseline(), 117.0, 1.2);

  const auto turns = rectify(found.estimate.rig.rightFromLeft);
  double sum = 0;
  int corners = 0;
  for (std::size_t view = 0; view < views.size(); ++view) {
    if (found.kept[view] == 0 || !views[view].seesBoth()) {
      continue;
    }
    const auto left = perspective(found.estimate.rig.eyes[0], turns[0], views[view].corners[0]);
    const auto right = perspective(found.estimate.rig.eyes[1], turns[1], views[view].corners[1]);
    for (std::size_t k = 0; k < left.size(); ++k) {
      const bool inView = std::max(std::abs(left[k].x), std::abs(right[k].x)) <= 232 &&
                          std::max(std::abs(left[k].y), std::abs(right[k].y)) <= 200;
      if (inView) {
        EXPECT_GT(left[k].x, right[k].x);
        sum += std::abs(left[k].y - right[k].y);
        ++corners;
      }
    }
  }
  ASSERT_GT(corners, 300);
  EXPECT_LE(sum / corners, 0.15);
}

}  // namespace
}  // namespace stereo::calibration
