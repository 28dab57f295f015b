// SPDX-License-Identifier: Apache-2.0
// How the host program's commands end when their source does.
#include <filesystem>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/core/persistence.hpp>

#include "Failure.hpp"
#include "Recording.hpp"
#include "apps/Program.hpp"

using stereo::app::ExitCode;
using stereo::test::deadline;
using stereo::test::Program;
using stereo::test::TempDir;
using testing::HasSubstr;

namespace {

using Arguments = std::vector<std::string>;

Arguments operator+(Arguments first, const Arguments& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

// A recording of a second, and what commands leave behind.
class Ending : public testing::Test {
protected:
  static void SetUpTestSuite() {
    s_recorded = std::make_unique<TempDir>();
    Program record(STEREO_CAMERA_PROGRAM, {"record", "--simulate", "--still", "--size", "928x400", "--rectified",
                                           "232x200", "--frames", "30", "--queue", "100", "-o", recording()});
    ASSERT_EQ(record.wait(4 * deadline), 0) << record.err();
  }
  static void TearDownTestSuite() { s_recorded.reset(); }

  static std::string recording() { return s_recorded->path("taken"); }
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

  std::string m_out;
  std::string m_err;
  TempDir m_folder;

private:
  static inline std::unique_ptr<TempDir> s_recorded;
};

}  // namespace

TEST_F(Ending, OfARecordingIsTheEndOfRecordAndKeepsItAll) {
  EXPECT_EQ(run(Arguments{"record", "-o", file("again"), "--queue", "100"} + once()), 0) << m_err;
  EXPECT_EQ(stereo::sim::Recording::open(file("again")).stamps.size(), 30U);
}

TEST_F(Ending, OfARecordingGivesBenchItsFigures) {
  EXPECT_EQ(run(Arguments{"bench", "--seconds", "1000", "--rate", "5", "--json", file("bench.json")} + once()), 0)
      << m_err;
  EXPECT_THAT(m_out, HasSubstr("p99 ms"));
  const cv::FileStorage json(file("bench.json"), cv::FileStorage::READ);
  ASSERT_TRUE(json.isOpened());
  EXPECT_GT(static_cast<int>(json["device"]["read"]), 0);
  EXPECT_LT(static_cast<double>(json["seconds"]), 100);
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
  EXPECT_EQ(run(Arguments{"snapshot", "--rate", "4", "-o", file("whole")} + once()), 0) << m_err;
  EXPECT_TRUE(std::filesystem::exists(file("whole/depth.tiff")));
  const std::string picture = file("whole/raw.png");
  EXPECT_EQ(run({"snapshot", "--replay", picture, "--once", "--patience", "300", "-o", file("one")}), 0) << m_err;
  EXPECT_THAT(m_err, HasSubstr("over before all pictures were read"));
  EXPECT_TRUE(std::filesystem::exists(file("one/raw.png")));
  EXPECT_FALSE(std::filesystem::exists(file("one/left.png")));
}
