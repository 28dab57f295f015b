// SPDX-License-Identifier: Apache-2.0
// Short lives of a camera whose device goes wrong in ways drawn from a seed, with readers of every kind.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "sim/FaultScript.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/Length.hpp"
#include "tests/support/NotedCapture.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/TestCamera.hpp"

using std::chrono::microseconds;
using stereo::sim::Fault;
using stereo::sim::FaultScript;
using stereo::sim::FaultyCapture;
using stereo::test::await;
using stereo::test::NotedCapture;
using stereo::test::OutputCapture;
using stereo::test::rawSize;
using stereo::test::sameBits;
using stereo::test::TestCamera;
using stereo::test::timeOfDay;

namespace {

// Lives in all, shared out among the tests below. Of the whole fewer under the sanitizers, where each costs three times
// as much.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
const int lives = stereo::test::byLength(100, 400);
#else
const int lives = stereo::test::byLength(200, 1000);
#endif
constexpr int shards = 10;
constexpr int livesAtOnce = 6;  // they sleep most of the time

constexpr std::uint64_t frames = 45;  // that faults fall on, the ten of the warm-up included
constexpr int readKinds = 8;
const cv::Size rectSize(80, 48);

// Of the pair that the calling thread's rectified read was made from; 0 if it got none. Two forms of that read give no
// timestamp, and all of them leave outputs that were filled before as they are when there is no pair.
thread_local microseconds pairTimestamp{0};

class StormCamera : public TestCamera {
public:
  explicit StormCamera(const FaultScript& script) {
    auto* const device = new NotedCapture(script);
    install(device);
    noted = device;
    calibrate(*this);
    m_rawFrameSize = rawSize;
    m_rectFrameSize = rectSize;
    m_fisheyeRadius = 1000;  // masks nothing
    m_maxDepth = 1000;
    m_algorithm = 1;
  }
  ~StormCamera() override {
    stopStereoCompute();
    stopCapture();
  }

  bool getStereoFrame(cv::Mat& left, cv::Mat& right, microseconds& timestamp) override {
    const bool got = TestCamera::getStereoFrame(left, right, timestamp);
    pairTimestamp = got ? timestamp : microseconds(0);
    return got;
  }

  NotedCapture* noted = nullptr;
};

struct Reading {
  int kind;
  microseconds called;
  microseconds timestamp;
  std::vector<cv::Mat> images;
};

cv::Mat eyeOf(const cv::Mat& frame, int eye) {
  const int width = frame.cols / 2;
  return frame.colRange(eye * width, (eye + 1) * width);
}

cv::Mat remapped(const cv::Mat& frame, int eye, const cv::Mat (&maps)[2][2]) {
  cv::Mat view;
  cv::remap(eyeOf(frame, eye), view, maps[eye][0], maps[eye][1], cv::INTER_LINEAR);
  return view;
}

// Reads once in the way of this kind, into images that may be filled already; empty if there was nothing.
std::vector<cv::Mat> readOnce(StormCamera& camera, int kind, std::array<cv::Mat, 3>& held, microseconds& timestamp) {
  auto& [a, b, c] = held;
  std::vector<cv::Vec3f> plain;
  std::vector<PCL> colored;
  std::vector<cv::Mat> images;
  pairTimestamp = microseconds(0);
  switch (kind) {
    case 0:
      return camera.getRawFrame(a, timestamp) ? std::vector{a.clone()} : images;
    case 1:
      return camera.getStereoFrame(a, b, timestamp) ? std::vector{a.clone(), b.clone()} : images;
    case 2:
      camera.getRectStereoFrame(a, b);
      images = {a.clone(), b.clone()};
      break;
    case 3:
      camera.getRectStereoFrame(a, b, c);
      images = {a.clone(), b.clone(), c.clone()};
      break;
    case 4:
      camera.getRectStereoFrame(a, b, c, timestamp);
      images = {a.clone(), b.clone(), c.clone()};
      break;
    case 5:
      return camera.getDepthFrame(a, true, timestamp) ? std::vector{a.clone()} : images;
    case 6:
      return camera.getPointCloud(plain, timestamp) ? std::vector{cv::Mat(plain, true)} : images;
    default:
      return camera.getPointCloud(colored, timestamp) ? std::vector{cv::Mat(1, 1, CV_8U)} : images;
  }
  if (pairTimestamp.count() == 0) {
    return {};
  }
  timestamp = pairTimestamp;
  return images;
}

// What is wrong with a reading; empty if nothing is.
std::string faultIn(const Reading& reading, const StormCamera& camera) {
  const cv::Mat* const frame = camera.noted->published(reading.timestamp);
  if (frame == nullptr) {
    return "a stamp that no published frame has";
  }
  // A cloud's timestamp is that of the newest raw frame there was, which may have been published before the call: what
  // is waited for is the next disparity, and that takes a while to make.
  if (reading.timestamp < reading.called && reading.kind < 6) {
    return "a frame older than the call";
  }
  std::vector<cv::Mat> expected;
  const auto& chosen = camera.m_depthmode == 1 ? camera.m_lonLatMaps : camera.m_rectifyMaps;
  switch (reading.kind) {
    case 0:
      expected = {frame->colRange(0, frame->cols / 2 * 2)};
      break;
    case 1:
      expected = {eyeOf(*frame, 0), eyeOf(*frame, 1)};
      break;
    case 2:
      expected = {remapped(*frame, 0, camera.m_rectifyMaps), remapped(*frame, 1, camera.m_rectifyMaps)};
      break;
    case 3:
    case 4:
      expected = {remapped(*frame, 0, chosen), remapped(*frame, 1, chosen), remapped(*frame, 0, camera.m_rectifyMaps)};
      break;
    case 5:  // made from whatever disparity there was
      return reading.images[0].size() == rectSize && reading.images[0].type() == CV_8UC3 ? "" : "a misshapen depth";
    default:
      return "";
  }
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (!sameBits(reading.images[i], expected[i])) {
      return "image " + std::to_string(i) + " is not the published frame's";
    }
  }
  return "";
}

