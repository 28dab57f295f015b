// SPDX-License-Identifier: Apache-2.0
#include "sources/ReplayCapture.hpp"

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include "tests/support/TempDir.hpp"

namespace stereo::sources {
namespace {

using Clock = std::chrono::steady_clock;

cv::Mat plain(int blue, cv::Size size = {64, 32}) { return {size, CV_8UC3, cv::Scalar(blue, 20, 30)}; }

void write(const std::string& path, const cv::Mat& image) { ASSERT_TRUE(cv::imwrite(path, image)); }

void writeNoPicture(const std::string& path) { std::ofstream(path) << "no picture\n"; }

/// First pixel's blue of the frames that can be read, up to `most`; -1 for a read that gave nothing.
std::vector<int> blues(ReplayCapture& capture, int most) {
  std::vector<int> values;
  for (int i = 0; i < most; ++i) {
    cv::Mat frame;
    values.push_back(capture.read(frame) ? frame.at<cv::Vec3b>(0, 0)[0] : -1);
  }
  return values;
}

std::string messageOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return {};
}

TEST(ReplayCapture, OneImageLoopedOrOnce) {
  const stereo::test::TempDir folder;
  write(folder / "a.png", plain(77));
  ReplayCapture looped({.path = folder / "a.png", .rate = 0});
  EXPECT_EQ(blues(looped, 4), (std::vector<int>{77, 77, 77, 77}));
  EXPECT_FALSE(looped.finished());
  ReplayCapture once({.path = folder / "a.png", .rate = 0, .loop = false});
  EXPECT_FALSE(once.finished());
  EXPECT_EQ(blues(once, 3), (std::vector<int>{77, -1, -1}));
  EXPECT_TRUE(once.finished());
  EXPECT_EQ(once.framesDelivered(), 1U);
}

TEST(ReplayCapture, FolderInTheOrderOfNames) {
  const stereo::test::TempDir folder;
  // So many, and made in such an order, that no file system lists them sorted by chance.
  for (const int i : {3, 5, 10, 1, 8, 4, 2, 9, 6, 7}) {
    write(folder / ((i < 10 ? "frame-0" : "frame-") + std::to_string(i) + ".png"), plain(i));
  }
  writeNoPicture(folder / "frame-00.txt");
  ReplayCapture looped({.path = folder.path(), .rate = 0});
  EXPECT_EQ(blues(looped, 12), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 1, 2}));
  ReplayCapture once({.path = folder.path(), .rate = 0, .loop = false});
  EXPECT_EQ(blues(once, 12), (std::vector<int>{1, 2, 3, 4, 5, 6, 7, 8, 9, 10, -1, -1}));
}

TEST(ReplayCapture, ImagesThatCannotBeDecodedArePassedOver) {
  const stereo::test::TempDir folder;
  const cv::Mat noise(200, 200, CV_8UC3);
  cv::randu(noise, 0, 255);
  write(folder / "b.png", noise);
  std::filesystem::resize_file(folder / "b.png", 40);
  write(folder / "a.png", plain(1));
  write(folder / "c.png", plain(3));
  ReplayCapture capture({.path = folder.path(), .rate = 0});
  EXPECT_EQ(blues(capture, 4), (std::vector<int>{1, 3, 1, 3}));
}

TEST(ReplayCapture, FirstFrameMayBeDeliveredAheadOfTheRecording) {
  const stereo::test::TempDir folder;
  write(folder / "a.png", plain(1));
  write(folder / "b.png", plain(2));
  ReplayCapture capture({.path = folder.path(), .rate = 0, .loop = false, .leadIn = 2});
  EXPECT_EQ(blues(capture, 5), (std::vector<int>{1, 1, 1, 2, -1}));
}

TEST(ReplayCapture, SizesStayAsRecorded) {
  const stereo::test::TempDir folder;
  write(folder / "a.png", plain(1, {64, 32}));
  write(folder / "b.png", plain(2, {50, 20}));
  ReplayCapture capture({.path = folder.path(), .rate = 0});
  EXPECT_EQ(capture.firstFrameSize(), cv::Size(64, 32));
  EXPECT_EQ(capture.get(cv::CAP_PROP_FRAME_WIDTH), 64.0);
  cv::Mat frame;
  ASSERT_TRUE(capture.read(frame));
  EXPECT_EQ(frame.size(), cv::Size(64, 32));
  ASSERT_TRUE(capture.read(frame));
  EXPECT_EQ(frame.size(), cv::Size(50, 20));
  EXPECT_EQ(capture.get(cv::CAP_PROP_FRAME_WIDTH), 50.0);
  EXPECT_EQ(capture.get(cv::CAP_PROP_FRAME_HEIGHT), 20.0);
  EXPECT_FALSE(capture.set(cv::CAP_PROP_FRAME_WIDTH, 1856));
  EXPECT_TRUE(capture.set(cv::CAP_PROP_FRAME_WIDTH, 50));
  EXPECT_TRUE(capture.set(cv::CAP_PROP_FPS, 10));
  EXPECT_EQ(capture.get(cv::CAP_PROP_FPS), 10.0);
}

