// SPDX-License-Identifier: Apache-2.0
// The host program as its user sees it: a command line, an exit code, lines and files.
#include <filesystem>
#include <fstream>
#include <sstream>

#include <sys/wait.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/core/persistence.hpp>
#include <opencv2/imgcodecs.hpp>

#include "apps/stereo-camera/process/Failure.hpp"
#include "tests/support/Program.hpp"
#include "tests/support/TempDir.hpp"

using stereo::app::ExitCode;
using stereo::test::Outcome;
using stereo::test::readFile;
using stereo::test::row;
using testing::HasSubstr;

namespace {

class HostProgram : public testing::Test {
protected:
  Outcome run(const std::string& arguments) {
    // OpenCV's back ends for real devices leak by themselves, partly from modules that are gone again by the end.
    const bool asksForDevice = arguments.find("--device") != std::string::npos;
    const std::string command = std::string(asksForDevice ? "ASAN_OPTIONS=detect_leaks=0 " : "") + "'" +
                                STEREO_CAMERA_PROGRAM + "' " + arguments + " >'" + file("out") + "' 2>'" + file("err") +
                                "' </dev/null";
    // NOLINTNEXTLINE(cert-env33-c): the command is this test's own
    const int status = std::system(command.c_str());
    EXPECT_TRUE(WIFEXITED(status)) << command;
    return {WEXITSTATUS(status), readFile(file("out")), readFile(file("err"))};
  }

  // The program's error message: the last line on standard error, and the only one of its kind.
  void expectFailure(const std::string& arguments, ExitCode code, const std::string& message) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.code, static_cast<int>(code)) << arguments << "\n" << outcome.err;
    const std::string head = "stereo-camera: ";
    const std::size_t at = outcome.err.rfind(head);
    ASSERT_NE(at, std::string::npos) << outcome.err;
    EXPECT_EQ(outcome.err.find(head), at);
    EXPECT_THAT(outcome.err.substr(at), HasSubstr(message));
    EXPECT_EQ(outcome.err.find('\n', at), outcome.err.size() - 1) << outcome.err;
  }

  std::string file(const std::string& name) const { return m_folder.path(name); }

  std::string writePicture(const std::string& name, cv::Size size) {
    cv::Mat picture(size, CV_8UC3);
    cv::randu(picture, 1, 255);
    EXPECT_TRUE(cv::imwrite(file(name), picture));
    return file(name);
  }

private:
  stereo::test::TempDir m_folder;
};

}  // namespace

