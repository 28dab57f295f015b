// SPDX-License-Identifier: Apache-2.0
// Rays, samples and ranges against the model of the eyes that shares no code with them.
#include <cmath>

#include <gtest/gtest.h>

#include "model/OmniModel.hpp"
#include "src/depth/Geometry.hpp"
#include "src/depth/Range.hpp"
#include "src/depth/Refine.hpp"
#include "tests/unit/depth/SimulatedEyes.hpp"

using namespace stereo;
using namespace stereo::depth;

namespace {

ViewGrid someGrid() {
  WideDepthOptions options;
  options.size = {90, 80};
  options.horizontalField = 180;
  options.verticalField = 160;
  return ViewGrid::of(options);
}

}  // namespace

TEST(WideGeometry, RaysHaveTheAnglesOfTheirPixels) {
  const ViewGrid grid = someGrid();
  const cv::Mat rays = unitRays(grid);
  for (const cv::Point pixel : {cv::Point(0, 0), cv::Point(45, 40), cv::Point(89, 79), cv::Point(13, 66)}) {
    const auto& ray = rays.at<cv::Vec3f>(pixel);
    EXPECT_NEAR(cv::norm(ray), 1.0, 1e-6);
    EXPECT_NEAR(std::asin(ray[0]) * 180 / CV_PI, (pixel.x + 0.5 - 45) * 2, 1e-3);
    EXPECT_NEAR(std::atan2(ray[1], ray[2]) * 180 / CV_PI, (pixel.y + 0.5 - 40) * 2, 1e-3);
  }
}

TEST(WideGeometry, SamplesLieWhereTheEyeSeesTheRay) {
  const test::SimulatedEyes eyes;
  const EyePair pair = eyePair(eyes.calibration(), test::eyeSize);
  EXPECT_NEAR(pair.baseline, eyes.rig().baseline(), 1e-9);
  const ViewGrid grid = someGrid();
  constexpr std::int32_t outside = 464 * 400;
  for (const bool isRight : {false, true}) {
    SampleMap map;
    buildSampleMap(pair.eyes[isRight ? 1 : 0], {464, 400}, grid, -4, 98, 464, outside, 2, map);
    const model::OmniModel model = eyes.rig().modelFor(isRight, {928, 400});
    int seen = 0;
    for (int row = 0; row < grid.height; ++row) {
      for (int k = 0; k < map.width; ++k) {
        const std::size_t at =
            static_cast<std::size_t>(row) * static_cast<std::size_t>(map.width) + static_cast<std::size_t>(k);
        const double longitude = (k - 4 + 0.5 - 45) * CV_PI / 90;
        const double latitude = (row + 0.5 - 40) * CV_PI / 90;
        const cv::Vec3d ray(std::sin(longitude), std::cos(longitude) * std::sin(latitude),
                            std::cos(longitude) * std::cos(latitude));
        const auto pixel = model.project(eyes.rig().eye(isRight).rotation.t() * ray);
        if (map.seen[at] == 0) {
          EXPECT_EQ(map.offset[at], outside);
          // Only near the rim or beyond 90 degrees.
          EXPECT_TRUE(std::abs(longitude) > CV_PI / 2 || !pixel || std::hypot(pixel->x - 232, pixel->y - 200) > 229 ||
                      pixel->y < 1 || pixel->y > 398);
          continue;
        }
        ++seen;
        ASSERT_TRUE(pixel);
        EXPECT_NEAR(map.offset[at] % 464 + map.right[at] / 128.0, pixel->x, 0.0045);
        EXPECT_NEAR(cvFloor(map.offset[at] / 464.0) + map.lower[at] / 128.0, pixel->y, 0.0045);
      }
    }
    EXPECT_GT(seen, 5000);
  }
}

TEST(WideGeometry, RangesAreThoseOfTheTriangle) {
  const ViewGrid grid = someGrid();
  constexpr double b = 0.06;
  const RangeModel model(grid, b, 0.1, 100.0);
  for (int column = 5; column < 85; column += 4) {
    for (const double range : {0.12, 0.5, 3.0, 40.0}) {
      // The point in the row's plane, seen from both eyes.
      const double longitude = (column + 0.5 - 45) * CV_PI / 90;
      const double x = range * std::sin(longitude);
      const double z = range * std::cos(longitude);
      const double parallax = longitude - std::atan2(x - b, z);
      std::vector<float> disparity(90, noDisparity);
      const std::vector<float> sigma(90, 0.01F);
      disparity[static_cast<std::size_t>(column)] = static_cast<float>(parallax / grid.columnStep);
      std::vector<float> measured(90);
      std::vector<std::uint8_t> state(90, 0);
      std::vector<std::uint8_t> confidence(90);
      rangeRow(model, disparity.data(), sigma.data(), 90, measured.data(), state.data(), confidence.data());
      EXPECT_NEAR(measured[static_cast<std::size_t>(column)] / range, 1.0, 2e-4 * std::max(1.0, range));
      EXPECT_EQ(state[static_cast<std::size_t>(column)], 0);
      EXPECT_GT(confidence[static_cast<std::size_t>(column)], 0);
    }
  }
}

TEST(WideGeometry, RangesBeyondTheLimitsSaySo) {
  const ViewGrid grid = someGrid();
  const RangeModel model(grid, 0.06, 0.2, 5.0);
  std::vector<float> disparity(90, 0.1F);  // 17 m
  disparity[44] = 25.0F;                   // 0.06 m
  disparity[45] = -0.5F;                   // beyond infinity
  disparity[46] = 2.0F;                    // 0.86 m
  const std::vector<float> sigma(90, 0.01F);
  std::vector<float> range(90);
  std::vector<std::uint8_t> state(90, 0);
  std::vector<std::uint8_t> confidence(90);
  rangeRow(model, disparity.data(), sigma.data(), 90, range.data(), state.data(), confidence.data());
  EXPECT_EQ(state[43], static_cast<int>(RangeState::tooFar));
  EXPECT_EQ(state[44], static_cast<int>(RangeState::tooNear));
  EXPECT_EQ(state[45], static_cast<int>(RangeState::tooFar));
  EXPECT_EQ(state[46], static_cast<int>(RangeState::measured));
  for (const std::size_t k : {43, 44, 45}) {
    EXPECT_EQ(range[k], 0.0F);
    EXPECT_EQ(confidence[k], 0);
  }
}
