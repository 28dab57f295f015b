// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "StereoCamera.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/TempDir.hpp"
#include "tests/support/TestCamera.hpp"

using stereo::test::Document;
using stereo::test::OutputCapture;
using stereo::test::readDocument;
using stereo::test::readFile;
using stereo::test::row;
using stereo::test::sameBits;
using stereo::test::SyncProbe;
using stereo::test::TempDir;
using stereo::test::TestCamera;
using stereo::test::writeDocument;

namespace {

const char* const transrateMessage = "m_transrate must be set to lower than m_frameRate (default m_frameRate) \n";
const char* const transmodeMessage = "m_transmode must be set to -1~4 (default -1) \n";
const char* const depthmodeMessage = "m_transmode must be set to 1 or 2 (default 1) \n";
const char* const hFovMessage =
    " must be set to 60 ~ 140\xEF\xBC\x88"
    "Angle\xEF\xBC\x89 (default 90)\n";

// In every syntax that a file's extension can stand for.
class Settings : public testing::TestWithParam<std::string> {
protected:
  std::string path(const std::string& name = "settings") const { return m_dir.path(name + "." + GetParam()); }

  // Loads a file with these keys; returns the camera's messages and the result.
  bool load(const Document& document, std::string* messages = nullptr) {
    writeDocument(path(), document);
    const OutputCapture errors(2);
    const OutputCapture out(1);
    const bool loaded = camera.loadConfig(path());
    EXPECT_EQ(out.text(), "");
    if (messages != nullptr) {
      *messages = errors.ownText();
    } else {
      EXPECT_EQ(errors.ownText(), "");
    }
    return loaded;
  }

  TestCamera camera;

private:
  TempDir m_dir;
};

INSTANTIATE_TEST_SUITE_P(Syntax, Settings, testing::Values("yml", "xml", "json"),
                         [](const auto& instance) { return instance.param; });

}  // namespace

TEST_P(Settings, EveryKeyReachesItsMember) {
  EXPECT_TRUE(load({{"LogLevel", row({3})},
                    {"DeviceNode", row({7})},
                    {"FrameSize", row({928, 400})},
                    {"RectifyFrameSize", row({320, 240})},
                    {"FrameRate", row({60})},
                    {"Threshold", row({77})},
                    {"Algorithm", row({1})},
                    {"IpLastSegment", row({99})},
                    {"hFov", row({100.25})},
                    {"Transrate", row({12.5})},
                    {"Transmode", row({4})},
                    {"Depthmode", row({2})},
                    {"Reserved", row({5})},
                    {"Unknown", row({6})}}));
  EXPECT_EQ(camera.m_logLevel, 3);
  EXPECT_EQ(camera.m_deviceNode, 7);
  EXPECT_EQ(camera.m_rawFrameSize, cv::Size(928, 400));
  EXPECT_EQ(camera.m_rectFrameSize, cv::Size(320, 240));
  EXPECT_EQ(camera.getRawFrameRate(), 60.0F);
  EXPECT_EQ(camera.m_threshold, 77);
  EXPECT_EQ(camera.m_algorithm, 1);
  EXPECT_EQ(camera.m_ipLastSegment, 99);
  EXPECT_EQ(camera.m_hFov, 100.25);
  EXPECT_EQ(camera.m_transrate, 12.5);
  EXPECT_EQ(camera.m_transmode, 4);
  EXPECT_EQ(camera.m_depthmode, 2);
}

TEST_P(Settings, MissingKeysTakeTheirFallbacksOnANewCamera) {
  EXPECT_TRUE(load({{"DeviceNode", row({2})}}));
  EXPECT_EQ(camera.m_deviceNode, 2);
  EXPECT_EQ(camera.m_logLevel, 1);
  EXPECT_EQ(camera.m_rawFrameSize, cv::Size(1856, 800));
  EXPECT_EQ(camera.m_rectFrameSize, cv::Size(464, 0));
  EXPECT_EQ(camera.getRawFrameRate(), 30.0F);
  EXPECT_EQ(camera.m_threshold, 120);
  EXPECT_EQ(camera.m_algorithm, 0);
  EXPECT_EQ(camera.m_ipLastSegment, 15);
  EXPECT_EQ(camera.m_hFov, 90.0);
  EXPECT_EQ(camera.m_transrate, 0.0);
  EXPECT_EQ(camera.m_transmode, -1);
  EXPECT_EQ(camera.m_depthmode, 1);
}

