// SPDX-License-Identifier: Apache-2.0
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "StereoCamera.hpp"
#include "SystemLog.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/TempDir.hpp"
#include "tests/support/TestCamera.hpp"

using stereo::test::await;
using stereo::test::Gate;
using stereo::test::noDevice;
using stereo::test::OutputCapture;
using stereo::test::recordTexts;
using stereo::test::row;
using stereo::test::ScriptedCapture;
using stereo::test::TempDir;
using stereo::test::TestCamera;
using stereo::test::writeDocument;

namespace {

// A camera that stops nothing when it is destroyed.
class BareCamera : public StereoCamera {
public:
  BareCamera() : StereoCamera(noDevice) {}
  using StereoCamera::m_captureThread;
  using StereoCamera::m_computeThread;
  using StereoCamera::m_isComputing;
  using StereoCamera::m_isOpened;
  using StereoCamera::m_log;
  using StereoCamera::m_videoCapture;

  void install(cv::VideoCapture* device) {
    delete m_videoCapture;
    m_videoCapture = device;
  }
};

}  // namespace

// A device that does not open leaves the camera closed, with its log and its device, and without a message.
TEST(CameraObject, KeepsADeviceThatDoesNotOpen) {
  const OutputCapture out(1);
  const OutputCapture errors(2);
  TestCamera camera;
  EXPECT_FALSE(camera.isOpened());
  EXPECT_NE(camera.m_log, nullptr);
  EXPECT_NE(camera.m_videoCapture, nullptr);
  EXPECT_EQ(camera.getDeviceNode(), noDevice);
  EXPECT_EQ(errors.ownText(), "");
  EXPECT_EQ(out.ownText(), "");
}

namespace {

// Asking every back end for a device leaks memory and threads in the libraries below. So this runs in a process of its
// own, which ends without cleaning up.
[[noreturn]] void openDeviceThree() {
  class Third : public StereoCamera {
  public:
    Third() : StereoCamera(3) {}
    using StereoCamera::m_log;
  };
  {
    const OutputCapture errors(2);
    Third camera;
    EXPECT_FALSE(camera.isOpened());
    EXPECT_EQ(camera.getDeviceNode(), 3);
    EXPECT_EQ(camera.getLogLevel(), 1);
    if (camera.m_log != nullptr) {
      camera.m_log->runTimeError("still here\n");
    }
    EXPECT_EQ(recordTexts(errors.ownText()), std::vector<std::string>{"still here\n"});
  }
  std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

[[noreturn]] void openDefaultDevice() {
  class Default : public StereoCamera {
  public:
    using StereoCamera::m_log;
    using StereoCamera::m_videoCapture;
  };
  {
    const OutputCapture errors(2);
    Default camera;
    EXPECT_EQ(camera.getDeviceNode(), 0);
    EXPECT_EQ(camera.getLogLevel(), 1);
    EXPECT_NE(camera.m_log, nullptr);
    EXPECT_TRUE(camera.m_videoCapture != nullptr && camera.m_videoCapture->isOpened() == camera.isOpened());
    EXPECT_EQ(camera.getRawFrameSize(), cv::Size(0, 0));
  }
  std::_Exit(testing::Test::HasFailure() ? 1 : 0);
}

}  // namespace

TEST(CameraObjectDeathTest, DeviceThreeThatIsNotThereStaysClosedWithALog) {
  if (std::filesystem::exists("/dev/video3")) {
    GTEST_SKIP() << "this machine has a video device 3";
  }
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(openDeviceThree(), testing::ExitedWithCode(0), "");
}

TEST(CameraObjectDeathTest, TakesDeviceZeroByDefault) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(openDefaultDevice(), testing::ExitedWithCode(0), "");
}

TEST(SettingsConstructor, MakesLogAndDeviceFromTheFile) {
  const TempDir dir;
  const std::string path =
      writeDocument(dir.path("settings.yml"),
                    {{"DeviceNode", row({noDevice + 1})}, {"LogLevel", row({2})}, {"FrameSize", row({928, 400})}});
  const OutputCapture errors(2);
  TestCamera camera(path);
  EXPECT_EQ(errors.ownText(), "");
  EXPECT_FALSE(camera.isOpened());
  EXPECT_NE(camera.m_log, nullptr);
  EXPECT_NE(camera.m_videoCapture, nullptr);
  EXPECT_EQ(camera.getDeviceNode(), noDevice + 1);
  EXPECT_EQ(camera.getLogLevel(), 2);
  EXPECT_EQ(camera.getRawFrameSize(), cv::Size(928, 400));
  EXPECT_EQ(camera.m_fisheyeRadius, 0);  // the setter's business
}

TEST(SettingsConstructor, GivesTheLogTheLevelOfTheFile) {
  const TempDir dir;
  for (const int level : {0, 1}) {
    TestCamera camera(
        writeDocument(dir.path("settings.yml"), {{"DeviceNode", row({noDevice})}, {"LogLevel", row({1.0 * level})}}));
    const OutputCapture out(1);
    camera.m_log->runTimeInfo("progress\n");
    EXPECT_EQ(recordTexts(out.text()).size(), static_cast<std::size_t>(level));
  }
}