TEST_F(HostProgram, ManualPageHasEveryCommand) {
  const std::string page = readFile(STEREO_CAMERA_MANUAL_PAGE);
  std::istringstream help(run("--help").out);
  std::string line;
  while (std::getline(help, line) && line != "Subcommands:") {
  }
  int commands = 0;
  for (std::string name; std::getline(help, line) && line.rfind("  ", 0) == 0;) {
    if (line[2] != ' ') {  // not the rest of a description
      std::istringstream(line) >> name;
      EXPECT_THAT(page, HasSubstr("\n.B " + name + "\n"));
      ++commands;
    }
  }
  EXPECT_GE(commands, 12);
  EXPECT_THAT(run("--version").out, testing::MatchesRegex("stereo-camera [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST_F(HostProgram, DemoWritesEveryPictureAndAPageThatShowsThem) {
  const Outcome outcome = run("demo --size 928x400 --seconds 0.5 --patience 120 -o '" + file("demo") + "'");
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  const std::string html = readFile(file("demo/index.html"));
  const std::pair<const char*, cv::Size> pictures[] = {{"raw.png", {928, 400}},
                                                       {"left.png", {464, 400}},
                                                       {"right.png", {464, 400}},
                                                       {"perspective-left.png", {464, 400}},
                                                       {"perspective-right.png", {464, 400}},
                                                       {"lonlat-left.png", {464, 400}},
                                                       {"lonlat-right.png", {464, 400}},
                                                       {"disparity.png", {464, 400}},
                                                       {"depth-colour.png", {464, 400}},
                                                       {"cloud-left.png", {480, 400}},
                                                       {"cloud-right.png", {480, 400}}};
  for (const auto& [name, size] : pictures) {
    const cv::Mat picture = cv::imread(file(std::string("demo/") + name));
    EXPECT_EQ(picture.size(), size) << name;
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(picture, mean, deviation);
    EXPECT_GT(deviation[0], 10) << name << " shows nothing";
    EXPECT_THAT(html, HasSubstr(std::string("<img src=\"") + name + "\""));
  }
  EXPECT_THAT(outcome.out, HasSubstr("getRectStereoFrame (perspective)"));
  EXPECT_THAT(outcome.out, HasSubstr("worker's pass time"));
  EXPECT_THAT(html, HasSubstr("pass time"));
}

TEST_F(HostProgram, SnapshotWritesDepthThatAgreesWithItself) {
  ASSERT_EQ(run("snapshot --size 928x400 --still --patience 120 -o '" + file("shot") + "'").code, 0);
  const cv::Mat disparity = cv::imread(file("shot/disparity.tiff"), cv::IMREAD_UNCHANGED);
  const cv::Mat meters = cv::imread(file("shot/depth.tiff"), cv::IMREAD_UNCHANGED);
  const cv::Mat millimeters = cv::imread(file("shot/depth.png"), cv::IMREAD_UNCHANGED);
  ASSERT_EQ(disparity.type(), CV_32FC1);
  ASSERT_EQ(meters.type(), CV_32FC1);
  ASSERT_EQ(millimeters.type(), CV_16UC1);
  ASSERT_EQ(meters.size(), cv::Size(464, 400));
  int valid = 0;
  for (int r = 0; r < meters.rows; ++r) {
    for (int c = 0; c < meters.cols; ++c) {
      const float depth = meters.at<float>(r, c);
      EXPECT_EQ(depth == -1.0F, disparity.at<float>(r, c) <= 0.05F);
      EXPECT_NEAR(millimeters.at<ushort>(r, c), depth > 0 ? 1000.0 * depth : 0.0, 0.51);
      valid += depth > 0 ? 1 : 0;
    }
  }
  EXPECT_GT(valid, 20000);
}

// Reads the header and leaves the stream at the first point; returns the number of points.
std::size_t plyPoints(std::ifstream& ply, bool colored) {
  std::string line;
  std::size_t points = 0;
  int properties = 0;
  while (std::getline(ply, line) && line != "end_header") {
    if (line.rfind("element vertex ", 0) == 0) {
      points = std::stoul(line.substr(15));
    }
    properties += line.rfind("property ", 0) == 0 ? 1 : 0;
  }
  EXPECT_EQ(properties, colored ? 6 : 3);
  return points;
}

TEST_F(HostProgram, SnapshotWritesCloudsAsPly) {
  ASSERT_EQ(run("snapshot --size 928x400 --still --patience 120 -o '" + file("shot") + "'").code, 0);
  for (const bool colored : {false, true}) {
    std::ifstream ply(file(colored ? "shot/cloud-coloured.ply" : "shot/cloud.ply"), std::ios::binary);
    const std::size_t points = plyPoints(ply, colored);
    EXPECT_GT(points, 500U);
    std::vector<float> depths;
    for (std::size_t k = 0; k < points; ++k) {
      float xyz[3];
      char rgb[3];
      ply.read(reinterpret_cast<char*>(xyz), sizeof xyz);
      if (colored) {
        ply.read(rgb, sizeof rgb);
      }
      depths.push_back(xyz[2]);
    }
    EXPECT_TRUE(ply.good());
    EXPECT_EQ(ply.peek(), std::char_traits<char>::eof());
    std::nth_element(depths.begin(), depths.begin() + static_cast<std::ptrdiff_t>(points / 2), depths.end());
    EXPECT_GT(depths[points / 2], 0.1F);
    EXPECT_LT(depths[points / 2], 3.0F);
  }
}

TEST_F(HostProgram, SnapshotOfARecordingWithoutCalibrationSaysWhatIsMissing) {
  const std::string picture = writePicture("frame.png", {120, 40});
  const Outcome outcome = run("snapshot --patience 120 --replay '" + picture + "' -o '" + file("out.d") + "'");
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  // A size that is not the camera's keeps every pixel.
  EXPECT_EQ(cv::norm(cv::imread(file("out.d/raw.png")), cv::imread(picture), cv::NORM_INF), 0);
  EXPECT_TRUE(std::filesystem::exists(file("out.d/left.png")));
  EXPECT_FALSE(std::filesystem::exists(file("out.d/perspective-left.png")));
  EXPECT_THAT(outcome.err, HasSubstr("without a calibration"));
}

TEST_F(HostProgram, InfoTellsSourceSizesAndCalibration) {
  const Outcome outcome = run("info --size 928x400 --rate 12 --seed 5");
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("simulated camera, seed 5"));
  EXPECT_THAT(outcome.out, HasSubstr("928 x 400 pixels at 12.0 frames a second"));
  EXPECT_THAT(outcome.out, HasSubstr("baseline"));
  EXPECT_THAT(outcome.out, HasSubstr("right eye"));
}

TEST_F(HostProgram, SettingsAdjustASimulatedCamera) {
  cv::FileStorage settings(file("settings.yml"), cv::FileStorage::WRITE);
  settings << "DeviceNode" << cv::Mat(cv::Mat::zeros(1, 1, CV_64F));
  settings << "RectifyFrameSize" << row({100, 80});
  settings << "hFov" << cv::Mat(1, 1, CV_64F, cv::Scalar(120));
  settings.release();
  const Outcome outcome = run("info --simulate --settings '" + file("settings.yml") + "'");
  ASSERT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("100 x 80 pixels, perspective field 120.0 degrees"));
}

