// SPDX-License-Identifier: Apache-2.0
// What the constructors do with the device they make. This program replaces functions of OpenCV,
// so that a numbered device opens although there is none.
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/videoio.hpp>

#include "StereoCamera.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/TempDir.hpp"

namespace {

struct Bench {
  bool opens = true;
  bool takesSettings = true;
  std::vector<std::pair<int, int>> made;  // index and back end
  std::vector<std::pair<int, double>> settings;
};

Bench bench;

}  // namespace

namespace cv {

VideoCapture::VideoCapture(int index, int apiPreference) : throwOnFail(false) {
  bench.made.emplace_back(index, apiPreference);
}
bool VideoCapture::isOpened() const { return bench.opens; }
bool VideoCapture::set(int property, double value) {
  bench.settings.emplace_back(property, value);
  return bench.takesSettings;
}

}  // namespace cv

namespace {

using stereo::test::OutputCapture;
using stereo::test::row;
using stereo::test::TempDir;
using stereo::test::writeDocument;
using Made = std::vector<std::pair<int, int>>;
using Settings = std::vector<std::pair<int, double>>;

class DeviceOpening : public testing::Test {
protected:
  void SetUp() override { bench = Bench(); }

  OutputCapture m_errors{2};
};

}  // namespace

TEST_F(DeviceOpening, IndexConstructorsOpenTheDeviceAsItStands) {
  StereoCamera first;
  StereoCamera third(3);
  EXPECT_TRUE(first.isOpened());
  EXPECT_TRUE(third.isOpened());
  EXPECT_EQ(bench.made, (Made{{0, cv::CAP_ANY}, {3, cv::CAP_ANY}}));
  EXPECT_EQ(bench.settings, Settings());
  EXPECT_EQ(third.getRawFrameSize(), cv::Size(0, 0));
  EXPECT_EQ(m_errors.text(), "");
}

TEST_F(DeviceOpening, DeviceThatDoesNotOpenLeavesTheCameraClosed) {
  bench.opens = false;
  EXPECT_FALSE(StereoCamera().isOpened());
  EXPECT_FALSE(StereoCamera(3).isOpened());
  EXPECT_EQ(m_errors.text(), "");
}

// Width, height and rate in this order, whatever the device answers.
TEST_F(DeviceOpening, SettingsConstructorSendsSizeAndRate) {
  const TempDir dir;
  const std::string path = writeDocument(dir.path("settings.yml"), {{"DeviceNode", row({7})},
                                                                    {"FrameSize", row({928, 400})},
                                                                    {"RectifyFrameSize", row({320, 240})},
                                                                    {"FrameRate", row({25.9})}});
  for (const bool takesSettings : {true, false}) {
    for (const bool opens : {true, false}) {
      bench = Bench{.opens = opens, .takesSettings = takesSettings, .made = {}, .settings = {}};
      StereoCamera camera(path);
      EXPECT_EQ(camera.isOpened(), opens);
      EXPECT_EQ(bench.made, (Made{{7, cv::CAP_ANY}}));
      EXPECT_EQ(bench.settings, (Settings{{3, 928.0}, {4, 400.0}, {5, 25.0}}));
    }
  }
  EXPECT_EQ(m_errors.ownText(), "");
}

TEST_F(DeviceOpening, SettingsConstructorSendsTheFallbacks) {
  const TempDir dir;
  StereoCamera camera(writeDocument(dir.path("settings.yml"), {{"DeviceNode", row({0})}}));
  EXPECT_TRUE(camera.isOpened());
  EXPECT_EQ(bench.settings, (Settings{{3, 1856.0}, {4, 800.0}, {5, 30.0}}));
}

TEST_F(DeviceOpening, NoDeviceIsMadeWhereTheSettingsDoNotLoad) {
  const TempDir dir;
  StereoCamera camera(writeDocument(dir.path("settings.yml"), {{"LogLevel", row({1})}}));
  EXPECT_FALSE(camera.isOpened());
  EXPECT_EQ(bench.made, Made());
}
