// SPDX-License-Identifier: Apache-2.0
// `calibrate` and `check` as their user sees them.
#include <filesystem>
#include <regex>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/calib3d.hpp>
#include <opencv2/imgcodecs.hpp>

#include "apps/stereo-camera/process/Failure.hpp"
#include "sim/Rig.hpp"
#include "tests/support/Program.hpp"

using stereo::app::ExitCode;
using stereo::test::Arguments;
using stereo::test::Outcome;
using stereo::test::Program;
using stereo::test::readFile;
using testing::HasSubstr;
using testing::Not;

namespace {

Outcome run(const Arguments& arguments) {
  return stereo::test::run(STEREO_CAMERA_PROGRAM, arguments, {}, std::chrono::minutes(9));
}

}  // namespace

TEST(CalibrateProgram, CalibratesTheSimulatedCameraAndCheckAgrees) {
  const stereo::test::TempDir folder;
  const std::string file = folder.path("calibration.yml");
  const Outcome made = run({"calibrate", "--simulate", "--size", "928x400", "--rate", "0", "--square", "39",
                            "--pictures", "10", "--patience", "300", "-o", file});
  ASSERT_EQ(made.code, 0) << made.out << made.err;
  EXPECT_THAT(made.err, HasSubstr("[10/10] board-010.png: taken; covered: left"));
  EXPECT_TRUE(std::filesystem::exists(folder.path("calibration-pictures/board-010.png")));
  const std::string page = readFile(folder.path("calibration.html"));
  EXPECT_THAT(page, HasSubstr("data:image/jpeg;base64,"));
  EXPECT_THAT(page, HasSubstr("board-010.png"));
  // A single file that needs no other.
  EXPECT_THAT(page, Not(HasSubstr("src=\"board")));
  EXPECT_THAT(page, Not(HasSubstr("http")));
  const stereo::sim::Rig rig(1);
  const double baseline = cv::norm(cv::FileStorage(file, cv::FileStorage::READ)["Translation"].mat());
  EXPECT_NEAR(baseline, 1000 * rig.baseline(), 0.01 * 1000 * rig.baseline());

  const Outcome fits = run({"check", "--simulate", "--still", "--size", "928x400", "--calibration", file, "--frames",
                            "1", "--patience", "120"});
  EXPECT_EQ(fits.code, 0) << fits.out << fits.err;
  EXPECT_THAT(fits.out, HasSubstr("the calibration fits"));

  // The same pictures from the folder give the same; and nothing that is there is replaced unasked.
  const std::vector<std::string> again = {"calibrate", folder.path("calibration-pictures"), "--square", "39", "-o",
                                          file};
  const Outcome refused = run(again);
  EXPECT_EQ(refused.code, static_cast<int>(ExitCode::output));
  EXPECT_THAT(refused.err, HasSubstr("--replace"));
  std::vector<std::string> replacing = again;
  replacing.insert(replacing.end(), {"--replace", "--json", folder.path("figures.json")});
  const Outcome replaced = run(replacing);
  EXPECT_EQ(replaced.code, 0) << replaced.out << replaced.err;
  EXPECT_THAT(replaced.err, HasSubstr("[10/10] board-010.png: board in both eyes"));
  const cv::FileStorage figures(folder.path("figures.json"), cv::FileStorage::READ);
  EXPECT_EQ(static_cast<int>(figures["good"]), 1);
  EXPECT_EQ(static_cast<int>(figures["pictures"]["kept"]), 10);
  EXPECT_NEAR(static_cast<double>(figures["baseline_mm"]), baseline, 0.1);
  EXPECT_EQ(static_cast<std::string>(figures["calibration"]), file);
  EXPECT_NEAR(cv::norm(cv::FileStorage(file, cv::FileStorage::READ)["Translation"].mat()), baseline, 0.1);
}

TEST(CheckProgram, TellsATurnedEye) {
  const stereo::test::TempDir folder;
  const std::string good = folder.path("good.yml");
  stereo::sim::Rig(1).saveCalibration(good);
  stereo::test::Document document = stereo::test::readDocument(good);
  for (auto& [key, value] : document) {
    if (key == "RightRotation") {
      cv::Mat turn;
      cv::Rodrigues(cv::Vec3d(0, 0, 0.3 * CV_PI / 180), turn);
      value = turn * value;
    }
  }
  const std::string bad = stereo::test::writeDocument(folder.path("bad.yml"), document);
  const std::vector<std::string> source = {"check",    "--simulate", "--still",    "--size", "928x400",
                                           "--frames", "1",          "--patience", "120",    "--calibration"};
  std::vector<std::string> arguments = source;
  arguments.push_back(good);
  const Outcome fits = run(arguments);
  EXPECT_EQ(fits.code, 0) << fits.out << fits.err;
  arguments.back() = bad;
  const Outcome turned = run(arguments);
  EXPECT_EQ(turned.code, static_cast<int>(ExitCode::problems)) << turned.out;
  EXPECT_THAT(turned.out, HasSubstr("about z (roll)"));
  EXPECT_THAT(turned.err, HasSubstr("calibrate again"));
}

