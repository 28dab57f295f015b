// SPDX-License-Identifier: Apache-2.0
// The judge's scenes and peers.
#include "bench/wide/Sample.hpp"

#include <cmath>
#include <filesystem>
#include <fstream>
#include <set>

#include <gtest/gtest.h>

#include "bench/wide/Engine.hpp"
#include "bench/wide/Score.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/TempDir.hpp"

namespace stereo::wide {
namespace {

using stereo::test::sameBits;

const View view{{116, 100}, 180.0, 172.0};

std::size_t filesIn(const std::string& folder) {
  std::size_t count = 0;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    count += entry.is_regular_file() ? 1 : 0;
  }
  return count;
}

TEST(WideView, RaysAreUnitAndComeBackToTheirPixels) {
  const cv::Mat rays = view.rays();
  for (int row = 0; row < view.size.height; ++row) {
    for (int col = 0; col < view.size.width; ++col) {
      const cv::Vec3d ray = rays.at<cv::Vec3f>(row, col);
      ASSERT_NEAR(cv::norm(ray), 1.0, 1e-6);
      const cv::Point2d pixel = view.pixel(3.0 * ray);
      ASSERT_NEAR(pixel.x, col, 1e-3);
      ASSERT_NEAR(pixel.y, row, 1e-3);
    }
  }
}

TEST(WideView, RowsAreEpipolarLines) {
  const cv::Vec3d point(0.3, -0.5, 0.9);
  EXPECT_NEAR(view.pixel(point).y, view.pixel(point - cv::Vec3d(0.06, 0, 0)).y, 1e-9);
  EXPECT_GT(view.pixel(point).x, view.pixel(point - cv::Vec3d(0.06, 0, 0)).x);
}

TEST(WideCases, FinalScenesShareNothingWithThoseForTuning) {
  std::set<std::uint32_t> rigs;
  std::set<std::uint32_t> seeds;
  for (const SceneOfRig& scene : tuningScenes()) {
    rigs.insert(scene.rig.seed);
    seeds.insert(scene.seed);
  }
  EXPECT_GE(rigs.size(), 2U);
  std::set<std::uint32_t> others;
  for (const SceneOfRig& scene : finalScenes()) {
    EXPECT_EQ(rigs.count(scene.rig.seed), 0U);
    EXPECT_TRUE(seeds.insert(scene.seed).second);
    others.insert(scene.rig.seed);
  }
  EXPECT_GE(others.size(), 2U);
}

TEST(WideSample, KeptSamplesAreTheRenderedOnes) {
  const stereo::test::TempDir folder;
  const SceneOfRig scene = tuningScenes()[1];
  const std::vector<Case> cases = allCases();
  const Sample rendered = SampleCache("").sample(scene, cases[0], view);
  const SampleCache cache(folder / "kept");
  const Sample first = cache.sample(scene, cases[0], view);
  const Sample second = cache.sample(scene, cases[0], view);
  for (const Sample* const sample : {&first, &second}) {
    EXPECT_TRUE(sameBits(sample->left, rendered.left));
    EXPECT_TRUE(sameBits(sample->right, rendered.right));
    EXPECT_TRUE(sameBits(sample->truth.range, rendered.truth.range));
    EXPECT_TRUE(sameBits(sample->truth.seen, rendered.truth.seen));
    EXPECT_TRUE(sameBits(sample->inside, rendered.inside));
  }
  EXPECT_EQ(filesIn(folder / "kept"), 1U);
  cache.sample(scene, cases[1], view);
  EXPECT_EQ(filesIn(folder / "kept"), 1U) << "hard is the same room";
  cache.sample(scene, cases[2], view);
  EXPECT_EQ(filesIn(folder / "kept"), 2U) << "plain is not";
  // A file that ends early is rendered again.
  for (const auto& entry : std::filesystem::directory_iterator(folder / "kept")) {
    std::filesystem::resize_file(entry.path(), 1000);
  }
  EXPECT_TRUE(sameBits(cache.sample(scene, cases[0], view).left, rendered.left));
}

TEST(WideSample, RoomsHaveWhatTheJudgeLooksAt) {
  const Sample sample = SampleCache("").sample(tuningScenes()[1], allCases()[2], view);
  const cv::Mat& range = sample.truth.range;
  EXPECT_GT(cv::countNonZero(range < 0.1), 50) << "nearer than nearest";
  EXPECT_GT(cv::countNonZero((range >= 0.1) & (range < 0.3)), 100);
  EXPECT_GT(cv::countNonZero((range >= 1.0) & (range < 3.0)), 1000);
  EXPECT_GT(cv::countNonZero(sample.plain), 3000);
  EXPECT_GT(cv::countNonZero(sample.plain == 0), 500);
  EXPECT_GT(cv::countNonZero(sample.truth.seen), 6000);
  EXPECT_GT(cv::countNonZero(sample.truth.seen == 0), 200);
}

TEST(WidePeers, MeasureTheTruth) {
  // Semi-global matching in the middle of a rich room: where it is valid, mostly right.
  View fine;
  fine.size = {464, 400};
  const SceneOfRig scene = tuningScenes()[0];
  const Sample sample = SampleCache("").sample(scene, allCases()[0], fine);
  const sim::Rig rig(scene.rig);
  const Camera camera{{rig.calibParams(false), rig.calibParams(true)}, sample.left.size()};
  for (const EngineKind& peer : peerEngines()) {
    Score score{Limits{}};
    score.add(sample, peer.make(camera, {.view = fine})->measure(sample.left, sample.right), fine);
    const Figures figures = score.figures();
    EXPECT_GT(figure(figures, "ring 15-30 valid"), 85.0) << peer.name;
    EXPECT_LT(figure(figures, "ring 15-30 wrong"), 15.0) << peer.name;
    EXPECT_LT(figure(figures, "band 0.3-1 median"), 2.0) << peer.name;
    EXPECT_NEAR(figure(figures, "band 0.3-1 bias"), 0.0, 1.0) << peer.name;
  }
}

}  // namespace
}  // namespace stereo::wide