TEST_F(HostProgram, HelpIsNotAnError) {
  const Outcome outcome = run("--help");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_THAT(outcome.out, HasSubstr("demo"));
  EXPECT_THAT(outcome.out, HasSubstr("Exit codes"));
}

TEST_F(HostProgram, WrongArguments) {
  EXPECT_EQ(run("").code, static_cast<int>(ExitCode::usage));
  EXPECT_EQ(run("nonsense").code, static_cast<int>(ExitCode::usage));
  EXPECT_EQ(run("demo --device 1 --replay x").code, static_cast<int>(ExitCode::usage));
  expectFailure("info --size 640x480", ExitCode::usage, "1856x800 or 928x400");
  expectFailure("info --rectified 0x5", ExitCode::usage, "'0x5' is not a size");
  expectFailure("info --rectified big", ExitCode::usage, "'big' is not a size");
}

TEST_F(HostProgram, FaultsFallOnTheSimulatedCamera) {
  std::ofstream(file("black")) << "black 0-\n";
  ASSERT_EQ(run("snapshot --simulate --size 928x400 --still --patience 120 --faults '" + file("black") + "' -o '" +
                file("night") + "'")
                .code,
            0);
  EXPECT_EQ(cv::norm(cv::imread(file("night/raw.png")), cv::NORM_INF), 0);
  std::ofstream(file("gone")) << "# pulled out\nunplug 15 ever\n";
  expectFailure(
      "snapshot --simulate --size 928x400 --still --patience 2 --faults '" + file("gone") + "' -o '" + file("d") + "'",
      ExitCode::noFrames, "no frame for 2000 ms");
  EXPECT_EQ(run("check --frames 1 --still --size 928x400 --patience 120 --faults seed:7").code, 0);
}