TEST_P(Settings, MissingKeysFallBackOrKeepWhatALiveCameraHas) {
  camera.m_logLevel = 9;
  camera.m_rawFrameSize = cv::Size(928, 400);
  camera.m_rectFrameSize = cv::Size(777, 301);
  camera.m_frameRate = 5.0F;
  camera.m_threshold = 11;
  camera.m_algorithm = 1;
  camera.m_ipLastSegment = 12;
  camera.m_hFov = 77.0;
  camera.m_defaultHFov = 101.0;
  camera.m_transrate = 13.0;
  camera.m_transmode = 2;
  camera.m_depthmode = 2;
  EXPECT_TRUE(load({{"DeviceNode", row({2})}}));
  EXPECT_EQ(camera.m_logLevel, 1);
  EXPECT_EQ(camera.m_rawFrameSize, cv::Size(1856, 800));
  EXPECT_EQ(camera.m_rectFrameSize, cv::Size(464, 150));  // half the rectified height as it stood
  EXPECT_EQ(camera.getRawFrameRate(), 30.0F);
  EXPECT_EQ(camera.m_hFov, 101.0);
  EXPECT_EQ(camera.m_threshold, 11);
  EXPECT_EQ(camera.m_algorithm, 1);
  EXPECT_EQ(camera.m_ipLastSegment, 12);
  EXPECT_EQ(camera.m_transrate, 13.0);
  EXPECT_EQ(camera.m_transmode, 2);
  EXPECT_EQ(camera.m_depthmode, 2);
}

// The rectified size falls back to a quarter of the raw width that this very load brought.
TEST_P(Settings, RectifiedSizeFallsBackToTheNewRawWidth) {
  camera.m_rectFrameSize = cv::Size(1, -7);
  EXPECT_TRUE(load({{"DeviceNode", row({2})}, {"FrameSize", row({-6, 9})}}));
  EXPECT_EQ(camera.m_rawFrameSize, cv::Size(-6, 9));
  EXPECT_EQ(camera.m_rectFrameSize, cv::Size(-2, -4));  // shifts round down
}

TEST_P(Settings, TouchNothingElse) {
  camera.install(new stereo::test::ScriptedCapture([](int) { return cv::Mat(); }));
  camera.m_fisheyeRadius = 17;
  camera.m_posNumber = 3;
  camera.m_serialNumber = 4;
  EXPECT_TRUE(load({{"DeviceNode", row({2})}, {"LogLevel", row({0})}, {"FrameSize", row({928, 400})}}));
  EXPECT_EQ(camera.m_fisheyeRadius, 17);
  EXPECT_EQ(camera.m_posNumber, 3);
  EXPECT_EQ(camera.m_serialNumber, 4);
  EXPECT_TRUE(camera.device().settings().empty());
  EXPECT_TRUE(camera.isOpened());
  const OutputCapture errors(2);
  camera.setRawFrameSize(cv::Size(1, 1));  // the live log still reports
  EXPECT_EQ(stereo::test::recordTexts(errors.text()).size(), 1U);
}

