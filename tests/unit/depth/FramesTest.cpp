// SPDX-License-Identifier: Apache-2.0
// What wide depth learns from one frame for the next.
#include <algorithm>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "tests/unit/depth/SimulatedEyes.hpp"

using namespace stereo;
using stereo::test::eyeSize;
using test::SimulatedEyes;

namespace {

test::Accuracy accuracy(const SimulatedEyes& eyes, const WideDepth& depth, const WideDepthImage& image, double time) {
  return test::accuracyOf(image, eyes.truth(depth.rays(), time), eyes.seen(depth.rays(), time), 0.2, 10.0);
}

}  // namespace

TEST(WideDepthFrames, RowsThatAreOffAreCorrected) {
  const SimulatedEyes eyes;
  const SimulatedEyes::Pair pair = eyes.at(0.0);
  WideDepthCalibration calibration = eyes.calibration();
  calibration.rightIntrinsic.at<double>(1, 2) += 3.0;  // three quarters of a row of the view
  test::Accuracy found[2];
  for (const bool corrects : {false, true}) {
    WideDepthOptions options = test::smallView();
    options.selfCalibrate = corrects;
    WideDepth depth(calibration, eyeSize, options);
    EXPECT_EQ(depth.rowCorrection(), 0.0);
    WideDepthImage image;
    for (int frame = 0; frame < 5; ++frame) {
      depth.compute(pair.left, pair.right, image);
    }
    found[corrects ? 1 : 0] = accuracy(eyes, depth, image, 0.0);
    if (!corrects) {
      EXPECT_EQ(depth.rowCorrection(), 0.0);
      continue;
    }
    EXPECT_GT(depth.rowCorrection(), 0.3);
    depth.reset();
    EXPECT_EQ(depth.rowCorrection(), 0.0);
  }
  EXPECT_LT(found[1].median, 0.6 * found[0].median);
  EXPECT_LT(found[1].wrong, 0.6 * found[0].wrong);
  EXPECT_GE(found[1].valid, found[0].valid);
}

TEST(WideDepthFrames, AGoodCalibrationIsLeftAsGood) {
  for (const std::uint32_t seed : {1U, 4U}) {
    const SimulatedEyes eyes({.seed = seed, .moving = false}, seed);
    WideDepthOptions options = test::smallView();
    WideDepth plain(eyes.calibration(), eyeSize, options);
    options.selfCalibrate = true;
    WideDepth depth(eyes.calibration(), eyeSize, options);
    WideDepthImage image;
    for (int frame = 0; frame < 4; ++frame) {
      const SimulatedEyes::Pair pair = eyes.at(0.0, static_cast<std::uint64_t>(frame));
      depth.compute(pair.left, pair.right, image);
      if (frame == 3) {
        const test::Accuracy found = accuracy(eyes, depth, image, 0.0);
        plain.compute(pair.left, pair.right, image);
        const test::Accuracy expected = accuracy(eyes, plain, image, 0.0);
        EXPECT_LE(found.median, 1.02 * expected.median);
        EXPECT_LE(found.wrong, expected.wrong + 0.1);
        EXPECT_GE(found.valid, expected.valid - 0.1);
      }
    }
    EXPECT_LT(depth.rowCorrection(), 0.1);
  }
}

TEST(WideDepthFrames, RowsThatDifferForAnotherReasonAreLeft) {
  const SimulatedEyes eyes;
  for (const double factor : {0.99, 1.01}) {
    WideDepthCalibration calibration = eyes.calibration();
    calibration.rightIntrinsic = calibration.rightIntrinsic.clone();
    calibration.rightIntrinsic.at<double>(0, 0) *= factor;
    calibration.rightIntrinsic.at<double>(1, 1) *= factor;
    WideDepthOptions options = test::smallView();
    WideDepth plain(calibration, eyeSize, options);
    options.selfCalibrate = true;
    WideDepth depth(calibration, eyeSize, options);
    WideDepthImage image;
    for (int frame = 0; frame < 6; ++frame) {
      const SimulatedEyes::Pair pair = eyes.at(0.0, static_cast<std::uint64_t>(frame));
      depth.compute(pair.left, pair.right, image);
      if (frame == 5) {
        const test::Accuracy found = accuracy(eyes, depth, image, 0.0);
        plain.compute(pair.left, pair.right, image);
        const test::Accuracy expected = accuracy(eyes, plain, image, 0.0);
        EXPECT_LE(found.wrong, expected.wrong + 1.0) << factor;
        EXPECT_LE(found.median, 1.1 * expected.median) << factor;
      }
    }
  }
}