TEST(SettingsConstructor, StaysClosedWithoutLogAndDeviceIfTheFileDoesNotLoad) {
  const TempDir dir;
  const std::string missing = dir.path("missing 100%s.yml");
  const std::string noNode = writeDocument(dir.path("no-node.yml"), {{"LogLevel", row({5})}});
  const std::string malformed = dir.write("malformed.yml", "%YAML:1.0\n---\nDeviceNode: 3\n");
  for (const auto& [path, report] : {std::pair(missing, std::string("Invalid deviceNode!\n")),
                                     std::pair(noNode, std::string("Invalid deviceNode!\n")),
                                     std::pair(malformed, "Read A NULL File," + malformed + " not loaded!\n")}) {
    const OutputCapture out(1);
    const OutputCapture errors(2);
    TestCamera camera(path);
    EXPECT_EQ(errors.ownText(), report + "Load " + path + " error!\n");
    EXPECT_EQ(out.text(), "");
    EXPECT_FALSE(camera.isOpened());
    EXPECT_EQ(camera.m_log, nullptr);
    EXPECT_EQ(camera.m_videoCapture, nullptr);
  }
}

TEST(SettingsConstructor, CameraWithoutLogAndDeviceSurvivesEveryOperationThatDoesNotWait) {
  const TempDir dir;
  const OutputCapture errors(2);
  TestCamera camera(dir.path("missing.yml"));
  ASSERT_EQ(camera.m_log, nullptr);
  EXPECT_TRUE(camera.setLogLevel(3));
  EXPECT_FALSE(camera.setRawFrameRate(25));
  EXPECT_FALSE(camera.setRawFrameSize(cv::Size(1856, 800)));
  EXPECT_FALSE(camera.setRawFrameSize(cv::Size(1, 1)));
  EXPECT_TRUE(camera.setRectFrameSize(cv::Size(40, 30)));
  EXPECT_FALSE(camera.setCalibParams({}, false));
  calibrate(camera);
  std::vector<cv::Mat> params;
  EXPECT_TRUE(camera.getCalibParams(params, true));
  EXPECT_TRUE(camera.startCapture(false, false));
  EXPECT_FALSE(camera.m_rectifyMaps[0][0].empty());
  EXPECT_TRUE(camera.stopCapture());
  EXPECT_TRUE(camera.stopStereoCompute());
  EXPECT_TRUE(camera.stopCapture());
  EXPECT_FALSE(camera.isOpened());
  EXPECT_FALSE(camera.loadConfig(dir.path("missing.yml")));
  EXPECT_FALSE(camera.loadCalibParams(dir.path("missing.yml")));
}

namespace {

// State of the camera when its device was destroyed.
struct Farewell {
  int devices = 0;
  bool opened = true;
  bool log = true;
  bool captureThread = false;
  bool computeThread = false;
};

class Witness : public ScriptedCapture {
public:
  Witness(BareCamera& camera, Farewell& farewell)
      : ScriptedCapture([](int) { return cv::Mat(); }), m_camera(camera), m_farewell(farewell) {}
  ~Witness() override {
    ++m_farewell.devices;
    m_farewell.opened = m_isOpened;
    m_farewell.log = m_log != nullptr;
    m_farewell.captureThread = m_captureThread != nullptr;
    m_farewell.computeThread = m_computeThread != nullptr;
  }

private:
  BareCamera& m_camera;
  // Taken while the whole object lives; they outlive its derived part.
  std::atomic<bool>& m_isOpened = m_camera.m_isOpened;
  SystemLog*& m_log = m_camera.m_log;
  std::thread*& m_captureThread = m_camera.m_captureThread;
  std::thread*& m_computeThread = m_camera.m_computeThread;
  Farewell& m_farewell;
};

}  // namespace

TEST(CameraDestruction, ClosesThenDropsLogThenDeviceThenThreads) {
  Farewell farewell;
  const OutputCapture errors(2);
  {
    BareCamera camera;
    camera.install(new Witness(camera, farewell));
    camera.m_isOpened = true;
    camera.m_captureThread = new std::thread();  // not joinable, so that destroying it ends nothing
    camera.m_computeThread = new std::thread();
    EXPECT_EQ(farewell.devices, 0);
  }
  EXPECT_EQ(farewell.devices, 1);
  EXPECT_FALSE(farewell.opened);
  EXPECT_FALSE(farewell.log);
  EXPECT_TRUE(farewell.captureThread);
  EXPECT_TRUE(farewell.computeThread);
  EXPECT_EQ(errors.text(), "");
}

namespace {

// The workers are held inside the device and the read, so that only the thread object can end the process.
void destroyWhileCapturing() {
  Gate gate;
  BareCamera camera;
  auto* const device = new ScriptedCapture([&gate](int) {
    gate.pass();
    return cv::Mat();
  });
  camera.install(device);
  camera.m_isOpened = true;
  camera.startCapture(false, false);
  if (!await([device] { return device->reads() > 0; })) {
    std::exit(2);
  }
}

class HeldCamera : public BareCamera {
public:
  HeldCamera(Gate& gate, std::atomic<int>& reads) : m_gate(gate), m_reads(reads) {}
  bool getRectStereoFrame(cv::Mat&, cv::Mat&, cv::Mat&, std::chrono::microseconds&) override {
    ++m_reads;
    m_gate.pass();
    return false;
  }

private:
  Gate& m_gate;
  std::atomic<int>& m_reads;
};

void destroyWhileComputing() {
  Gate gate;
  std::atomic<int> reads{0};
  HeldCamera camera(gate, reads);
  camera.startStereoCompute();
  if (!await([&reads] { return reads > 0; })) {
    std::exit(2);
  }
}

}  // namespace

TEST(CameraDestructionDeathTest, EndsTheProcessWhileAWorkerRuns) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const char* const terminated = "terminate called without an active exception";
  EXPECT_EXIT(destroyWhileCapturing(), testing::KilledBySignal(SIGABRT), terminated);
  EXPECT_EXIT(destroyWhileComputing(), testing::KilledBySignal(SIGABRT), terminated);
}