TEST_P(Settings, NumbersAreTruncatedTowardZero) {
  EXPECT_TRUE(load({{"LogLevel", row({-1.9})},
                    {"DeviceNode", row({2.9})},
                    {"FrameSize", row({928.9, -400.9})},
                    {"RectifyFrameSize", row({-0.9, 240.5})},
                    {"FrameRate", row({25.9})},
                    {"Threshold", row({-77.7})},
                    {"Algorithm", row({0.99})},
                    {"IpLastSegment", row({15.99})},
                    {"Transmode", row({-1.9})},
                    {"Depthmode", row({2.9})}}));
  EXPECT_EQ(camera.m_logLevel, -1);
  EXPECT_EQ(camera.m_deviceNode, 2);
  EXPECT_EQ(camera.m_rawFrameSize, cv::Size(928, -400));
  EXPECT_EQ(camera.m_rectFrameSize, cv::Size(0, 240));
  EXPECT_EQ(camera.getRawFrameRate(), 25.0F);
  EXPECT_EQ(camera.m_threshold, -77);
  EXPECT_EQ(camera.m_algorithm, 0);
  EXPECT_EQ(camera.m_ipLastSegment, 15);
  EXPECT_EQ(camera.m_transmode, -1);
  EXPECT_EQ(camera.m_depthmode, 2);
  EXPECT_TRUE(load({{"DeviceNode", row({0})}, {"FrameRate", row({29.97})}}));
  EXPECT_EQ(camera.getRawFrameRate(), 29.0F);
}

TEST_P(Settings, StreamRateIsHeldAtTheFrameRate) {
  struct Case {
    double rate, frameRate, result;
    bool corrected;
  };
  for (const Case& c : {Case{30.0, 30.0, 30.0, false}, Case{30.5, 30.0, 30.0, true}, Case{29.999, 30.0, 29.999, false},
                        Case{25.5, 25.9, 25.0, true}, Case{-4.5, 30.0, -4.5, false}, Case{0.0, -1.0, -1.0, true}}) {
    std::string messages;
    EXPECT_TRUE(
        load({{"DeviceNode", row({0})}, {"FrameRate", row({c.frameRate})}, {"Transrate", row({c.rate})}}, &messages));
    EXPECT_EQ(camera.m_transrate, c.result) << c.rate;
    EXPECT_EQ(messages, c.corrected ? transrateMessage : "") << c.rate;
  }
  // Without a frame rate in the file, its fallback applies, not the camera's old rate.
  camera.m_frameRate = 100.0F;
  std::string messages;
  EXPECT_TRUE(load({{"DeviceNode", row({0})}, {"Transrate", row({30.5})}}, &messages));
  EXPECT_EQ(camera.m_transrate, 30.0);
  EXPECT_EQ(messages, transrateMessage);
}

// A rate that is not in the file is not adjusted, even if the new frame rate is lower.
TEST_P(Settings, StreamRateOfTheCameraIsNotCorrected) {
  camera.m_transrate = 50.0;
  EXPECT_TRUE(load({{"DeviceNode", row({0})}, {"FrameRate", row({10})}}));
  EXPECT_EQ(camera.m_transrate, 50.0);
}

TEST_P(Settings, StreamModeOutOfRangeBecomesNone) {
  for (const int mode : {-1, 0, 1, 2, 3, 4, 5, -2, 1000, -1000}) {
    const bool valid = mode >= -1 && mode <= 4;
    std::string messages;
    EXPECT_TRUE(load({{"DeviceNode", row({0})}, {"Transmode", row({1.0 * mode})}}, &messages));
    EXPECT_EQ(camera.m_transmode, valid ? mode : -1) << mode;
    EXPECT_EQ(messages, valid ? "" : transmodeMessage) << mode;
  }
}

TEST_P(Settings, DepthModeOutOfRangeBecomesOneWithAMessageThatNamesTheStreamMode) {
  for (const int mode : {1, 2, 0, 3, -1, 1000}) {
    const bool valid = mode == 1 || mode == 2;
    std::string messages;
    EXPECT_TRUE(load({{"DeviceNode", row({0})}, {"Depthmode", row({1.0 * mode})}}, &messages));
    EXPECT_EQ(camera.m_depthmode, valid ? mode : 1) << mode;
    EXPECT_EQ(messages, valid ? "" : depthmodeMessage) << mode;
  }
}

