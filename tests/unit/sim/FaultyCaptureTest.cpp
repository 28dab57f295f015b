// SPDX-License-Identifier: Apache-2.0
#include "sim/FaultyCapture.hpp"

#include <future>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "sources/FrameSource.hpp"

namespace stereo::sim {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

const cv::Size deviceSize(6, 4);

/// Frame n as the device delivers it: every pixel differs from those of other frames and from its neighbours.
cv::Mat numbered(int number) {
  cv::Mat frame(deviceSize, CV_8UC3);
  for (int row = 0; row < frame.rows; ++row) {
    for (int col = 0; col < frame.cols; ++col) {
      frame.at<cv::Vec3b>(row, col) =
          cv::Vec3b(static_cast<uchar>(number + 1), static_cast<uchar>(10 * row + 1), static_cast<uchar>(10 * col + 1));
    }
  }
  return frame;
}

class Numbers : public sources::FrameSource {
public:
  Numbers() : sources::FrameSource(0) {}

protected:
  cv::Mat next() override { return m_next == failing ? (++m_next, cv::Mat()) : numbered(m_next++); }
  cv::Size frameSize() const override { return deviceSize; }
  bool resize(int /*propId*/, double value) override { return value == 5; }

private:
  static constexpr int failing = 99;
  int m_next = 0;
};

std::unique_ptr<FaultyCapture> make(const std::string& script) {
  return std::make_unique<FaultyCapture>(std::make_unique<Numbers>(), parseFaults(script));
}

bool same(const cv::Mat& a, const cv::Mat& b) {
  return a.size() == b.size() && a.type() == b.type() && (a.empty() || cv::norm(a, b, cv::NORM_INF) == 0);
}

/// Reads that deliver frame n as it is, n from `first` to `last`.
void expectPlain(FaultyCapture& device, int first, int last) {
  for (int n = first; n <= last; ++n) {
    cv::Mat image;
    EXPECT_TRUE(device.read(image)) << n;
    EXPECT_TRUE(same(image, numbered(n))) << n;
  }
}

/// A read that succeeds with this picture.
void expectPicture(FaultyCapture& device, const cv::Mat& picture) {
  cv::Mat image;
  EXPECT_TRUE(device.read(image));
  EXPECT_TRUE(same(image, picture)) << image.size() << " of type " << image.type();
}

cv::Mat torn(int upper, const cv::Mat& lower) {
  cv::Mat picture;
  cv::vconcat(numbered(upper).rowRange(0, 2), lower.rowRange(2, 4), picture);
  return picture;
}

/// Asks until the answer is yes or a minute is over.
template <typename Condition>
bool await(Condition condition) {
  const auto end = Clock::now() + std::chrono::minutes(1);
  while (!condition()) {
    if (Clock::now() > end) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

TEST(FaultyCapture, WithoutAScriptItIsTheDevice) {
  const auto device = make("");
  expectPlain(*device, 0, 3);
  EXPECT_EQ(device->frames(), 4U);
  EXPECT_TRUE(device->isOpened());
  EXPECT_EQ(device->get(cv::CAP_PROP_FRAME_WIDTH), deviceSize.width);
  EXPECT_TRUE(device->set(cv::CAP_PROP_FRAME_WIDTH, 5));
  EXPECT_FALSE(device->set(cv::CAP_PROP_FRAME_WIDTH, 6));
  device->release();
  cv::Mat image = numbered(0);
  EXPECT_FALSE(device->read(image));
  EXPECT_TRUE(image.empty());
  EXPECT_FALSE(device->isOpened());
}

TEST(FaultyCapture, DroppedFramesFailAndAreGone) {
  const auto device = make("drop 1-2");
  expectPlain(*device, 0, 0);
  for (int i = 0; i < 2; ++i) {
    cv::Mat image = numbered(0);
    EXPECT_FALSE(device->read(image));
    EXPECT_TRUE(image.empty());
  }
  expectPlain(*device, 3, 4);
}

TEST(FaultyCapture, EmptyAndUntouchedSucceed) {
  const auto device = make("empty 1\nuntouched 2");
  expectPlain(*device, 0, 0);
  cv::Mat image = numbered(50);
  EXPECT_TRUE(device->read(image));
  EXPECT_TRUE(image.empty());
  image = numbered(50);
  const uchar* const pixels = image.data;
  EXPECT_TRUE(device->read(image));
  EXPECT_TRUE(same(image, numbered(50)));
  EXPECT_EQ(image.data, pixels);
  expectPlain(*device, 3, 3);
}

TEST(FaultyCapture, DuplicatesRepeatWhatWasDelivered) {
  const auto device = make("duplicate 0\nduplicate 2-3\ndrop 5\nduplicate 6\nblack 7\nduplicate 8");
  expectPlain(*device, 0, 1);  // before the first there is nothing to repeat
  expectPicture(*device, numbered(1));
  expectPicture(*device, numbered(1));
  expectPlain(*device, 4, 4);
  cv::Mat image;
  EXPECT_FALSE(device->read(image));
  expectPicture(*device, numbered(4));
  expectPicture(*device, cv::Mat::zeros(deviceSize, CV_8UC3));
  expectPicture(*device, cv::Mat::zeros(deviceSize, CV_8UC3));
  expectPlain(*device, 9, 9);
}

TEST(FaultyCapture, ADuplicateIsNotSpoiltByWhoeverGotItFirst) {
  const auto device = make("duplicate 1");
  cv::Mat image;
  ASSERT_TRUE(device->read(image));
  image.setTo(cv::Scalar::all(0));
  expectPicture(*device, numbered(0));
}

TEST(FaultyCapture, TornFramesAreNewAboveAndOldBelow) {
  const auto device = make("tear 0\ntear 2-3\nsize 5 6x6\ntear 6");
  expectPlain(*device, 0, 1);  // nothing to tear the first with
  expectPicture(*device, torn(2, numbered(1)));
  expectPicture(*device, torn(3, numbered(1)));  // its lower half was shown before
  expectPlain(*device, 4, 4);
  cv::Mat larger;
  ASSERT_TRUE(device->read(larger));
  expectPlain(*device, 6, 6);  // not with a picture of another size
}

TEST(FaultyCapture, OtherSizesShowTheWholeFrame) {
  const auto device = make("size 0 12x8\nsize 1 5x4\nsize 2 1x4\nsize 3 1x1");
  cv::Mat image;
  ASSERT_TRUE(device->read(image));
  ASSERT_EQ(image.size(), cv::Size(12, 8));
  EXPECT_EQ(image.at<cv::Vec3b>(7, 11), numbered(0).at<cv::Vec3b>(3, 5));
  for (const cv::Size size : {cv::Size(5, 4), cv::Size(1, 4), cv::Size(1, 1)}) {
    ASSERT_TRUE(device->read(image));
    EXPECT_EQ(image.size(), size);
    EXPECT_EQ(image.type(), CV_8UC3);
    EXPECT_EQ(image.at<cv::Vec3b>(0, 0)[1], 1);
  }
  expectPlain(*device, 4, 4);
}

TEST(FaultyCapture, OtherTypesAndBlack) {
  const auto device = make("grey 0\n16bit 1\ngrey 2\n16bit 2\nblack 3\nblack 4\ngrey 4\ngrey 5\nblack 5");
  cv::Mat image;
  ASSERT_TRUE(device->read(image));
  EXPECT_EQ(image.type(), CV_8UC1);
  EXPECT_EQ(image.size(), deviceSize);
  EXPECT_GT(cv::countNonZero(image), 0);
  ASSERT_TRUE(device->read(image));
  ASSERT_EQ(image.type(), CV_16UC3);
  EXPECT_EQ(image.at<cv::Vec3w>(3, 5), cv::Vec3w(257 * 2, 257 * 31, 257 * 51));
  ASSERT_TRUE(device->read(image));
  EXPECT_EQ(image.type(), CV_16UC1);
  expectPicture(*device, cv::Mat::zeros(deviceSize, CV_8UC3));
  expectPicture(*device, cv::Mat::zeros(deviceSize, CV_8UC1));
  expectPicture(*device, cv::Mat::zeros(deviceSize, CV_8UC1));
  expectPlain(*device, 6, 6);
}

TEST(FaultyCapture, DelaysAndStallsTakeTheirTimeAndAddUp) {
  const auto device = make("delay 0 20ms\nstall 1 20ms\ndelay 2 10ms\nstall 2 10ms\nstall 2 10ms");
  for (int n = 0; n < 3; ++n) {
    const auto start = Clock::now();
    expectPlain(*device, n, n);
    EXPECT_GE(Clock::now() - start, milliseconds(n < 2 ? 20 : 30)) << n;
  }
  EXPECT_FALSE(device->isHeldBack());
}

TEST(FaultyCapture, ReleaseEndsAStallAndADelay) {
  for (const std::string fault : {"stall", "delay"}) {
    const auto device = make(fault + " 0 3600000ms");
    cv::Mat image = numbered(0);
    std::future<bool> read = std::async(std::launch::async, [&] { return device->read(image); });
    ASSERT_TRUE(await([&] { return device->isHeldBack(); }));
    // If any of these waited for the read, this test would not end.
    EXPECT_TRUE(device->isOpened());
    EXPECT_EQ(device->get(cv::CAP_PROP_FRAME_WIDTH), deviceSize.width);
    EXPECT_EQ(device->frames(), 1U);
    device->release();
    ASSERT_EQ(read.wait_for(std::chrono::seconds(60)), std::future_status::ready);
    EXPECT_FALSE(read.get());
    EXPECT_TRUE(image.empty());
  }
}

TEST(FaultyCapture, UnpluggedForEverFailsAtOnce) {
  const auto device = make("stall 2- 3600000ms\nunplug 2 ever");
  expectPlain(*device, 0, 1);
  EXPECT_TRUE(device->isOpened());
  for (int i = 0; i < 1000; ++i) {
    cv::Mat image = numbered(0);
    ASSERT_FALSE(device->read(image));  // at once: not even a stall comes before
    ASSERT_TRUE(image.empty());
  }
  EXPECT_FALSE(device->isOpened());
  EXPECT_EQ(device->frames(), 2U);
}

TEST(FaultyCapture, AnUnpluggedDeviceComesBackAndLosesNoFrame) {
  const auto device = make("unplug 1 30ms\nunplug 1 20ms\ndrop 2");
  expectPlain(*device, 0, 0);
  const auto start = Clock::now();
  cv::Mat image;
  EXPECT_FALSE(device->read(image));
  EXPECT_TRUE(await([&] { return device->read(image); }));
  EXPECT_GE(Clock::now() - start, milliseconds(50)) << "the second follows the first";
  EXPECT_TRUE(device->isOpened());
  EXPECT_TRUE(same(image, numbered(1)));
  EXPECT_FALSE(device->read(image)) << "frame 2: failed reads in between don't count";
  expectPlain(*device, 3, 3);
}

TEST(FaultyCapture, WhileUnpluggedItIsNotOpened) {
  const auto device = make("unplug 0 3600000ms");
  EXPECT_TRUE(device->isOpened()) << "nobody noticed yet";
  cv::Mat image;
  EXPECT_FALSE(device->read(image));
  EXPECT_FALSE(device->isOpened());
  EXPECT_FALSE(device->grab());
}

TEST(FaultyCapture, GrabAndRetrieveFollowTheScript) {
  const auto device = make("drop 1\nblack 2\nempty 3\nuntouched 4");
  cv::Mat image;
  EXPECT_FALSE(device->retrieve(image));
  EXPECT_TRUE(device->grab());
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(device->retrieve(image));
    EXPECT_TRUE(same(image, numbered(0)));
  }
  EXPECT_FALSE(device->grab());
  EXPECT_FALSE(device->retrieve(image));
  EXPECT_TRUE(image.empty());
  EXPECT_TRUE(device->grab());
  EXPECT_TRUE(device->retrieve(image));
  EXPECT_TRUE(same(image, cv::Mat::zeros(deviceSize, CV_8UC3)));
  EXPECT_TRUE(device->grab());
  EXPECT_TRUE(device->retrieve(image));
  EXPECT_TRUE(image.empty());
  image = numbered(50);
  EXPECT_TRUE(device->grab());
  EXPECT_TRUE(device->retrieve(image));
  EXPECT_TRUE(same(image, numbered(50)));
  EXPECT_TRUE(device->grab());
  device->release();
  EXPECT_FALSE(device->retrieve(image));
}

TEST(FaultyCapture, AFailureOfTheDeviceItselfCounts) {
  const auto device = make("duplicate 99\nempty 99\nblack 101");
  expectPlain(*device, 0, 98);
  cv::Mat image = numbered(0);
  EXPECT_FALSE(device->read(image)) << "no fault brings back what is not there";
  EXPECT_TRUE(image.empty());
  expectPlain(*device, 100, 100);
  expectPicture(*device, cv::Mat::zeros(deviceSize, CV_8UC3));
}

TEST(FaultyCapture, ReadersOnSeveralThreadsShareTheFramesOut) {
  const auto device = make("drop 10-19\nduplicate 30-39");
  std::vector<std::future<int>> readers;
  readers.reserve(4);
  for (int thread = 0; thread < 4; ++thread) {
    readers.push_back(std::async(std::launch::async, [&] {
      int got = 0;
      for (int i = 0; i < 15; ++i) {
        cv::Mat image;
        got += device->read(image) && same(image, numbered(image.at<cv::Vec3b>(0, 0)[0] - 1)) ? 1 : 0;
      }
      return got;
    }));
  }
  int all = 0;
  for (auto& reader : readers) {
    all += reader.get();
  }
  EXPECT_EQ(all, 50);
  EXPECT_EQ(device->frames(), 60U);
}

}  // namespace
}  // namespace stereo::sim