TEST(WideDepthFrames, ACorrectionThatBadFramesTaughtIsGivenUp) {
  const SimulatedEyes eyes;
  const SimulatedEyes::Pair pair = eyes.at(0.0);
  WideDepthOptions options = test::smallView();
  options.selfCalibrate = true;
  WideDepth depth(eyes.calibration(), eyeSize, options);
  WideDepthImage image;
  depth.compute(pair.left, pair.right, image);
  const double good = accuracy(eyes, depth, image, 0.0).valid;
  // The right eye's picture sinks by a tenth of a pixel a frame.
  double taught = 0.0;  // rows
  for (int frame = 0; frame < 70; ++frame) {
    const cv::Mat sink = (cv::Mat_<double>(2, 3) << 1, 0, 0, 0, 1, 0.1 * frame);
    cv::Mat sunk;
    cv::warpAffine(pair.right, sunk, sink, eyeSize);
    depth.compute(pair.left, sunk, image);
    taught = std::max(taught, depth.rowCorrection());
  }
  ASSERT_GT(taught, 0.3) << "else this shows nothing";
  for (int frame = 0; frame < 80; ++frame) {
    depth.compute(pair.left, pair.right, image);
  }
  EXPECT_GT(accuracy(eyes, depth, image, 0.0).valid, 0.95 * good);
}

TEST(WideDepthFrames, AStillSceneGetsBetterWithEachFrame) {
  const SimulatedEyes eyes;
  const sim::Degradation hard{.blur = 0.5, .noise = 6.0, .contrast = 0.5};
  WideDepthOptions options = test::smallView();
  options.fuse = true;
  WideDepth depth(eyes.calibration(), eyeSize, options);
  WideDepthImage image;
  test::Accuracy found[2];
  for (int frame = 0; frame < 6; ++frame) {
    const SimulatedEyes::Pair pair = eyes.at(0.0, static_cast<std::uint64_t>(frame), hard);
    depth.compute(pair.left, pair.right, image);
    found[frame == 0 ? 0 : 1] = accuracy(eyes, depth, image, 0.0);
  }
  EXPECT_GT(found[1].valid, found[0].valid + 1.5);
  EXPECT_LT(found[1].wrong, found[0].wrong + 1.0);
  EXPECT_LT(found[1].median, 1.1 * found[0].median);  // of more pixels, which are the harder ones
}

TEST(WideDepthFrames, NothingStaysBehindWhatMoves) {
  const SimulatedEyes eyes({.seed = 1, .moving = true, .period = 4.0});
  WideDepthOptions options = test::smallView();
  WideDepth alone(eyes.calibration(), eyeSize, options);
  options.fuse = true;
  WideDepth fused(eyes.calibration(), eyeSize, options);
  WideDepthImage image;
  double time = 0.0;
  for (int frame = 0; frame < 6; ++frame) {
    time = 0.1 * frame;
    const SimulatedEyes::Pair pair = eyes.at(time, static_cast<std::uint64_t>(frame));
    fused.compute(pair.left, pair.right, image);
    if (frame == 5) {
      const test::Accuracy together = accuracy(eyes, fused, image, time);
      alone.compute(pair.left, pair.right, image);
      const test::Accuracy single = accuracy(eyes, alone, image, time);
      EXPECT_LT(together.wrong, single.wrong + 1.0);
      EXPECT_LT(together.median, 1.2 * single.median);
      EXPECT_GE(together.valid, single.valid - 0.5);
    }
  }
}
