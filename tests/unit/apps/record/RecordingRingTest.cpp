// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/record/RecordingRing.hpp"

#include <algorithm>
#include <filesystem>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/Await.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/TempDir.hpp"

namespace stereo::app {
namespace {

namespace fs = std::filesystem;
using sources::Recording;

std::vector<fs::path> partsIn(const fs::path& folder) {
  std::vector<fs::path> parts;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.path().filename().string().rfind("part-", 0) == 0) {
      parts.push_back(entry.path());
    }
  }
  std::sort(parts.begin(), parts.end());
  return parts;
}

std::uintmax_t bytesIn(const fs::path& folder) {
  std::uintmax_t bytes = 0;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    bytes += entry.is_regular_file() ? entry.file_size() : 0;
  }
  return bytes;
}

class RecordingRingTest : public testing::Test {
protected:
  RecordingRing::Options options() const {
    RecordingRing::Options options;
    options.folder = folder.path("ring");
    options.partSeconds = 3600;
    options.recorder.spare = 0;
    options.recorder.queue = 200;
    return options;
  }

  // Publishes frames and waits until they are written, as far as a part is open.
  void publish(int count) {
    for (int k = 0; k < count; ++k) {
      tap.read(test::noise({64, 48}, ++m_frame));
      tap.published(std::chrono::microseconds(1'000'000 + 33'333 * m_frame));
    }
  }

  const test::TempDir folder;
  LiveTap tap;
  const RecordedCamera camera{
      "a camera", {.frameSize = {64, 48}, .rectifiedSize = {32, 48}}, "%YAML:1.0\n---\nnote: 1\n"};

private:
  int m_frame = 0;
};

TEST_F(RecordingRingTest, WritesPartsThatCanBeReplayed) {
  RecordingRing ring(options());
  ring.step(&camera, tap);
  EXPECT_TRUE(ring.status().isRecording);
  publish(20);
  ring.step(nullptr, tap);  // the camera is gone
  EXPECT_FALSE(ring.status().isRecording);
  ring.step(&camera, tap);
  publish(10);
  ring.end();
  const std::vector<fs::path> parts = partsIn(folder.path("ring"));
  ASSERT_EQ(parts.size(), 2U);
  EXPECT_EQ(Recording::open(parts[0]).timestamps.size(), 20U);
  EXPECT_EQ(Recording::open(parts[1]).timestamps.size(), 10U);
  EXPECT_EQ(test::readFile((parts[1] / Recording::calibrationFile).string()), camera.calibration);
  EXPECT_EQ(ring.status().error, "");
}

TEST_F(RecordingRingTest, RemovesTheOldestPartsAndNothingElse) {
  RecordingRing::Options small = options();
  small.mostBytes = 600'000;  // frames of noise take about 12 kB each
  small.partSeconds = 0.2;
  RecordingRing ring(small);
  fs::create_directories(folder.path("ring/mine"));
  test::writeFile(folder.path("ring/part-of-mine.txt"), "keep");
  std::set<fs::path> seen;
  const bool turned = test::await([&] {
    ring.step(&camera, tap);
    publish(2);
    for (const fs::path& each : partsIn(folder.path("ring"))) {
      seen.insert(each);
    }
    return seen.size() >= 20;
  });
  EXPECT_TRUE(turned) << ring.status().error;
  // The bound holds while it records, up to what comes between two steps.
  EXPECT_LE(ring.status().bytes, small.mostBytes + 50'000);
  ring.end();
  EXPECT_FALSE(fs::exists(*seen.begin())) << "the oldest part is still there";
  EXPECT_LE(bytesIn(folder.path("ring")), small.mostBytes + 100'000);
  EXPECT_TRUE(fs::exists(folder.path("ring/mine")));
  EXPECT_TRUE(fs::exists(folder.path("ring/part-of-mine.txt")));
}

TEST_F(RecordingRingTest, SaysWhenTheDiskIsFull) {
  RecordingRing::Options full = options();
  full.recorder.spare = std::uintmax_t{1} << 60U;  // more than any disk has
  RecordingRing ring(full);
  ring.step(&camera, tap);
  EXPECT_FALSE(ring.status().isRecording);
  EXPECT_THAT(ring.status().error, testing::HasSubstr("the disk is full"));
  EXPECT_TRUE(partsIn(folder.path("ring")).empty());
  publish(3);  // nobody minds
}

TEST_F(RecordingRingTest, LeavesNoPartWithoutFrames) {
  {
    RecordingRing ring(options());
    ring.step(&camera, tap);
  }
  EXPECT_TRUE(partsIn(folder.path("ring")).empty());
}

TEST(LiveTap, CountsFramesAndGaps) {
  LiveTap tap;
  tap.expect(10);
  std::int64_t time = 1'000'000;
  const auto publish = [&](std::int64_t after) {
    time += after;
    tap.read(cv::Mat::zeros(2, 2, CV_8UC3));
    tap.published(std::chrono::microseconds(time));
  };
  publish(100'000);
  publish(100'000);
  publish(140'000);  // late, but none is missing
  EXPECT_EQ(tap.frames(), 3U);
  EXPECT_EQ(tap.gaps(), 0U);
  publish(200'000);
  EXPECT_EQ(tap.gaps(), 1U);
  publish(510'000);
  EXPECT_EQ(tap.gaps(), 5U);
  tap.published(std::chrono::microseconds(time));  // nothing new
  tap.read(cv::Mat::zeros(2, 2, CV_8UC3));
  tap.published(std::chrono::microseconds(time));  // that one was discarded
  EXPECT_EQ(tap.frames(), 5U);
  EXPECT_EQ(tap.newest(), time);
  tap.expect(10);
  publish(5'000'000);  // a new camera
  EXPECT_EQ(tap.gaps(), 5U);
}

}  // namespace
}  // namespace stereo::app