// The worker's last result: view, disparity and timestamp have to be one frame's.
std::string faultInDisparity(const StormCamera& camera) {
  const StereoCamera::TimeFrame& result = camera.m_disparityFrame;
  if (result.timestamp.count() == 0) {
    return "";
  }
  const cv::Mat* const frame = camera.noted->published(result.timestamp);
  if (frame == nullptr) {
    return "a disparity with a stamp that no published frame has";
  }
  const auto& chosen = camera.m_depthmode == 1 ? camera.m_lonLatMaps : camera.m_rectifyMaps;
  cv::Mat gray[2];
  for (int eye = 0; eye < 2; ++eye) {
    cv::cvtColor(remapped(*frame, eye, chosen), gray[eye], cv::COLOR_BGR2GRAY);
  }
  const auto matcher = cv::StereoBM::create(32, 9);
  matcher->setPreFilterCap(31);
  matcher->setTextureThreshold(10);
  matcher->setUniquenessRatio(15);
  matcher->setSpeckleWindowSize(100);
  matcher->setSpeckleRange(32);
  matcher->setDisp12MaxDiff(1);
  cv::Mat sixteenths;
  matcher->compute(gray[0], gray[1], sixteenths);
  cv::Mat disparity;
  sixteenths.convertTo(disparity, CV_32F, 1.0 / 16.0);
  const bool same =
      sameBits(result.first, remapped(*frame, 0, camera.m_rectifyMaps)) && sameBits(result.second, disparity);
  return same ? "" : "a view or disparity that is not the published frame's";
}

struct Result {
  std::string faults;  // a line each
  std::array<int, readKinds> reads{};
};

// Matching takes 8-bit BGR only, anything else ends the process by design: gray and 16-bit frames are left to the lives
// without a disparity worker. Sizes need not be: the rectified eyes' is always the same.
FaultScript scriptOf(std::uint64_t seed) {
  return stereo::sim::randomFaults(seed, {.frames = frames,
                                          .faults = 12,
                                          .longest = std::chrono::milliseconds(4),
                                          .frameSize = rawSize,
                                          .otherTypes = seed % 2 == 0,
                                          .gone = seed % 3 == 0});
}

// Where the life is stopped: anywhere after the warm-up, in a stall too; as soon as there can be no more frames.
std::uint64_t lastFrameOf(const FaultScript& script, std::uint64_t seed) {
  std::uint64_t last = 10 + seed * 7 % (frames - 5);
  for (const Fault& fault : script) {
    last = fault.time == Fault::forever ? std::min(last, fault.first) : last;
  }
  return last;
}

