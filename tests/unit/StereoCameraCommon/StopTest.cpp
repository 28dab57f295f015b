// SPDX-License-Identifier: Apache-2.0
// Stopping while the device keeps its reader waiting.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <future>
#include <mutex>
#include <thread>

#include <fcntl.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "src/StereoCameraCommon/ReadWatchdog.hpp"
#include "src/system/VideoDevice.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/TempDir.hpp"
#include "tests/support/TestCamera.hpp"

using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::steady_clock;
using stereo::ReadWatchdog;
using stereo::test::await;
using stereo::test::TestCamera;
using stereo::test::twoColors;

namespace {

// Delivers frames until it stalls; a stalled read lasts until it is resumed or the device is released.
class StallingCapture : public cv::VideoCapture {
public:
  explicit StallingCapture(int framesBefore) : m_left(framesBefore) {}

  bool read(cv::OutputArray image) override {
    std::unique_lock lock(m_mutex);
    ++m_reads;
    if (m_left-- <= 0) {
      m_stalled = true;
      m_changed.wait(lock, [this] { return (m_released && endsOnRelease) || m_let; });
      m_stalled = false;
      if (m_released) {
        image.release();
        return false;
      }
    }
    m_frame.copyTo(image);
    return true;
  }
  void release() override {
    const std::lock_guard lock(m_mutex);
    m_released = true;
    ++m_releases;
    m_changed.notify_all();
  }
  bool isOpened() const override { return true; }

  void letGo() {
    const std::lock_guard lock(m_mutex);
    m_let = true;
    m_changed.notify_all();
  }
  void goOn() {
    const std::lock_guard lock(m_mutex);
    m_released = false;
  }
  bool isStalled() {
    const std::lock_guard lock(m_mutex);
    return m_stalled;
  }
  int releases() {
    const std::lock_guard lock(m_mutex);
    return m_releases;
  }
  int reads() {
    const std::lock_guard lock(m_mutex);
    return m_reads;
  }
  std::atomic<bool> endsOnRelease{true};

private:
  const cv::Mat m_frame = twoColors({64, 32}, {1, 2, 3}, {4, 5, 6});
  std::mutex m_mutex;
  std::condition_variable m_changed;
  int m_left;
  int m_reads = 0;
  int m_releases = 0;
  bool m_stalled = false;
  bool m_released = false;
  bool m_let = false;
};

class StopWhileStalled : public testing::Test {
protected:
  void start(int framesBefore) {
    device = new StallingCapture(framesBefore);
    camera.install(device);
    camera.startCapture(false, false);
    ASSERT_TRUE(await([this] { return device->isStalled(); }));
  }

  StallingCapture* device = nullptr;  // the camera's
  TestCamera camera;
};

}  // namespace

TEST_F(StopWhileStalled, TheReadIsEndedAfterTheGrace) {
  start(15);
  const auto asked = steady_clock::now();
  EXPECT_TRUE(camera.stopCapture());
  EXPECT_GE(steady_clock::now() - asked, ReadWatchdog::firstGrace);
  EXPECT_EQ(camera.m_captureThread, nullptr);
  EXPECT_EQ(device->releases(), 1);
}

// Each of the ten warm-up reads would wait as long as the first: after the one that was ended, none follows.
TEST_F(StopWhileStalled, DuringTheWarmUp) {
  start(3);
  EXPECT_TRUE(camera.stopCapture());
  EXPECT_EQ(device->reads(), 4);
}

// What one stop abandoned does not affect the next start.
TEST_F(StopWhileStalled, TheNextStartReadsAgain) {
  start(3);
  EXPECT_TRUE(camera.stopCapture());
  const int before = device->reads();
  device->letGo();
  device->goOn();
  camera.m_isOpened = true;
  camera.startCapture(false, false);
  EXPECT_TRUE(await([&] { return device->reads() >= before + 10; }));
}

TEST_F(StopWhileStalled, AReadThatEndsWithinTheGraceIsLeftAlone) {
  start(15);
  const auto asked = steady_clock::now();
  std::thread stopper([&] { EXPECT_TRUE(camera.stopCapture()); });
  ASSERT_TRUE(await([&] { return !camera.isOpened(); }));
  device->letGo();
  stopper.join();
  if (steady_clock::now() - asked < ReadWatchdog::firstGrace) {  // a machine under load may have been slower
    EXPECT_EQ(device->releases(), 0);
  }
}