TEST_F(HostProgram, ConditionsMakeItHardForTheSimulatedCamera) {
  const std::string check = "check --frames 1 --still --size 928x400 --patience 120 --conditions ";
  EXPECT_EQ(run(check + "noise=2").code, 0);
  const Outcome off = run(check + "rows=4,noise=2");
  EXPECT_EQ(off.code, 7) << off.err;
  expectFailure(check + "fog", ExitCode::usage, "--conditions: 'fog' is none of rich, hard, plain");
  expectFailure(check + "noise=900", ExitCode::usage, "noise takes a number from 0 to 100");
  EXPECT_EQ(run(check + "rich --device 1").code, static_cast<int>(ExitCode::usage));
}

TEST_F(HostProgram, FaultsThatMakeNoSense) {
  std::ofstream(file("faults")) << "# two\nsmoke 5\n";
  expectFailure("check --simulate --faults '" + file("faults") + "'", ExitCode::usage,
                "line 2: 'smoke' is not a fault");
  expectFailure("check --simulate --faults '" + file("nothing") + "'", ExitCode::source, "nothing");
  for (const char* const seed : {"seed:", "seed:x", "seed:-1", "seed:7x", "seed:18446744073709551616"}) {
    expectFailure(std::string("check --simulate --faults ") + seed, ExitCode::usage, "is not a seed");
  }
  std::ofstream(file("fine")) << "drop 5\n";
  const std::string check = "check --frames 1 --still --size 928x400 --patience 120 --faults '" + file("fine") + "'";
  // They are the simulated camera's, whether it is named or not.
  EXPECT_EQ(run(check + " --simulate").code, 0);
  EXPECT_EQ(run(check).code, 0);
  const std::string picture = writePicture("frame.png", {120, 40});
  for (const std::string& source : {" --replay '" + picture + "'", std::string(" --device 1")}) {
    const Outcome outcome = run(check + source);
    EXPECT_EQ(outcome.code, static_cast<int>(ExitCode::usage)) << source;
    EXPECT_THAT(outcome.err, HasSubstr("--faults")) << source;
  }
}

TEST_F(HostProgram, SourcesThatAreNotThere) {
  expectFailure("demo --device 97 -o '" + file("d") + "'", ExitCode::source, "cannot open video device 97");
  expectFailure("snapshot --replay '" + file("nothing.png") + "'", ExitCode::source, "nothing.png");
  expectFailure("snapshot --settings '" + file("nothing.yml") + "'", ExitCode::source, "nothing.yml");
  std::ofstream(file("noise.png")) << "this is no picture";
  expectFailure("snapshot --replay '" + file("noise.png") + "'", ExitCode::source, "noise.png");
  std::ofstream(file("broken.yml")) << "%YAML:1.0\n---\nDeviceNode: [\n";
  expectFailure("info --simulate --settings '" + file("broken.yml") + "'", ExitCode::source, "broken.yml");
}

TEST_F(HostProgram, CalibrationsThatCannotBeUsed) {
  expectFailure("info --calibration '" + file("nothing.yml") + "'", ExitCode::calibration, "nothing.yml");
  std::ofstream(file("broken.yml")) << "no calibration at all";
  expectFailure("info --calibration '" + file("broken.yml") + "'", ExitCode::calibration, "broken.yml");
  const auto write = [this](const char* without, const char* misshapen) {
    cv::FileStorage calibration(file("calibration.yml"), cv::FileStorage::WRITE);
    for (const char* const key : {"SerialNumber", "PositonNumber", "LeftXi", "RightXi"}) {
      if (std::string(key) != without) {
        calibration << key << cv::Mat(cv::Mat::ones(1, 1, CV_64F));
      }
    }
    for (const char* const key :
         {"LeftIntrinsicMatrix", "RightIntrinsicMatrix", "LeftRotation", "RightRotation", "Translation"}) {
      if (std::string(key) != without) {
        const int rows = std::string(key) == misshapen ? 2 : 3;
        calibration << key << cv::Mat(cv::Mat::eye(rows, 3, CV_64F));
      }
    }
    for (const char* const key : {"LeftDistortionCoefficients", "RightDistortionCoefficients"}) {
      calibration << key << cv::Mat(cv::Mat::zeros(1, std::string(key) == misshapen ? 3 : 4, CV_64F));
    }
  };
  const std::string arguments = "info --calibration '" + file("calibration.yml") + "'";
  write("", "");
  EXPECT_EQ(run(arguments).code, 0);
  write("RightRotation", "");
  expectFailure(arguments, ExitCode::calibration, "incomplete; missing: RightRotation\n");
  write("PositonNumber", "");
  expectFailure(arguments, ExitCode::calibration, "lacks SerialNumber or PositonNumber");
  write("", "LeftRotation");
  expectFailure(arguments, ExitCode::calibration, "wrong shape, type or value: LeftRotation\n");
  write("", "RightDistortionCoefficients");
  expectFailure(arguments, ExitCode::calibration, "RightDistortionCoefficients\n");
}

