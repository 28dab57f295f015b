// SPDX-License-Identifier: Apache-2.0
// `bench` as its user sees it.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/core/persistence.hpp>
#include <opencv2/imgcodecs.hpp>

#include "apps/stereo-camera/process/Failure.hpp"
#include "sim/SimulatedCamera.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/Program.hpp"
#include "tests/support/TempDir.hpp"

using stereo::app::ExitCode;
using stereo::test::Arguments;
using stereo::test::await;
using stereo::test::Program;
using stereo::test::TempDir;
using testing::HasSubstr;

namespace {

constexpr std::chrono::minutes limit{5};
const Arguments small{"--size", "928x400", "--rectified", "232x200", "--patience", "120"};

Arguments bench(const Arguments& more, const Arguments& source = small) {
  Arguments all{"bench"};
  all.insert(all.end(), source.begin(), source.end());
  all.insert(all.end(), more.begin(), more.end());
  return all;
}

void expectBenchUsage(const Arguments& arguments) {
  Program program(STEREO_CAMERA_PROGRAM, arguments);
  EXPECT_EQ(program.wait(limit), static_cast<int>(ExitCode::usage)) << testing::PrintToString(arguments);
}

// Ordered, in the time that there was, not more often than frames came and not sooner than `least` milliseconds.
void expectPlausible(const cv::FileNode& product, double seconds, int published, double least) {
  const std::string name = product.name();
  const auto number = [&](const char* key) { return static_cast<double>(product[key]); };
  EXPECT_GT(number("count"), 0) << name;
  // One more may have been made of the frame before the first that counts.
  EXPECT_LE(number("count"), published + 2) << name;
  EXPECT_NEAR(number("per_second"), number("count") / seconds, 1e-6) << name;
  EXPECT_GT(number("p50_ms"), least) << name;
  EXPECT_LE(number("p50_ms"), number("p90_ms")) << name;
  EXPECT_LE(number("p90_ms"), number("p99_ms")) << name;
  EXPECT_LE(number("p99_ms"), number("max_ms")) << name;
  EXPECT_LT(number("max_ms"), 1000 * (seconds + 60)) << name;
}

}  // namespace

TEST(Bench, MeasuresEveryProductOfTheSimulatedCamera) {
  const TempDir folder;
  Program program(STEREO_CAMERA_PROGRAM, bench({"--simulate", "--seconds", "3", "--json", folder.path("bench.json")}));
  ASSERT_EQ(program.wait(limit), 0) << program.err();
  const cv::FileStorage json(folder.path("bench.json"), cv::FileStorage::READ);
  ASSERT_TRUE(json.isOpened());

  const double seconds = json["seconds"];
  EXPECT_GE(seconds, 2.99);
  EXPECT_LT(seconds, 60);
  EXPECT_EQ(static_cast<std::string>(json["facts"]["raw_frame"]), "928 x 400");
  EXPECT_EQ(static_cast<std::string>(json["facts"]["matcher"]), "block matching");
  const cv::FileNode device = json["device"];
  const int read = device["read"];
  const int lost = device["lost"];
  const int published = device["published"];
  EXPECT_EQ(published, read) << "the worker publishes all that it reads";
  EXPECT_GE(lost, 0);
  // The source's beat starts anew after a late read: of almost two periods it counts one. A read may be late at the
  // run's start, whose losses then count although part of them was before, and at its end; a loaded machine makes it
  // later.
  EXPECT_LE(read + lost, 30 * seconds + 30);
  EXPECT_GE(read + 2 * lost, 30 * seconds - 30);
  EXPECT_EQ(static_cast<std::string>(device["lost_how"]), "counted by the source");

  // Each worker holds what it published for a millisecond; a disparity has been through both.
  const std::pair<const char*, double> products[] = {
      {"raw_eyes", 0}, {"rectified_pair", 1}, {"disparity", 2}, {"coloured_depth", 1}, {"coloured_cloud", 2}};
  for (const auto& [name, least] : products) {
    expectPlausible(json["products"][name], seconds, published, least);
  }

  const cv::FileNode processor = json["processor_percent"];
  EXPECT_GT(static_cast<double>(processor["this_process"]), 0);
  for (const char* const thread : {"capture_worker", "disparity_worker", "reader_rectified_pair",
                                   "reader_coloured_depth", "reader_coloured_cloud"}) {
    EXPECT_GT(static_cast<double>(processor[thread]), 0) << thread;
    EXPECT_LE(static_cast<double>(processor[thread]), 101) << thread << " is one thread";
  }
  EXPECT_GT(static_cast<double>(json["peak_resident_megabytes"]), 1);
  EXPECT_THAT(program.out(), HasSubstr("p99 ms"));
  EXPECT_THAT(program.out(), HasSubstr("coloured cloud"));
}

