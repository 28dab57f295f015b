// SPDX-License-Identifier: Apache-2.0
// What reads return after the capture worker has stopped, and when frames come from elsewhere.
#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/Await.hpp"
#include "tests/support/FedCamera.hpp"

using std::chrono::microseconds;
using stereo::test::await;
using stereo::test::FedCamera;
using stereo::test::RectifiedFrame;
using stereo::test::TestCamera;
using stereo::test::twoColors;

namespace {

const cv::Size givenSize(64, 32);
const cv::Size rectifiedSize(16, 12);

cv::Mat aFrame() { return twoColors(givenSize, {1, 2, 3}, {4, 5, 6}); }

// Outputs that hold something before they are read into.
struct FilledOutputs {
  cv::Mat left = cv::Mat(2, 3, CV_8UC3, cv::Scalar::all(11));
  cv::Mat right = cv::Mat(2, 3, CV_8UC3, cv::Scalar::all(12));
  cv::Mat view = cv::Mat(2, 3, CV_8UC3, cv::Scalar::all(13));
  microseconds timestamp{14};

  bool isUntouched() const {
    const auto holds = [](const cv::Mat& image, int value) {
      return image.size() == cv::Size(3, 2) && cv::countNonZero(image.reshape(1) != value) == 0;
    };
    return holds(left, 11) && holds(right, 12) && holds(view, 13) && timestamp.count() == 14;
  }
};

void prepare(TestCamera& camera) {
  stereo::test::calibrate(camera);
  camera.m_fisheyeRadius = 1000;
  camera.m_rawFrameSize = givenSize;
  camera.m_rectFrameSize = rectifiedSize;
}

// Publishes frames itself, from its own thread, once told to.
class OwnPublisher : public TestCamera {
public:
  ~OwnPublisher() override { endPublishing(); }

  void publish() {
    const std::lock_guard lock(m_frameMutex);
    m_rawFrame.first = cv::Mat(4, 4, CV_8UC3, cv::Scalar::all(++m_number & 0x7F));
    m_rawFrame.second = m_rawFrame.first.clone();
    m_rawFrame.timestamp = microseconds(m_number);
    m_frameCond.notify_all();
  }
  void beginPublishing() {
    publish();
    m_publisher = std::thread([this] {
      while (!m_ends) {
        publish();
        std::this_thread::sleep_for(std::chrono::milliseconds(1));  // the pace
      }
    });
  }
  void endPublishing() {
    m_ends = true;
    if (m_publisher.joinable()) {
      m_publisher.join();
    }
  }

private:
  std::atomic<bool> m_ends{false};
  std::atomic<int> m_number{0};
  std::thread m_publisher;
};

}  // namespace

TEST(ReadsAfterStop, FailAtOnceWithFilledOutputs) {
  TestCamera camera([](int) { return aFrame(); });
  prepare(camera);
  camera.startCapture(false, false);
  FilledOutputs read;
  ASSERT_TRUE(camera.getRectStereoFrame(read.left, read.right, read.view, read.timestamp));
  camera.stopCapture();
  const FilledOutputs filled;
  FilledOutputs out;
  EXPECT_FALSE(camera.getRectStereoFrame(out.left, out.right));
  EXPECT_FALSE(camera.getRectStereoFrame(out.left, out.right, out.view));
  EXPECT_FALSE(camera.getRectStereoFrame(out.left, out.right, out.view, out.timestamp));
  EXPECT_FALSE(camera.getStereoFrame(out.left, out.right, out.timestamp));
  EXPECT_FALSE(camera.getRawFrame(out.left, out.timestamp));
  EXPECT_TRUE(out.isUntouched());
}

TEST(ReadsAfterStop, WaitingRectifiedReadersAreReleasedWithFalse) {
  TestCamera camera([](int) { return cv::Mat(); });
  prepare(camera);
  camera.startCapture(false, false);
  FilledOutputs two;
  FilledOutputs four;
  std::thread first([&] { EXPECT_FALSE(camera.getRectStereoFrame(two.left, two.right)); });
  std::thread second(
      [&] { EXPECT_FALSE(camera.getRectStereoFrame(four.left, four.right, four.view, four.timestamp)); });
  camera.stopCapture();
  first.join();
  second.join();
  EXPECT_TRUE(two.isUntouched());
  EXPECT_TRUE(four.isUntouched());
}

// The read's own failure shows in its outputs, as without a stop.
TEST(ReadsAfterStop, OfAnOverrideThatFailsCountTheirOutputs) {
  struct Failing : TestCamera {
    Failing() : TestCamera([](int) { return aFrame(); }) {}
    bool getStereoFrame(cv::Mat& left, cv::Mat& right, microseconds& timestamp) override {
      return asksBase && TestCamera::getStereoFrame(left, right, timestamp) && false;
    }
    bool asksBase = false;
  };
  Failing camera;
  prepare(camera);
  camera.startCapture(false, false);
  for (const bool stopped : {false, true}) {
    if (stopped) {
      camera.stopCapture();
    }
    FilledOutputs out;
    EXPECT_TRUE(camera.getRectStereoFrame(out.left, out.right));
    EXPECT_TRUE(camera.getRectStereoFrame(out.left, out.right, out.view, out.timestamp));
    EXPECT_TRUE(out.isUntouched());
  }
  camera.asksBase = true;  // and there, the stop ends it
  FilledOutputs out;
  EXPECT_FALSE(camera.getRectStereoFrame(out.left, out.right));
  EXPECT_FALSE(camera.getRectStereoFrame(out.left, out.right, out.view, out.timestamp));
}