TEST_F(StopWhileStalled, WithASupersededWorker) {
  start(15);
  camera.m_isOpened = true;
  camera.startCapture(false, false);
  EXPECT_TRUE(camera.stopCapture());
  EXPECT_GE(device->releases(), 1);
}

// A source that ends slowly is not told twice.
TEST_F(StopWhileStalled, IsReleasedOnce) {
  start(15);
  device->endsOnRelease = false;
  std::atomic<bool> stopped{false};
  std::thread stopper([&] {
    EXPECT_TRUE(camera.stopCapture());
    stopped = true;
  });
  ASSERT_TRUE(await([this] { return device->releases() > 0; }));
  EXPECT_FALSE(await([&] { return stopped || device->releases() > 1; }, 10 * ReadWatchdog::laterGrace));
  device->letGo();
  stopper.join();
  EXPECT_EQ(device->releases(), 1);
}

TEST_F(StopWhileStalled, ReadersAndTheDisparityWorkerAreReleased) {
  camera.m_algorithm = 2;
  start(15);
  camera.startStereoCompute();
  std::thread reader([&] {
    cv::Mat left;
    cv::Mat right;
    microseconds timestamp{0};
    EXPECT_FALSE(camera.getStereoFrame(left, right, timestamp));
  });
  EXPECT_TRUE(camera.stopStereoCompute());
  EXPECT_TRUE(camera.stopCapture());
  reader.join();
}

// A device that is missing or closed cannot be streaming.
TEST(StopStreaming, WithoutADeviceDoesNothing) {
  EXPECT_EQ(stereo::sys::stopStreaming(9900), 0);
  EXPECT_EQ(stereo::sys::stopStreaming(-1), 0);
}

TEST(BackEnd, IsOpenCVsOwnOrAnother) {
  using stereo::sys::BackEnd;
  EXPECT_EQ(stereo::sys::backEndOf(cv::VideoCapture()), BackEnd::foreign) << "not opened";
  EXPECT_EQ(stereo::sys::backEndOf(StallingCapture(0)), BackEnd::foreign);
  const cv::VideoCapture pipeline("videotestsrc num-buffers=3 ! video/x-raw,format=BGR,width=64,height=32 ! appsink",
                                  cv::CAP_GSTREAMER);
  ASSERT_TRUE(pipeline.isOpened());
  EXPECT_EQ(stereo::sys::backEndOf(pipeline), BackEnd::gstreamer);
}

// A host may handle every error that OpenCV raises, caught or not.
TEST(BackEnd, IsAskedForWithoutErrors) {
  static std::atomic<int> errors{0};
  errors = 0;
  const auto former =
      cv::redirectError([](int, const char*, const char*, const char*, int, void*) { return ++errors; });
  {
    TestCamera closed;
    closed.startCapture(false, false);
    closed.stopCapture();
    TestCamera derived([](int) { return twoColors({64, 32}, {1, 2, 3}, {4, 5, 6}); });
    derived.startCapture(false, false);
    derived.startCapture(false, false);
    derived.stopCapture();
  }
  cv::redirectError(former);
  EXPECT_EQ(errors, 0);
}

// A live pipeline without data, like a stalled device.
TEST(BackEnd, StoppingAPipelineEndsARead) {
  cv::VideoCapture pipeline(
      "videotestsrc is-live=true ! video/x-raw,format=BGR,width=64,height=32,framerate=30/1 ! "
      "identity drop-probability=1 ! appsink",
      cv::CAP_GSTREAMER);
  ASSERT_TRUE(pipeline.isOpened());
  ReadWatchdog reads;
  reads.workerStarts();
  std::thread worker([&] {
    reads.run([&] {
      cv::Mat frame;
      EXPECT_FALSE(pipeline.read(frame));
    });
    reads.workerEnds();
  });
  // By the end of the grace period the read waits for its frame.
  int attempts = 0;
  reads.awaitWorkers([&](int) {
    if (attempts++ == 0) {
      stereo::sys::stopPipeline(pipeline);
    }
  });
  worker.join();
  EXPECT_GE(attempts, 1);
  EXPECT_TRUE(pipeline.isOpened()) << "nothing was taken away";
}

