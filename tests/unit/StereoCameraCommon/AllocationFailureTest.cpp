// SPDX-License-Identifier: Apache-2.0
// What the camera does when its log, its device or a file's reader or writer cannot be allocated. This program's own
// non-throwing allocation refuses objects of a chosen size on demand.
#include <atomic>
#include <cstddef>
#include <filesystem>
#include <new>

#include <gtest/gtest.h>

#include "StereoCamera.hpp"
#include "SystemLog.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/TempDir.hpp"
#include "tests/support/TestCamera.hpp"

namespace {

std::atomic<std::size_t> refusedSize{0};
std::atomic<int> refusals{0};

}  // namespace

void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  if (size == refusedSize) {
    ++refusals;
    return nullptr;
  }
  try {
    return ::operator new(size);  // what the matching delete expects, also under a sanitizer
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

namespace {

using stereo::test::calibrate;
using stereo::test::noDevice;
using stereo::test::OutputCapture;
using stereo::test::recordTexts;
using stereo::test::row;
using stereo::test::sameBits;
using stereo::test::TempDir;
using stereo::test::TestCamera;
using stereo::test::writeDocument;
using Texts = std::vector<std::string>;

// While it lives, objects of this size cannot be allocated.
template <typename Object>
class Refusal {
public:
  Refusal() {
    refusals = 0;
    refusedSize = sizeof(Object);
  }
  ~Refusal() { refusedSize = 0; }
  Refusal(const Refusal&) = delete;
  Refusal& operator=(const Refusal&) = delete;
};

// Each must be refused on its own.
static_assert(sizeof(SystemLog) != sizeof(cv::VideoCapture) && sizeof(SystemLog) != sizeof(cv::FileStorage) &&
              sizeof(cv::VideoCapture) != sizeof(cv::FileStorage));

void expectClosedWithoutLogAndDevice(TestCamera& camera) {
  EXPECT_FALSE(camera.isOpened());
  EXPECT_EQ(camera.m_log, nullptr);
  EXPECT_EQ(camera.m_videoCapture, nullptr);
}

void expectEverySetterSurvives(TestCamera& camera) {
  const OutputCapture errors(2);
  EXPECT_TRUE(camera.setLogLevel(2));
  EXPECT_TRUE(camera.setPosNumber(2));
  EXPECT_TRUE(camera.setSerialNumber(2));
  EXPECT_FALSE(camera.setRawFrameRate(25));
  EXPECT_EQ(camera.getRawFrameRate(), 25.0F);
  EXPECT_FALSE(camera.setRawFrameSize(cv::Size(928, 400)));
  EXPECT_EQ(camera.getRawFrameSize(), cv::Size(928, 400));
  EXPECT_EQ(camera.m_fisheyeRadius, 0);
  EXPECT_FALSE(camera.setRawFrameSize(cv::Size(1, 1)));
  EXPECT_TRUE(camera.setRectFrameSize(cv::Size(8, 8)));
  EXPECT_FALSE(camera.setCalibParams({}, true));
  EXPECT_TRUE(camera.startCapture(false, false));
  EXPECT_TRUE(camera.stopCapture());
}

class AllocationFailure : public testing::Test {
protected:
  std::string settings() const {
    return writeDocument(m_dir.path("settings.yml"), {{"DeviceNode", row({noDevice})}, {"LogLevel", row({3})}});
  }

  TempDir m_dir;
};

}  // namespace

TEST_F(AllocationFailure, WithoutALogTheCameraStaysClosed) {
  const Refusal<SystemLog> refusal;
  const OutputCapture errors(2);
  TestCamera camera;
  EXPECT_EQ(refusals, 1);
  EXPECT_EQ(errors.text(), "Init Camera Log Error!\n");
  expectClosedWithoutLogAndDevice(camera);
  EXPECT_EQ(camera.getDeviceNode(), noDevice);
  expectEverySetterSurvives(camera);
}

TEST_F(AllocationFailure, WithoutALogTheCameraFromSettingsStaysClosed) {
  const std::string path = settings();
  const Refusal<SystemLog> refusal;
  const OutputCapture errors(2);
  TestCamera camera(path);
  EXPECT_EQ(refusals, 1);
  EXPECT_EQ(errors.ownText(), "Init Camera Log Error!\n");
  expectClosedWithoutLogAndDevice(camera);
  EXPECT_EQ(camera.getLogLevel(), 3);
  expectEverySetterSurvives(camera);
}

TEST_F(AllocationFailure, WithoutADeviceTheCameraDropsItsLog) {
  const Refusal<cv::VideoCapture> refusal;
  const OutputCapture errors(2);
  TestCamera camera;
  EXPECT_EQ(refusals, 1);
  EXPECT_EQ(recordTexts(errors.text()), Texts{"Init Camera " + std::to_string(noDevice) + " Error!\n"});
  EXPECT_NE(errors.text().find(" [StereoCamera] "), std::string::npos);
  expectClosedWithoutLogAndDevice(camera);
  expectEverySetterSurvives(camera);
}

TEST_F(AllocationFailure, WithoutADeviceTheDefaultCameraNamesDeviceZero) {
  const Refusal<cv::VideoCapture> refusal;
  const OutputCapture errors(2);
  StereoCamera camera;
  EXPECT_EQ(recordTexts(errors.text()), Texts{"Init Camera 0 Error!\n"});
  EXPECT_FALSE(camera.isOpened());
}

TEST_F(AllocationFailure, WithoutADeviceTheCameraFromSettingsDropsItsLog) {
  const std::string path = settings();
  const Refusal<cv::VideoCapture> refusal;
  const OutputCapture errors(2);
  TestCamera camera(path);
  EXPECT_EQ(refusals, 1);
  EXPECT_EQ(recordTexts(errors.text()), Texts{"Init camera object error!\n"});
  expectClosedWithoutLogAndDevice(camera);
  EXPECT_EQ(camera.getDeviceNode(), noDevice);
  expectEverySetterSurvives(camera);
}

TEST_F(AllocationFailure, SettingsFailWithoutAReader) {
  const std::string path = settings();
  TestCamera camera;
  camera.m_logLevel = 8;
  camera.m_threshold = 9;
  const Refusal<cv::FileStorage> refusal;
  // An empty file is not given to the parser, but needs a reader like any other.
  for (const std::string& file : {path, m_dir.write("empty.yml", ""), m_dir.path("missing.yml")}) {
    const OutputCapture errors(2);
    EXPECT_FALSE(camera.loadConfig(file));
    EXPECT_EQ(errors.ownText(), "Read File: " + file + " Error!\n");
    EXPECT_EQ(camera.m_logLevel, 8);
    EXPECT_EQ(camera.m_threshold, 9);
  }
}

TEST_F(AllocationFailure, SettingsConstructorFailsWithoutAReader) {
  const std::string path = settings();
  const Refusal<cv::FileStorage> refusal;
  const OutputCapture errors(2);
  TestCamera camera(path);
  EXPECT_EQ(errors.text(), "Read File: " + path + " Error!\nLoad " + path + " error!\n");
  expectClosedWithoutLogAndDevice(camera);
}

TEST_F(AllocationFailure, CalibrationFailsWithoutAReaderAndStaysAsItWas) {
  const std::string path = m_dir.path("calibration.yml");
  TestCamera camera;
  calibrate(camera);
  const cv::Mat before = camera.m_leftIntrinsic.clone();
  const Refusal<cv::FileStorage> refusal;
  const OutputCapture errors(2);
  EXPECT_FALSE(camera.loadCalibParams(path));
  EXPECT_EQ(errors.text(), "Read File: " + path + " Error!\n");
  EXPECT_TRUE(sameBits(camera.m_leftIntrinsic, before));
}

TEST_F(AllocationFailure, SavingFailsWithoutAWriterAndLeavesTheFile) {
  const std::string path = m_dir.write("file.yml", "as it was");
  TestCamera camera;
  const stereo::test::SyncProbe sync(path);
  const Refusal<cv::FileStorage> refusal;
  {
    const OutputCapture errors(2);
    EXPECT_FALSE(camera.saveConfig(path));
    EXPECT_EQ(errors.text(), "Save File: " + path + " Error!\n");
  }
  {
    const OutputCapture errors(2);
    EXPECT_FALSE(camera.saveCalibParams(path));
    EXPECT_EQ(errors.text(), "Save File: " + path + " Error!\n");
  }
  EXPECT_EQ(stereo::test::readFile(path), "as it was");
  EXPECT_TRUE(sync.lengths().empty());
}
