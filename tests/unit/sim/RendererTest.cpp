// SPDX-License-Identifier: Apache-2.0
#include "sim/Renderer.hpp"

#include <algorithm>
#include <cmath>
#include <memory>
#include <stdexcept>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "sim/GroundTruth.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/Threads.hpp"

namespace stereo::sim {
namespace {

using stereo::test::halfSize;
using stereo::test::sameBits;

std::shared_ptr<const Scene> makeScene(std::uint32_t seed, bool moving) {
  return std::make_shared<const Scene>(Scene::Options{.seed = seed, .moving = moving, .period = 2.0});
}

double shareOfDifferingPixels(const cv::Mat& a, const cv::Mat& b) {
  cv::Mat difference;
  cv::absdiff(a, b, difference);
  cv::Mat any;
  cv::transform(difference, any, cv::Matx13f(1, 1, 1));
  return static_cast<double>(cv::countNonZero(any)) / static_cast<double>(any.total());
}

cv::Vec3d sampleBilinear(const cv::Mat& image, const cv::Point2d& at) {
  const int x = static_cast<int>(at.x);
  const int y = static_cast<int>(at.y);
  const double tx = at.x - x;
  const double ty = at.y - y;
  const auto pixel = [&](int dy, int dx) { return cv::Vec3d(image.at<cv::Vec3b>(y + dy, x + dx)); };
  return (1 - ty) * ((1 - tx) * pixel(0, 0) + tx * pixel(0, 1)) + ty * ((1 - tx) * pixel(1, 0) + tx * pixel(1, 1));
}

double medianOf(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
  return values[values.size() / 2];
}

TEST(Renderer, SameSeedSameBitsOnAnyNumberOfThreads) {
  cv::Mat reference;
  for (const int count : {1, 2, 3}) {
    const stereo::test::Threads threads(count);
    const cv::Mat frame = Renderer(makeScene(3, true), Rig(3), halfSize).render(0.4);
    ASSERT_EQ(frame.size(), halfSize);
    ASSERT_EQ(frame.type(), CV_8UC3);
    if (reference.empty()) {
      reference = frame;
    }
    EXPECT_TRUE(sameBits(reference, frame)) << count << " threads";
  }
}

TEST(Renderer, AnotherSeedGivesAnotherPicture) {
  const cv::Mat one = Renderer(makeScene(1, true), Rig(1), halfSize).render(0.0);
  const cv::Mat two = Renderer(makeScene(2, true), Rig(1), halfSize).render(0.0);
  EXPECT_GT(shareOfDifferingPixels(one, two), 0.5);
}

TEST(Renderer, MovingSceneMovesAndFrozenSceneDoesNot) {
  const Renderer moving(makeScene(1, true), Rig(1), halfSize);
  const cv::Mat start = moving.render(0.0);
  EXPECT_GT(shareOfDifferingPixels(start, moving.render(0.5)), 0.02);
  EXPECT_TRUE(sameBits(start, moving.render(2.0))) << "one period later";
  const Renderer frozen(makeScene(1, false), Rig(1), halfSize);
  EXPECT_TRUE(sameBits(frozen.render(0.0), frozen.render(0.5)));
  EXPECT_TRUE(sameBits(frozen.render(0.5), start));
}

TEST(Renderer, FieldIsLitAndTheRestNearlyBlack) {
  const Rig rig(1);
  const cv::Mat frame = Renderer(makeScene(1, false), rig, halfSize).render(0.0);
  for (const bool isRight : {false, true}) {
    const model::OmniModel m = rig.modelFor(isRight, halfSize);
    const cv::Mat eye = frame(cv::Rect(isRight ? 464 : 0, 0, 464, 400));
    double inside = 0.0;
    int insideCount = 0;
    for (int row = 0; row < 400; ++row) {
      for (int col = 0; col < 464; ++col) {
        const cv::Vec3b& pixel = eye.at<cv::Vec3b>(row, col);
        const double radius = std::hypot(col - m.cx, row - m.cy);
        if (radius > 235.0) {
          ASSERT_LE(std::max({pixel[0], pixel[1], pixel[2]}), 12) << col << " " << row;
          ASSERT_GE(std::max({pixel[0], pixel[1], pixel[2]}), 1) << col << " " << row;
        } else if (radius < 225.0) {
          inside += pixel[1];
          ++insideCount;
        }
      }
    }
    EXPECT_GT(inside / insideCount, 60.0);
    EXPECT_LT(inside / insideCount, 200.0);
  }
}

TEST(Renderer, BothEyesSeeTheSameColorOfTheSamePoint) {
  const auto scene = makeScene(1, false);
  const Rig rig(1);
  const cv::Mat frame = Renderer(scene, rig, halfSize).render(0.0);
  const cv::Mat left = frame(cv::Rect(0, 0, 464, 400));
  const cv::Mat right = frame(cv::Rect(464, 0, 464, 400));
  const View view = View::perspective({232, 200}, 90.0);
  const Truth truth = GroundTruth(scene, rig).at(view, 0.0);
  std::vector<double> differences;
  std::vector<double> shifted;
  for (int row = 2; row < 198; row += 2) {
    for (int col = 2; col < 230; col += 2) {
      // Away from edges, where a pixel's neighbours belong to another surface.
      const cv::Mat around = truth.surface(cv::Rect(col - 2, row - 2, 5, 5));
      const cv::Mat seen = truth.seen(cv::Rect(col - 2, row - 2, 5, 5));
      if (cv::countNonZero(around != around.at<int>(2, 2)) != 0 || cv::countNonZero(seen) != 25) {
        continue;
      }
      const cv::Vec3d point = view.ray(col, row) * truth.distance.at<double>(row, col);
      const auto u = rig.project(false, point, halfSize);
      const auto v = rig.project(true, point, halfSize);
      ASSERT_TRUE(u && v);
      const cv::Vec3d seenLeft = sampleBilinear(left, *u);
      differences.push_back(cv::norm(seenLeft - sampleBilinear(right, *v), cv::NORM_INF));
      shifted.push_back(cv::norm(seenLeft - sampleBilinear(right, *v + cv::Point2d(4, 0)), cv::NORM_INF));
    }
  }
  ASSERT_GT(differences.size(), 3000U);
  EXPECT_LT(medianOf(differences), 3.0);
  EXPECT_GT(medianOf(shifted), 5.0 * medianOf(differences)) << "the texture is too flat to tell points apart";
}

TEST(Renderer, TextureSuitsAMatcherWithNinePixelBlocks) {
  const Rig rig(1);
  const cv::Mat frame = Renderer(makeScene(1, false), rig, halfSize).render(0.0);
  cv::Mat gray;
  cv::cvtColor(frame(cv::Rect(0, 0, 464, 400)), gray, cv::COLOR_BGR2GRAY);
  gray.convertTo(gray, CV_64F);
  cv::Mat mean;
  cv::Mat meanSquare;
  cv::boxFilter(gray, mean, CV_64F, {9, 9});
  cv::boxFilter(gray.mul(gray), meanSquare, CV_64F, {9, 9});
  const cv::Mat variance = meanSquare - mean.mul(mean);
  int flat = 0;
  int count = 0;
  for (int row = 60; row < 340; ++row) {
    for (int col = 80; col < 384; ++col) {
      flat += variance.at<double>(row, col) < 4.0 * 4.0 ? 1 : 0;
      ++count;
    }
  }
  EXPECT_LT(flat, 0.02 * count);
}

TEST(Renderer, FullSizeShowsTheSameSceneAsHalfSize) {
  const auto scene = makeScene(1, false);
  const cv::Mat full = Renderer(scene, Rig(1), {1856, 800}).render(0.0);
  const cv::Mat half = Renderer(scene, Rig(1), halfSize).render(0.0);
  ASSERT_EQ(full.size(), cv::Size(1856, 800));
  // Pixel u of the half frame is pixel 2 u of the full one; the full one holds finer texture, so smooth both.
  cv::Mat smoothFull;
  cv::Mat smoothHalf;
  cv::GaussianBlur(full, smoothFull, {}, 8.0);
  cv::GaussianBlur(half, smoothHalf, {}, 4.0);
  std::vector<double> differences;
  for (int row = 40; row < 360; row += 3) {
    for (int col = 100; col < 364; col += 3) {
      differences.push_back(cv::norm(
          cv::Vec3d(smoothHalf.at<cv::Vec3b>(row, col)) - cv::Vec3d(smoothFull.at<cv::Vec3b>(2 * row, 2 * col)),
          cv::NORM_INF));
    }
  }
  EXPECT_LT(medianOf(differences), 5.0);
}

TEST(Renderer, RefusesOtherSizes) {
  EXPECT_THROW(Renderer(makeScene(1, false), Rig(1), {1280, 720}), std::invalid_argument);
  EXPECT_THROW(Renderer(makeScene(1, false), Rig(1), {0, 0}), std::invalid_argument);
}

}  // namespace
}  // namespace stereo::sim
