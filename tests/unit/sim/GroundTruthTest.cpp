// SPDX-License-Identifier: Apache-2.0
#include "sim/GroundTruth.hpp"

#include <cmath>
#include <memory>

#include <gtest/gtest.h>

#include "tests/unit/sim/Marching.hpp"

namespace stereo::sim {
namespace {

const cv::Size frameSize(116, 100);

std::shared_ptr<const Scene> makeScene() { return std::make_shared<const Scene>(Scene::Options{.seed = 1}); }

/// Ray of a longitude-latitude pixel by way of the view's camera matrix: columns and rows to angles by its inverse.
cv::Vec3d lonLatRay(double col, double row, const cv::Size& size, double rangeDegrees) {
  const double alpha = rangeDegrees / 222.0 * CV_PI;
  const cv::Matx33d p(size.width / alpha, 0, -size.width * (CV_PI - alpha) / (2 * alpha), 0, size.height / alpha,
                      -size.height * (CV_PI - alpha) / (2 * alpha), 0, 0, 1);
  const cv::Vec3d angles = p.inv() * cv::Vec3d(col, row, 1);
  return {-std::cos(angles[0]), -std::sin(angles[0]) * std::cos(angles[1]), std::sin(angles[0]) * std::sin(angles[1])};
}

TEST(View, PerspectiveIsThePinholeOfItsField) {
  const View view = View::perspective({464, 400}, 90.0);
  EXPECT_NEAR(view.scale(), 232.0, 1e-9);
  const cv::Vec3d axis = view.ray(231.5, 199.5);
  EXPECT_LT(cv::norm(axis - cv::Vec3d(0, 0, 1)), 1e-12);
  // Half a field to the right of the center lies the edge, half a width away.
  const cv::Vec3d edge = view.ray(231.5 + 232.0, 199.5);
  EXPECT_NEAR(std::atan2(edge[0], edge[2]) * 180.0 / CV_PI, 45.0, 1e-9);
  EXPECT_GT(view.ray(231.5, 300.0)[1], 0.0) << "rows run downwards";
}

TEST(View, LonLatRaysFollowFromItsCameraMatrix) {
  const View view = View::lonLat({464, 400}, 180.0);
  for (int row = 0; row < 400; row += 23) {
    for (int col = 0; col < 464; col += 23) {
      ASSERT_LT(cv::norm(view.ray(col, row) - lonLatRay(col, row, {464, 400}, 180.0)), 1e-12) << col << " " << row;
    }
  }
  EXPECT_LT(cv::norm(view.ray(232.0, 200.0) - cv::Vec3d(0, 0, 1)), 1e-12);
  EXPECT_GT(view.ray(300.0, 200.0)[0], 0.0) << "columns run to the right";
  EXPECT_GT(view.ray(232.0, 300.0)[1], 0.0) << "rows run downwards";
}

TEST(View, PixelUndoesRay) {
  for (const View& view : {View::perspective({464, 400}, 100.0), View::lonLat({464, 400}, 200.0)}) {
    for (int row = 0; row < 400; row += 21) {
      for (int col = 0; col < 464; col += 21) {
        const cv::Point2d back = view.pixel(3.7 * view.ray(col, row));
        ASSERT_NEAR(back.x, col, 1e-9);
        ASSERT_NEAR(back.y, row, 1e-9);
      }
    }
  }
}

TEST(GroundTruth, DistanceIsWhatMarchingFinds) {
  const auto scene = makeScene();
  const Rig rig(1);
  const double time = 0.3;
  const std::vector<Solid> solids = scene->at(time).solids();
  for (const View& view : {View::perspective(frameSize, 90.0), View::lonLat(frameSize, 180.0)}) {
    const Truth truth = GroundTruth(scene, rig).at(view, time);
    ASSERT_EQ(truth.distance.type(), CV_64FC1);
    ASSERT_EQ(truth.distance.size(), frameSize);
    for (int row = 0; row < frameSize.height; row += 3) {
      for (int col = 0; col < frameSize.width; col += 3) {
        const cv::Vec3d ray = view.ray(col, row);
        ASSERT_NEAR(truth.distance.at<double>(row, col), test::march(solids, {0, 0, 0}, ray), 1e-5);
        ASSERT_NEAR(truth.depth.at<double>(row, col), truth.distance.at<double>(row, col) * ray[2], 1e-12);
      }
    }
  }
}

TEST(GroundTruth, DepthOnPanelsSolvesTheirPlaneEquation) {
  const auto scene = makeScene();
  const Rig rig(1);
  const std::vector<Solid> solids = scene->at(0.0).solids();
  const View view = View::perspective(frameSize, 90.0);
  const Truth truth = GroundTruth(scene, rig).at(view, 0.0);
  const double f = 58.0;
  int onPanels = 0;
  for (int row = 0; row < frameSize.height; ++row) {
    for (int col = 0; col < frameSize.width; ++col) {
      const Solid& solid = solids[static_cast<std::size_t>(truth.surface.at<int>(row, col) / 6)];
      if (solid.shape != Shape::panel) {
        continue;
      }
      // n . (Z (x, y, 1) - c) = 0 for the pixel's direction (x, y, 1).
      const cv::Vec3d normal = solid.rotation * cv::Vec3d(0, 0, 1);
      const cv::Vec3d direction((col - 57.5) / f, (row - 49.5) / f, 1.0);
      const double z = normal.dot(solid.center) / normal.dot(direction);
      ASSERT_NEAR(truth.depth.at<double>(row, col), z, 1e-9);
      ++onPanels;
    }
  }
  EXPECT_GT(onPanels, 0.3 * frameSize.area());
}

TEST(GroundTruth, PerspectiveDisparityIsFocalLengthTimesBaselineOverDepth) {
  const Rig rig(1);
  const Truth truth = GroundTruth(makeScene(), rig).at(View::perspective(frameSize, 90.0), 0.1);
  for (int row = 0; row < frameSize.height; ++row) {
    for (int col = 0; col < frameSize.width; ++col) {
      ASSERT_NEAR(truth.disparity.at<double>(row, col), 58.0 * rig.baseline() / truth.depth.at<double>(row, col), 1e-9);
    }
  }
}

TEST(GroundTruth, LonLatDisparityTriangulatesToTheDistance) {
  const Rig rig(1);
  const Truth truth = GroundTruth(makeScene(), rig).at(View::lonLat(frameSize, 180.0), 0.1);
  const double alpha = 180.0 / 222.0 * CV_PI;
  for (int row = 0; row < frameSize.height; ++row) {
    for (int col = 0; col < frameSize.width; ++col) {
      // In the triangle of both eyes and the point: baseline / sin(angle at the point) = distance / sin(angle at the
      // right eye), the angles at the eyes being counted from the baseline.
      const double atLeft = CV_PI / 2 + (col - frameSize.width / 2.0) * alpha / frameSize.width;
      const double atPoint = truth.disparity.at<double>(row, col) * alpha / frameSize.width;
      const double distance = rig.baseline() * std::sin(atLeft - atPoint) / std::sin(atPoint);
      ASSERT_NEAR(truth.distance.at<double>(row, col), distance, 1e-9);
    }
  }
}

TEST(GroundTruth, OccludedIsWhatTheRightEyesMarchNeverReaches) {
  const auto scene = makeScene();
  const Rig rig(1);
  const std::vector<Solid> solids = scene->at(0.0).solids();
  const View view = View::perspective(frameSize, 90.0);
  const Truth truth = GroundTruth(scene, rig).at(view, 0.0);
  int occluded = 0;
  int unoccluded = 0;
  for (int row = 0; row < frameSize.height; row += 2) {
    for (int col = 0; col < frameSize.width; col += 2) {
      const cv::Vec3d point = view.ray(col, row) * truth.distance.at<double>(row, col);
      const cv::Vec3d way = point - rig.eye(true).position;
      const double length = cv::norm(way);
      const double reached = test::march(solids, rig.eye(true).position, way / length);
      const bool isOccluded = truth.occluded.at<unsigned char>(row, col) != 0;
      if (reached < length - 1e-3) {
        ASSERT_TRUE(isOccluded) << col << " " << row;
        ASSERT_EQ(truth.seen.at<unsigned char>(row, col), 0);
        ++occluded;
      } else if (reached > length - 1e-5) {
        ASSERT_FALSE(isOccluded) << col << " " << row;
        ++unoccluded;
      }
    }
  }
  EXPECT_GT(occluded, 20);
  EXPECT_GT(unoccluded, 1000);
}

TEST(GroundTruth, SeenMeansInBothImages) {
  // The wide view's uppermost row looks 101 degrees off the axis, above what the frames' 800 rows hold.
  const GroundTruth truth(makeScene(), Rig(1));
  const Truth wide = truth.at(View::lonLat(frameSize, 250.0), 0.0);
  EXPECT_EQ(wide.seen.at<unsigned char>(0, frameSize.width / 2), 0);
  EXPECT_EQ(wide.seen.at<unsigned char>(frameSize.height / 2, frameSize.width / 2), 255);
  const Truth narrow = truth.at(View::perspective(frameSize, 90.0), 0.0);
  EXPECT_GT(cv::countNonZero(narrow.seen), 0.8 * frameSize.area());
}

TEST(GroundTruth, SceneOffersNearAndFarDepths) {
  const Truth truth = GroundTruth(makeScene(), Rig(1)).at(View::perspective(frameSize, 90.0), 0.0);
  double nearest = 0.0;
  double farthest = 0.0;
  cv::minMaxLoc(truth.depth, &nearest, &farthest);
  EXPECT_LT(nearest, 0.2);
  EXPECT_GT(nearest, 0.1);
  EXPECT_GT(farthest, 2.5);
  EXPECT_GT(cv::countNonZero((truth.depth > 0.2) & (truth.depth < 1.0)), 0.4 * frameSize.area());
}

TEST(GroundTruth, RangesAlongRaysAreTheDistancesOfTheView) {
  const GroundTruth truth(makeScene(), Rig(1));
  const View view = View::lonLat({96, 80}, 180.0);
  cv::Mat rays(view.size(), CV_32FC3);
  for (int row = 0; row < rays.rows; ++row) {
    for (int col = 0; col < rays.cols; ++col) {
      rays.at<cv::Vec3f>(row, col) = view.ray(col, row);
    }
  }
  const Truth expected = truth.at(view, 0.3);
  const RangeTruth along = truth.along(rays, 0.3);
  // Rays in single precision may fall on the other side of an edge.
  int other = 0;
  for (int row = 0; row < rays.rows; ++row) {
    for (int col = 0; col < rays.cols; ++col) {
      if (along.surface.at<int>(row, col) != expected.surface.at<int>(row, col)) {
        ++other;
        continue;
      }
      const double distance = expected.distance.at<double>(row, col);
      ASSERT_NEAR(along.range.at<float>(row, col), distance, 1e-4 * distance);
    }
  }
  EXPECT_LT(other, 5);
  EXPECT_LT(cv::countNonZero(along.seen != expected.seen), 5);
  EXPECT_GT(cv::countNonZero(along.seen), 3000);
}

}  // namespace
}  // namespace stereo::sim