TEST(ReplayCapture, GrayBecomesColor) {
  const stereo::test::TempDir folder;
  write(folder / "grey8.png", cv::Mat(8, 8, CV_8UC1, cv::Scalar(99)));
  write(folder / "grey16.png", cv::Mat(8, 8, CV_16UC1, cv::Scalar(99 * 257)));
  write(folder / "alpha.png", cv::Mat(8, 8, CV_8UC4, cv::Scalar(99, 99, 99, 255)));
  for (const char* name : {"grey8.png", "grey16.png", "alpha.png"}) {
    ReplayCapture capture({.path = folder / name, .rate = 0});
    cv::Mat frame;
    ASSERT_TRUE(capture.read(frame));
    ASSERT_EQ(frame.type(), CV_8UC3) << name;
    EXPECT_EQ(frame.at<cv::Vec3b>(3, 3), cv::Vec3b(99, 99, 99)) << name;
  }
}

TEST(ReplayCapture, VideoOnceOrLooped) {
  const stereo::test::TempDir folder;
  const std::string path = folder / "clip.avi";
  {
    cv::VideoWriter writer(path, cv::CAP_OPENCV_MJPEG, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25, {64, 32});
    ASSERT_TRUE(writer.isOpened());
    for (int i = 0; i < 4; ++i) {
      writer.write(cv::Mat(32, 64, CV_8UC3, cv::Scalar::all(50 * (i + 1))));
    }
  }
  const auto near = [](int value, int i) { return std::abs(value - 50 * (i + 1)) < 8; };
  ReplayCapture once({.path = path, .rate = 0, .loop = false});
  EXPECT_EQ(once.firstFrameSize(), cv::Size(64, 32));
  const std::vector<int> played = blues(once, 5);
  for (int i = 0; i < 4; ++i) {
    EXPECT_TRUE(near(played[static_cast<std::size_t>(i)], i)) << i;
  }
  EXPECT_EQ(played[4], -1);
  EXPECT_TRUE(once.finished());
  ReplayCapture looped({.path = path, .rate = 0});
  const std::vector<int> repeated = blues(looped, 9);
  for (int i = 0; i < 9; ++i) {
    EXPECT_TRUE(near(repeated[static_cast<std::size_t>(i)], i % 4)) << i;
  }
}

TEST(ReplayCapture, UnreadablePathsThrowOneClearLine) {
  const stereo::test::TempDir folder;
  writeNoPicture(folder / "text.png");
  std::filesystem::create_directory(folder / "empty");
  for (const char* name : {"missing.png", "text.png", "empty"}) {
    const std::string path = folder / name;
    const std::string message = messageOf([&path] { ReplayCapture capture({.path = path}); });
    EXPECT_NE(message.find(path), std::string::npos) << message;
    EXPECT_EQ(message.find('\n'), std::string::npos) << message;
  }
  write(folder / "a.png", plain(1));
  EXPECT_THROW(ReplayCapture({.path = folder / "a.png", .rate = -2}), std::invalid_argument);
}

TEST(ReplayCapture, PacedAlsoAfterTheEnd) {
  const stereo::test::TempDir folder;
  write(folder / "a.png", plain(1));
  ReplayCapture capture({.path = folder / "a.png", .rate = 50, .loop = false});
  cv::Mat frame;
  ASSERT_TRUE(capture.read(frame));
  const auto start = Clock::now();
  EXPECT_EQ(blues(capture, 12), std::vector<int>(12, -1));
  const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();
  EXPECT_GE(elapsed, 10 * 0.02 - 0.001) << "a reader in a loop would spin";
  EXPECT_LT(elapsed, 2.0) << "no read may take more than a frame period";
}

}  // namespace
}  // namespace stereo::sources
