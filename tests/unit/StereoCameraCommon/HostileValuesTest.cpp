// SPDX-License-Identifier: Apache-2.0
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "tests/unit/StereoCameraCommon/HostileFiles.hpp"

using namespace stereo::test;

// A sanitizer's allocator shall refuse too large requests as the system's does.
// NOLINTBEGIN(bugprone-reserved-identifier): the sanitizers' own names
extern "C" const char* __asan_default_options();
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1:max_allocation_size_mb=4096"; }
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1:max_allocation_size_mb=4096"; }
// NOLINTEND(bugprone-reserved-identifier)

namespace {

using HostileValues = HostileFiles;

INSTANTIATE_TEST_SUITE_P(Syntax, HostileValues, testing::Values("yml", "xml", "json"),
                         [](const auto& instance) { return instance.param; });

}  // namespace

TEST_P(HostileValues, MatricesThatClaimWhatTheyDoNotHold) {
  for (const Raw& m : {Raw{"", "100000", "100000", "d", "1"}, Raw{"", "2147483647", "2147483647", "d", "1"},
                       Raw{"", "1", "1", "d", "1 2"}, Raw{"", "1", "2", "d", "1"}, Raw{"", "1", "-1", "d", "1"},
                       Raw{"", "-1", "1", "d", "1"}, Raw{"", "1", "1", "q", "1"}, Raw{"", "1", "1", "", "1"},
                       Raw{"", "1", "1", "600d", "1"}, Raw{"", "1", "1", "2u3d", "1"}, Raw{"", "0", "1", "d", "1"}}) {
    Raw bad = m;
    for (const char* const key : settingsKeys) {
      bad.key = key;
      std::vector<Raw> document = {bad};
      if (bad.key != "DeviceNode") {
        document.push_back(number("DeviceNode", "3"));
      }
      EXPECT_EQ(settings(textOf(GetParam(), document)), Outcome::malformed) << key << m.rows << m.cols << m.type;
    }
    bad.key = "LeftXi";
    EXPECT_EQ(calibration(textOf(GetParam(), {bad})), Outcome::malformed);
    EXPECT_EQ(untouched(), 9) << m.rows << "x" << m.cols << m.type;
  }
}

// Nor may a failed read leave a matrix of the new size with undefined values.
TEST_P(HostileValues, MatrixThatFailsToReadLeavesItsMemberAlone) {
  writeFile(path(), textOf(GetParam(), {Raw{"LeftXi", "3", "5", "d", "1 2"}}));
  TestCamera fresh;
  const OutputCapture errors(2);
  EXPECT_FALSE(fresh.loadCalibParams(path()));
  EXPECT_TRUE(fresh.m_leftXi.empty()) << fresh.m_leftXi.size();
}

TEST_P(HostileValues, NumbersThatNoIntHolds) {
  constexpr int highest = std::numeric_limits<int>::max();
  constexpr int lowest = std::numeric_limits<int>::min();
  struct Case {
    const char* text;
    int value;
  };
  for (const Case& c : {Case{".NaN", 0}, Case{".Inf", highest}, Case{"-.Inf", lowest}, Case{"1e300", highest},
                        Case{"-1e300", lowest}, Case{"1e999", highest}, Case{"-1e-300", 0}}) {
    std::vector<Raw> document;
    for (const char* const key : settingsKeys) {
      document.push_back(number(key, c.text));
    }
    document[2] = document[3] = Raw{"FrameSize", "1", "2", "d", std::string(c.text) + " " + c.text};
    document[3].key = "RectifyFrameSize";
    ASSERT_EQ(settings(textOf(GetParam(), document)), Outcome::loaded) << c.text;
    EXPECT_EQ(camera.m_logLevel, c.value) << c.text;
    EXPECT_EQ(camera.m_deviceNode, c.value) << c.text;
    EXPECT_EQ(camera.m_rawFrameSize, cv::Size(c.value, c.value)) << c.text;
    EXPECT_EQ(camera.m_rectFrameSize, cv::Size(c.value, c.value)) << c.text;
    EXPECT_EQ(camera.getRawFrameRate(), static_cast<float>(c.value)) << c.text;
    EXPECT_EQ(camera.m_threshold, c.value) << c.text;
    EXPECT_EQ(camera.m_algorithm, c.value) << c.text;
    EXPECT_EQ(camera.m_ipLastSegment, c.value) << c.text;
    EXPECT_EQ(camera.m_hFov, 90.0) << c.text;
    EXPECT_EQ(camera.m_transmode, c.value == 0 ? 0 : -1) << c.text;
    EXPECT_EQ(camera.m_depthmode, 1) << c.text;
    EXPECT_LE(camera.m_transrate, static_cast<double>(camera.getRawFrameRate())) << c.text;
  }
}

