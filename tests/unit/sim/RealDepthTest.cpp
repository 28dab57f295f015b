// SPDX-License-Identifier: Apache-2.0
// Depth of recorded frames, where there are any on this machine.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "sources/ReplayCamera.hpp"

namespace stereo::sim {
namespace {

namespace fs = std::filesystem;
using std::chrono::microseconds;

const fs::path dataFolder = STEREO_CAMERA_TEST_DATA;
constexpr double boardSquare = 0.039;  // meters, side of a square of the board
const cv::Size boardCorners(8, 6);

/// How a recorded frame is looked at.
struct Look {
  cv::Size size;
  double field;  // degrees
  int algorithm;
};

/// All that comes of one recorded frame in depth mode 2.
struct Result {
  cv::Mat left, right;  // perspective pair
  cv::Mat disparity;    // pixels
  cv::Mat depth;        // meters
  std::vector<cv::Vec3f> cloud;
  cv::Mat camera;  // 3x3
};

Result compute(const fs::path& image, const fs::path& calibration, const Look& look, int depthMode = 2) {
  Result result;
  sources::ReplayCamera camera({.path = image.string(), .rate = 0, .rectFrameSize = look.size});
  camera.setHorizontalField(look.field);
  camera.setDepthMode(depthMode);
  camera.setAlgorithm(look.algorithm);
  camera.setDepthLimits(0.05F, 20.0F);
  EXPECT_TRUE(camera.loadCalibParams(calibration.string()));
  camera.startCapture(false, false);
  camera.startStereoCompute();
  microseconds timestamp{0};
  EXPECT_TRUE(camera.getPointCloud(result.cloud, timestamp));
  EXPECT_TRUE(camera.getRectStereoFrame(result.left, result.right));
  result.disparity = camera.latestDisparity().second;
  camera.getDepthFrame(result.disparity, result.depth);
  std::vector<cv::Mat> params;
  camera.getCalibParams(params, false);
  result.camera = params[5].clone();
  return result;
}

bool findBoard(const cv::Mat& picture, std::vector<cv::Point2f>& corners) {
  cv::Mat gray;
  cv::cvtColor(picture, gray, cv::COLOR_BGR2GRAY);
  if (!cv::findChessboardCorners(gray, boardCorners, corners)) {
    return false;
  }
  cv::cornerSubPix(gray, corners, {3, 3}, {-1, -1},
                   cv::TermCriteria(cv::TermCriteria::COUNT | cv::TermCriteria::EPS, 100, 0.001));
  return true;
}

/// Median of what is valid within three pixels; 0 where there is nothing.
float around(const cv::Mat& image, const cv::Point2f& at) {
  std::vector<float> values;
  for (int row = cvRound(at.y) - 3; row <= cvRound(at.y) + 3; ++row) {
    for (int col = cvRound(at.x) - 3; col <= cvRound(at.x) + 3; ++col) {
      if (row >= 0 && col >= 0 && row < image.rows && col < image.cols && image.at<float>(row, col) > 0) {
        values.push_back(image.at<float>(row, col));
      }
    }
  }
  if (values.empty()) {
    return 0;
  }
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

/// Share of corners whose disparity is, within a pixel, that of the corner itself in both eyes. A board is all
/// repetition: where it is nearer than the matcher can look, every match is one or two squares off.
double wellMatched(const Result& result, const std::vector<cv::Point2f>& left, std::vector<cv::Point2f> right) {
  if ((left.back() - left.front()).dot(right.back() - right.front()) < 0.0F) {
    std::reverse(right.begin(), right.end());
  }
  int good = 0;
  for (std::size_t i = 0; i < left.size(); ++i) {
    good += std::abs(around(result.disparity, left[i]) - (left[i].x - right[i].x)) < 1.0F ? 1 : 0;
  }
  return static_cast<double>(good) / static_cast<double>(left.size());
}

/// Median distance of neighbouring corners in space, meters, each at the measured depth.
double squareSide(const Result& result, const std::vector<cv::Point2f>& corners) {
  const cv::Mat& P = result.camera;
  std::vector<cv::Vec3d> points;
  for (const cv::Point2f& corner : corners) {
    const double z = around(result.depth, corner);
    points.emplace_back((corner.x - P.at<double>(0, 2)) / P.at<double>(0, 0) * z,
                        (corner.y - P.at<double>(1, 2)) / P.at<double>(1, 1) * z, z);
  }
  std::vector<double> sides;
  const auto at = [&](int row, int col) {
    return points[static_cast<std::size_t>(row) * static_cast<std::size_t>(boardCorners.width) +
                  static_cast<std::size_t>(col)];
  };
  for (int row = 0; row < boardCorners.height; ++row) {
    for (int col = 0; col < boardCorners.width; ++col) {
      if (col + 1 < boardCorners.width) {
        sides.push_back(cv::norm(at(row, col) - at(row, col + 1)));
      }
      if (row + 1 < boardCorners.height) {
        sides.push_back(cv::norm(at(row, col) - at(row + 1, col)));
      }
    }
  }
  std::nth_element(sides.begin(), sides.begin() + static_cast<std::ptrdiff_t>(sides.size() / 2), sides.end());
  return sides[sides.size() / 2];
}

double validShare(const cv::Mat& disparity) {
  return static_cast<double>(cv::countNonZero(disparity > 0.05)) / static_cast<double>(disparity.total());
}

TEST(RealDepth, SquaresOfTheBoardHaveTheirSize) {
  const fs::path folder = dataFolder / "boards";
  if (!fs::exists(folder / "calibration.yml")) {
    GTEST_SKIP() << "no recorded frames at " << folder;
  }
  // The boards were held at half a meter with eyes 117 mm apart: only coarse, wide pictures bring them within the 32
  // pixels that the matchers look at.
  int boards = 0;
  for (const Look& look : {Look{{360, 320}, 120, 0}, Look{{400, 340}, 130, 0}, Look{{400, 340}, 130, 1}}) {
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
      if (entry.path().extension() != ".png") {
        continue;
      }
      const Result result = compute(entry.path(), folder / "calibration.yml", look);
      EXPECT_GT(validShare(result.disparity), look.algorithm == 0 ? 0.5 : 0.2) << entry.path();
      EXPECT_GT(result.cloud.size(), 1000U);
      std::vector<cv::Point2f> left;
      std::vector<cv::Point2f> right;
      if (!findBoard(result.left, left) || !findBoard(result.right, right) || wellMatched(result, left, right) < 0.95) {
        continue;
      }
      const double side = squareSide(result, left);
      std::printf("%s, %d x %d: side of a square %.2f mm\n", entry.path().filename().c_str(), look.size.width,
                  look.size.height, 1000 * side);
      EXPECT_NEAR(side, boardSquare, 0.03 * boardSquare) << entry.path();
      ++boards;
    }
  }
  EXPECT_GE(boards, 5);
}

TEST(RealDepth, RobotScenesAreMatchedForTheMostPart) {
  const fs::path folder = dataFolder / "robot";
  if (!fs::exists(folder / "calibration.yml")) {
    GTEST_SKIP() << "no recorded frames at " << folder;
  }
  for (const char* const name : {"vehicle.png", "room.png"}) {
    for (const int depthMode : {1, 2}) {
      for (const int algorithm : {0, 1}) {
        const Result result =
            compute(folder / name, folder / "calibration.yml", {{464, 400}, 90, algorithm}, depthMode);
        std::printf("%s, depth mode %d, algorithm %d: valid %.1f %%, %zu points\n", name, depthMode, algorithm,
                    100 * validShare(result.disparity), result.cloud.size());
        EXPECT_GT(validShare(result.disparity), algorithm == 0 ? 0.8 : 0.45) << name;
        EXPECT_GT(result.cloud.size(), 500U) << name;
      }
    }
  }
}

}  // namespace
}  // namespace stereo::sim
