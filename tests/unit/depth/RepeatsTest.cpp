// SPDX-License-Identifier: Apache-2.0
// Wide depth of texture that repeats. The eyes are rendered here: a plate that faces them, before a textured room.
#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "WideDepth.hpp"
#include "src/depth/Filter.hpp"
#include "src/depth/Repeats.hpp"

using namespace stereo;

namespace {

const cv::Size eyeSize(464, 400);
constexpr double focal = 225.0;
constexpr double baseline = 0.06;   // meters
constexpr double roomRadius = 3.0;  // meters

double cell(int x, int y, int z) {
  auto bits = static_cast<std::uint32_t>(x) * 374761393U + static_cast<std::uint32_t>(y) * 668265263U +
              static_cast<std::uint32_t>(z) * 2246822519U;
  bits = (bits ^ bits >> 13) * 1274126177U;
  return static_cast<double>((bits ^ bits >> 16) & 0xffffU) / 65535.0;
}

// Noise that is linear between the corners of cells.
double noise(const cv::Vec3d& point, double size) {
  const std::array<double, 3> at{point[0] / size, point[1] / size, point[2] / size};
  std::array<int, 3> corner{};
  std::array<double, 3> part{};
  for (std::size_t k = 0; k < 3; ++k) {
    corner[k] = static_cast<int>(std::floor(at[k]));
    part[k] = at[k] - corner[k];
  }
  double sum = 0.0;
  for (int k = 0; k < 8; ++k) {
    const int x = k & 1;
    const int y = k >> 1 & 1;
    const int z = k >> 2;
    const double weight =
        (x != 0 ? part[0] : 1 - part[0]) * (y != 0 ? part[1] : 1 - part[1]) * (z != 0 ? part[2] : 1 - part[2]);
    sum += weight * cell(corner[0] + x, corner[1] + y, corner[2] + z);
  }
  return sum;
}

struct Plate {
  double distance;      // meters
  double square;        // meters; 0: the room's texture
  double extent = 0.3;  // meters to each side
  bool isStriped = false;
};

double rangeAlong(const Plate& plate, const cv::Vec3d& eye, const cv::Vec3d& ray) {
  if (ray[2] > 0.0) {
    const cv::Vec3d point = eye + ray * (plate.distance / ray[2]);
    if (std::abs(point[0]) < plate.extent && std::abs(point[1]) < plate.extent) {
      return plate.distance / ray[2];
    }
  }
  const double along = eye.dot(ray);
  return -along + std::sqrt(along * along - eye.dot(eye) + roomRadius * roomRadius);
}

double colorAlong(const Plate& plate, const cv::Vec3d& eye, const cv::Vec3d& ray) {
  const double range = rangeAlong(plate, eye, ray);
  const cv::Vec3d point = eye + ray * range;
  const bool isPlate = range * ray[2] < plate.distance + 1e-9 && ray[2] > 0.0;
  if (isPlate && plate.square > 0.0) {
    const auto square = [&](double x) { return static_cast<int>(std::floor(x / plate.square)); };
    return ((square(point[0]) + (plate.isStriped ? 0 : square(point[1]))) & 1) != 0 ? 200.0 : 50.0;
  }
  const double size = isPlate ? 0.04 : 0.4;
  return 60 + 90 * noise(point, size) + 60 * noise(point, 0.3 * size);
}

// The lens: a unit sphere seen from its rim (xi = 1), so that x = X / (Z + 1).
cv::Vec3d rayOf(double x, double y) {
  const double u = (x - 232.0) / focal;
  const double v = (y - 200.0) / focal;
  const double squares = u * u + v * v;
  return cv::Vec3d(2 * u, 2 * v, 1 - squares) / (1 + squares);
}

cv::Mat render(const Plate& plate, double aside) {
  cv::Mat image(eyeSize, CV_8UC1);
  cv::RNG random(aside > 0.0 ? 3 : 4);
  for (int y = 0; y < eyeSize.height; ++y) {
    for (int x = 0; x < eyeSize.width; ++x) {
      double sum = 0.0;
      for (const double dy : {-0.33, 0.0, 0.33}) {
        for (const double dx : {-0.33, 0.0, 0.33}) {
          sum += colorAlong(plate, {aside, 0, 0}, rayOf(x + dx, y + dy));
        }
      }
      image.at<unsigned char>(y, x) = cv::saturate_cast<unsigned char>(sum / 9.0 + random.gaussian(2.0));
    }
  }
  return image;
}

WideDepthCalibration lenses() {
  const cv::Mat K = (cv::Mat_<double>(3, 3) << focal, 0, 232, 0, focal, 200, 0, 0, 1);
  const cv::Mat D = cv::Mat::zeros(1, 4, CV_64F);
  const cv::Mat xi = cv::Mat::ones(1, 1, CV_64F);
  const cv::Mat R = cv::Mat::eye(3, 3, CV_64F);
  const cv::Mat t = (cv::Mat_<double>(3, 1) << -1000 * baseline, 0, 0);
  WideDepthCalibration calibration = WideDepthCalibration::from({K, D, xi, R, t}, {K, D, xi, R, t});
  calibration.frameWidth = 2 * eyeSize.width;
  return calibration;
}

struct Shares {
  double tooFar = 0.0;  // of the plate's pixels, percent: over 1.25 times, or said to be
  double measured = 0.0;
};

Shares sharesOf(const Plate& plate) {
  WideDepth depth(lenses(), eyeSize, {});
  WideDepthImage image;
  depth.compute(render(plate, 0.0), render(plate, baseline), image);
  int pixels = 0;
  int tooFar = 0;
  int measured = 0;
  for (int y = 0; y < image.range.rows; ++y) {
    for (int x = 0; x < image.range.cols; ++x) {
      const cv::Vec3d ray = depth.rays().at<cv::Vec3f>(y, x);
      const double truth = rangeAlong(plate, {0, 0, 0}, ray);
      if (truth > 1.0) {
        continue;
      }
      const float range = image.range.at<float>(y, x);
      ++pixels;
      measured += range > 0 ? 1 : 0;
      tooFar += range > 1.25 * truth || image.state.at<unsigned char>(y, x) == static_cast<int>(RangeState::tooFar);
    }
  }
  EXPECT_GT(pixels, 30000);
  return {100.0 * tooFar / pixels, 100.0 * measured / pixels};
}

}  // namespace

