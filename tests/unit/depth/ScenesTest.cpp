// SPDX-License-Identifier: Apache-2.0
// Wide depth of simulated scenes against the truth.
#include <cmath>
#include <map>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "src/core/InstructionSet.hpp"
#include "tests/unit/core/FastPaths.hpp"
#include "tests/unit/depth/SimulatedEyes.hpp"

using namespace stereo;
using stereo::test::eyeSize;
using test::SimulatedEyes;

namespace {

bool areSame(const WideDepthImage& a, const WideDepthImage& b) {
  return cv::norm(a.range, b.range, cv::NORM_INF) == 0.0 && cv::norm(a.state, b.state, cv::NORM_INF) == 0.0 &&
         cv::norm(a.confidence, b.confidence, cv::NORM_INF) == 0.0 && cv::norm(a.view, b.view, cv::NORM_INF) == 0.0;
}

}  // namespace

TEST(WideDepthScenes, MostPixelsAreMeasuredAndRight) {
  const SimulatedEyes eyes;
  const WideDepthOptions options = test::smallView();
  WideDepth depth(eyes.calibration(), eyeSize, options);
  const SimulatedEyes::Pair pair = eyes.at(0.0);
  WideDepthImage image;
  depth.compute(pair.left, pair.right, image);
  const test::Accuracy found = test::accuracyOf(image, eyes.truth(depth.rays(), 0.0), eyes.seen(depth.rays(), 0.0),
                                                options.nearest, options.farthest);
  EXPECT_GT(found.valid, 75.0);
  EXPECT_LT(found.wrong, 6.0);
  EXPECT_LT(found.median, 1.2);
}

TEST(WideDepthScenes, AFinerViewOfTheSameIsAsGood) {
  const SimulatedEyes eyes;
  WideDepthOptions options = test::smallView();
  options.size = {931, 797};  // five times as fine as is matched, with a rest
  WideDepth depth(eyes.calibration(), eyeSize, options);
  const SimulatedEyes::Pair pair = eyes.at(0.0);
  WideDepthImage image;
  depth.compute(pair.left, pair.right, image);
  ASSERT_EQ(image.range.size(), options.size);
  const test::Accuracy found = test::accuracyOf(image, eyes.truth(depth.rays(), 0.0), eyes.seen(depth.rays(), 0.0),
                                                options.nearest, options.farthest);
  EXPECT_GT(found.valid, 80.0);
  EXPECT_LT(found.wrong, 6.0);
  EXPECT_LT(found.median, 1.0);
}

TEST(WideDepthScenes, ImagesBelongTogether) {
  const SimulatedEyes eyes;
  WideDepth depth(eyes.calibration(), eyeSize, test::smallView());
  const SimulatedEyes::Pair pair = eyes.at(0.0);
  WideDepthImage image;
  depth.compute(pair.left, pair.right, image);
  ASSERT_EQ(image.range.type(), CV_32FC1);
  ASSERT_EQ(image.state.type(), CV_8UC1);
  ASSERT_EQ(image.confidence.type(), CV_8UC1);
  ASSERT_EQ(image.view.type(), CV_8UC3);
  ASSERT_EQ(depth.rays().type(), CV_32FC3);
  std::map<int, int> states;
  for (int row = 0; row < image.range.rows; ++row) {
    for (int column = 0; column < image.range.cols; ++column) {
      const float range = image.range.at<float>(row, column);
      const int state = image.state.at<unsigned char>(row, column);
      ++states[state];
      ASSERT_EQ(range > 0, state == 0);
      ASSERT_EQ(range > 0, image.confidence.at<unsigned char>(row, column) > 0);
      ASSERT_TRUE(range == 0 || (range >= 0.2F && range <= 10.0F));
      ASSERT_LE(state, 5);
    }
  }
  EXPECT_GT(states[static_cast<int>(RangeState::measured)], 20000);
  EXPECT_GT(states[static_cast<int>(RangeState::inconsistent)], 100);
}

TEST(WideDepthScenes, ThingsBeyondTheLimitsSaySo) {
  const SimulatedEyes eyes;
  WideDepthOptions options = test::smallView();
  options.farthest = 1.0;
  WideDepth depth(eyes.calibration(), eyeSize, options);
  const SimulatedEyes::Pair pair = eyes.at(0.0);
  WideDepthImage image;
  depth.compute(pair.left, pair.right, image);
  const cv::Mat truth = eyes.truth(depth.rays(), 0.0);
  const int far = cv::countNonZero(truth > 1.2);
  const int said = cv::countNonZero((truth > 1.2) & (image.state == static_cast<int>(RangeState::tooFar)));
  EXPECT_GT(said, far / 2);
  EXPECT_LT(cv::countNonZero((truth > 1.2) & (image.range > 0)), far / 50);
}

