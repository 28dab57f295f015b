// SPDX-License-Identifier: Apache-2.0
#include "sim/Degradation.hpp"

#include <cmath>
#include <stdexcept>

#include <gtest/gtest.h>

#include "sim/SimulatedCamera.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/Threads.hpp"

namespace stereo::sim {
namespace {

using stereo::test::halfSize;
using stereo::test::sameBits;

cv::Mat evenFrame(int level) { return cv::Mat(halfSize, CV_8UC3, cv::Scalar::all(level)); }

cv::Mat eyeOf(const cv::Mat& frame, bool isRight) {
  return isRight ? frame.colRange(frame.cols / 2, frame.cols) : frame.colRange(0, frame.cols / 2);
}

TEST(Degradation, DefaultsReturnTheFrameItself) {
  const cv::Mat frame = evenFrame(90);
  EXPECT_EQ(Degrader({}, 1).apply(frame, 0).data, frame.data);
}

TEST(Degradation, NoiseHasItsDeviationAndNoBias) {
  const cv::Mat noisy = Degrader({.noise = 6.0}, 1).apply(evenFrame(120), 0);
  cv::Scalar mean;
  cv::Scalar deviation;
  cv::meanStdDev(noisy, mean, deviation);
  for (int c = 0; c < 3; ++c) {
    EXPECT_NEAR(mean[c], 120.0, 0.05);
    EXPECT_NEAR(deviation[c], std::sqrt(36.0 + 1.0 / 12.0), 0.05) << "rounding adds its twelfth";
  }
  // Channels and eyes have noise of their own.
  std::vector<cv::Mat> channels;
  cv::split(noisy, channels);
  for (const auto& [a, b] : {std::pair(channels[0], channels[1]), std::pair(channels[1], channels[2]),
                             std::pair(eyeOf(channels[0], false), eyeOf(channels[0], true))}) {
    cv::Mat first;
    cv::Mat second;
    a.convertTo(first, CV_64F, 1.0, -120.0);
    b.convertTo(second, CV_64F, 1.0, -120.0);
    EXPECT_LT(std::abs(first.dot(second)) / (36.0 * static_cast<double>(first.total())), 0.02);
  }
}

TEST(Degradation, SeedAndFrameDrawTheNoise) {
  const cv::Mat frame = evenFrame(100);
  const Degrader degrader({.noise = 3.0}, 5);
  const cv::Mat first = degrader.apply(frame, 7);
  const stereo::test::Threads threads(1);
  EXPECT_TRUE(sameBits(first, Degrader({.noise = 3.0}, 5).apply(frame, 7)));
  EXPECT_FALSE(sameBits(first, degrader.apply(frame, 8)));
  EXPECT_FALSE(sameBits(first, Degrader({.noise = 3.0}, 6).apply(frame, 7)));
  EXPECT_TRUE(sameBits(frame, evenFrame(100))) << "the clean frame stays";
}

TEST(Degradation, GainIsTheRightEyesAndContrastBoths) {
  cv::Mat frame = evenFrame(100);
  frame.rowRange(0, 200).setTo(cv::Scalar::all(160));
  const cv::Mat bright = Degrader({.gain = 10.0}, 1).apply(frame, 0);
  EXPECT_TRUE(sameBits(eyeOf(bright, false), eyeOf(frame, false)));
  EXPECT_EQ(eyeOf(bright, true).at<cv::Vec3b>(300, 5), cv::Vec3b(110, 110, 110));
  EXPECT_EQ(eyeOf(bright, true).at<cv::Vec3b>(20, 5), cv::Vec3b(176, 176, 176));
  const cv::Mat pale = Degrader({.contrast = 0.5}, 1).apply(frame, 0);
  for (const bool isRight : {false, true}) {
    EXPECT_EQ(eyeOf(pale, isRight).at<cv::Vec3b>(300, 5), cv::Vec3b(114, 114, 114));
    EXPECT_EQ(eyeOf(pale, isRight).at<cv::Vec3b>(20, 5), cv::Vec3b(144, 144, 144));
  }
}

TEST(Degradation, BlurSpreadsADotAndStaysInItsEye) {
  cv::Mat frame = evenFrame(0);
  frame.at<cv::Vec3b>(200, 200) = cv::Vec3b::all(255);
  frame.at<cv::Vec3b>(200, 463) = cv::Vec3b::all(255);  // the left eye's last column
  const cv::Mat blurred = Degrader({.blur = 1.0}, 1).apply(frame, 0);
  // The middle of a Gaussian of standard deviation 1: 1 / (2 pi).
  EXPECT_NEAR(blurred.at<cv::Vec3b>(200, 200)[0], 255.0 / (2.0 * CV_PI), 2.0);
  EXPECT_NEAR(blurred.at<cv::Vec3b>(201, 200)[1], 255.0 / (2.0 * CV_PI) * std::exp(-0.5), 2.0);
  EXPECT_GT(blurred.at<cv::Vec3b>(200, 462)[0], 10);
  EXPECT_EQ(cv::norm(eyeOf(blurred, true), cv::NORM_INF), 0.0);
}

TEST(Degradation, ValuesOutOfRangeAreRefused) {
  EXPECT_THROW(Degrader({.blur = -1.0}, 1), std::invalid_argument);
  EXPECT_THROW(Degrader({.noise = 101.0}, 1), std::invalid_argument);
  EXPECT_THROW(Degrader({.gain = -100.0}, 1), std::invalid_argument);
  EXPECT_THROW(Degrader({.contrast = std::nan("")}, 1), std::invalid_argument);
}

TEST(Degradation, EachFrameOfAStillCameraHasItsOwnNoise) {
  const auto scene = std::make_shared<const Scene>(Scene::Options{.seed = 1, .moving = false});
  SimulatedCapture noisy(scene, Rig(1), {.frameSize = halfSize, .rate = 0, .picture = {.noise = 2.0}});
  SimulatedCapture clean(scene, Rig(1), {.frameSize = halfSize, .rate = 0});
  cv::Mat first;
  cv::Mat second;
  cv::Mat without;
  ASSERT_TRUE(noisy.read(first) && noisy.read(second) && clean.read(without));
  EXPECT_FALSE(sameBits(first, second));
  cv::Mat difference;
  cv::absdiff(first, without, difference);
  EXPECT_NEAR(cv::mean(difference)[0], 2.0 * std::sqrt(2.0 / CV_PI), 0.1) << "mean of a Gaussian's absolute value";
}

}  // namespace
}  // namespace stereo::sim
