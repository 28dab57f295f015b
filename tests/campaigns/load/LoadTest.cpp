// SPDX-License-Identifier: Apache-2.0
// Everything at once for a while, and many lives of a camera.
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include <malloc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Await.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/Length.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/TestCamera.hpp"

using std::chrono::microseconds;
using stereo::test::await;
using stereo::test::calibrate;
using stereo::test::OutputCapture;
using stereo::test::TestCamera;

namespace {

const cv::Size rawSize(240, 100);

cv::Mat frameOf(int number) { return stereo::test::noise(rawSize, number % 16); }

struct BusyCamera : TestCamera {
  BusyCamera() : TestCamera(&frameOf) {
    calibrate(*this);
    m_rawFrameSize = rawSize;
    m_rectFrameSize = {64, 64};
    m_fisheyeRadius = 60;
    m_maxDepth = 100;
  }
  ~BusyCamera() override {
    stopStereoCompute();
    stopCapture();
  }
};

const std::chrono::seconds loadTime{stereo::test::byLength(10, 60)};
const int manyLives = stereo::test::byLength(150, 1000);

std::size_t entries(const char* folder) {
  const std::filesystem::directory_iterator all(folder);
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// Kilobytes that the process holds in memory.
long residentKilobytes() {
  std::ifstream status("/proc/self/status");
  std::string word;
  while (status >> word) {
    if (word == "VmRSS:") {
      long value = 0;
      status >> value;
      return value;
    }
  }
  return 0;
}

}  // namespace

TEST(Load, AllReadersBothWorkersAndCycles) {
  const OutputCapture quiet(1);
  const auto end = std::chrono::steady_clock::now() + loadTime;
  long reads[8] = {};
  int cycles = 0;
  while (std::chrono::steady_clock::now() < end) {
    BusyCamera camera;
    camera.m_depthmode = 1 + cycles % 2;
    camera.m_algorithm = cycles / 2 % 2;
    camera.startCapture(false, false);
    camera.startStereoCompute();
    std::atomic<bool> over{false};
    std::atomic<long> all{0};
    std::vector<std::thread> readers;
    for (int kind = 0; kind < 8; ++kind) {
      readers.emplace_back([&, kind] {
        while (!over) {
          cv::Mat a;
          cv::Mat b;
          cv::Mat c;
          microseconds timestamp{0};
          std::vector<cv::Vec3f> plain;
          std::vector<PCL> colored;
          bool got = false;
          switch (kind) {
            case 0:
              got = camera.getRawFrame(a, timestamp);
              break;
            case 1:
              got = camera.getStereoFrame(a, b, timestamp);
              break;
            case 2:
              got = camera.getRectStereoFrame(a, b);
              break;
            case 3:
              got = camera.getRectStereoFrame(a, b, c);
              break;
            case 4:
              got = camera.getRectStereoFrame(a, b, c, timestamp);
              break;
            case 5:
              got = camera.getDepthFrame(a, true, timestamp);
              break;
            case 6:
              got = camera.getPointCloud(plain, timestamp);
              break;
            default:
              got = camera.getPointCloud(colored, timestamp);
              break;
          }
          if (got) {
            ++reads[kind];  // each kind has one thread
            ++all;
          }
        }
      });
    }
    EXPECT_TRUE(await([&] { return all > 60; }));
    // The disparity worker stops and starts under the readers; maps are built anew; the capture worker is superseded.
    camera.stopStereoCompute();
    camera.startStereoCompute();
    camera.startCapture(false, false);
    const long soFar = all;
    EXPECT_TRUE(await([&] { return all > soFar + 60; }));
    over = true;
    if (cycles % 3 == 0) {  // the wrong order
      camera.stopCapture();
      camera.stopStereoCompute();
    } else {
      camera.stopStereoCompute();
      camera.stopCapture();
    }
    for (std::thread& reader : readers) {
      reader.join();
    }
    ++cycles;
  }
  EXPECT_GT(cycles, 3);
  for (const long count : reads) {
    EXPECT_GT(count, 0);
  }
}

TEST(Load, ManyStartsAndStopsLeaveNothingBehind) {
  const OutputCapture quiet(1);
  const auto live = [](int number) {
    TestCamera camera(&frameOf);
    calibrate(camera);
    camera.setRawFrameSize({928, 400});
    camera.m_rectFrameSize = {16, 12};
    camera.setPosNumber(static_cast<int>(getpid()) * 64 + 63);
    camera.startCapture(false, number % 10 == 0);  // with a segment now and then
    camera.startStereoCompute();
    camera.stopStereoCompute();
    camera.stopCapture();
  };
  for (int i = 0; i < 20; ++i) {
    live(i);  // what is made once and kept
  }
  malloc_trim(0);
  const std::size_t threads = entries("/proc/self/task");
  const std::size_t descriptors = entries("/proc/self/fd");
  const long memory = residentKilobytes();
  for (int i = 0; i < manyLives; ++i) {
    live(i);
  }
  malloc_trim(0);
  EXPECT_EQ(entries("/proc/self/task"), threads);
  EXPECT_EQ(entries("/proc/self/fd"), descriptors);
  EXPECT_EQ(shmget(static_cast<int>(getpid()) * 64 + 63 + 9000, 0, 0), -1);
  const long grown = residentKilobytes() - memory;
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  // The sanitizers keep freed memory and shadows of it; theirs are the leak reports.
  (void)grown;
#else
  // Kilobytes: the allocator's own unrest, and 6 a life.
  EXPECT_LT(grown, 2 * 1024 + 6 * manyLives) << "after " << manyLives << " lives";
#endif
}