TEST(ReadWatchdog, WithoutWorkersThereIsNothingToAwait) {
  ReadWatchdog reads;
  reads.awaitWorkers([](int) { FAIL(); });
  reads.workerStarts();
  std::thread worker([&] {
    reads.run([] {});
    reads.workerEnds();
  });
  reads.awaitWorkers([](int) { FAIL(); });
  worker.join();
}

// Slower than the pause between two attempts, but far from stalled: a warm-up that a stop waits for.
TEST(ReadWatchdog, SlowReadsAreLeftAlone) {
  ReadWatchdog reads;
  std::mutex mutex;
  std::condition_variable never;
  constexpr auto slow = 3 * ReadWatchdog::laterGrace;
  int made = 0;
  steady_clock::duration longest{0};
  reads.workerStarts();
  std::thread worker([&] {
    for (int n = 0; n < 10; ++n) {
      reads.run([&] {
        const auto begun = steady_clock::now();
        std::unique_lock lock(mutex);
        never.wait_for(lock, slow, [] { return false; });
        longest = std::max(longest, steady_clock::now() - begun);
        ++made;
      });
    }
    reads.workerEnds();
  });
  int interrupted = 0;
  reads.awaitWorkers([&](int) { ++interrupted; });
  worker.join();
  // A loaded machine may delay one read by two seconds; it counts as stalled.
  if (longest < ReadWatchdog::firstGrace) {
    EXPECT_EQ(interrupted, 0);
    EXPECT_EQ(made, 10);
  }
}

// Those of a device that is opened again count.
TEST(ReadWatchdog, AreMadeAgainWhenResumed) {
  ReadWatchdog reads;
  std::promise<void> interrupted;
  reads.workerStarts();
  std::thread worker([&] {
    reads.run([&] { interrupted.get_future().wait(); });
    reads.workerEnds();
  });
  reads.awaitWorkers([&](int attempt) {
    if (attempt == 0) {
      interrupted.set_value();
    }
  });
  worker.join();
  int made = 0;
  reads.run([&] { ++made; });
  EXPECT_EQ(made, 0);
  reads.resume();
  reads.run([&] { ++made; });
  EXPECT_EQ(made, 1);
}

// Looking for the video device keeps the process's locks on other files.
TEST(StopStreaming, LeavesLocksAlone) {
  const stereo::test::TempDir folder;
  const int file = open(folder.path("locked").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  ASSERT_GE(file, 0);
  struct flock lock {};
  lock.l_type = F_WRLCK;
  ASSERT_EQ(fcntl(file, F_SETLK, &lock), 0);
  // Any kernel device will do.
  stereo::sys::forEachDescriptor("/dev/null", [](int) {});
  EXPECT_EXIT(
      {
        struct flock other {};
        other.l_type = F_WRLCK;
        std::_Exit(fcntl(file, F_SETLK, &other) == 0 ? 1 : 0);
      },
      testing::ExitedWithCode(0), "");
  close(file);
}

// As often as needed; the reads that follow, like those of a warm-up, are skipped.
TEST(ReadWatchdog, AReadThatHangsIsInterruptedUntilItEnds) {
  ReadWatchdog reads;
  std::mutex mutex;
  std::condition_variable changed;
  int interrupted = 0;
  constexpr int attempts = 4;
  std::atomic<int> begun{0};
  reads.workerStarts();
  std::thread worker([&] {
    for (int n = 0; n < 3; ++n) {
      reads.run([&] {
        ++begun;
        std::unique_lock lock(mutex);
        changed.wait(lock, [&] { return interrupted >= attempts; });
      });
    }
    reads.workerEnds();
  });
  int expectedAttempt = 0;
  reads.awaitWorkers([&](int attempt) {
    EXPECT_EQ(attempt, expectedAttempt++);
    const std::lock_guard lock(mutex);
    ++interrupted;
    changed.notify_all();
  });
  worker.join();
  EXPECT_GE(interrupted, attempts);
  EXPECT_EQ(begun, 1);
}