Result live(std::uint64_t seed) {
  const bool computes = seed % 2 == 1;
  const FaultScript script = scriptOf(seed);
  StormCamera camera(script);
  camera.m_depthmode = 1 + static_cast<int>(seed / 2 % 2);
  camera.startCapture(false, false);
  if (computes) {
    camera.startStereoCompute();
  }
  std::atomic<bool> over{false};
  std::array<std::vector<Reading>, readKinds> readings;
  std::vector<std::thread> readers;
  for (int kind = 0; kind < readKinds; ++kind) {
    readers.emplace_back([&camera, &over, &readings, kind, computes] {
      std::array<cv::Mat, 3> held;
      // Without a disparity worker the colored depth fails at once: once is enough.
      for (bool again = true; again && !over; again = computes || kind != 5) {
        const microseconds called = timeOfDay();
        microseconds timestamp{0};
        std::vector<cv::Mat> images = readOnce(camera, kind, held, timestamp);
        if (!images.empty()) {
          readings[static_cast<std::size_t>(kind)].push_back({kind, called, timestamp, std::move(images)});
        }
      }
    });
  }
  Result result;
  const std::uint64_t last = lastFrameOf(script, seed);
  if (!await([&] { return camera.noted->faulty.frames() >= last; })) {
    result.faults += "the worker ceased to read\n";
  }
  over = true;
  if (seed % 5 == 0) {  // the wrong order
    camera.stopCapture();
    camera.stopStereoCompute();
  } else {
    camera.stopStereoCompute();
    camera.stopCapture();
  }
  for (std::thread& reader : readers) {
    reader.join();
  }
  for (std::size_t kind = 0; kind < readings.size(); ++kind) {
    result.reads[kind] = static_cast<int>(readings[kind].size());
    for (const Reading& reading : readings[kind]) {
      const std::string fault = faultIn(reading, camera);
      result.faults += fault.empty() ? "" : "read of kind " + std::to_string(kind) + ": " + fault + "\n";
    }
  }
  const std::string fault = computes ? faultInDisparity(camera) : "";
  result.faults += fault.empty() ? "" : fault + "\n";
  return result;
}

class FaultStorm : public testing::TestWithParam<int> {};

}  // namespace

TEST_P(FaultStorm, EveryReadIsWholeAndEveryStopEnds) {
  const int count = lives / shards;
  std::atomic<int> begun{0};
  std::atomic<int> ended{0};
  std::mutex mutex;
  std::map<std::uint64_t, Result> results;  // by seed
  {
    // Collected and told afterwards: what the test framework has to say would vanish here with the cameras' log.
    const OutputCapture quiet(1);
    std::vector<std::thread> runners;
    runners.reserve(livesAtOnce);
    for (int runner = 0; runner < livesAtOnce; ++runner) {
      runners.emplace_back([&] {
        for (int i = begun++; i < count; i = begun++) {
          const auto seed = static_cast<std::uint64_t>(GetParam()) * static_cast<std::uint64_t>(count) +
                            static_cast<std::uint64_t>(i);
          Result result = live(seed);
          const std::lock_guard lock(mutex);
          results[seed] = std::move(result);
          ++ended;
        }
      });
    }
    // One that hangs cannot be ended or left behind by anything but the end of the process.
    for (int before = ended; before < count; before = ended) {
      if (!await([&] { return ended != before; }, 3 * stereo::test::deadline)) {
        std::cerr << "no life has come to its end for three minutes; " << ended << " of " << count << " have"
                  << std::endl;
        std::abort();
      }
    }
    for (std::thread& runner : runners) {
      runner.join();
    }
  }
  std::array<int, readKinds> reads{};
  for (const auto& [seed, result] : results) {
    EXPECT_EQ(result.faults, "") << "seed " << seed << ":\n" << stereo::sim::printFaults(scriptOf(seed));
    for (std::size_t kind = 0; kind < reads.size(); ++kind) {
      reads[kind] += result.reads[kind];
    }
  }
  EXPECT_EQ(results.size(), static_cast<std::size_t>(count));
  for (std::size_t kind = 0; kind < reads.size(); ++kind) {
    EXPECT_GT(reads[kind], 0) << "kind " << kind;
    RecordProperty("reads of kind " + std::to_string(kind), reads[kind]);
  }
}

TEST(FaultyCamera, StopReleasesAReaderAndEndsWithTheStall) {
  // The second stall outlasts every test: it is ended by releasing the device, as a simulated camera does.
  for (const std::string time : {"30ms", "3600000ms"}) {
    StormCamera camera(stereo::sim::parseFaults("stall 12- " + time));
    FaultyCapture& device = camera.noted->faulty;
    camera.startCapture(false, false);
    EXPECT_TRUE(await([&] { return device.frames() > 12; }));
    std::atomic<int> released{0};
    std::thread reader([&] {
      cv::Mat left(1, 1, CV_8U, cv::Scalar(7));
      cv::Mat right;
      microseconds timestamp{5};
      while (camera.getStereoFrame(left, right, timestamp)) {
        left = cv::Mat(1, 1, CV_8U, cv::Scalar(7));
        right = cv::Mat();
        timestamp = microseconds(5);
      }
      EXPECT_EQ(left.size(), cv::Size(1, 1));
      EXPECT_TRUE(right.empty());
      EXPECT_EQ(timestamp, microseconds(5));
      ++released;
    });
    std::thread stopper([&] {
      camera.stopCapture();
      ++released;
    });
    EXPECT_TRUE(await([&] { return !camera.isOpened(); }));
    if (time != "30ms") {
      device.release();
    }
    EXPECT_TRUE(await([&] { return released == 2; }));
    stopper.join();
    reader.join();
  }
}

INSTANTIATE_TEST_SUITE_P(Shards, FaultStorm, testing::Range(0, shards));
