// SPDX-License-Identifier: Apache-2.0
// Many readers at once, with starts and stops.
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "StereoCamera.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/ScriptedCapture.hpp"
#include "tests/support/TestCamera.hpp"

using std::chrono::microseconds;
using stereo::test::await;
using stereo::test::calibrate;
using stereo::test::Gate;
using stereo::test::TestCamera;
using stereo::test::timeOfDay;

namespace {

const cv::Size frameSize(64, 24);

// A frame whose every pixel tells its number, in two bytes, and its eye, in the third.
cv::Mat numbered(int number) {
  return stereo::test::twoColors(frameSize, cv::Scalar(number & 0xFF, (number >> 8) & 0xFF, 1),
                                 cv::Scalar(number & 0xFF, (number >> 8) & 0xFF, 2));
}

// The number in all pixels of an eye; -1 if they differ or belong to the other eye.
int numberOf(const cv::Mat& eye, int side) {
  const cv::Vec3b pixel = eye.at<cv::Vec3b>(0, 0);
  const cv::Mat different = cv::Mat(eye != cv::Mat(eye.size(), eye.type(), cv::Scalar(pixel[0], pixel[1], pixel[2])));
  return pixel[2] == side && cv::countNonZero(different.reshape(1)) == 0 ? pixel[0] + (pixel[1] << 8) : -1;
}

struct NumberedCamera : TestCamera {
  NumberedCamera() : TestCamera([](int read) { return numbered(read & 0xFFFF); }) {
    m_fisheyeRadius = 1000;
    m_rawFrameSize = frameSize;
  }
};

}  // namespace

TEST(Readers, EightAtOnceGetWholeConsistentFramesNeverOlderThanTheirCall) {
  NumberedCamera camera;
  camera.startCapture(false, false);
  constexpr int readsEach = 150;
  std::vector<std::thread> readers;
  for (int thread = 0; thread < 8; ++thread) {
    readers.emplace_back([&camera, thread] {
      int last = -1;
      microseconds lastTimestamp{0};
      for (int i = 0; i < readsEach; ++i) {
        cv::Mat left;
        cv::Mat right;
        microseconds timestamp{0};
        const microseconds called = timeOfDay();
        if (thread % 2 == 0) {
          ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
        } else {
          cv::Mat frame;
          ASSERT_TRUE(camera.getRawFrame(frame, timestamp));
          ASSERT_EQ(frame.size(), frameSize);
          left = frame.colRange(0, frameSize.width / 2);
          right = frame.colRange(frameSize.width / 2, frameSize.width);
        }
        const int number = numberOf(left, 1);
        ASSERT_GE(number, 0) << "a torn or mixed left eye";
        ASSERT_EQ(numberOf(right, 2), number) << "eyes of two frames";
        ASSERT_GE(timestamp, called) << "a frame older than the call";
        ASSERT_GT(number, last);
        ASSERT_GT(timestamp, lastTimestamp);
        last = number;
        lastTimestamp = timestamp;
      }
    });
  }
  for (std::thread& reader : readers) {
    reader.join();
  }
}

// A frame is published, and stamped, after its read has returned and before the next read begins.
TEST(Readers, TheStampIsThatOfTheFrame) {
  std::mutex mutex;
  std::vector<microseconds> asked;      // by the number of the read
  std::vector<microseconds> delivered;  // likewise
  TestCamera camera([&](int read) {
    const std::lock_guard lock(mutex);
    asked.push_back(timeOfDay());
    const cv::Mat frame = numbered(read);
    delivered.push_back(timeOfDay());
    return frame;
  });
  camera.m_fisheyeRadius = 1000;
  camera.startCapture(false, false);
  for (int i = 0; i < 30; ++i) {
    cv::Mat left;
    cv::Mat right;
    microseconds timestamp{0};
    ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
    const int number = numberOf(left, 1);
    ASSERT_GE(number, 10);
    ASSERT_TRUE(await([&] {
      const std::lock_guard lock(mutex);
      return static_cast<int>(asked.size()) > number + 1;
    }));
    const std::lock_guard lock(mutex);
    EXPECT_GE(timestamp, delivered[static_cast<std::size_t>(number)]);
    EXPECT_LE(timestamp, asked[static_cast<std::size_t>(number) + 1]);
  }
}

TEST(Readers, AllWokenByOneFrameSeeTheSame) {
  Gate gate;
  TestCamera camera([&](int read) { return read < 10 || gate.pass() ? numbered(read) : cv::Mat(); });
  camera.m_fisheyeRadius = 1000;
  camera.startCapture(false, false);
  for (int round = 0; round < 10; ++round) {
    std::atomic<int> returned{0};
    std::vector<microseconds> timestamps(6, microseconds(0));
    std::vector<int> numbers(6, -1);
    std::vector<std::thread> readers;
    for (std::size_t k = 0; k < timestamps.size(); ++k) {
      readers.emplace_back([&, k] {
        cv::Mat left;
        cv::Mat right;
        EXPECT_TRUE(camera.getStereoFrame(left, right, timestamps[k]));
        numbers[k] = numberOf(left, 1);
        ++returned;
      });
    }
    EXPECT_TRUE(await([&] {
      gate.grant();
      return returned == 6;
    }));
    for (std::thread& reader : readers) {
      reader.join();
    }
    for (std::size_t k = 1; k < timestamps.size(); ++k) {
      EXPECT_EQ(timestamps[k] == timestamps[0], numbers[k] == numbers[0]);
    }
  }
  gate.open();
}

TEST(Readers, OfEveryKindLiveThroughStartsAndStops) {
  for (int cycle = 0; cycle < 8; ++cycle) {
    NumberedCamera camera;
    calibrate(camera);
    camera.setRectFrameSize({16, 12});
    camera.startCapture(false, false);
    std::atomic<int> reads{0};
    std::vector<std::thread> readers;
    for (int thread = 0; thread < 6; ++thread) {
      readers.emplace_back([&camera, &reads, thread] {
        for (bool going = true; going; ++reads) {
          cv::Mat a;
          cv::Mat b;
          cv::Mat c;
          microseconds timestamp{0};
          switch (thread % 4) {
            case 0:
              going = camera.getRawFrame(a, timestamp);
              break;
            case 1:
              going = camera.getStereoFrame(a, b, timestamp);
              break;
            case 2:
              going = camera.getRectStereoFrame(a, b);
              break;
            default:
              going = camera.getRectStereoFrame(a, b, c, timestamp);
              break;
          }
        }
      });
    }
    EXPECT_TRUE(await([&] { return reads > 20; }));
    camera.startCapture(false, false);  // builds the maps anew while they are read
    const int soFar = reads;
    EXPECT_TRUE(await([&] { return reads > soFar + 20; }));
    EXPECT_TRUE(camera.stopCapture());
    for (std::thread& reader : readers) {
      reader.join();
    }
  }
}
