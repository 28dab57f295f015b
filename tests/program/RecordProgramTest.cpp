// SPDX-License-Identifier: Apache-2.0
// Recording and replaying as the host program's user sees them.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/core.hpp>
#include <opencv2/core/persistence.hpp>
#include <opencv2/imgcodecs.hpp>

#include "apps/stereo-camera/process/Failure.hpp"
#include "sources/Recording.hpp"
#include "tests/support/Program.hpp"
#include "tests/support/TempDir.hpp"

using stereo::app::ExitCode;
using stereo::sources::Recording;
using stereo::test::deadline;
using stereo::test::Program;
using stereo::test::readFile;
using testing::HasSubstr;
using testing::Not;

namespace {

class RecordProgram : public testing::Test {
protected:
  std::string file(const std::string& name) const { return m_folder.path(name); }

  // Runs it to its end; its exit code. What it printed is kept.
  int run(const std::vector<std::string>& arguments) {
    Program program(STEREO_CAMERA_PROGRAM, arguments);
    const int code = program.wait(4 * deadline);
    m_out = program.out();
    m_err = program.err();
    return code;
  }

  std::string m_out;
  std::string m_err;
  const stereo::test::TempDir m_folder;
};

}  // namespace

TEST_F(RecordProgram, ReplayGivesTheSameBitsAsLive) {
  const std::vector<std::string> source{"--simulate",   "--still", "--size", "928x400", "--rectified", "300x260",
                                        "--depth-mode", "1",       "--seed", "7",       "--patience",  "120"};
  const auto with = [&](std::vector<std::string> head, const std::vector<std::string>& tail) {
    head.insert(head.end(), tail.begin(), tail.end());
    return head;
  };
  ASSERT_EQ(run(with(with({"snapshot"}, source), {"-o", file("live")})), 0) << m_err;
  ASSERT_EQ(run(with(with({"record"}, source), {"--frames", "6", "--queue", "500", "-o", file("taken")})), 0) << m_err;
  EXPECT_THAT(m_out, HasSubstr("recorded 6 frames, 928 x 400"));
  EXPECT_THAT(m_out, HasSubstr("dropped 0"));
  EXPECT_EQ(Recording::open(file("taken")).timestamps.size(), 6U);
  // Neither size nor depth mode nor calibration is told again.
  for (const std::string rate : {"", "60"}) {
    std::vector<std::string> replay{"snapshot", "--replay",  file("taken"), "--patience",
                                    "120",      "--replace", "-o",          file("again")};
    if (!rate.empty()) {
      replay.insert(replay.end(), {"--rate", rate});
    }
    ASSERT_EQ(run(replay), 0) << m_err;
    for (const char* name : {"raw.png", "left.png", "right.png", "perspective-left.png", "lonlat-right.png",
                             "disparity.tiff", "depth.tiff", "depth-colour.png", "cloud.ply", "cloud-coloured.ply"}) {
      const std::string live = readFile(file(std::string("live/") + name));
      EXPECT_GT(live.size(), 100U) << name;
      EXPECT_EQ(live == readFile(file(std::string("again/") + name)), true) << name << " is another, rate " << rate;
    }
  }
  // The command line wins; the recording's settings fill in the rest.
  ASSERT_EQ(
      run({"snapshot", "--replay", file("taken"), "--rectified", "200x180", "--patience", "120", "-o", file("other")}),
      0)
      << m_err;
  EXPECT_EQ(cv::imread(file("other/perspective-left.png")).size(), cv::Size(200, 180));
  EXPECT_EQ(cv::imread(file("other/lonlat-left.png")).size(), cv::Size(200, 180));
}

