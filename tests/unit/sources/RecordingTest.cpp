// SPDX-License-Identifier: Apache-2.0
#include "sources/Recording.hpp"

#include <chrono>
#include <cstdint>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "sources/ReplayCamera.hpp"
#include "sources/ReplayCapture.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/TempDir.hpp"

namespace stereo::sources {
namespace {

using Clock = std::chrono::steady_clock;

cv::Mat picture(int number) { return test::noise({64, 32}, number); }

void writeText(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

/// A folder with a recording of so many frames, written here with OpenCV alone.
class RecordingAt : public testing::Test {
protected:
  void writeFrames(int count) {
    cv::VideoWriter writer(m_folder / Recording::framesFile, cv::CAP_FFMPEG,
                           cv::VideoWriter::fourcc('H', 'F', 'Y', 'U'), 30.0, {64, 32});
    ASSERT_TRUE(writer.isOpened());
    for (int i = 0; i < count; ++i) {
      writer.write(picture(i));
    }
  }
  void writeTimestamps(const std::string& lines, const std::string& heading = "frame,microseconds\n") {
    writeText(m_folder / Recording::timestampsFile, heading + lines);
  }
  std::string complaint() {
    try {
      Recording::open(m_folder.path());
    } catch (const std::runtime_error& error) {
      return error.what();
    }
    return {};
  }
  /// Numbers of the pictures that are read one after the other, -1 where nothing is; timestamps beside them.
  std::vector<int> played(ReplayCapture& capture, int reads, std::vector<std::int64_t>* timestamps = nullptr) {
    std::vector<int> numbers;
    for (int i = 0; i < reads; ++i) {
      cv::Mat frame;
      int number = -1;
      if (capture.read(frame)) {
        for (number = 0; number < 20 && cv::norm(frame, picture(number), cv::NORM_INF) != 0; ++number) {
        }
      }
      numbers.push_back(number);
      if (timestamps != nullptr) {
        timestamps->push_back(capture.recordedTimestamp());
      }
    }
    return numbers;
  }

  const stereo::test::TempDir m_folder;
};

TEST_F(RecordingAt, IsWhereThereAreFrames) {
  EXPECT_FALSE(Recording::isAt(m_folder.path()));
  writeTimestamps("0,5\n");
  EXPECT_FALSE(Recording::isAt(m_folder.path()));
  EXPECT_NE(complaint().find("there is no recording in " + m_folder.path()), std::string::npos);
  writeFrames(1);
  EXPECT_TRUE(Recording::isAt(m_folder.path()));
  EXPECT_EQ(complaint(), "");
}

TEST_F(RecordingAt, TellsWhatItHolds) {
  writeFrames(1);
  writeTimestamps("0,1763728000000000\n1,1763728000033333\n");
  Recording bare = Recording::open(m_folder.path());
  EXPECT_EQ(bare.timestamps, (std::vector<std::int64_t>{1763728000000000, 1763728000033333}));
  EXPECT_TRUE(bare.calibration.empty());
  EXPECT_TRUE(bare.settings.empty());
  EXPECT_LT(bare.fisheyeRadius, 0);
  writeText(m_folder / "calibration.yml", "%YAML:1.0\n---\n");
  writeText(m_folder / "settings.yml", "%YAML:1.0\n---\n");
  writeText(m_folder / "about.yml", "%YAML:1.0\n---\nFisheyeRadius: 232\n");
  const Recording whole = Recording::open(m_folder.path());
  EXPECT_EQ(whole.calibration, m_folder / "calibration.yml");
  EXPECT_EQ(whole.settings, m_folder / "settings.yml");
  EXPECT_EQ(whole.fisheyeRadius, 232);
}

TEST_F(RecordingAt, LineThatWasCutOffIsLeftOut) {
  writeFrames(2);
  writeTimestamps("0,100\n1,200\n2,3");
  EXPECT_EQ(Recording::open(m_folder.path()).timestamps, (std::vector<std::int64_t>{100, 200}));
}

TEST_F(RecordingAt, StampsThatMakeNoSenseAreRefusedWithTheirLine) {
  writeFrames(2);
  for (const char* lines : {"0,100\n2,200\n", "0,100\n1,100\n", "0,100\n1,50\n", "0,100\n1\n", "0,100\n1,x\n",
                            "0,100\n1,200 \n", "0,100\n\n", "0,100\n1,99999999999999999999\n"}) {
    writeTimestamps(lines);
    EXPECT_NE(complaint().find("line 3"), std::string::npos) << lines << complaint();
  }
  writeTimestamps("0,-1\n");
  EXPECT_NE(complaint().find("line 2"), std::string::npos);
  writeTimestamps("");
  EXPECT_NE(complaint().find("no frame"), std::string::npos);
  writeTimestamps("0,100\n", "number,time\n");
  EXPECT_NE(complaint().find("cannot read the timestamps"), std::string::npos);
}

TEST_F(RecordingAt, RadiusThatIsNoneIsRefused) {
  writeFrames(1);
  writeTimestamps("0,100\n");
  for (const char* radius : {"-1", "1e9", "wide", "[ 1 ]", ".Nan"}) {
    writeText(m_folder / "about.yml", std::string("%YAML:1.0\n---\nFisheyeRadius: ") + radius + "\n");
    EXPECT_NE(complaint().find("radius"), std::string::npos) << radius;
  }
  // The second would take more of the stack than there is.
  for (const std::string& text : {std::string("{{{"), "%YAML:1.0\n---\nFisheyeRadius: " + std::string(100000, '[')}) {
    writeText(m_folder / "about.yml", text);
    EXPECT_NE(complaint().find("radius"), std::string::npos);
  }
}

TEST_F(RecordingAt, PlaysFramesToTheBitWithTheirStamps) {
  writeFrames(3);
  writeTimestamps("0,1000\n1,2000\n2,4000\n");
  std::vector<std::int64_t> timestamps;
  ReplayCapture once({.path = m_folder.path(), .rate = 0, .loop = false, .leadIn = 2});
  EXPECT_LT(once.recordedTimestamp(), 0);
  EXPECT_EQ(played(once, 6, &timestamps), (std::vector<int>{0, 0, 0, 1, 2, -1}));
  EXPECT_EQ(timestamps, (std::vector<std::int64_t>{1000, 1000, 1000, 2000, 4000, 4000}));
  EXPECT_TRUE(once.finished());
  timestamps.clear();
  ReplayCapture looped({.path = m_folder.path(), .rate = 0});
  EXPECT_EQ(played(looped, 7, &timestamps), (std::vector<int>{0, 1, 2, 0, 1, 2, 0}));
  EXPECT_EQ(timestamps, (std::vector<std::int64_t>{1000, 2000, 4000, 1000, 2000, 4000, 1000}));
}

TEST_F(RecordingAt, TheShorterOfFramesAndStampsCounts) {
  writeFrames(4);
  writeTimestamps("0,1000\n1,2000\n");
  ReplayCapture fewerTimestamps({.path = m_folder.path(), .rate = 0});
  EXPECT_EQ(played(fewerTimestamps, 5), (std::vector<int>{0, 1, 0, 1, 0}));
  writeTimestamps("0,1000\n1,2000\n2,3000\n3,4000\n4,5000\n5,6000\n");
  std::vector<std::int64_t> timestamps;
  ReplayCapture fewerFrames({.path = m_folder.path(), .rate = 0});
  EXPECT_EQ(played(fewerFrames, 6, &timestamps), (std::vector<int>{0, 1, 2, 3, 0, 1}));
  EXPECT_EQ(timestamps, (std::vector<std::int64_t>{1000, 2000, 3000, 4000, 1000, 2000}));
}

TEST_F(RecordingAt, IsPlayedAsItCame) {
  writeFrames(4);
  writeTimestamps("0,1000000\n1,1005000\n2,1305000\n3,1310000\n");
  ReplayCapture capture({.path = m_folder.path(), .rate = 1000, .recordedTiming = true});
  EXPECT_NEAR(capture.get(cv::CAP_PROP_FPS), 3 / 0.31, 1e-9);
  EXPECT_FALSE(capture.set(cv::CAP_PROP_FPS, 1000));
  EXPECT_NEAR(capture.get(cv::CAP_PROP_FPS), 3 / 0.31, 1e-9);
  const auto start = Clock::now();
  EXPECT_EQ(played(capture, 3), (std::vector<int>{0, 1, 2}));
  EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(300)) << "the third came 305 ms after the first";
  // A rate instead of the recorded times.
  ReplayCapture quick({.path = m_folder.path(), .rate = 0});
  EXPECT_EQ(quick.get(cv::CAP_PROP_FPS), 0.0);
  EXPECT_TRUE(quick.set(cv::CAP_PROP_FPS, 100));
  EXPECT_EQ(quick.get(cv::CAP_PROP_FPS), 100.0);
}

TEST_F(RecordingAt, OneFrameIsPlayedAtTheRate) {
  writeFrames(1);
  writeTimestamps("0,1000000\n");
  ReplayCapture capture({.path = m_folder.path(), .rate = 500, .recordedTiming = true});
  EXPECT_EQ(capture.get(cv::CAP_PROP_FPS), 500.0);
  EXPECT_EQ(played(capture, 2), (std::vector<int>{0, 0}));
}

TEST_F(RecordingAt, CameraTakesTheRecordedRadius) {
  writeFrames(2);
  writeTimestamps("0,1000000\n1,1100000\n");
  writeText(m_folder / "about.yml", "%YAML:1.0\n---\nFisheyeRadius: 12\n");
  const ReplayCamera recorded({.path = m_folder.path()});
  EXPECT_EQ(recorded.fisheyeRadius(), 12);
  const ReplayCamera chosen({.path = m_folder.path(), .fisheyeRadius = 7});
  EXPECT_EQ(chosen.fisheyeRadius(), 7);
}

}  // namespace
}  // namespace stereo::sources
