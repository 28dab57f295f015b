// SPDX-License-Identifier: Apache-2.0
#include <algorithm>
#include <functional>

#include <sys/shm.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/stereo-camera/doctor/DeviceChecks.hpp"
#include "apps/stereo-camera/doctor/FileChecks.hpp"
#include "apps/stereo-camera/doctor/SystemChecks.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "sim/SimulatedCamera.hpp"
#include "tests/support/Program.hpp"

using stereo::app::checkCalibrationFile;
using stereo::app::checkSettingsFile;
using stereo::app::ExitCode;
using stereo::app::Finding;
using stereo::app::Findings;
using stereo::test::Document;
using stereo::test::Program;
using stereo::test::readDocument;
using stereo::test::row;
using stereo::test::TempDir;
using stereo::test::writeDocument;
using testing::HasSubstr;

namespace {

Findings problems(const Findings& all) {
  Findings wrong;
  std::copy_if(all.begin(), all.end(), std::back_inserter(wrong), [](const Finding& one) { return !one.isWell(); });
  return wrong;
}

// Exactly one problem, and which.
void expectProblem(const Findings& all, const std::string& what) {
  const Findings wrong = problems(all);
  ASSERT_EQ(wrong.size(), 1U) << (wrong.empty() ? "" : wrong.front().what);
  EXPECT_THAT(wrong.front().what, HasSubstr(what));
}

class Files : public testing::Test {
protected:
  // A good calibration, after a change to the value of one key.
  std::string calibration(const std::string& key = "", const std::function<void(cv::Mat&)>& change = {}) {
    const std::string good = m_folder.path("good.yml");
    stereo::sim::SimulatedCamera::Options options;
    options.frameSize = {928, 400};
    stereo::sim::SimulatedCamera(options).saveCalibParams(good);
    Document document;
    for (auto& [name, value] : readDocument(good)) {
      if (name == key) {
        change(value);
      }
      if (!value.empty()) {
        document.emplace_back(name, value);
      }
    }
    return writeDocument(m_folder.path("calibration.yml"), document);
  }

  std::string settings(const Document& values) { return writeDocument(m_folder.path("settings.yml"), values); }

  TempDir m_folder;
};

}  // namespace

TEST_F(Files, AGoodCalibrationHasNoProblem) {
  const Findings findings = checkCalibrationFile(calibration());
  EXPECT_GE(findings.size(), 8U);
  EXPECT_TRUE(problems(findings).empty());
}

TEST_F(Files, ACalibrationTellsWhatToExpectOfWideDepth) {
  // Eyes 60 mm apart: 0.05 pixels of 170 / 464 degrees are 0.32 mrad, which is 0.53 % of 1 m and 2.7 % of 5 m.
  const auto sixty = [](cv::Mat& t) { t *= 60 / cv::norm(t); };
  EXPECT_THAT(checkCalibrationFile(calibration("Translation", sixty)).back().what,
              testing::AllOf(HasSubstr("0.15 m"), HasSubstr("0.5 % at 1 m"), HasSubstr("2.7 % at 5 m")));
  const auto wide = [](cv::Mat& t) { t *= 200 / cv::norm(t); };
  EXPECT_THAT(checkCalibrationFile(calibration("Translation", wide)).back().what,
              testing::AllOf(HasSubstr("0.24 m"), HasSubstr("0.8 % at 5 m")));
}

TEST_F(Files, EachFaultOfACalibrationIsNamed) {
  expectProblem(checkCalibrationFile(m_folder.path("none.yml")), "no such file");
  expectProblem(checkCalibrationFile(calibration("RightXi", [](cv::Mat& xi) { xi.release(); })), "RightXi");
  expectProblem(checkCalibrationFile(calibration("LeftRotation", [](cv::Mat& R) { R = R.row(0).clone(); })),
                "malformed");
  expectProblem(checkCalibrationFile(calibration("LeftRotation", [](cv::Mat& R) { R *= 1.01; })),
                "left eye's rotation");
  expectProblem(checkCalibrationFile(calibration("RightRotation", [](cv::Mat& R) { R = -R; })), "right eye's rotation");
  expectProblem(checkCalibrationFile(calibration("Translation", [](cv::Mat& t) { t /= 1000; })), "baseline");
  expectProblem(checkCalibrationFile(calibration("LeftXi", [](cv::Mat& xi) { xi *= -1; })), "left eye's xi");
  expectProblem(
      checkCalibrationFile(calibration("RightIntrinsicMatrix", [](cv::Mat& K) { K.at<double>(0, 2) = 1392; })),
      "right eye's center");
  expectProblem(checkCalibrationFile(calibration("RightIntrinsicMatrix", [](cv::Mat& K) { K.at<double>(0, 0) = 2; })),
                "right eye's focal length");
}

TEST_F(Files, GoodSettingsHaveNoProblem) {
  const Findings findings = checkSettingsFile(settings({{"DeviceNode", row({0})},
                                                        {"FrameSize", row({1856, 800})},
                                                        {"RectifyFrameSize", row({464, 400})},
                                                        {"hFov", row({100})},
                                                        {"FrameRate", row({30})}}));
  EXPECT_TRUE(problems(findings).empty()) << problems(findings).front().what;
}