TEST_F(RecordProgram, KeepsTheCalibrationAsItWasBeforeTheStart) {
  ASSERT_EQ(run({"record", "--simulate", "--still", "--size", "928x400", "--frames", "2", "--patience", "120", "-o",
                 file("small")}),
            0)
      << m_err;
  ASSERT_EQ(run({"record", "--simulate", "--still", "--size", "1856x800", "--frames", "2", "--patience", "120", "-o",
                 file("large")}),
            0)
      << m_err;
  // Files give it for frames 1856 pixels wide, whatever the width of these.
  const auto intrinsic = [&](const std::string& folder) {
    cv::Mat matrix;
    cv::FileStorage(file(folder + "/calibration.yml"), cv::FileStorage::READ)["LeftIntrinsicMatrix"] >> matrix;
    return matrix;
  };
  ASSERT_FALSE(intrinsic("small").empty());
  EXPECT_EQ(cv::norm(intrinsic("small"), intrinsic("large"), cv::NORM_INF), 0.0);
}

TEST_F(RecordProgram, TakesThePositionThatIsGiven) {
  ASSERT_EQ(run({"record", "--simulate", "--still", "--size", "928x400", "--frames", "1", "--patience", "120",
                 "--position", "12", "-o", file("taken")}),
            0)
      << m_err;
  ASSERT_EQ(run({"info", "--replay", file("taken")}), 0) << m_err;
  EXPECT_THAT(m_out, HasSubstr("position 12,"));
  EXPECT_THAT(m_out, HasSubstr("key 9012"));
}

TEST_F(RecordProgram, EndsInOrderWhenInterrupted) {
  Program program(STEREO_CAMERA_PROGRAM,
                  {"record", "--simulate", "--still", "--size", "928x400", "--patience", "120", "-o", file("taken")});
  const auto hasBegun = [&] {
    return Recording::isAt(file("taken")) && program.err().find("Ctrl-C ends it\n") != std::string::npos;
  };
  ASSERT_TRUE(stereo::test::await(hasBegun, 2 * deadline)) << program.err();
  program.send(SIGINT);
  EXPECT_EQ(program.wait(), 0) << program.err();
  EXPECT_THAT(program.out(), HasSubstr("recorded "));
  EXPECT_THAT(program.err(), HasSubstr("recording: "));
  EXPECT_THAT(program.err(), HasSubstr(" MB; Ctrl-C ends it\n"));
  EXPECT_GE(Recording::open(file("taken")).timestamps.size(), 1U);
}

TEST_F(RecordProgram, EndOfTheSourceKeepsWhatCame) {
  ASSERT_EQ(run({"record", "--simulate", "--still", "--size", "928x400", "--frames", "4", "--patience", "120", "-o",
                 file("first")}),
            0)
      << m_err;
  // The recording of a recording, played once: all of it is there.
  EXPECT_EQ(run({"record", "--replay", file("first"), "--once", "--patience", "120", "-o", file("second")}), 0)
      << m_err;
  EXPECT_THAT(m_out, HasSubstr("recorded 4 frames"));
  EXPECT_EQ(Recording::open(file("second")).timestamps.size(), 4U);
}

TEST_F(RecordProgram, MistakesAreToldInOneLine) {
  EXPECT_EQ(run({"record", "--simulate", "--codec", "h264", "-o", file("x")}), static_cast<int>(ExitCode::usage));
  EXPECT_EQ(run({"record", "--simulate", "--still", "--size", "928x400", "-o", "/proc/none"}),
            static_cast<int>(ExitCode::output));
  ASSERT_EQ(run({"record", "--simulate", "--still", "--size", "928x400", "--frames", "1", "--patience", "120", "-o",
                 file("x")}),
            0)
      << m_err;
  EXPECT_EQ(run({"record", "--simulate", "--still", "--size", "928x400", "--frames", "1", "-o", file("x")}),
            static_cast<int>(ExitCode::output));
  EXPECT_THAT(m_err, HasSubstr("there is already a recording in"));
  stereo::test::writeFile(file("x/stamps.csv"), "nonsense\n");
  EXPECT_EQ(run({"snapshot", "--replay", file("x"), "-o", file("y")}), static_cast<int>(ExitCode::source));
  EXPECT_THAT(m_err, HasSubstr("cannot read the timestamps"));
}

