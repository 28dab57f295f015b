// SPDX-License-Identifier: Apache-2.0
// What the host program writes where: results on standard output, the rest on standard error.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/core/persistence.hpp>

#include "apps/stereo-camera/output/Json.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "tests/support/Program.hpp"

using stereo::app::ExitCode;
using stereo::app::Json;
using stereo::test::Arguments;
using stereo::test::deadline;
using stereo::test::operator+;
using stereo::test::Program;
using stereo::test::row;
using stereo::test::TempDir;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace {

const Arguments stillCamera{"--simulate", "--still", "--size", "928x400", "--patience", "120"};

class Console : public testing::Test {
protected:
  int run(const Arguments& arguments, const std::vector<std::string>& environment = {}) {
    Program program(STEREO_CAMERA_PROGRAM, arguments, environment);
    const int code = program.wait(4 * deadline);
    m_out = program.out();
    m_err = program.err();
    return code;
  }

  // By a shell, with the program as $0; the exit code of the last command.
  int shell(const std::string& script) {
    Program program("/bin/bash", {"-c", script, STEREO_CAMERA_PROGRAM});
    const int code = program.wait(4 * deadline);
    m_err = program.err();
    return code;
  }

  std::string file(const std::string& name) const { return m_folder.path(name); }

  std::string m_out;
  std::string m_err;
  TempDir m_folder;
};

}  // namespace

TEST_F(Console, StandardOutputHasTheResultsAlone) {
  ASSERT_EQ(run(Arguments{"snapshot", "-o", file("shot")} + stillCamera), 0) << m_err;
  std::istringstream lines(m_out);
  int files = 0;
  for (std::string line; std::getline(lines, line); ++files) {
    EXPECT_TRUE(std::filesystem::exists(line)) << line;
  }
  EXPECT_EQ(files, 27);
  EXPECT_THAT(m_err, HasSubstr("[StereoCamera] Start capture"));
  ASSERT_EQ(run(Arguments{"check", "--frames", "1"} + stillCamera), 0) << m_err;
  EXPECT_THAT(m_out, StartsWith("off the axis"));
  EXPECT_THAT(m_err, HasSubstr("frame 1 of 1"));
}

TEST_F(Console, QuietLeavesErrorsAlone) {
  EXPECT_EQ(run(Arguments{"check", "--frames", "1", "--quiet"} + stillCamera), 0);
  EXPECT_EQ(m_err, "");
  EXPECT_THAT(m_out, HasSubstr("the calibration fits"));
  EXPECT_EQ(run({"info", "--quiet", "--replay", file("none")}), static_cast<int>(ExitCode::source));
  EXPECT_THAT(m_err, StartsWith("stereo-camera: no such file"));
  EXPECT_EQ(run({"info", "--quiet", "--verbose"}), static_cast<int>(ExitCode::usage));
}

TEST_F(Console, ProgressIsALineNowAndThen) {
  const std::string demo = "demo --simulate --size 928x400 --seconds 0.1 --patience 120 -o '" + file("demo") + "'";
  EXPECT_EQ(shell("\"$0\" " + demo), 0);
  EXPECT_THAT(m_err, HasSubstr("\nrendered 1 of 16 frames\n"));
  // On a terminal it is brought up to date in place.
  const std::string record = "record --simulate --still --size 928x400 --seconds 1.5 -o " + file("taken");
  EXPECT_EQ(shell("exec script -qec \"'$0' " + record + "\" /dev/null >&2"), 0);
  EXPECT_THAT(m_err, testing::ContainsRegex("\r"
                                            "recording: [0-9]+ frames, [0-9]+ dropped, [0-9.]+ MB"));
  EXPECT_GT(std::count(m_err.begin(), m_err.end(), '\033'), 1);
}

TEST_F(Console, SettingsQuietenTheLogOfEveryCamera) {
  const std::string settings = stereo::test::writeDocument(
      file("settings.yml"), {{"LogLevel", row({0})}, {"DeviceNode", row({0})}, {"RectifyFrameSize", row({232, 200})}});
  ASSERT_EQ(run(Arguments{"record", "--frames", "3", "-o", file("taken"), "--settings", settings} + stillCamera), 0);
  EXPECT_THAT(m_err, Not(HasSubstr("[StereoCamera]")));
  const Arguments replay{"check", "--frames", "1", "--patience", "120", "--replay", file("taken"), "--settings"};
  EXPECT_EQ(run(replay + Arguments{settings}), 0) << m_err;
  EXPECT_THAT(m_err, Not(HasSubstr("[StereoCamera]")));
  const std::string loud = stereo::test::writeDocument(file("loud.yml"), {{"DeviceNode", row({0})}});
  EXPECT_EQ(run(replay + Arguments{loud}), 0) << m_err;
  EXPECT_THAT(m_err, HasSubstr("[StereoCamera]"));
}

