// SPDX-License-Identifier: Apache-2.0
// What wide depth refuses, and what it makes of eyes that show nothing.
#include <fstream>
#include <functional>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "tests/support/TempDir.hpp"
#include "tests/unit/depth/SimulatedEyes.hpp"

using namespace stereo;
using stereo::test::eyeSize;
using test::SimulatedEyes;
using testing::HasSubstr;

namespace {

constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double notANumber = std::numeric_limits<double>::quiet_NaN();

// The message of the exception that `action` throws, empty if it throws none.
std::string messageOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const cv::Exception& error) {
    EXPECT_EQ(error.err.find('\n'), std::string::npos);
    return error.err;
  }
  return "";
}

std::string refusal(const WideDepthCalibration& calibration, cv::Size eye = eyeSize,
                    const WideDepthOptions& options = test::smallView()) {
  return messageOf([&] { WideDepth(calibration, eye, options); });
}

std::string refusal(const std::function<void(WideDepthOptions&)>& change) {
  WideDepthOptions options = test::smallView();
  change(options);
  return refusal(SimulatedEyes().calibration(), eyeSize, options);
}

std::string refusalOf(const std::function<void(WideDepthCalibration&)>& change) {
  WideDepthCalibration calibration = SimulatedEyes().calibration();
  change(calibration);
  return refusal(calibration);
}

}  // namespace

TEST(WideDepthInput, OptionsOutsideTheirLimitsAreRefused) {
  EXPECT_EQ(refusal([](WideDepthOptions&) {}), "");
  for (const cv::Size size :
       {cv::Size(0, 0), cv::Size(31, 200), cv::Size(200, 31), cv::Size(4097, 200), cv::Size(200, -5)}) {
    EXPECT_THAT(refusal([&](WideDepthOptions& o) { o.size = size; }), HasSubstr("pixels")) << size;
  }
  for (const double field : {0.0, -1.0, 180.1, notANumber, infinity}) {
    EXPECT_THAT(refusal([&](WideDepthOptions& o) { o.horizontalField = field; }), HasSubstr("fields")) << field;
    EXPECT_THAT(refusal([&](WideDepthOptions& o) { o.verticalField = field; }), HasSubstr("fields")) << field;
  }
  for (const double range : {0.0, -1.0, notANumber, infinity}) {
    EXPECT_THAT(refusal([&](WideDepthOptions& o) { o.nearest = range; }), HasSubstr("nearest")) << range;
    EXPECT_THAT(refusal([&](WideDepthOptions& o) { o.farthest = range; }), HasSubstr("farthest")) << range;
  }
  EXPECT_THAT(refusal([](WideDepthOptions& o) { o.farthest = o.nearest; }), HasSubstr("farthest"));
  EXPECT_THAT(refusal([](WideDepthOptions& o) { o.threads = -1; }), HasSubstr("threads"));
}

TEST(WideDepthInput, CalibrationsThatCannotBeRightAreRefused) {
  using C = WideDepthCalibration;
  for (cv::Mat C::*const matrix :
       {&C::leftIntrinsic, &C::leftDistortion, &C::leftXi, &C::leftRotation, &C::rightIntrinsic, &C::rightDistortion,
        &C::rightXi, &C::rightRotation, &C::translation}) {
    EXPECT_NE(refusalOf([&](C& c) { c.*matrix = cv::Mat(); }), "");
    EXPECT_NE(refusalOf([&](C& c) { (c.*matrix).convertTo(c.*matrix, CV_32F); }), "");
    EXPECT_NE(refusalOf([&](C& c) { c.*matrix = (c.*matrix) * notANumber; }), "");
  }
  EXPECT_THAT(refusalOf([](C& c) { c.translation *= 0.0; }), HasSubstr("apart"));
  EXPECT_THAT(refusalOf([](C& c) { c.translation = (cv::Mat_<double>(3, 1) << 0, -60, 0); }), HasSubstr("right eye"));
  EXPECT_THAT(refusalOf([](C& c) { c.translation *= -1.0; }), HasSubstr("right eye"));
  for (const double xi : {-0.1, 10.5}) {
    EXPECT_THAT(refusalOf([&](C& c) { c.leftXi.at<double>(0) = xi; }), HasSubstr("xi"));
    EXPECT_THAT(refusalOf([&](C& c) { c.rightXi.at<double>(0) = xi; }), HasSubstr("xi"));
  }
  EXPECT_THAT(refusalOf([](C& c) { c.leftRotation *= 1.1; }), HasSubstr("rotation"));
  EXPECT_THAT(refusalOf([](C& c) { c.rightRotation.row(2) *= -1; }), HasSubstr("rotation"));
  EXPECT_THAT(refusalOf([](C& c) { c.leftIntrinsic.at<double>(0, 0) = 0; }), HasSubstr("lens"));
  EXPECT_THAT(refusalOf([](C& c) { c.frameWidth = 0; }), HasSubstr("width"));
  EXPECT_THAT(refusal(SimulatedEyes().calibration(), {0, 0}), HasSubstr("eye's image"));
  EXPECT_THAT(refusal(SimulatedEyes().calibration(), {9000, 400}), HasSubstr("eye's image"));
}