TEST_F(Files, EachFaultOfSettingsIsNamed) {
  const Document::value_type node{"DeviceNode", row({0})};
  const Document::value_type rectified{"RectifyFrameSize", row({464, 400})};
  expectProblem(checkSettingsFile(m_folder.path("none.yml")), "no such file");
  expectProblem(checkSettingsFile(m_folder.write("broken.yml", "%YAML:1.0\n---\nDeviceNode: [[[[")), "does not load");
  expectProblem(checkSettingsFile(settings({rectified})), "does not load");
  expectProblem(checkSettingsFile(settings({node})), "no \"RectifyFrameSize\"");
  expectProblem(checkSettingsFile(settings({node, rectified, {"Framerate", row({30})}})), "\"Framerate\"");
  expectProblem(checkSettingsFile(settings({node, rectified, {"FrameSize", row({640, 480})}})), "640 x 480");
  expectProblem(checkSettingsFile(settings({node, rectified, {"hFov", row({150})}})), "\"hFov\" is 150");
  expectProblem(checkSettingsFile(settings({node, rectified, {"Depthmode", row({3})}})), "\"Depthmode\" is 3");
  expectProblem(checkSettingsFile(settings({node, rectified, {"Transrate", row({60})}})), "\"Transrate\" is 60");
  expectProblem(checkSettingsFile(settings({node, {"RectifyFrameSize", row({464})}})), "does not load");
}

TEST(SharedMemoryCheck, TellsFreeFromHeld) {
  constexpr int position = 731;
  constexpr int key = 9000 + position;
  ASSERT_EQ(shmget(key, 0, 0), -1) << "somebody's segment is in the way of this test";
  EXPECT_TRUE(problems(stereo::app::checkSharedMemory(position)).empty());
  const int id = shmget(key, 4096, IPC_CREAT | 0600);
  ASSERT_NE(id, -1);
  const Findings abandoned = stereo::app::checkSharedMemory(position);
  void* const address = shmat(id, nullptr, 0);
  const Findings used = stereo::app::checkSharedMemory(position);
  shmdt(address);
  shmctl(id, IPC_RMID, nullptr);
  expectProblem(abandoned, "attached 0 times");
  EXPECT_THAT(problems(abandoned).front().remedy, HasSubstr("ipcrm -M 9731"));
  expectProblem(used, "attached 1 times");
  EXPECT_THAT(used.front().what, HasSubstr("process " + std::to_string(getpid())));
}

TEST(DeviceCheck, NamesADeviceThatIsNotThere) {
  expectProblem(stereo::app::checkDevice(98, {1856, 800}, 30), "no /dev/video98");
}

// The device's time is counted from the first line.
TEST(DeviceCheck, TheProbeSaysThatItHasBegunAndThenWhatItFound) {
  for (const std::string backEnd : {"gstreamer", "v4l2"}) {
    // OpenCV's back ends for devices leak by themselves.
    Program probe(STEREO_CAMERA_PROGRAM, {"doctor", "--device", "98", "--probe", backEnd},
                  {"ASAN_OPTIONS=detect_leaks=0"});
    EXPECT_EQ(probe.wait(), 0) << probe.err();
    EXPECT_EQ(probe.out(), "began\nfails it does not open\n");
  }
}

TEST(Doctor, ExitCodeSaysWhetherAllIsWell) {
  Program well(STEREO_CAMERA_PROGRAM, {"doctor", "--no-device", "--position", "732"});
  EXPECT_EQ(well.wait(), 0) << well.err();
  EXPECT_THAT(well.out(), HasSubstr("key 9732 is free"));
  Program ill(STEREO_CAMERA_PROGRAM, {"doctor", "--device", "98", "--position", "732"});
  EXPECT_EQ(ill.wait(), static_cast<int>(ExitCode::problems)) << ill.err();
  EXPECT_THAT(ill.out(), HasSubstr("PROBLEM  device: no /dev/video98"));
  EXPECT_THAT(ill.err(), HasSubstr("stereo-camera: 1 problem\n"));
  Program wrong(STEREO_CAMERA_PROGRAM, {"doctor", "--no-device", "--device", "1"});
  EXPECT_EQ(wrong.wait(), static_cast<int>(ExitCode::usage));
}

// Without the stand-in there is no encoder. The machine's network does not matter.
TEST(Doctor, LooksForTheEncoder) {
  const TempDir folder;
  Program without(STEREO_CAMERA_PROGRAM, {"doctor", "--no-device", "--position", "732", "--stream"},
                  {"GST_PLUGIN_PATH"});
  EXPECT_EQ(without.wait(), static_cast<int>(ExitCode::problems)) << without.err();
  EXPECT_THAT(without.out(), HasSubstr("no GStreamer element omxh264enc"));
  Program with(STEREO_CAMERA_PROGRAM, {"doctor", "--no-device", "--position", "732", "--stream"},
               // A registry of its own, filled by the program itself: what scans for it could not load a plugin that
               // was built with a sanitizer.
               {"GST_PLUGIN_PATH=" STEREO_CAMERA_PLUGIN_FOLDER, "GST_REGISTRY_FORK=no",
                "GST_REGISTRY=" + folder.path("registry")});
  with.wait();
  EXPECT_THAT(with.out(), HasSubstr("encoder and other GStreamer elements are installed"));
}
