// SPDX-License-Identifier: Apache-2.0
// Disparities of the matcher against OpenCV's own, to the bit.
#include "src/core/Matcher.hpp"

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include "tests/support/Images.hpp"

using stereo::core::MatchBuffers;
using stereo::core::Matcher;
using stereo::test::sameBits;

namespace {

constexpr int shift = 7;  // pixels between the eyes

// Texture that is `shift` pixels further left in the right eye.
struct Pair {
  cv::Mat left = cv::Mat(60, 160, CV_8UC3);
  cv::Mat right;

  explicit Pair(int seed) {
    cv::RNG random(static_cast<std::uint64_t>(seed) + 1);
    random.fill(left, cv::RNG::UNIFORM, 0, 256);
    cv::blur(left, left, {3, 3});
    const cv::Mat shifted = (cv::Mat_<double>(2, 3) << 1, 0, -shift, 0, 1, 0);
    cv::warpAffine(left, right, shifted, left.size());
  }
};

cv::Mat inPixels(const cv::Mat& sixteenths) {
  cv::Mat disparity;
  sixteenths.convertTo(disparity, CV_32F, 1.0 / 16);
  return disparity;
}

cv::Mat expected(int algorithm, const Pair& pair) {
  cv::Mat raw;
  if (algorithm == 0) {
    cv::StereoSGBM::create(0, 32, 9, 1944, 7776)->compute(pair.left, pair.right, raw);
    return inPixels(raw);
  }
  const auto matcher = cv::StereoBM::create(32, 9);
  matcher->setPreFilterCap(31);
  matcher->setTextureThreshold(10);
  matcher->setUniquenessRatio(15);
  matcher->setSpeckleWindowSize(100);
  matcher->setSpeckleRange(32);
  matcher->setDisp12MaxDiff(1);
  cv::Mat gray[2];
  cv::cvtColor(pair.left, gray[0], cv::COLOR_BGR2GRAY);
  cv::cvtColor(pair.right, gray[1], cv::COLOR_BGR2GRAY);
  matcher->compute(gray[0], gray[1], raw);
  return inPixels(raw);
}

}  // namespace

TEST(Matcher, FindsTheShiftAsOpenCvsMatchersDo) {
  for (const int algorithm : {0, 1}) {
    const Matcher matcher(algorithm);
    MatchBuffers buffers;  // kept, as a caller with memory to reuse keeps them
    cv::Mat disparity;
    for (const int seed : {1, 2}) {
      const Pair pair(seed);
      matcher.compute(algorithm, pair.left, pair.right, buffers, disparity);
      EXPECT_TRUE(sameBits(disparity, expected(algorithm, pair))) << algorithm;
      EXPECT_NEAR(disparity.at<float>(30, 100), shift, 0.25) << algorithm;
    }
  }
}

TEST(Matcher, GivesNoDisparityForAnAlgorithmThatItWasNotMadeFor) {
  const Pair pair(1);
  for (const int made : {-1, 0, 1, 2}) {
    const Matcher matcher(made);
    for (const int asked : {-1, 0, 1, 2}) {
      MatchBuffers buffers;
      cv::Mat disparity(2, 2, CV_32FC1, cv::Scalar(5));
      matcher.compute(asked, pair.left, pair.right, buffers, disparity);
      EXPECT_EQ(disparity.empty(), made != asked || made < 0 || made > 1) << made << " " << asked;
    }
  }
}
