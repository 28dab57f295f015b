// SPDX-License-Identifier: Apache-2.0
#include "sim/Conditions.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sim/Renderer.hpp"
#include "sim/SimulatedCamera.hpp"
#include "tests/support/Images.hpp"
#include "tests/unit/sim/Marching.hpp"

namespace stereo::sim {
namespace {

using stereo::test::halfSize;

std::string refusalOf(const std::string& text) {
  try {
    parseConditions(text);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "";
}

SceneSnapshot roomWith(std::uint32_t seed, const Scenery& scenery) {
  return Scene({.seed = seed, .moving = false, .period = 2.0, .scenery = scenery}).at(0.0);
}

TEST(Conditions, TextSetsEveryValue) {
  const Conditions all = parseConditions(
      "blur=1.5,noise=3,gain=-10,contrast=0.5,things=20,near-things=2,poles=4,near-poles=3,plates=5,"
      "plain-walls=1,plain-things=30,plain-blend=80,rows=0.5,yaw=-0.25,pitch=0.125");
  EXPECT_EQ(all.picture.blur, 1.5);
  EXPECT_EQ(all.picture.noise, 3.0);
  EXPECT_EQ(all.picture.gain, -10.0);
  EXPECT_EQ(all.picture.contrast, 0.5);
  EXPECT_EQ(all.scenery.things, 20);
  EXPECT_EQ(all.scenery.nearThings, 2);
  EXPECT_EQ(all.scenery.poles, 4);
  EXPECT_EQ(all.scenery.nearPoles, 3);
  EXPECT_EQ(all.scenery.plates, 5);
  EXPECT_TRUE(all.scenery.plainWalls);
  EXPECT_EQ(all.scenery.plainThings, 30.0);
  EXPECT_EQ(all.scenery.plain, 80.0);
  EXPECT_EQ(all.calibration.rows, 0.5);
  EXPECT_EQ(all.calibration.yaw, -0.25);
  EXPECT_EQ(all.calibration.pitch, 0.125);
}

TEST(Conditions, NamesStandForSetsThatLaterValuesChange) {
  EXPECT_TRUE(parseConditions("").picture.changesNothing());
  EXPECT_EQ(parseConditions("rich").picture.noise, 2.0);
  const Conditions hard = parseConditions("hard,noise=1");
  EXPECT_EQ(hard.picture.blur, 1.0);
  EXPECT_EQ(hard.picture.noise, 1.0);
  EXPECT_EQ(hard.picture.gain, 10.0);
  EXPECT_EQ(hard.picture.contrast, 0.5);
  const Conditions plain = parseConditions("plain");
  EXPECT_TRUE(plain.scenery.plainWalls);
  EXPECT_EQ(plain.scenery.plainThings, 40.0);
  EXPECT_EQ(plain.scenery.plain, 90.0);
  EXPECT_EQ(plain.picture.noise, 3.0);
  EXPECT_EQ(plain.picture.blur, 0.0);
}

TEST(Conditions, WhatCannotBeReadIsRefusedInOneLine) {
  for (const char* const text : {"fog", "noise", "noise=", "noise=loud", "noise=3x", "noise=101", "noise=nan",
                                 "noise=1e999", "poles=1.5", "poles=-1", "plain-walls=2", "rich=1", ",", "noise=3 "}) {
    const std::string message = refusalOf(text);
    EXPECT_FALSE(message.empty()) << text;
    EXPECT_THAT(message, testing::Not(testing::HasSubstr("\n"))) << text;
  }
  EXPECT_THAT(refusalOf("noise=101"), testing::HasSubstr("noise takes a number from 0 to 100"));
  EXPECT_THAT(refusalOf("fog"), testing::HasSubstr("rich, hard, plain"));
}

TEST(Conditions, RandomRoomsLeaveRoomForTheEyes) {
  for (std::uint32_t seed = 1; seed <= 30; ++seed) {
    const SceneSnapshot room = roomWith(seed, {.things = 40, .nearThings = 3});
    ASSERT_EQ(room.solids().size(), 44U);
    for (const double aside : {0.0, 0.05, 0.06, 0.07, 0.08}) {
      const cv::Vec3d eye(aside, 0, 0);
      EXPECT_GT(test::distanceTo(room.solids()[0], true, eye), 0.7) << seed;
      for (std::size_t i = 1; i < room.solids().size(); ++i) {
        EXPECT_GT(test::distanceTo(room.solids()[i], false, eye), 0.004) << "seed " << seed << ", solid " << i;
        if (room.solids()[i].shape == Shape::sphere) {
          EXPECT_GT(cv::norm(eye - room.solids()[i].center), room.solids()[i].halfExtent[0]) << "outside";
        }
      }
    }
  }
}

TEST(Conditions, NearThingsAreNearAndRandomRoomsReachFar) {
  const auto nearest = [](const SceneSnapshot& room) {
    double least = 1e9;
    for (std::size_t i = 1; i < room.solids().size(); ++i) {
      least = std::min(least, test::distanceTo(room.solids()[i], false, {0, 0, 0}));
    }
    return least;
  };
  double farthest = 0.0;
  for (std::uint32_t seed = 1; seed <= 10; ++seed) {
    EXPECT_GT(nearest(roomWith(seed, {.things = 40})), 0.109) << seed;
    const double near = nearest(roomWith(seed, {.things = 40, .nearThings = 3}));
    EXPECT_GT(near, 0.049);
    EXPECT_LT(near, 0.1);
    farthest = std::max(farthest, roomWith(seed, {.things = 40}).trace({0, 0, 0}, {0, 0, 1}).distance);
  }
  EXPECT_GT(farthest, 3.0);
}

TEST(Conditions, PlainSurfacesLoseTheirTextureAndKeepTheirColor) {
  const SceneSnapshot rich = roomWith(3, {.things = 40});
  const SceneSnapshot plain = roomWith(3, {.things = 40, .plainWalls = true, .plainThings = 40.0});
  const auto plainThings = std::count_if(plain.solids().begin() + 1, plain.solids().end(),
                                         [](const Solid& solid) { return solid.plain > 0.0; });
  EXPECT_NEAR(static_cast<double>(plainThings), 16.0, 8.0);
  EXPECT_EQ(plain.solids()[0].plain, 0.9);
  // A short way along one wall: the deviation of the colors shrinks to a tenth.
  std::vector<double> levels[2];
  for (int n = 0; n < 400; ++n) {
    const cv::Vec3d ray = cv::normalize(cv::Vec3d(0.2 + 0.002 * n, -0.9, 0.5));
    const Hit hit = rich.trace({0, 0, 0}, ray);
    if (hit.surface < 6) {
      levels[0].push_back(rich.color(hit, {0.03, 0, 0}, 0.004)[1]);
      levels[1].push_back(plain.color(hit, {0.03, 0, 0}, 0.004)[1]);
    }
  }
  ASSERT_GT(levels[0].size(), 100U);
  cv::Scalar mean[2];
  cv::Scalar deviation[2];
  for (const int n : {0, 1}) {
    cv::meanStdDev(levels[n], mean[n], deviation[n]);
  }
  EXPECT_LT(deviation[1][0], 0.2 * deviation[0][0]);
  EXPECT_NEAR(mean[1][0], mean[0][0], 30.0) << "the same color, but for the texture's own mean";
}

TEST(Conditions, PlatesAreCheckeredAndNearPolesNear) {
  const std::size_t before = roomWith(1, {}).solids().size();
  const SceneSnapshot room = roomWith(1, {.nearPoles = 3, .plates = 4});
  ASSERT_EQ(room.solids().size(), before + 7);
  for (std::size_t i = before; i < before + 3; ++i) {
    EXPECT_GT(test::distanceTo(room.solids()[i], false, {0, 0, 0}), 0.1);
    EXPECT_LT(test::distanceTo(room.solids()[i], false, {0, 0, 0}), 0.4);
    EXPECT_LE(room.solids()[i].halfExtent[0], 0.015);
  }
  for (std::size_t i = before + 3; i < before + 7; ++i) {
    const Solid& plate = room.solids()[i];
    ASSERT_GT(plate.square, 0.0);
    // Half the plate is bright; colors change to the next square, and not to the one after it.
    const auto brightness = [&](double x, double y) {
      const cv::Vec3d local(x * plate.square, y * plate.square, 0.0);
      const cv::Vec3d point = plate.rotation * local + plate.center;
      const Hit hit{cv::norm(point), static_cast<int>(6 * i), point, local, cv::normalize(plate.center)};
      return static_cast<int>(room.color(hit, {0, 0, 0}, 1e-4)[1]);
    };
    EXPECT_GT(std::abs(brightness(0.5, 0.5) - brightness(1.5, 0.5)), 50);
    EXPECT_GT(std::abs(brightness(0.5, 0.5) - brightness(0.5, -0.5)), 50);
    EXPECT_NEAR(brightness(0.5, 0.5), brightness(1.5, 1.5), 2);
    EXPECT_NEAR(brightness(0.5, 0.5), brightness(-1.5, 0.5), 2);
    EXPECT_NEAR(2 * brightness(1.0, 0.5), brightness(0.5, 0.5) + brightness(1.5, 0.5), 6);
  }
}

TEST(Conditions, PolesAreThinAndUpright) {
  const SceneSnapshot without = roomWith(1, {});
  const SceneSnapshot with = roomWith(1, {.poles = 6});
  ASSERT_EQ(with.solids().size(), without.solids().size() + 6);
  for (std::size_t i = without.solids().size(); i < with.solids().size(); ++i) {
    const Solid& pole = with.solids()[i];
    EXPECT_LE(pole.halfExtent[0], 0.012);
    EXPECT_GT(std::abs(pole.rotation(1, 1)), 0.98) << "its length is upright";
    const double distance = std::hypot(pole.center[0], pole.center[2]);
    EXPECT_GE(distance, 0.4);
    EXPECT_LE(distance, 3.0);
  }
}

TEST(Conditions, AWrongCalibrationMovesTheRightEyeAlone) {
  const Rig exact(2);
  const Rig wrong({.seed = 2, .error = {.rows = 0.5, .yaw = 0.3}});
  EXPECT_EQ(exact.project(true, {0.1, 0.2, 1.0}, {1856, 800}), wrong.project(true, {0.1, 0.2, 1.0}, {1856, 800}))
      << "what the eyes see stays";
  const std::vector<cv::Mat> left[2] = {exact.calibParams(false), wrong.calibParams(false)};
  const std::vector<cv::Mat> right[2] = {exact.calibParams(true), wrong.calibParams(true)};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(cv::norm(left[0][i], left[1][i], cv::NORM_INF), 0.0) << i;
  }
  EXPECT_NEAR(right[1][0].at<double>(1, 2) - right[0][0].at<double>(1, 2), 0.5, 1e-12);
  const cv::Matx33d turned = cv::Matx33d(right[1][3]) * cv::Matx33d(right[0][3]).t();
  EXPECT_NEAR(std::atan2(turned(0, 2), turned(2, 2)) * 180.0 / CV_PI, 0.3, 1e-9);
  EXPECT_NEAR(cv::norm(right[1][4]), cv::norm(right[0][4]), 1e-9) << "the baseline stays";
  // Pitch tilts the axis that was straight ahead up, without moving it aside.
  const Rig pitched({.seed = 2, .error = {.pitch = 0.3}});
  const cv::Vec3d ahead = cv::Matx33d(pitched.calibParams(true)[3]) * cv::Matx33d(right[0][3]).t() * cv::Vec3d(0, 0, 1);
  EXPECT_NEAR(std::atan2(-ahead[1], ahead[2]) * 180.0 / CV_PI, 0.3, 1e-9);
  EXPECT_NEAR(ahead[0], 0.0, 1e-12);
}

TEST(Conditions, RigsMayBeBuiltDifferently) {
  const Rig wide({.seed = 4, .baseline = 0.08, .xi = 1.2, .focal = 0.95, .turn = {1.0, -2.0, 0.5}});
  EXPECT_NEAR(wide.baseline(), 0.08, 0.001);
  EXPECT_NEAR(wide.eye(false).model.xi, 1.2, 0.05);
  EXPECT_LT(wide.eye(false).model.fx, Rig({.seed = 4, .baseline = 0.08, .xi = 1.2}).eye(false).model.fx - 10.0);
  const cv::Matx33d between = wide.eye(true).rotation * Rig(4).eye(true).rotation.t();
  EXPECT_NEAR(std::acos((cv::trace(between) - 1.0) / 2.0) * 180.0 / CV_PI, std::sqrt(5.25), 0.05);
}

TEST(Conditions, CameraTakesThem) {
  SimulatedCamera camera({.frameSize = halfSize,
                          .rate = 0,
                          .seed = 3,
                          .moving = false,
                          .conditions = parseConditions("hard,things=10,rows=1")});
  std::vector<cv::Mat> params;
  ASSERT_TRUE(camera.getCalibParams(params, true));
  EXPECT_NEAR(params[0].at<double>(1, 2) - Rig(3).calibParams(true)[0].at<double>(1, 2), 1.0, 1e-12);
  EXPECT_EQ(camera.scene()->at(0.0).solids().size(), 11U);
  cv::Mat frame;
  ASSERT_TRUE(camera.capture().read(frame));
  const cv::Mat clean = Renderer(camera.scene(), camera.rig(), halfSize).render(0.0);
  EXPECT_EQ(cv::norm(frame, Degrader(parseConditions("hard").picture, 3).apply(clean, 0), cv::NORM_INF), 0.0);
}

}  // namespace
}  // namespace stereo::sim