TEST_P(Settings, FieldOfViewOutOfRangeTakesTheDefault) {
  for (const auto& [fov, printed] : {std::pair(140.0, ""),
                                     {60.0, ""},
                                     {99.5, ""},
                                     {140.5, "140.5"},
                                     {59.9, "59.9"},
                                     {-90.0, "-90"},
                                     {1234567.0, "1.23457e+06"},
                                     {0.0, "0"}}) {
    for (const double fallback : {90.0, 85.5}) {
      camera.m_defaultHFov = fallback;
      const bool valid = *printed == '\0';
      std::string messages;
      EXPECT_TRUE(load({{"DeviceNode", row({0})}, {"hFov", row({fov})}}, &messages));
      EXPECT_EQ(camera.m_hFov, valid ? fov : fallback) << fov;
      EXPECT_EQ(messages, valid ? "" : std::string("fov=") + printed + hFovMessage);
    }
  }
}

// Stream rate, stream mode, field of view, depth mode, whatever their order in the file.
TEST_P(Settings, CorrectionsComeInTheirOrderAndLoadingGoesOn) {
  std::string messages;
  EXPECT_TRUE(load({{"Depthmode", row({9})},
                    {"hFov", row({10})},
                    {"Transmode", row({9})},
                    {"Transrate", row({99})},
                    {"DeviceNode", row({4})}},
                   &messages));
  EXPECT_EQ(messages, std::string(transrateMessage) + transmodeMessage + "fov=10" + hFovMessage + depthmodeMessage);
  EXPECT_EQ(camera.m_deviceNode, 4);
  EXPECT_EQ(camera.m_transrate, 30.0);
  EXPECT_EQ(camera.m_transmode, -1);
  EXPECT_EQ(camera.m_hFov, 90.0);
  EXPECT_EQ(camera.m_depthmode, 1);
}

// What is applied before the device node stays applied; the rest is ignored.
TEST_P(Settings, MissingDeviceNodeFailsAfterLevelThresholdAndAlgorithm) {
  camera.m_rectFrameSize = cv::Size(10, 20);
  camera.m_hFov = 77.0;
  std::string messages;
  EXPECT_FALSE(load({{"LogLevel", row({4})},
                     {"FrameSize", row({928, 400})},
                     {"RectifyFrameSize", row({320, 240})},
                     {"FrameRate", row({60})},
                     {"Threshold", row({77})},
                     {"Algorithm", row({1})},
                     {"IpLastSegment", row({99})},
                     {"hFov", row({300})},
                     {"Transrate", row({1000})},
                     {"Transmode", row({9})},
                     {"Depthmode", row({9})}},
                    &messages));
  EXPECT_EQ(messages, "Invalid deviceNode!\n");
  EXPECT_EQ(camera.m_logLevel, 4);
  EXPECT_EQ(camera.m_threshold, 77);
  EXPECT_EQ(camera.m_algorithm, 1);
  EXPECT_EQ(camera.m_deviceNode, stereo::test::noDevice);
  EXPECT_EQ(camera.m_rawFrameSize, cv::Size(0, 0));
  EXPECT_EQ(camera.m_rectFrameSize, cv::Size(10, 20));
  EXPECT_EQ(camera.getRawFrameRate(), 30.0F);
  EXPECT_EQ(camera.m_ipLastSegment, 15);
  EXPECT_EQ(camera.m_hFov, 77.0);
  EXPECT_EQ(camera.m_transrate, 0.0);
  EXPECT_EQ(camera.m_transmode, -1);
  EXPECT_EQ(camera.m_depthmode, 1);
}

TEST_P(Settings, MissingLevelBecomesOneEvenWithoutADeviceNode) {
  camera.m_logLevel = 8;
  camera.m_threshold = 5;
  std::string messages;
  EXPECT_FALSE(load({{"Algorithm", row({6})}}, &messages));
  EXPECT_EQ(messages, "Invalid deviceNode!\n");
  EXPECT_EQ(camera.m_logLevel, 1);
  EXPECT_EQ(camera.m_threshold, 5);
  EXPECT_EQ(camera.m_algorithm, 6);
}