namespace {

// A surface that fills the view, whose samples all say that the texture repeats after `period` columns, but for those
// of the first `ending` columns of samples, where nothing nearer fits. Percent of the pixels that are marked.
double markedOf(depth::MatchSize size, int period, int ending) {
  depth::RepeatFinder repeats(size, 4, 66, 0);
  const depth::RivalOutput output = repeats.output();
  const int columns = size.width / 4;
  for (int row = 0; row < size.height / 4; ++row) {
    for (int column = 0; column < columns; ++column) {
      const std::ptrdiff_t at = (static_cast<std::ptrdiff_t>(row) * columns + column) * size.disparities;
      output.larger[at] = 1;
      output.larger[at + period] = column < ending ? 0 : 1;
      output.smaller[at + period] = 1;
    }
  }
  repeats.find();
  depth::Plane disparity;
  disparity.create(size.width, size.height, depth::noDisparity);
  for (int row = 0; row < size.height; ++row) {
    std::fill_n(disparity.row(row), size.width, 9.0F);
  }
  depth::SpeckFinder finder(size.width, size.height);
  std::vector<std::uint8_t> marks(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height));
  finder.find(disparity, 1.0F, 10, marks.data());
  finder.markRepeats(repeats, marks.data());
  return 100.0 * static_cast<double>(std::count(marks.begin(), marks.end(), 255)) / static_cast<double>(marks.size());
}

}  // namespace

TEST(WideDepthRepeats, ASurfaceThatEndsAsOnlyTheMatchedOneCanIsKept) {
  EXPECT_EQ(markedOf({120, 80, 64}, 12, 0), 100.0);
  EXPECT_EQ(markedOf({120, 80, 64}, 12, 3), 0.0);
  EXPECT_EQ(markedOf({120, 80, 64}, 4, 1), 100.0) << "too short a period to tell";
  EXPECT_EQ(markedOf({464, 1600, 128}, 120, 0), 100.0) << "many rows times long periods";
}

TEST(WideDepthRepeats, StripedWallsAreNotReportedFar) {
  for (const double stripe : {0.016, 0.018, 0.02, 0.022, 0.026}) {
    EXPECT_LT(sharesOf({0.25, stripe, 1.2, true}).tooFar, 3.0) << stripe;
  }
}

TEST(WideDepthRepeats, APlateOfManySquaresIsNotReportedFar) {
  EXPECT_LT(sharesOf({0.2, 0.012}).tooFar, 1.0);
  EXPECT_LT(sharesOf({0.3, 0.018}).tooFar, 1.0);
  EXPECT_LT(sharesOf({0.4, 0.024}).tooFar, 1.0);
}

// The second one repeats even at a quarter of the size, where things nearer than the search are looked for.
TEST(WideDepthRepeats, NeitherIsOneNearerThanTheSearch) {
  EXPECT_LT(sharesOf({0.08, 0.02}).tooFar, 1.0);
  EXPECT_LT(sharesOf({0.06, 0.02}).tooFar, 1.2);
}

TEST(WideDepthRepeats, APlateOfOtherTextureIsMeasured) {
  const Shares shares = sharesOf({0.3, 0.0});
  EXPECT_GT(shares.measured, 80.0);
  EXPECT_LT(shares.tooFar, 0.1);
}