TEST_F(HostProgram, EndsWithAMessageWhenFramesStop) {
  std::ofstream(file("gone")) << "unplug 0 ever\n";
  expectFailure("snapshot --simulate --still --size 928x400 --faults '" + file("gone") + "' --patience 0.5 -o '" +
                    file("d") + "'",
                ExitCode::noFrames, "no frame for 500 ms");
  const std::string narrow = writePicture("narrow.png", {1, 40});
  expectFailure("snapshot --patience 120 --replay '" + narrow + "' -o '" + file("d") + "'", ExitCode::noFrames,
                "without pixels");
}

TEST_F(HostProgram, SnapshotReplacesNothingUnasked) {
  const std::string shot = "snapshot --size 928x400 --still --patience 120 -o '";
  ASSERT_EQ(run(shot + file("shot") + "'").code, 0);
  // Each of its files alone makes it fail, before any time is lost.
  int files = 0;
  std::filesystem::create_directory(file("one"));
  for (const auto& entry : std::filesystem::directory_iterator(file("shot"))) {
    const std::string name = entry.path().filename().string();
    std::ofstream(file("one/" + name)) << "mine";
    expectFailure(shot + file("one") + "'", ExitCode::output, name + "' exists: use another -o, or --replace");
    EXPECT_EQ(readFile(file("one/" + name)), "mine");
    std::filesystem::remove(file("one/" + name));
    ++files;
  }
  EXPECT_GE(files, 17);
  EXPECT_TRUE(std::filesystem::is_empty(file("one")));
  std::ofstream(file("one/raw.png")) << "mine";
  std::ofstream(file("one/notes.txt")) << "mine";
  EXPECT_EQ(run(shot + file("one") + "' --replace").code, 0);
  EXPECT_EQ(readFile(file("one/raw.png")), readFile(file("shot/raw.png")));
  EXPECT_EQ(readFile(file("one/notes.txt")), "mine");
}

TEST_F(HostProgram, SnapshotHasAFolderOfItsOwn) {
  const std::string picture = writePicture("frame.png", {120, 40});
  const std::filesystem::path here = std::filesystem::current_path();
  std::filesystem::create_directory(file("here"));
  std::filesystem::current_path(file("here"));
  const Outcome outcome = run("snapshot --patience 120 --replay '" + picture + "'");
  std::filesystem::current_path(here);
  EXPECT_EQ(outcome.code, 0) << outcome.err;
  EXPECT_THAT(outcome.out, HasSubstr("snapshot/raw.png\n"));
  EXPECT_TRUE(std::filesystem::exists(file("here/snapshot/raw.png")));
  EXPECT_FALSE(std::filesystem::exists(file("here/raw.png")));
}

TEST_F(HostProgram, OutputThatCannotBeWritten) {
  std::ofstream(file("taken")) << "a file, not a folder";
  expectFailure("snapshot --size 928x400 --patience 120 -o '" + file("taken") + "'", ExitCode::output, "taken");
  std::filesystem::create_directories(file("full/raw.png"));
  expectFailure("snapshot --size 928x400 --still --patience 120 --replace -o '" + file("full") + "'", ExitCode::output,
                "raw.png");
}