// With a worker of the base class that never delivers, and without any.
TEST(ReadsAfterStop, GoOnWhereADerivedClassPublishes) {
  for (const bool worker : {false, true}) {
    OwnPublisher camera;
    camera.beginPublishing();
    if (worker) {
      camera.startCapture(false, false);
    }
    std::atomic<int> reads{0};
    std::atomic<int> failures{0};
    std::atomic<bool> ends{false};
    std::thread reader([&] {
      while (!ends) {
        cv::Mat left;
        cv::Mat right;
        microseconds timestamp{0};
        failures += camera.getStereoFrame(left, right, timestamp) ? 0 : 1;
        ++reads;
      }
    });
    EXPECT_TRUE(await([&] { return reads > 10; }));
    camera.stopCapture();
    const int before = reads;
    EXPECT_TRUE(await([&] { return reads > before + 10; }));
    ends = true;
    reader.join();
    EXPECT_EQ(failures, 0);
  }
}

// A stop that found no worker does not end what a derived class may publish later.
TEST(ReadsAfterStop, WaitWhereNoWorkerWasStopped) {
  OwnPublisher camera;
  camera.stopCapture();
  std::atomic<bool> done{false};
  std::thread reader([&] {
    cv::Mat frame;
    microseconds timestamp{0};
    EXPECT_TRUE(camera.getRawFrame(frame, timestamp));
    done = true;
  });
  EXPECT_TRUE(await([&] {
    camera.publish();
    return done.load();
  }));
  reader.join();
}

TEST(ReadsAfterStop, AReaderIsReleasedWhenADerivedClassFallsSilent) {
  OwnPublisher camera;
  camera.publish();
  std::atomic<bool> done{false};
  std::thread reader([&] {
    cv::Mat frame;
    microseconds timestamp{0};
    EXPECT_FALSE(camera.getRawFrame(frame, timestamp));
    done = true;
  });
  // At the first of them the reader may not wait yet.
  EXPECT_TRUE(await([&] {
    camera.stopCapture();
    return done.load();
  }));
  reader.join();
}

// Clouds of a camera without a matcher return whether they were given points: only a stop makes them fail.
TEST(CloudsAfterStop, GoOnWhereAnOverrideFeedsTheDisparityWorker) {
  FedCamera camera([](int call, RectifiedFrame& frame) {
    frame = stereo::test::shiftedPair({32, 16}, 2, call);
    return true;
  });
  camera.install(new stereo::test::ScriptedCapture([](int) { return aFrame(); }));
  camera.m_algorithm = 2;
  camera.startCapture(false, false);
  camera.startStereoCompute();
  std::atomic<int> reads{0};
  std::atomic<int> failures{0};
  std::atomic<bool> ends{false};
  std::thread reader([&] {
    while (!ends) {
      std::vector<cv::Vec3f> points(1);
      microseconds timestamp{0};
      failures += camera.getPointCloud(points, timestamp) ? 0 : 1;
      ++reads;
    }
  });
  EXPECT_TRUE(await([&] { return reads > 3; }));
  camera.stopCapture();
  const int before = reads;
  EXPECT_TRUE(await([&] { return reads > before + 3; }));
  EXPECT_EQ(failures, 0);
  ends = true;
  camera.stopStereoCompute();
  reader.join();
}

// The disparity worker still runs, but waits for frames that cannot come.
TEST(CloudsAfterStop, FailWhereTheDisparityWorkerHasNoFrames) {
  TestCamera camera([](int) { return aFrame(); });
  prepare(camera);
  camera.m_algorithm = 2;
  camera.startCapture(false, false);
  camera.startStereoCompute();
  std::vector<cv::Vec3f> points(1);
  microseconds timestamp{0};
  EXPECT_TRUE(camera.getPointCloud(points, timestamp));
  std::thread reader([&] {
    std::vector<cv::Vec3f> others(1);
    microseconds other{0};
    while (camera.getPointCloud(others, other)) {
    }
  });
  camera.stopCapture();
  reader.join();
  EXPECT_TRUE(camera.m_isComputing);
  while (camera.getPointCloud(points, timestamp)) {  // one that was in the making may still come
  }
  EXPECT_FALSE(camera.getPointCloud(points, timestamp));
  std::vector<PCL> colored(1);
  EXPECT_FALSE(camera.getPointCloud(colored, timestamp));
  cv::Mat depth;
  EXPECT_FALSE(camera.getDepthFrame(depth, true, timestamp));
  camera.stopStereoCompute();
  EXPECT_FALSE(camera.getPointCloud(points, timestamp));
}

// Whenever the stop comes to a read that is about to wait, while other readers hold the mutex.
TEST(CloudsAfterStop, NoReaderIsLeftWaiting) {
  for (int round = 0; round < 20; ++round) {
    TestCamera camera([](int) { return aFrame(); });
    prepare(camera);
    camera.m_algorithm = 2;
    camera.startCapture(false, false);
    camera.startStereoCompute();
    std::atomic<int> reads{0};
    std::atomic<int> ended{0};
    std::vector<std::thread> readers;
    for (int thread = 0; thread < 3; ++thread) {
      readers.emplace_back([&] {
        std::vector<PCL> points(1);
        microseconds timestamp{0};
        while (camera.getPointCloud(points, timestamp)) {
          ++reads;
        }
        ++ended;
      });
    }
    EXPECT_TRUE(await([&] { return reads > 2; }));
    camera.stopStereoCompute();
    camera.stopCapture();
    const bool allEnded = await([&] { return ended == 3; });
    EXPECT_TRUE(allEnded);
    camera.stopStereoCompute();  // in case
    for (std::thread& reader : readers) {
      reader.join();
    }
    if (!allEnded) {
      break;
    }
  }
}
