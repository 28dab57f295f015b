// SPDX-License-Identifier: Apache-2.0
#include "sim/Scene.hpp"

#include <cmath>
#include <stdexcept>

#include <gtest/gtest.h>

#include "tests/unit/sim/Marching.hpp"

namespace stereo::sim {
namespace {

std::vector<cv::Vec3d> randomRays(int count, std::uint64_t seed) {
  cv::RNG rng(seed);
  std::vector<cv::Vec3d> rays;
  while (static_cast<int>(rays.size()) < count) {
    const cv::Vec3d v(rng.uniform(-1.0, 1.0), rng.uniform(-1.0, 1.0), rng.uniform(-1.0, 1.0));
    const double length = cv::norm(v);
    if (length > 0.1 && length < 1.0) {
      rays.push_back(v / length);
    }
  }
  return rays;
}

double largestMove(const SceneSnapshot& a, const SceneSnapshot& b) {
  double largest = 0.0;
  for (std::size_t i = 0; i < a.solids().size(); ++i) {
    largest = std::max(largest, cv::norm(a.solids()[i].center - b.solids()[i].center));
  }
  return largest;
}

TEST(Scene, TraceFindsTheSurfaceThatMarchingFinds) {
  for (const std::uint32_t seed : {1U, 2U}) {
    const SceneSnapshot snapshot = Scene({.seed = seed}).at(0.37);
    for (const cv::Vec3d& origin : {cv::Vec3d(0, 0, 0), cv::Vec3d(0.06, 0, 0)}) {
      for (const cv::Vec3d& ray : randomRays(1500, seed)) {
        const Hit hit = snapshot.trace(origin, ray);
        ASSERT_NEAR(hit.distance, test::march(snapshot.solids(), origin, ray), 1e-5) << ray;
        ASSERT_LT(cv::norm(origin + hit.distance * ray - hit.point), 1e-12);
      }
    }
  }
}

TEST(Scene, HitNamesTheSolidAndItsNormal) {
  const SceneSnapshot snapshot = Scene({}).at(0.0);
  for (const cv::Vec3d& ray : randomRays(2000, 5)) {
    const Hit hit = snapshot.trace({0, 0, 0}, ray);
    const auto index = static_cast<std::size_t>(hit.surface / 6);
    ASSERT_LT(index, snapshot.solids().size());
    const Solid& solid = snapshot.solids()[index];
    ASSERT_NEAR(test::distanceTo(solid, index == 0, hit.point), 0.0, 1e-9);
    ASSERT_LT(cv::norm(solid.rotation * hit.local + solid.center - hit.point), 1e-9);
    ASSERT_NEAR(cv::norm(hit.normal), 1.0, 1e-9);
    // A step along the surface stays on it (to second order), a step along the normal leaves it.
    const cv::Vec3d along = cv::normalize(hit.normal.cross(cv::Vec3d(0.3, 0.5, 0.8)));
    ASSERT_LT(test::distanceTo(solid, index == 0, hit.point + 1e-4 * along), 1e-6);
    const double off = std::abs(test::distanceTo(solid, index == 0, hit.point + 1e-4 * hit.normal));
    const double offOther = std::abs(test::distanceTo(solid, index == 0, hit.point - 1e-4 * hit.normal));
    ASSERT_NEAR(std::max(off, offOther), 1e-4, 1e-8);
  }
}

TEST(Scene, NothingComesTooNearAndWallsStandAllRound) {
  const Scene scene({});
  for (const double time : {0.0, 0.5, 1.0, 1.5}) {
    const SceneSnapshot snapshot = scene.at(time);
    for (const cv::Vec3d& origin : {cv::Vec3d(0, 0, 0), cv::Vec3d(0.06, 0, 0)}) {
      for (const cv::Vec3d& ray : randomRays(2000, 11)) {
        const double distance = snapshot.trace(origin, ray).distance;
        ASSERT_GT(distance, 0.1);
        ASSERT_LT(distance, 5.0);
      }
    }
  }
}

TEST(Scene, MotionIsSmoothAndClosesAfterOnePeriod) {
  const Scene scene({.moving = true, .period = 3.0});
  EXPECT_LT(largestMove(scene.at(0.4), scene.at(3.4)), 1e-12);
  EXPECT_GT(largestMove(scene.at(0.0), scene.at(0.75)), 0.01);
  double before = 0.0;
  for (int i = 0; i < 300; ++i) {
    const double step = largestMove(scene.at(0.01 * i), scene.at(0.01 * (i + 1)));
    ASSERT_LT(step, 0.002) << "a jump at " << 0.01 * i << " s";
    before = std::max(before, step);
  }
  EXPECT_GT(before, 0.0);
}

TEST(Scene, FrozenSceneStandsAsAtTimeZero) {
  const Scene frozen({.moving = false});
  EXPECT_EQ(largestMove(frozen.at(0.0), frozen.at(0.7)), 0.0);
  EXPECT_EQ(largestMove(frozen.at(0.7), Scene({.moving = true}).at(0.0)), 0.0);
}

TEST(Scene, SeedDrawsShapeAndColor) {
  const SceneSnapshot one = Scene({.seed = 1}).at(0.0);
  const SceneSnapshot same = Scene({.seed = 1}).at(0.0);
  const SceneSnapshot two = Scene({.seed = 2}).at(0.0);
  EXPECT_EQ(largestMove(one, same), 0.0);
  EXPECT_GT(largestMove(one, two), 0.001);
  int differing = 0;
  for (const cv::Vec3d& ray : randomRays(200, 21)) {
    const Hit hit = one.trace({0, 0, 0}, ray);
    const Hit hitTwo = two.trace({0, 0, 0}, ray);
    ASSERT_EQ(one.color(hit, {0.03, 0, 0}, 0.004), same.color(hit, {0.03, 0, 0}, 0.004));
    differing += one.color(hit, {0.03, 0, 0}, 0.004) != two.color(hitTwo, {0.03, 0, 0}, 0.004) ? 1 : 0;
  }
  EXPECT_GT(differing, 180);
}

TEST(Scene, VisibleMeansNothingInBetween) {
  const SceneSnapshot snapshot = Scene({}).at(0.0);
  const cv::Vec3d eye(0, 0, 0);
  for (const cv::Vec3d& ray : randomRays(500, 31)) {
    const Hit hit = snapshot.trace(eye, ray);
    ASSERT_TRUE(snapshot.visible(eye, hit.point)) << "the surface hides itself";
    ASSERT_TRUE(snapshot.visible(eye, 0.9 * hit.point));
    ASSERT_FALSE(snapshot.visible(eye, 1.01 * hit.point)) << "seen through the surface";
  }
}

TEST(Scene, TextureFollowsAThingThatMoves) {
  // The same spot of the same solid keeps its color while the solid swings (as long as it stays as far off).
  const Scene scene({.moving = true, .period = 2.0});
  const SceneSnapshot before = scene.at(0.0);
  const SceneSnapshot after = scene.at(0.1);
  const std::size_t ball = 6;
  ASSERT_EQ(before.solids()[ball].shape, Shape::sphere);
  const cv::Vec3d move = after.solids()[ball].center - before.solids()[ball].center;
  ASSERT_GT(cv::norm(move), 0.001);
  int checked = 0;
  for (int i = -10; i <= 10; ++i) {
    for (int j = -10; j <= 10; ++j) {
      const cv::Vec3d direction = cv::normalize(before.solids()[ball].center + cv::Vec3d(0.005 * i, 0.005 * j, 0));
      const Hit hit = before.trace({0, 0, 0}, direction);
      if (hit.surface / 6 != static_cast<int>(ball)) {
        continue;
      }
      const Hit moved = after.trace(move, direction);
      ASSERT_EQ(moved.surface, hit.surface);
      const cv::Vec3b a = before.color(hit, {0, 0, 0}, 0.004);
      const cv::Vec3b b = after.color(moved, move, 0.004);
      for (int c = 0; c < 3; ++c) {
        ASSERT_NEAR(a[c], b[c], 1);
      }
      ++checked;
    }
  }
  EXPECT_GT(checked, 100);
}

TEST(Scene, PeriodMustBeAboveZero) {
  EXPECT_THROW(Scene({.period = 0.0}), std::invalid_argument);
  EXPECT_THROW(Scene({.period = -1.0}), std::invalid_argument);
}

}  // namespace
}  // namespace stereo::sim