TEST(CalibrateProgram, RefusesWhatMakesNoSense) {
  const stereo::test::TempDir folder;
  const std::string output = folder.path("c.yml");
  std::filesystem::create_directory(folder.path("empty"));
  const std::vector<std::pair<std::vector<std::string>, ExitCode>> cases = {
      {{"calibrate", folder.path("empty"), "-o", output}, ExitCode::usage},  // no --square
      {{"calibrate", folder.path("missing"), "--square", "30", "-o", output}, ExitCode::usage},
      {{"calibrate", folder.path("empty"), "--square", "30", "--board", "7x7", "-o", output}, ExitCode::usage},
      {{"calibrate", folder.path("empty"), "--square", "30", "--simulate", "-o", output}, ExitCode::usage},
      {{"calibrate", folder.path("empty"), "--square", "30", "-o", folder.path("c.txt")}, ExitCode::usage},
      {{"calibrate", folder.path("empty"), "--square", "30", "-o", output}, ExitCode::source},
      {{"calibrate", folder.path("empty"), "--square", "30", "-o", "/proc/none/c.yml"}, ExitCode::output}};
  for (const auto& [arguments, code] : cases) {
    const Outcome outcome = run(arguments);
    EXPECT_EQ(outcome.code, static_cast<int>(code)) << outcome.err;
    EXPECT_FALSE(outcome.err.empty());
  }
  cv::imwrite(folder.path("empty/grey.png"), cv::Mat(100, 200, CV_8UC1, cv::Scalar(90)));
  const Outcome none = run({"calibrate", folder.path("empty"), "--square", "30", "-o", output});
  EXPECT_EQ(none.code, static_cast<int>(ExitCode::problems));
  EXPECT_THAT(none.err, HasSubstr("[1/1] grey.png: no whole board; left out"));
  EXPECT_THAT(none.err, HasSubstr("only 0 pictures"));
  EXPECT_FALSE(std::filesystem::exists(output));

  const Outcome nothingToCheck = run({"check", "--replay", folder.path("empty/grey.png"), "--patience", "120"});
  EXPECT_EQ(nothingToCheck.code, static_cast<int>(ExitCode::calibration)) << nothingToCheck.err;
}

namespace {

// Side-by-side pictures of a board of 6 x 5 inner corners, flat, in front of both eyes.
void writeBoards(const stereo::test::TempDir& folder, int count) {
  constexpr int square = 24;
  cv::Mat board(6 * square + 2 * square, 7 * square + 2 * square, CV_8UC1, cv::Scalar(255));
  for (int row = 0; row < 6; ++row) {
    for (int col = row % 2; col < 7; col += 2) {
      board(cv::Rect((col + 1) * square, (row + 1) * square, square, square)).setTo(0);
    }
  }
  for (int n = 0; n < count; ++n) {
    cv::Mat picture(400, 928, CV_8UC1, cv::Scalar(128));
    for (int eye = 0; eye < 2; ++eye) {
      board.copyTo(picture(cv::Rect(eye * 464 + 90 + 5 * n - 10 * eye, 80 + 3 * n, board.cols, board.rows)));
    }
    cv::imwrite(folder.path("board-" + std::to_string(n) + ".png"), picture);
  }
}

}  // namespace

TEST(CalibrateProgram, TellsTheSizeThatWouldFitWhereNoBoardIsFound) {
  const stereo::test::TempDir pictures;
  const stereo::test::TempDir output;
  writeBoards(pictures, 12);
  // For users who count squares instead of the corners between them.
  const Outcome wrong =
      run({"calibrate", pictures.path(""), "--board", "7x6", "--square", "20", "-o", output.path("calibration.yml")});
  EXPECT_EQ(wrong.code, static_cast<int>(ExitCode::problems));
  EXPECT_THAT(wrong.err, HasSubstr("no board of 7x6 in the first 10 pictures: wrong --board? It counts inner corners; "
                                   "6x5 would fit\n"));
  EXPECT_THAT(wrong.err, HasSubstr("[10/12]"));
  EXPECT_THAT(wrong.err, Not(HasSubstr("[11/12]")));
  EXPECT_FALSE(std::filesystem::exists(output.path("calibration.yml")));
}

TEST(CalibrateProgram, TellsOfAWrongBoardBeforeTheTenthOfFewPictures) {
  const stereo::test::TempDir pictures;
  const stereo::test::TempDir output;
  writeBoards(pictures, 3);
  const Outcome wrong =
      run({"calibrate", pictures.path(""), "--board", "7x6", "--square", "20", "-o", output.path("calibration.yml")});
  EXPECT_EQ(wrong.code, static_cast<int>(ExitCode::problems));
  EXPECT_THAT(wrong.err, HasSubstr("in the first 3 pictures: wrong --board? It counts inner corners; 6x5 would fit\n"));
}

TEST(CheckProgram, CountsAStillPictureOnce) {
  const Outcome once =
      run({"check", "--simulate", "--still", "--size", "928x400", "--frames", "1", "--patience", "120"});
  const Outcome often =
      run({"check", "--simulate", "--still", "--size", "928x400", "--frames", "4", "--patience", "120"});
  EXPECT_EQ(once.code, 0) << once.err;
  EXPECT_EQ(often.code, 0) << often.err;
  EXPECT_EQ(once.out, often.out);
  EXPECT_THAT(often.err, HasSubstr("frame 4 of 4: same as before, counted once"));
}

TEST(CheckProgram, SaysThatABoardMisleadsIt) {
  const std::string boards = std::string(STEREO_CAMERA_TEST_DATA) + "/boards";
  if (!std::filesystem::exists(boards)) {
    GTEST_SKIP() << "no recorded pictures of a board in " << boards;
  }
  const Outcome misled = run({"check", "--replay", boards + "/pair-01.png", "--calibration",
                              boards + "/calibration.yml", "--frames", "1", "--patience", "120"});
  EXPECT_EQ(misled.code, static_cast<int>(ExitCode::problems));
  EXPECT_THAT(misled.err,
              HasSubstr("cannot tell: the pictures show a chessboard (8x6 corners), whose repeating pattern "
                        "misleads this check; show another scene\n"));
  EXPECT_THAT(misled.out, Not(HasSubstr("PROBLEM")));
  EXPECT_THAT(misled.err, Not(HasSubstr("does not fit")));
}