TEST_F(RecordProgram, NothingIsLeftWhereNothingCame) {
  // No such recording; then a source that opens and gives no frame in time.
  const std::string nowhere = file("nowhere");
  EXPECT_EQ(run({"record", "--replay", file("none"), "-o", nowhere}), static_cast<int>(ExitCode::source));
  EXPECT_FALSE(std::filesystem::exists(nowhere));
  stereo::test::writeFile(file("gone.txt"), "unplug 0 ever\n");
  const std::string silent = file("silent");
  EXPECT_EQ(run({"record", "--simulate", "--still", "--size", "928x400", "--faults", file("gone.txt"), "--patience",
                 "0.2", "-o", silent}),
            static_cast<int>(ExitCode::noFrames))
      << m_err;
  EXPECT_FALSE(std::filesystem::exists(silent));
}

TEST_F(RecordProgram, ForeignFilesInTheFolderStay) {
  const std::string folder = file("mine");
  std::filesystem::create_directory(folder);
  stereo::test::writeFile(folder + "/settings.yml", "mine\n");
  EXPECT_EQ(run({"record", "--simulate", "--still", "--size", "928x400", "--frames", "1", "-o", folder}),
            static_cast<int>(ExitCode::output));
  EXPECT_THAT(m_err, HasSubstr("settings.yml"));
  EXPECT_EQ(readFile(folder + "/settings.yml"), "mine\n");
  EXPECT_FALSE(std::filesystem::exists(folder + "/stamps.csv"));
  // Files that don't belong to a recording are left alone.
  std::filesystem::rename(folder + "/settings.yml", folder + "/notes.txt");
  EXPECT_EQ(run({"record", "--replay", file("none"), "-o", folder}), static_cast<int>(ExitCode::source));
  EXPECT_EQ(readFile(folder + "/notes.txt"), "mine\n");
  EXPECT_FALSE(std::filesystem::exists(folder + "/stamps.csv"));
}

TEST_F(RecordProgram, RoomThatIsToStayFreeIsNotTaken) {
  const std::string folder = file("full/of/it");
  EXPECT_EQ(run({"record", "--simulate", "--still", "--size", "928x400", "--frames", "1", "--keep-free", "1000000000",
                 "-o", folder}),
            static_cast<int>(ExitCode::output));
  EXPECT_THAT(m_err, HasSubstr(" MB are free, and 1000000000 MB are kept free (--keep-free)"));
  EXPECT_FALSE(std::filesystem::exists(file("full")));
}

TEST_F(RecordProgram, DamageIsTold) {
  ASSERT_EQ(run({"record", "--simulate", "--still", "--size", "928x400", "--frames", "12", "--queue", "100",
                 "--patience", "120", "-o", file("whole")}),
            0)
      << m_err;
  EXPECT_EQ(run({"record", "--replay", file("whole"), "--once", "--patience", "120", "-o", file("copy")}), 0) << m_err;
  EXPECT_THAT(m_err, Not(HasSubstr("damaged")));
  const std::string frames = file("whole/frames.mkv");
  std::filesystem::resize_file(frames, std::filesystem::file_size(frames) / 2);
  EXPECT_EQ(run({"record", "--replay", file("whole"), "--once", "--patience", "120", "-o", file("half")}), 0) << m_err;
  const std::size_t left = Recording::open(file("half")).timestamps.size();
  EXPECT_LT(left, 12U);
  EXPECT_THAT(m_err, HasSubstr("damaged: " + std::to_string(12 - left) + " of its frames could not be decoded"));
  // Of images, too, and each counts once.
  std::filesystem::create_directory(file("images"));
  for (const char* const name : {"images/1.png", "images/3.png"}) {
    ASSERT_TRUE(cv::imwrite(file(name), cv::Mat(40, 120, CV_8UC3, cv::Scalar::all(99))));
  }
  stereo::test::writeFile(file("images/2.png"), stereo::test::readFile(file("images/1.png")).substr(0, 60));
  EXPECT_EQ(run({"record", "--replay", file("images"), "--frames", "9", "--patience", "120", "-o", file("round")}), 0)
      << m_err;
  EXPECT_THAT(m_err, HasSubstr("damaged: 1 of its frames could not be decoded"));
}