TEST(Bench, MeasuresWideDepthInPlaceOfTheClasses) {
  const TempDir folder;
  Program program(STEREO_CAMERA_PROGRAM, bench({"--simulate", "--wide", "--wide-size", "116x100", "--seconds", "2",
                                                "--json", folder.path("bench.json")}));
  ASSERT_EQ(program.wait(limit), 0) << program.err();
  const cv::FileStorage json(folder.path("bench.json"), cv::FileStorage::READ);
  ASSERT_TRUE(json.isOpened());
  EXPECT_EQ(static_cast<std::string>(json["facts"]["wide_view"]), "116x100 over 170x150 degrees");
  const int published = json["device"]["published"];
  expectPlausible(json["products"]["rectified_pair"], json["seconds"], published, 0);
  expectPlausible(json["products"]["wide_range"], json["seconds"], published, 0);
  EXPECT_TRUE(json["products"]["disparity"].empty());
  EXPECT_TRUE(json["products"]["coloured_depth"].empty());
}

TEST(Bench, EndsInOrderWhenInterrupted) {
  Program program(STEREO_CAMERA_PROGRAM, bench({"--seconds", "100000"}));
  ASSERT_TRUE(await([&] { return program.err().find("measuring for") != std::string::npos; }, limit)) << program.err();
  program.send(SIGINT);
  EXPECT_EQ(program.wait(limit), 0) << program.err();
  EXPECT_THAT(program.out(), HasSubstr("peak resident memory"));
  EXPECT_THAT(program.err(), HasSubstr("Stop get frame done."));
}

TEST(Bench, WrongArguments) {
  expectBenchUsage(bench({"--seconds", "0"}));
  expectBenchUsage(bench({"--seconds", "-3"}));
  expectBenchUsage(bench({"--seconds", "soon"}));
  expectBenchUsage(bench({"--matcher", "best"}));
  expectBenchUsage(bench({"--wide", "--wide-size", "16x16"}));
  expectBenchUsage(bench({"--wide", "--wide-field", "181x90"}));
  expectBenchUsage(bench({"--wide", "--nearest", "2", "--farthest", "1"}));
  expectBenchUsage(bench({}, {"--size", "640x480"}));
}

TEST(Bench, RefusesAFileThatCannotBeWrittenBeforeItMeasures) {
  const TempDir folder;
  Program program(STEREO_CAMERA_PROGRAM, bench({"--json", folder.path("nowhere/bench.json")}));
  EXPECT_EQ(program.wait(limit), static_cast<int>(ExitCode::output));
  EXPECT_THAT(program.err(), HasSubstr("nowhere/bench.json"));
  EXPECT_EQ(program.out(), "");
}

TEST(Bench, RecordingsNeedACalibrationAndMustGoOn) {
  const TempDir folder;
  cv::Mat noise(400, 928, CV_8UC3);
  cv::randu(noise, 1, 255);
  ASSERT_TRUE(cv::imwrite(folder.path("noise.png"), noise));
  ASSERT_TRUE(cv::imwrite(folder.path("black.png"), cv::Mat::zeros(noise.size(), noise.type())));
  stereo::sim::SimulatedCamera::Options options;
  options.frameSize = noise.size();
  stereo::sim::SimulatedCamera(options).saveCalibParams(folder.path("calibration.yml"));
  const Arguments impatient{"--patience", "1", "--seconds", "100000"};
  const Arguments calibrated{"--calibration", folder.path("calibration.yml"), "--patience", "1", "--seconds", "100000"};

  Program without(STEREO_CAMERA_PROGRAM, bench(impatient, {"--replay", folder.path("noise.png")}));
  EXPECT_EQ(without.wait(limit), static_cast<int>(ExitCode::calibration));
  EXPECT_THAT(without.err(), HasSubstr("--calibration"));

  folder.write("gone", "unplug 30 ever\n");
  Program ceasing(STEREO_CAMERA_PROGRAM, bench({"--patience", "5", "--seconds", "100000"},
                                               {"--simulate", "--still", "--faults", folder.path("gone")}));
  EXPECT_EQ(ceasing.wait(limit), static_cast<int>(ExitCode::noFrames));
  EXPECT_THAT(ceasing.err(), HasSubstr("no frame for 5000 ms"));

  // Nothing to match in it: there is no cloud, however many frames come.
  Program blind(STEREO_CAMERA_PROGRAM, bench(calibrated, {"--replay", folder.path("black.png")}));
  EXPECT_EQ(blind.wait(limit), static_cast<int>(ExitCode::noFrames));
  EXPECT_THAT(blind.err(), HasSubstr("frames come, but no coloured"));
}