// A size needs two numbers in its first row, a number one. An empty matrix counts as a missing key.
TEST_P(HostileValues, ShapesOtherThanStated) {
  const Raw device = number("DeviceNode", "3");
  for (const char* const key : {"FrameSize", "RectifyFrameSize"}) {
    EXPECT_EQ(settings(textOf(GetParam(), {device, number(key, "5")})), Outcome::malformed);
    EXPECT_EQ(settings(textOf(GetParam(), {device, {key, "2", "1", "d", "5 6"}})), Outcome::malformed);
    EXPECT_EQ(settings(textOf(GetParam(), {device, {key, "2", "3", "d", "5 6 7 8 9 10"}})), Outcome::loaded);
    EXPECT_EQ(std::string(key) == "FrameSize" ? camera.m_rawFrameSize : camera.m_rectFrameSize, cv::Size(5, 6));
    EXPECT_EQ(settings(textOf(GetParam(), {device, {key, "0", "0", "d", ""}})), Outcome::loaded);
    EXPECT_EQ(camera.m_rawFrameSize, cv::Size(1856, 800));
    EXPECT_EQ(camera.m_rectFrameSize, cv::Size(464, 452));
  }
  for (const Raw& shape :
       {Raw{"", "1", "3", "d", "7 8 9"}, Raw{"", "3", "1", "d", "7 8 9"}, Raw{"", "2", "2", "d", "7 8 9 10"}}) {
    Raw threshold = shape;
    threshold.key = "Threshold";
    EXPECT_EQ(settings(textOf(GetParam(), {device, threshold})), Outcome::loaded);
    EXPECT_EQ(camera.m_threshold, 7);
  }
  EXPECT_EQ(settings(textOf(GetParam(), {{"DeviceNode", "0", "0", "d", ""}})), Outcome::incomplete);
}

TEST_P(HostileValues, OtherElementTypesAreConverted) {
  for (const char* const type : {"u", "c", "w", "s", "i", "f", "d", "h", "3d", "2i", "4u"}) {
    const bool many = std::string(type).size() > 1;
    std::string channels = "5";
    for (int i = 1; many && i < type[0] - '0'; ++i) {
      channels += " 6";
    }
    const Raw one{"", "1", "1", type, channels};
    Raw device = one;
    device.key = "DeviceNode";
    Raw rate = one;
    rate.key = "FrameRate";
    const Raw size{"FrameSize", "1", "2", type, channels + " " + channels};
    ASSERT_EQ(settings(textOf(GetParam(), {device, rate, size})), Outcome::loaded) << type;
    EXPECT_EQ(camera.m_deviceNode, 5) << type;
    EXPECT_EQ(camera.getRawFrameRate(), 5.0F) << type;
    EXPECT_EQ(camera.m_rawFrameSize, cv::Size(5, 5)) << type;
  }
}

