// SPDX-License-Identifier: Apache-2.0
#include "calibration/CalibrationFile.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>

#include "tests/support/TempDir.hpp"

namespace stereo::calibration {
namespace {

StereoRig someRig() {
  StereoRig rig;
  rig.eyes[0] = {1.4, 300.0, 301.0, 0.0, 230.0, 199.0, -0.1, 0.02, 1e-4, -2e-4, CV_PI};
  rig.eyes[1] = {1.5, 310.0, 311.0, 0.0, 233.0, 201.0, -0.2, 0.03, 3e-4, -4e-4, CV_PI};
  rig.rightFromLeft = {{0.01, -0.02, 0.005}, {-60.0, 1.0, -2.0}};
  return rig;
}

TEST(CalibrationFile, HoldsThirteenKeysForARawWidthOf1856) {
  const test::TempDir folder;
  const std::string path = folder.path("calibration.yml");
  saveCalibration(path, someRig(), 928, {7, 3, {464, 400}});
  const test::Document document = test::readDocument(path);
  std::vector<std::string> keys;
  std::map<std::string, cv::Mat> values;
  for (const auto& [key, value] : document) {
    keys.push_back(key);
    values[key] = value;
  }
  EXPECT_THAT(keys, testing::UnorderedElementsAre("SerialNumber", "PositonNumber", "RectifyFrameSize", "LeftXi",
                                                  "LeftIntrinsicMatrix", "LeftDistortionCoefficients", "LeftRotation",
                                                  "RightXi", "RightIntrinsicMatrix", "RightDistortionCoefficients",
                                                  "RightRotation", "Translation", "Reserved"));
  const cv::Mat expected = (cv::Mat_<double>(3, 3) << 620, 0, 466, 0, 622, 402, 0, 0, 1);
  EXPECT_EQ(cv::norm(values["RightIntrinsicMatrix"], expected, cv::NORM_INF), 0);
  EXPECT_EQ(values["LeftXi"].at<double>(0), 1.4);
  EXPECT_EQ(values["SerialNumber"].at<double>(0), 7);
  EXPECT_EQ(values["PositonNumber"].at<double>(0), 3);
  EXPECT_EQ(cv::norm(values["RightDistortionCoefficients"], test::row({-0.2, 0.03, 3e-4, -4e-4}), cv::NORM_INF), 0);
  EXPECT_NEAR(cv::norm(values["Translation"]), std::sqrt(3605.0), 1e-12);
  // The rotations turn one eye's rays into the other's: R_right Q = R_left.
  cv::Mat Q;
  cv::Rodrigues(cv::Vec3d(0.01, -0.02, 0.005), Q);
  EXPECT_LT(cv::norm(values["RightRotation"] * Q - values["LeftRotation"]), 1e-12);
}

TEST(CalibrationFile, SaysWhenItCannotBeWritten) {
  const test::TempDir folder;
  EXPECT_THROW(saveCalibration(folder.path("none/calibration.yml"), someRig(), 1856, {}), std::runtime_error);
}

}  // namespace
}  // namespace stereo::calibration