TEST_P(Settings, AreSavedAsMatricesInTheirOrder) {
  camera.m_logLevel = 2;
  camera.m_deviceNode = 3;
  camera.m_rawFrameSize = cv::Size(1856, 800);
  camera.m_rectFrameSize = cv::Size(320, 240);
  camera.m_serialNumber = 123456789;
  camera.m_threshold = -7;
  camera.m_algorithm = 1;
  camera.m_ipLastSegment = 200;
  stereo::test::writeFile(path(), std::string(100000, '#'));  // to be replaced, whatever it held
  const OutputCapture errors(2);
  const SyncProbe sync(path());
  EXPECT_TRUE(camera.saveConfig(path()));
  EXPECT_EQ(errors.ownText(), "");
  const Document expected = {{"LogLevel", row({2})},          {"DeviceNode", row({3})},
                             {"FrameSize", row({1856, 800})}, {"RectifyFrameSize", row({320, 240})},
                             {"FrameRate", row({123456789})},  // the serial number
                             {"Threshold", row({-7})},        {"Algorithm", row({1})},
                             {"IpLastSegment", row({200})},   {"Reserved", cv::Mat(cv::Mat::eye(3, 3, CV_64F))}};
  const Document saved = readDocument(path());
  ASSERT_EQ(saved.size(), expected.size());
  for (std::size_t i = 0; i < saved.size(); ++i) {
    EXPECT_EQ(saved[i].first, expected[i].first);
    EXPECT_TRUE(sameBits(saved[i].second, expected[i].second)) << saved[i].first << saved[i].second;
  }
  // Once before the file is closed and once when it is complete. Nobody looks at the command's failure.
  const std::vector<std::size_t> lengths = sync.lengths();
  ASSERT_EQ(lengths.size(), 2U);
  EXPECT_LT(lengths[0], lengths[1]);
  EXPECT_EQ(lengths[1], readFile(path()).size());
}

TEST_P(Settings, LoadBackWithTheSerialNumberForTheFrameRate) {
  camera.m_serialNumber = 4711;
  camera.m_deviceNode = 5;
  camera.m_logLevel = 3;
  camera.m_threshold = 33;
  camera.m_algorithm = 1;
  camera.m_ipLastSegment = 44;
  camera.m_rawFrameSize = cv::Size(928, 400);
  camera.m_rectFrameSize = cv::Size(100, 50);
  camera.m_frameRate = 25.0F;
  camera.m_hFov = 120.0;
  camera.m_transrate = 20.0;
  camera.m_transmode = 3;
  camera.m_depthmode = 2;
  const SyncProbe sync(path());
  ASSERT_TRUE(camera.saveConfig(path()));
  TestCamera other;
  ASSERT_TRUE(other.loadConfig(path()));
  EXPECT_EQ(other.getRawFrameRate(), 4711.0F);
  EXPECT_EQ(other.m_serialNumber, 0);
  EXPECT_EQ(other.m_deviceNode, 5);
  EXPECT_EQ(other.m_logLevel, 3);
  EXPECT_EQ(other.m_threshold, 33);
  EXPECT_EQ(other.m_algorithm, 1);
  EXPECT_EQ(other.m_ipLastSegment, 44);
  EXPECT_EQ(other.m_rawFrameSize, cv::Size(928, 400));
  EXPECT_EQ(other.m_rectFrameSize, cv::Size(100, 50));
  EXPECT_EQ(other.m_hFov, 90.0);
  EXPECT_EQ(other.m_transrate, 0.0);
  EXPECT_EQ(other.m_transmode, -1);
  EXPECT_EQ(other.m_depthmode, 1);
}

TEST_P(Settings, SavingToAPathThatCannotBeWrittenWritesNothingAndSaysTrue) {
  const OutputCapture errors(2);
  const std::string missing = path("missing/settings");
  const SyncProbe sync(missing);
  EXPECT_TRUE(camera.saveConfig(missing));
  EXPECT_FALSE(std::filesystem::exists(missing));
  EXPECT_EQ(errors.ownText(), "");
}