// The same for the numbers of the calibration file; its matrices don't matter here.
TEST_P(HostileValues, CalibrationNumbersOfAnyTypeAndSize) {
  std::vector<Raw> document;
  for (const char* const key :
       {"LeftXi", "LeftIntrinsicMatrix", "LeftDistortionCoefficients", "LeftRotation", "RightXi",
        "RightIntrinsicMatrix", "RightDistortionCoefficients", "RightRotation", "Translation"}) {
    document.push_back(number(key, ".NaN"));
  }
  document.push_back(Raw{"SerialNumber", "2", "2", "2i", "7 6 5 4 3 2 1 0"});
  document.push_back(Raw{"PositonNumber", "1", "1", "f", "-3.7"});
  ASSERT_EQ(calibration(textOf(GetParam(), document)), Outcome::loaded);
  EXPECT_EQ(camera.m_serialNumber, 7);
  EXPECT_EQ(camera.m_posNumber, -3);
  document[9] = number("SerialNumber", "1e300");
  document[10] = number("PositonNumber", ".NaN");
  ASSERT_EQ(calibration(textOf(GetParam(), document)), Outcome::loaded);
  EXPECT_EQ(camera.m_serialNumber, std::numeric_limits<int>::max());
  EXPECT_EQ(camera.m_posNumber, 0);
  document[9] = number("SerialNumber", "-.Inf");
  ASSERT_EQ(calibration(textOf(GetParam(), document)), Outcome::loaded);
  EXPECT_EQ(camera.m_serialNumber, std::numeric_limits<int>::min());
}

namespace {

// A value of each kind that a document can hold, none of them a matrix of numbers.
void writeOddValue(cv::FileStorage& storage, const std::string& key, int kind) {
  switch (kind) {
    case 0:
      storage << key << 5;
      break;
    case 1:
      storage << key << 5.5;
      break;
    case 2:
      storage << key << "five";
      break;
    case 3:
      storage << key << std::vector<int>{5, 6};
      break;
    case 4:
      storage << key << "{"
              << "five" << 5 << "}";
      break;
    case 5:
      storage << key << "["
              << "]";
      break;
    case 6:
      storage << key << "{"
              << "rows" << 1 << "cols" << 1 << "dt"
              << "d"
              << "}";
      break;
    case 7:
      storage << key << "{"
              << "rows" << 1 << "cols" << 1 << "dt" << 5 << "data" << 5 << "}";
      break;
    default: {
      const int sizes[] = {1, 2, 2};  // more than two dimensions
      storage << key << cv::Mat(3, sizes, CV_64F, cv::Scalar(5));
    }
  }
}

}  // namespace

TEST_P(HostileValues, ValuesThatAreNoMatrices) {
  for (int kind = 0; kind <= 8; ++kind) {
    for (const char* const key : settingsKeys) {
      {
        cv::FileStorage storage(path(), cv::FileStorage::WRITE);
        if (std::string(key) != "DeviceNode") {
          storage << "DeviceNode" << row({3});
        }
        writeOddValue(storage, key, kind);
      }
      EXPECT_EQ(settingsAt(path()), Outcome::malformed) << key << kind;
    }
    for (const char* const key : {"SerialNumber", "PositonNumber", "LeftXi", "RightRotation"}) {
      std::vector<std::string> others = {"SerialNumber",
                                         "PositonNumber",
                                         "LeftXi",
                                         "LeftIntrinsicMatrix",
                                         "LeftDistortionCoefficients",
                                         "LeftRotation",
                                         "RightXi",
                                         "RightIntrinsicMatrix",
                                         "RightDistortionCoefficients",
                                         "RightRotation",
                                         "Translation"};
      {
        cv::FileStorage storage(path(), cv::FileStorage::WRITE);
        for (const std::string& other : others) {
          if (other == key) {
            writeOddValue(storage, key, kind);
          } else {
            storage << other << row({3});
          }
        }
      }
      const bool matrixOfMoreDimensions = kind == 8 && std::string(key).back() != 'r';
      EXPECT_EQ(calibrationAt(path()), matrixOfMoreDimensions ? Outcome::loaded : Outcome::malformed) << key << kind;
    }
  }
}