namespace {

// Of the pixels nearer than `limit` (meters): how many there are, and percent of them reported over 1.25 times too far.
struct FalseFar {
  int near = 0;
  double percent = 0.0;
};

FalseFar falseFarOf(const sim::Scene::Options& scene, float limit) {
  const SimulatedEyes eyes(scene);
  WideDepthOptions options = test::smallView();
  options.nearest = 0.1;
  WideDepth depth(eyes.calibration(), eyeSize, options);
  const SimulatedEyes::Pair pair = eyes.at(0.0);
  WideDepthImage image;
  depth.compute(pair.left, pair.right, image);
  const cv::Mat truth = eyes.truth(depth.rays(), 0.0);
  FalseFar found;
  int tooFar = 0;
  for (int row = 0; row < truth.rows; ++row) {
    for (int column = 0; column < truth.cols; ++column) {
      const float t = truth.at<float>(row, column);
      found.near += t < limit ? 1 : 0;
      tooFar += t < limit && (image.range.at<float>(row, column) > 1.25F * t ||
                              image.state.at<unsigned char>(row, column) == static_cast<int>(RangeState::tooFar))
                    ? 1
                    : 0;
    }
  }
  found.percent = 100.0 * tooFar / found.near;
  return found;
}

}  // namespace

TEST(WideDepthScenes, NearThingsAreNotReportedFar) {
  sim::Scene::Options scene{.seed = 3, .moving = false};
  scene.scenery.things = 20;
  scene.scenery.nearThings = 3;
  const FalseFar found = falseFarOf(scene, 0.3F);
  EXPECT_GT(found.near, 1000);
  EXPECT_LT(found.percent, 1.0);
}

TEST(WideDepthScenes, TextureThatRepeatsIsNotReportedFar) {
  for (const std::uint32_t seed : {1U, 2U, 3U}) {
    sim::Scene::Options scene{.seed = seed, .moving = false};
    scene.scenery.things = 1;
    scene.scenery.plates = 4;
    const FalseFar found = falseFarOf(scene, 0.8F);
    EXPECT_GT(found.near, 2000);
    EXPECT_LT(found.percent, 1.0) << seed;
  }
}

TEST(WideDepthScenes, AllInstructionSetsAndThreadsGiveTheSameBits) {
  const SimulatedEyes eyes;
  const SimulatedEyes::Pair pair = eyes.at(0.0);
  WideDepthImage expected;
  bool isFirst = true;
  for (const int threads : {1, 2, 0}) {
    test::withEachInstructionSet([&] {
      WideDepthOptions options = test::smallView();
      options.threads = threads;
      options.selfCalibrate = true;
      options.fuse = true;
      WideDepth depth(eyes.calibration(), eyeSize, options);
      WideDepthImage image;
      depth.compute(pair.left, pair.right, image);
      depth.compute(pair.left, pair.right, image);
      if (isFirst) {
        expected = image;
        isFirst = false;
      }
      EXPECT_TRUE(areSame(image, expected)) << threads << " threads";
    });
  }
}

TEST(WideDepthScenes, ResultsThatTheCallerSharesAreNotOverwritten) {
  const SimulatedEyes eyes;
  WideDepth depth(eyes.calibration(), eyeSize, test::smallView());
  const SimulatedEyes::Pair pair = eyes.at(0.0);
  WideDepthImage image;
  depth.compute(pair.left, pair.right, image);
  const WideDepthImage shared = image;
  const cv::Mat copy = image.range.clone();
  depth.compute(cv::Mat::zeros(eyeSize, CV_8UC3), cv::Mat::zeros(eyeSize, CV_8UC3), image);
  EXPECT_NE(image.range.data, shared.range.data);
  EXPECT_NE(image.view.data, shared.view.data);
  EXPECT_EQ(cv::norm(shared.range, copy, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::countNonZero(image.range > 0), 0);
}

TEST(WideDepthScenes, AnObjectMayMove) {
  const SimulatedEyes eyes;
  const SimulatedEyes::Pair pair = eyes.at(0.0);
  WideDepth first(eyes.calibration(), eyeSize, test::smallView());
  WideDepthImage expected;
  first.compute(pair.left, pair.right, expected);
  WideDepth second(std::move(first));
  WideDepthImage image;
  second.compute(pair.left, pair.right, image);
  EXPECT_TRUE(areSame(image, expected));
}