TEST(WideDepthInput, FilesThatAreNoCalibrationsAreRefused) {
  const test::TempDir folder;
  const std::string path = folder.path("calibration.yml");
  const auto loaded = [&] { return messageOf([&] { WideDepthCalibration::load(path); }); };
  EXPECT_THAT(loaded(), HasSubstr(path));
  std::ofstream(path) << "%YAML:1.0\n---\nLeftXi: [";
  EXPECT_THAT(loaded(), HasSubstr("malformed"));
  std::ofstream(path) << "%YAML:1.0\n---\nLeftXi: 5\n";
  EXPECT_THAT(loaded(), HasSubstr("LeftXi"));
  SimulatedEyes().rig().saveCalibration(path);
  EXPECT_EQ(loaded(), "");
  const WideDepth depth(path, eyeSize, test::smallView());
  EXPECT_NEAR(depth.baseline(), SimulatedEyes().rig().baseline(), 1e-6);
  std::ifstream in(path);
  std::string text((std::istreambuf_iterator<char>(in)), {});
  text.replace(text.find("RightRotation"), 5, "Wrong");
  std::ofstream(path) << text;
  EXPECT_THAT(loaded(), HasSubstr("RightRotation is missing"));
}

TEST(WideDepthInput, EyesOfAnotherSizeOrTypeAreRefusedAndLeaveTheResult) {
  WideDepth depth(SimulatedEyes().calibration(), eyeSize, test::smallView());
  const cv::Mat good(eyeSize, CV_8UC3, cv::Scalar::all(9));
  WideDepthImage image;
  const auto refused = [&](const cv::Mat& left, const cv::Mat& right) {
    return messageOf([&] { depth.compute(left, right, image); });
  };
  EXPECT_THAT(refused(cv::Mat(), good), HasSubstr("empty"));
  EXPECT_THAT(refused(good, cv::Mat()), HasSubstr("empty"));
  EXPECT_THAT(refused(good, cv::Mat(400, 465, CV_8UC3)), HasSubstr("464 x 400"));
  EXPECT_THAT(refused(cv::Mat(eyeSize, CV_16UC3), good), HasSubstr("CV_8UC3"));
  EXPECT_THAT(refused(cv::Mat(eyeSize, CV_8UC1), good), HasSubstr("same type"));
  EXPECT_TRUE(image.range.empty() && image.state.empty() && image.confidence.empty() && image.view.empty());
  EXPECT_EQ(refused(good, good), "");
}

TEST(WideDepthInput, EyesThatShowNothingGiveNoRange) {
  WideDepthOptions options = test::smallView();
  options.selfCalibrate = true;
  options.fuse = true;
  WideDepth depth(SimulatedEyes().calibration(), eyeSize, options);
  const SimulatedEyes::Pair pair = SimulatedEyes().at(0.0);
  cv::Mat noise[2] = {cv::Mat(eyeSize, CV_8UC3), cv::Mat(eyeSize, CV_8UC3)};
  cv::RNG random(3);
  random.fill(noise[0], cv::RNG::UNIFORM, 0, 256);
  random.fill(noise[1], cv::RNG::UNIFORM, 0, 256);
  const cv::Mat black = cv::Mat::zeros(eyeSize, CV_8UC3);
  const cv::Mat white(eyeSize, CV_8UC3, cv::Scalar::all(255));
  const struct {
    const char* name;
    cv::Mat left;
    cv::Mat right;
    int most;  // pixels that may be measured
  } cases[] = {{"black", black, black, 0},
               {"white", white, white, 0},
               {"one black", pair.left, black, 0},
               {"noise", noise[0], noise[1], 0},
               {"same eye twice", pair.left, pair.left, 0},
               {"swapped", pair.right, pair.left, 0}};
  WideDepthImage image;
  for (const auto& one : cases) {
    depth.reset();
    for (int frame = 0; frame < 3; ++frame) {
      depth.compute(one.left, one.right, image);
    }
    EXPECT_LE(cv::countNonZero(image.range > 0), one.most) << one.name;
  }
}

TEST(WideDepthInput, APlainSceneIsTextureless) {
  // Noise of one gray level, another in each eye.
  cv::RNG random(7);
  cv::Mat eyes[2];
  for (cv::Mat& eye : eyes) {
    cv::Mat noise(eyeSize, CV_32FC1);
    random.fill(noise, cv::RNG::NORMAL, 128, 1);
    noise.convertTo(eye, CV_8UC1);
  }
  WideDepth wide(SimulatedEyes().calibration(), eyeSize, test::smallView());
  WideDepthImage image;
  wide.compute(eyes[0], eyes[1], image);
  const int seen = cv::countNonZero(image.state != static_cast<int>(RangeState::unseen));
  ASSERT_GT(seen, 0);
  EXPECT_GT(cv::countNonZero(image.state == static_cast<int>(RangeState::textureless)), 0.95 * seen);
}

TEST(WideDepthInput, PartsOfImagesAndGrayEyesAreFine) {
  const SimulatedEyes eyes;
  const SimulatedEyes::Pair pair = eyes.at(0.0);
  WideDepth depth(eyes.calibration(), eyeSize, test::smallView());
  WideDepthImage expected;
  depth.compute(pair.left, pair.right, expected);
  cv::Mat frame(400, 928 + 3, CV_8UC3, cv::Scalar::all(7));
  pair.left.copyTo(frame.colRange(1, 465));
  pair.right.copyTo(frame.colRange(465, 929));
  WideDepthImage image;
  depth.compute(frame.colRange(1, 465), frame.colRange(465, 929), image);
  EXPECT_EQ(cv::norm(image.range, expected.range, cv::NORM_INF), 0.0);
  EXPECT_EQ(cv::norm(image.view, expected.view, cv::NORM_INF), 0.0);
  cv::Mat gray[2];
  cv::extractChannel(pair.left, gray[0], 1);
  cv::extractChannel(pair.right, gray[1], 1);
  depth.compute(gray[0], gray[1], image);
  EXPECT_GT(cv::countNonZero(image.range > 0), cv::countNonZero(expected.range > 0) / 2);
  EXPECT_EQ(image.view.type(), CV_8UC3);
}