TEST_F(Console, OutputThatFindsNoRoomIsAFailure) {
  for (const std::string command : {"info", "doctor --no-device --position 733", "--help", "snapshot --help"}) {
    EXPECT_EQ(shell("\"$0\" " + command + " >/dev/full"), static_cast<int>(ExitCode::output)) << command;
    EXPECT_THAT(m_err, HasSubstr("stereo-camera: cannot write to standard output: No space left on device\n"));
  }
  for (const std::string command : {"info", "doctor --no-device --position 733"}) {
    EXPECT_EQ(shell("\"$0\" " + command + " --json /dev/full"), static_cast<int>(ExitCode::output)) << command;
    EXPECT_THAT(m_err, HasSubstr("cannot write '/dev/full': No space left on device\n"));
  }
}

TEST_F(Console, OutputThatNobodyReadsIsAFailure) {
  // A pipe of its own whose reader is certainly gone: opened for both, then only for writing.
  EXPECT_EQ(shell("mkfifo '" + file("pipe") + "' && exec 3<>'" + file("pipe") + "' 4>'" + file("pipe") +
                  "' 3>&- && \"$0\" info >&4"),
            static_cast<int>(ExitCode::output));
  EXPECT_THAT(m_err, HasSubstr("cannot write to standard output: Broken pipe\n"));
}

TEST_F(Console, JsonIsAloneOnStandardOutput) {
  const auto parsed = [this] {
    return cv::FileStorage(m_out, cv::FileStorage::READ | cv::FileStorage::MEMORY | cv::FileStorage::FORMAT_JSON);
  };
  ASSERT_EQ(run({"info", "--simulate", "--seed", "5", "--json", "-"}), 0) << m_err;
  EXPECT_THAT(m_out, StartsWith("{"));
  EXPECT_EQ(static_cast<std::string>(parsed()["source"]), "simulated camera, seed 5");
  EXPECT_EQ(static_cast<int>(parsed()["raw_frame"]["width"]), 1856);
  EXPECT_GT(static_cast<double>(parsed()["baseline_mm"]), 10);
  ASSERT_EQ(run({"doctor", "--no-device", "--position", "733", "--calibration", file("none.yml"), "--json", "-"}),
            static_cast<int>(ExitCode::problems));
  EXPECT_THAT(m_out, StartsWith("{"));
  EXPECT_EQ(static_cast<int>(parsed()["problems"]), 1);
  EXPECT_EQ(parsed()["findings"].size(), 2U);
  EXPECT_EQ(static_cast<int>(parsed()["findings"][0]["ok"]), 0);
  ASSERT_EQ(run(Arguments{"check", "--frames", "1", "--json", "-"} + stillCamera), 0) << m_err;
  EXPECT_THAT(m_out, StartsWith("{"));
  EXPECT_EQ(static_cast<int>(parsed()["fits"]), 1);
  EXPECT_GT(static_cast<int>(parsed()["rings"][0]["matches"]), 0);
  ASSERT_EQ(run(Arguments{"bench", "--seconds", "0.5", "--json", "-", "--rectified", "232x200"} + stillCamera), 0)
      << m_err;
  EXPECT_THAT(m_out, StartsWith("{"));
  EXPECT_GT(static_cast<int>(parsed()["device"]["read"]), 0);
}

TEST_F(Console, JsonStandsBesideTheTextInAFile) {
  ASSERT_EQ(run({"info", "--simulate", "--json", file("info.json")}), 0) << m_err;
  EXPECT_THAT(m_out, HasSubstr("baseline"));
  EXPECT_TRUE(cv::FileStorage(file("info.json"), cv::FileStorage::READ).isOpened());
  // No unfinished file beside it.
  const auto files = std::filesystem::directory_iterator(m_folder.path());
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);
  EXPECT_EQ(run({"info", "--simulate", "--json", file("none/info.json")}), static_cast<int>(ExitCode::output));
  EXPECT_EQ(m_out, "");
}

TEST_F(Console, OthersWarningsAreNotShownUnasked) {
  // OpenCV's decoders leak by themselves, partly from modules that are gone again by the end.
  const std::vector<std::string> environment = {"OPENCV_LOG_LEVEL", "ASAN_OPTIONS=detect_leaks=0"};
  stereo::test::writeFile(file("noise.mkv"), "this is no video");
  const std::string own = "source: recording " + file("noise.mkv") +
                          "\nstereo-camera: cannot decode an image or video from " + file("noise.mkv") + "\n";
  EXPECT_EQ(run({"info", "--replay", file("noise.mkv")}, environment), static_cast<int>(ExitCode::source));
  EXPECT_EQ(m_err, own);
  EXPECT_EQ(run({"info", "--verbose", "--replay", file("noise.mkv")}, environment), static_cast<int>(ExitCode::source));
  EXPECT_GT(m_err.size(), own.size());
}

TEST(JsonText, EscapesNestsAndLeavesNoNumberThatIsNone) {
  Json json;
  json.add("text", "a \"b\" \\ \n").add("yes", true).add("third", 1.0 / 3).add("none", std::nan(""));
  json.object("inner").list("numbers").add("", 1).add("", 2).end().end().list("empty");
  EXPECT_EQ(json.text(), R"({
  "text": "a \"b\" \\ \u000a",
  "yes": true,
  "third": 0.3333333333333333,
  "none": null,
  "inner": {
    "numbers": [
      1,
      2
    ]
  },
  "empty": [
  ]
}
)");
}
