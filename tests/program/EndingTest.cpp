// SPDX-License-Identifier: Apache-2.0
// How the host program's commands end when their source does, or when a signal asks for it.
#include <csignal>
#include <filesystem>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <opencv2/core/persistence.hpp>
#include <opencv2/imgcodecs.hpp>

#include "apps/stereo-camera/process/Failure.hpp"
#include "sources/Recording.hpp"
#include "tests/support/Program.hpp"

using stereo::app::ExitCode;
using stereo::test::Arguments;
using stereo::test::deadline;
using stereo::test::operator+;
using stereo::test::Program;
using stereo::test::TempDir;
using testing::HasSubstr;
using testing::Not;

namespace {

// A recording of a second, and what commands leave behind.
class Ending : public testing::Test {
protected:
  static void SetUpTestSuite() {
    recordedFolder = std::make_unique<TempDir>();
    Program record(STEREO_CAMERA_PROGRAM, {"record", "--simulate", "--still", "--size", "928x400", "--rectified",
                                           "232x200", "--frames", "30", "--queue", "100", "-o", recording()});
    ASSERT_EQ(record.wait(4 * deadline), 0) << record.err();
  }
  static void TearDownTestSuite() { recordedFolder.reset(); }

  static std::string recording() { return recordedFolder->path("taken"); }
  static Arguments once() { return {"--replay", recording(), "--once", "--patience", "300"}; }
  std::string file(const std::string& name) const { return m_folder.path(name); }

  // Its exit code. A patience longer than this test has would show.
  int run(const Arguments& arguments) {
    Program program(STEREO_CAMERA_PROGRAM, arguments);
    const int code = program.wait(4 * deadline);
    m_out = program.out();
    m_err = program.err();
    return code;
  }

  // Starts it, sends the signal once the text is there, and expects an orderly end with the exit code.
  void interrupt(const Arguments& arguments, const std::string& text, int signal, int code) {
    Program program(STEREO_CAMERA_PROGRAM, arguments);
    ASSERT_TRUE(stereo::test::await([&] { return (program.out() + program.err()).find(text) != std::string::npos; },
                                    2 * deadline))
        << program.err();
    program.send(signal);
    EXPECT_EQ(program.wait(), code) << program.err();
    m_out = program.out();
    m_err = program.err();
  }

  std::string m_out;
  std::string m_err;
  TempDir m_folder;

private:
  static inline std::unique_ptr<TempDir> recordedFolder;
};

}  // namespace

TEST_F(Ending, OfARecordingIsTheEndOfRecordAndKeepsItAll) {
  EXPECT_EQ(run(Arguments{"record", "-o", file("again"), "--queue", "100"} + once()), 0) << m_err;
  EXPECT_EQ(stereo::sources::Recording::open(file("again")).timestamps.size(), 30U);
}

TEST_F(Ending, OfARecordingGivesBenchItsFigures) {
  EXPECT_EQ(run(Arguments{"bench", "--seconds", "1000", "--rate", "5", "--json", file("bench.json")} + once()), 0)
      << m_err;
  EXPECT_THAT(m_out, HasSubstr("p99 ms"));
  const cv::FileStorage json(file("bench.json"), cv::FileStorage::READ);
  ASSERT_TRUE(json.isOpened());
  EXPECT_GT(static_cast<int>(json["device"]["read"]), 0);
  EXPECT_LT(static_cast<double>(json["seconds"]), 100);
  EXPECT_EQ(static_cast<std::string>(json["facts"]["matcher"]), "semi-global") << "as it was recorded";
}

TEST_F(Ending, OfARecordingEndsTheOthersNormally) {
  EXPECT_EQ(run(Arguments{"demo", "--seconds", "600", "-o", file("demo")} + once()), 0) << m_err;
  EXPECT_TRUE(std::filesystem::exists(file("demo/index.html")));
  EXPECT_EQ(run(Arguments{"check", "--frames", "1000"} + once()), 0) << m_err;
  EXPECT_THAT(m_out, HasSubstr("the calibration fits"));
  // No board is in it.
  EXPECT_EQ(run(Arguments{"calibrate", "--square", "30", "-o", file("c.yml")} + once()),
            static_cast<int>(ExitCode::problems));
  EXPECT_THAT(m_err, HasSubstr("only 0 pictures"));
}

