// SPDX-License-Identifier: Apache-2.0
#include "sim/Rig.hpp"

#include <cmath>
#include <stdexcept>

#include <gtest/gtest.h>
#include <opencv2/ccalib/omnidir.hpp>

#include "sim/SimulatedCamera.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/TempDir.hpp"

namespace stereo::sim {
namespace {

using stereo::test::sameBits;

constexpr const char* allKeys[] = {"SerialNumber",
                                   "PositonNumber",
                                   "RectifyFrameSize",
                                   "LeftXi",
                                   "LeftIntrinsicMatrix",
                                   "LeftDistortionCoefficients",
                                   "LeftRotation",
                                   "RightXi",
                                   "RightIntrinsicMatrix",
                                   "RightDistortionCoefficients",
                                   "RightRotation",
                                   "Translation",
                                   "Reserved"};

TEST(Rig, SameSeedSameRigAndOtherSeedAnother) {
  const Rig first(5);
  const Rig again(5);
  const Rig other(6);
  for (const bool isRight : {false, true}) {
    for (std::size_t i = 0; i < 5; ++i) {
      EXPECT_TRUE(sameBits(first.calibParams(isRight)[i], again.calibParams(isRight)[i])) << i;
      EXPECT_FALSE(sameBits(first.calibParams(isRight)[i], other.calibParams(isRight)[i])) << i;
    }
  }
}

TEST(Rig, EyesAreRealisticAndDiffer) {
  for (std::uint32_t seed = 1; seed <= 10; ++seed) {
    const Rig rig(seed);
    EXPECT_NEAR(rig.baseline(), 0.060, 0.001);
    for (const bool isRight : {false, true}) {
      const Eye& eye = rig.eye(isRight);
      const cv::Matx33d shouldBeIdentity = eye.rotation * eye.rotation.t();
      EXPECT_LT(cv::norm(shouldBeIdentity - cv::Matx33d::eye()), 1e-12);
      EXPECT_NEAR(cv::determinant(eye.rotation), 1.0, 1e-12);
      const double degrees = std::acos((cv::trace(eye.rotation) - 1.0) / 2.0) * 180.0 / CV_PI;
      EXPECT_LT(degrees, 2.0);
      EXPECT_NEAR(eye.model.xi, 1.5, 0.1);
    }
    EXPECT_NE(rig.eye(false).model.fx, rig.eye(true).model.fx);
    EXPECT_NE(rig.eye(false).model.cx, rig.eye(true).model.cx);
  }
}

TEST(Rig, CalibrationPlacesPointsInBothEyesAsTheReferenceDoes) {
  // From the calibration alone: point in the left eye's frame, x_right = Q x_left + t, then the model of each eye.
  const Rig rig(2);
  const std::vector<cv::Mat> left = rig.calibParams(false);
  const std::vector<cv::Mat> right = rig.calibParams(true);
  const cv::Mat q = right[3].t() * left[3];
  const cv::Mat t = right[4] / 1000.0;
  EXPECT_NEAR(cv::norm(t), rig.baseline(), 1e-12);
  const cv::Size full(1856, 800);
  cv::RNG rng(3);
  int seen = 0;
  for (int n = 0; n < 500; ++n) {
    const cv::Vec3d point(rng.uniform(-1.5, 1.5), rng.uniform(-1.0, 1.0), rng.uniform(0.2, 3.0));
    const auto u = rig.project(false, point, full);
    const auto v = rig.project(true, point, full);
    if (!u || !v) {
      continue;
    }
    const cv::Mat inLeft = left[3].t() * cv::Mat(point);
    const cv::Mat inRight = q * inLeft + t;
    for (const bool isRight : {false, true}) {
      const std::vector<cv::Mat>& params = isRight ? right : left;
      std::vector<cv::Vec3d> points{cv::Vec3d(isRight ? inRight : inLeft)};
      std::vector<cv::Point2d> reference;
      cv::omnidir::projectPoints(points, reference, cv::Vec3d(0, 0, 0), cv::Vec3d(0, 0, 0), params[0],
                                 params[2].at<double>(0), params[1]);
      ASSERT_LT(cv::norm(reference[0] - (isRight ? *v : *u)), 1e-8);
    }
    ++seen;
  }
  EXPECT_GT(seen, 300);
}

TEST(Rig, ProjectRefusesWhatTheEyeDoesNotSee) {
  const Rig rig(1);
  const cv::Size half(928, 400);
  EXPECT_TRUE(rig.project(false, {0.0, 0.0, 1.0}, half));
  EXPECT_FALSE(rig.project(false, {0.0, 0.0, -1.0}, half)) << "behind the lens";
  EXPECT_FALSE(rig.project(false, {0.0, 1.0, -0.2}, half)) << "below the frame, though in the lens's field";
  EXPECT_TRUE(rig.project(false, {1.0, 0.0, -0.2}, half)) << "beside, where the frame is wide enough";
}

TEST(Rig, CalibrationFileIsReadBackExactly) {
  const stereo::test::TempDir folder;
  const Rig rig(9);
  for (const char* name : {"calibration.yml", "calibration.xml", "calibration.json"}) {
    const std::string path = folder / name;
    rig.saveCalibration(path, 1234, 7, {464, 400});
    SimulatedCamera camera({.frameSize = {928, 400}, .seed = 1});
    ASSERT_TRUE(camera.loadCalibParams(path)) << name;
    EXPECT_EQ(camera.getSerialNumber(), 1234);
    EXPECT_EQ(camera.getPosNumber(), 7);
    for (const bool isRight : {false, true}) {
      std::vector<cv::Mat> params;
      ASSERT_TRUE(camera.getCalibParams(params, isRight));
      const std::vector<cv::Mat> expected = rig.calibParams(isRight);
      for (std::size_t i = 0; i < expected.size(); ++i) {
        EXPECT_TRUE(sameBits(params[i], expected[i])) << name << " " << i;
      }
    }
  }
}

TEST(Rig, CalibrationFileIsWhatTheCameraItselfWrites) {
  const stereo::test::TempDir folder;
  SimulatedCamera camera({.frameSize = {928, 400}, .seed = 4});
  camera.rig().saveCalibration(folder / "rig.yml", camera.getSerialNumber(), camera.getPosNumber(), {464, 400});
  ASSERT_TRUE(camera.saveCalibParams(folder / "camera.yml"));
  const cv::FileStorage ours(folder / "rig.yml", cv::FileStorage::READ);
  const cv::FileStorage theirs(folder / "camera.yml", cv::FileStorage::READ);
  ASSERT_EQ(ours.root().size(), std::size(allKeys));
  ASSERT_EQ(theirs.root().size(), std::size(allKeys));
  for (const char* key : allKeys) {
    EXPECT_TRUE(sameBits(ours[key].mat(), theirs[key].mat())) << key;
  }
}

TEST(Rig, UnwritableCalibrationThrows) {
  const stereo::test::TempDir folder;
  EXPECT_THROW(Rig(1).saveCalibration(folder / "no/such/folder/calibration.yml"), std::runtime_error);
}

}  // namespace
}  // namespace stereo::sim