TEST_F(Ending, OfARecordingLeavesSnapshotWhatItHas) {
  EXPECT_EQ(run(Arguments{"snapshot", "--rate", "1", "-o", file("whole")} + once()), 0) << m_err;
  EXPECT_TRUE(std::filesystem::exists(file("whole/depth.tiff")));
  const std::string picture = file("whole/raw.png");
  EXPECT_EQ(run({"snapshot", "--replay", picture, "--once", "--patience", "300", "-o", file("one")}), 0) << m_err;
  EXPECT_THAT(m_err, HasSubstr("ended before all pictures were read"));
  EXPECT_TRUE(std::filesystem::exists(file("one/raw.png")));
  EXPECT_FALSE(std::filesystem::exists(file("one/left.png")));
}

// The exit code that a shell gives a program ended by a signal; -1 would mean that the signal killed it.
constexpr int afterSignal = 128;

TEST_F(Ending, BySignalLeavesNoPictures) {
  stereo::test::writeFile(file("gone.txt"), "unplug 0 ever\n");
  const Arguments waiting{"--simulate", "--still",        "--size",     "928x400",
                          "--faults",   file("gone.txt"), "--patience", "300"};
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) {
    interrupt(Arguments{"snapshot", "-o", file("made/shot")} + waiting, "Start capture", signal, afterSignal + signal);
    EXPECT_THAT(m_err, HasSubstr("before there was a result"));
    EXPECT_FALSE(std::filesystem::exists(file("made"))) << signal;
  }
  interrupt(Arguments{"demo", "-o", file("demo"), "--seconds", "3600", "--simulate"}, "source:", SIGHUP,
            afterSignal + SIGHUP);
  EXPECT_FALSE(std::filesystem::exists(file("demo")));
  interrupt(Arguments{"demo", "-o", file("demo"), "--seconds", "3600", "--patience", "300", "--replay", recording()},
            "measuring", SIGTERM, afterSignal + SIGTERM);
  EXPECT_FALSE(std::filesystem::exists(file("demo")));
}

TEST_F(Ending, BySignalTakesWhatWasThereBeforeForNothing) {
  std::filesystem::create_directory(file("shots"));
  stereo::test::writeFile(file("shots/notes.txt"), "mine\n");
  interrupt(Arguments{"demo", "-o", file("shots"), "--seconds", "3600", "--patience", "300", "--replay", recording()},
            "measuring", SIGINT, afterSignal + SIGINT);
  EXPECT_EQ(stereo::test::readFile(file("shots/notes.txt")), "mine\n");
  const auto files = std::filesystem::directory_iterator(file("shots"));
  EXPECT_EQ(std::distance(begin(files), end(files)), 1);
}

TEST_F(Ending, BySignalOfChecksAndCalibrations) {
  interrupt({"check", "--frames", "1000", "--rate", "2", "--patience", "300", "--replay", recording()}, "frame 1 of",
            SIGHUP, afterSignal + SIGHUP);
  EXPECT_THAT(m_out, Not(HasSubstr("fits")));
  std::filesystem::create_directory(file("boards"));
  ASSERT_TRUE(cv::imwrite(file("boards/000.png"), cv::Mat(400, 928, CV_8UC1, cv::Scalar(90))));
  for (int k = 1; k < 1000; ++k) {
    std::filesystem::create_hard_link(file("boards/000.png"), file("boards/" + std::to_string(k) + ".png"));
  }
  interrupt({"calibrate", file("boards"), "--square", "30", "-o", file("made/c.yml")}, "[1/1000]", SIGTERM,
            afterSignal + SIGTERM);
  EXPECT_THAT(m_err, Not(HasSubstr("[1000/1000]")));
  EXPECT_FALSE(std::filesystem::exists(file("made")));
}

TEST_F(Ending, BySignalKeepsWhatWasRecordedAndMeasured) {
  const Arguments endless{"--replay", recording(), "--patience", "300"};
  for (const int signal : {SIGHUP, SIGPIPE}) {
    const std::string folder = file("taken" + std::to_string(signal));
    Program record(STEREO_CAMERA_PROGRAM, Arguments{"record", "-o", folder} + endless);
    ASSERT_TRUE(stereo::test::await([&] { return stereo::sources::Recording::isAt(folder); }, 2 * deadline));
    record.send(signal);
    EXPECT_EQ(record.wait(), 0) << record.err();
    EXPECT_GE(stereo::sources::Recording::open(folder).timestamps.size(), 1U);
  }
  interrupt(Arguments{"bench", "--seconds", "10000"} + endless, "measuring for", SIGHUP, 0);
  EXPECT_THAT(m_out, HasSubstr("peak resident memory"));
}
