// SPDX-License-Identifier: Apache-2.0
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include <opencv2/imgproc.hpp>

#include "StereoCamera.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/ScriptedCapture.hpp"
#include "tests/support/TestCamera.hpp"

using std::chrono::microseconds;
using stereo::test::await;
using stereo::test::calibrate;
using stereo::test::noise;
using stereo::test::sameBits;
using stereo::test::TestCamera;

namespace {

const cv::Size rawSize(40, 20);
const cv::Size rectSize(24, 18);
constexpr int sentinel = 77;

// A running camera whose every frame is the same, calibrated for its small frame, with all pixels kept.
struct RunningCamera : TestCamera {
  explicit RunningCamera(int depthMode = 1, double shift = 0)
      : TestCamera([frame = noise(rawSize, 1)](int) { return frame; }) {
    calibrate(*this);
    m_leftIntrinsic.at<double>(0, 2) += shift;
    m_rawFrameSize = rawSize;
    m_rectFrameSize = rectSize;
    m_fisheyeRadius = 1000;
    m_depthmode = depthMode;
    startCapture(false, false);
  }
};

const cv::Mat leftEye = noise(rawSize, 1)(cv::Rect(0, 0, 20, 20)).clone();
const cv::Mat rightEye = noise(rawSize, 1)(cv::Rect(20, 0, 20, 20)).clone();

cv::Mat remapped(const cv::Mat& eye, const cv::Mat (&maps)[2]) {
  cv::Mat view;
  cv::remap(eye, view, maps[0], maps[1], cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar());
  return view;
}

}  // namespace

TEST(GetRawFrame, JoinsTheEyesLeftFirst) {
  RunningCamera camera;
  cv::Mat frame;
  microseconds timestamp{0};
  ASSERT_TRUE(camera.getRawFrame(frame, timestamp));
  EXPECT_TRUE(sameBits(frame, noise(rawSize, 1)));
  EXPECT_NE(timestamp.count(), 0);
}

TEST(GetStereoFrame, GivesBothEyes) {
  RunningCamera camera;
  cv::Mat left;
  cv::Mat right;
  microseconds timestamp{0};
  ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
  EXPECT_TRUE(sameBits(left, leftEye));
  EXPECT_TRUE(sameBits(right, rightEye));
}

TEST(GetRectStereoFrame, TwoImagesArePerspective) {
  for (const int depthMode : {1, 2, 3}) {
    RunningCamera camera(depthMode);
    cv::Mat left;
    cv::Mat right;
    ASSERT_TRUE(camera.getRectStereoFrame(left, right));
    EXPECT_TRUE(sameBits(left, remapped(leftEye, camera.m_rectifyMaps[0])));
    EXPECT_TRUE(sameBits(right, remapped(rightEye, camera.m_rectifyMaps[1])));
    EXPECT_EQ(left.size(), rectSize);
  }
}

TEST(GetRectStereoFrame, DepthModeChoosesThePairAndTheViewStaysPerspective) {
  for (const int depthMode : {1, 2}) {
    RunningCamera camera(depthMode);
    cv::Mat left;
    cv::Mat right;
    cv::Mat view;
    microseconds timestamp{0};
    ASSERT_TRUE(camera.getRectStereoFrame(left, right, view, timestamp));
    const auto& maps = depthMode == 1 ? camera.m_lonLatMaps : camera.m_rectifyMaps;
    EXPECT_TRUE(sameBits(left, remapped(leftEye, maps[0])));
    EXPECT_TRUE(sameBits(right, remapped(rightEye, maps[1])));
    EXPECT_TRUE(sameBits(view, remapped(leftEye, camera.m_rectifyMaps[0])));
    EXPECT_NE(timestamp.count(), 0);
    // The pairs differ, so that mixing them up would show.
    EXPECT_FALSE(sameBits(remapped(leftEye, camera.m_lonLatMaps[0]), remapped(leftEye, camera.m_rectifyMaps[0])));
    cv::Mat again[3];
    ASSERT_TRUE(camera.getRectStereoFrame(again[0], again[1], again[2]));
    EXPECT_TRUE(sameBits(again[0], left));
    EXPECT_TRUE(sameBits(again[1], right));
    EXPECT_TRUE(sameBits(again[2], view));
  }
}

TEST(GetRectStereoFrame, OtherDepthModesLeaveThePairAlone) {
  for (const int depthMode : {0, 3}) {
    RunningCamera camera(depthMode);
    cv::Mat left;
    cv::Mat right;
    cv::Mat view;
    microseconds timestamp{0};
    EXPECT_FALSE(camera.getRectStereoFrame(left, right, view, timestamp));
    EXPECT_TRUE(left.empty());
    EXPECT_FALSE(view.empty());
    left = cv::Mat(2, 2, CV_8UC1, cv::Scalar(sentinel));
    right = left.clone();
    EXPECT_TRUE(camera.getRectStereoFrame(left, right, view, timestamp));
    EXPECT_EQ(left.at<uchar>(1, 1), sentinel);
  }
}

TEST(GetRectStereoFrame, WithoutMapsThrows) {
  TestCamera camera([frame = noise(rawSize, 1)](int) { return frame; });
  camera.startCapture(false, false);
  cv::Mat left;
  cv::Mat right;
  cv::Mat view;
  microseconds timestamp{0};
  EXPECT_THROW(camera.getRectStereoFrame(left, right), cv::Exception);
  EXPECT_THROW(camera.getRectStereoFrame(left, right, view, timestamp), cv::Exception);
  EXPECT_TRUE(camera.stopCapture());
}

TEST(GetRectStereoFrame, PixelsFromOutsideTheEyeAreBlack) {
  RunningCamera camera(1, -450);  // the eye's left half is out of its picture
  cv::Mat left;
  cv::Mat right;
  ASSERT_TRUE(camera.getRectStereoFrame(left, right));
  int outside = 0;
  for (int i = 0; i < rectSize.height; ++i) {
    for (int j = 0; j < rectSize.width; ++j) {
      const float u = camera.m_rectifyMaps[0][0].at<float>(i, j);
      const float v = camera.m_rectifyMaps[0][1].at<float>(i, j);
      if (u < -1 || v < -1 || u > 20 || v > 20) {
        ++outside;
        EXPECT_EQ(left.at<cv::Vec3b>(i, j), cv::Vec3b());
      }
    }
  }
  EXPECT_GT(outside, 0);
}

// A derived class that replaces the one frame source changes every rectified read.
TEST(GetRectStereoFrame, TakesItsEyesThroughTheVirtualTable) {
  struct Derived : RunningCamera {
    explicit Derived(int depthMode) : RunningCamera(depthMode) {}
    bool getStereoFrame(cv::Mat& left, cv::Mat& right, microseconds& timestamp) override {
      ++calls;
      left = rightEye.clone();
      right = leftEye.clone();
      timestamp = microseconds(1234);
      return answer;
    }
    bool answer = true;
    std::atomic<int> calls{0};
  };
  Derived camera(2);
  cv::Mat left;
  cv::Mat right;
  cv::Mat view;
  microseconds timestamp{0};
  ASSERT_TRUE(camera.getRectStereoFrame(left, right));
  EXPECT_TRUE(sameBits(left, remapped(rightEye, camera.m_rectifyMaps[0])));
  ASSERT_TRUE(camera.getRectStereoFrame(left, right, view, timestamp));
  EXPECT_EQ(timestamp, microseconds(1234));
  EXPECT_TRUE(sameBits(right, remapped(leftEye, camera.m_rectifyMaps[1])));
  EXPECT_TRUE(sameBits(view, remapped(rightEye, camera.m_rectifyMaps[0])));
  EXPECT_EQ(camera.calls, 2);

  // A source that fails: outputs stay untouched, and the result says whether they are filled.
  camera.answer = false;
  cv::Mat none[3];
  timestamp = microseconds(0);
  EXPECT_FALSE(camera.getRectStereoFrame(none[0], none[1]));
  EXPECT_FALSE(camera.getRectStereoFrame(none[0], none[1], none[2], timestamp));
  EXPECT_EQ(timestamp, microseconds(1234));
  EXPECT_TRUE(none[0].empty() && none[1].empty() && none[2].empty());
  cv::Mat filled[3] = {noise({3, 3}, 1), noise({3, 3}, 2), noise({3, 3}, 3)};
  const cv::Mat before[3] = {filled[0].clone(), filled[1].clone(), filled[2].clone()};
  EXPECT_TRUE(camera.getRectStereoFrame(filled[0], filled[1]));
  EXPECT_TRUE(camera.getRectStereoFrame(filled[0], filled[1], filled[2]));
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(sameBits(filled[i], before[i]));
  }
}

TEST(GetRectStereoFrame, ThreeImagesGoThroughTheFourArgumentForm) {
  struct Derived : RunningCamera {
    using RunningCamera::getRectStereoFrame;
    bool getRectStereoFrame(cv::Mat& left, cv::Mat&, cv::Mat&, microseconds&) override {
      left = cv::Mat(1, 1, CV_8UC1, cv::Scalar(sentinel));
      return false;
    }
  };
  Derived camera;
  cv::Mat left;
  cv::Mat right;
  cv::Mat view;
  StereoCamera& base = camera;
  EXPECT_FALSE(base.getRectStereoFrame(left, right, view));
  EXPECT_EQ(left.at<uchar>(0, 0), sentinel);
}

TEST(Reads, GiveCopiesThatTheWorkerAndOtherHeadersNeverShare) {
  RunningCamera camera;
  cv::Mat frame;
  cv::Mat left;
  cv::Mat right;
  microseconds timestamp{0};
  ASSERT_TRUE(camera.getRawFrame(frame, timestamp));
  ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
  frame.setTo(sentinel);
  left.setTo(sentinel);
  cv::Mat after;
  ASSERT_TRUE(camera.getRawFrame(after, timestamp));
  EXPECT_TRUE(sameBits(after, noise(rawSize, 1)));

  // A second header of the caller's keeps its pixels when the first is read into again.
  ASSERT_TRUE(camera.getRectStereoFrame(left, right));
  const cv::Mat keptLeft = left;
  cv::Mat keptRaw = after;
  const cv::Mat leftBits = left.clone();
  keptRaw.setTo(sentinel);
  left.setTo(sentinel);
  ASSERT_TRUE(camera.getRectStereoFrame(left, right));
  ASSERT_TRUE(camera.getRawFrame(after, timestamp));
  EXPECT_TRUE(sameBits(left, leftBits));
  EXPECT_EQ(cv::countNonZero(keptLeft.reshape(1) != sentinel), 0);
  EXPECT_EQ(cv::countNonZero(keptRaw.reshape(1) != sentinel), 0);

  // Nor are pixels that the caller owns, outside any matrix, written to.
  std::vector<uchar> own(static_cast<std::size_t>(rawSize.area()) * 3, sentinel);
  cv::Mat wrapped(rawSize, CV_8UC3, own.data());
  ASSERT_TRUE(camera.getRawFrame(wrapped, timestamp));
  EXPECT_EQ(std::count(own.begin(), own.end(), sentinel), static_cast<std::ptrdiff_t>(own.size()));
}

// Published by hand, so that it is known which frames there are.
class PublishedByHand : public testing::Test {
protected:
  void publish(int number) {
    const std::lock_guard lock(camera.m_frameMutex);
    camera.m_rawFrame.first = cv::Mat(4, 4, CV_8UC3, cv::Scalar::all(number));
    camera.m_rawFrame.second = cv::Mat(4, 4, CV_8UC3, cv::Scalar::all(number + 1));
    camera.m_rawFrame.timestamp = microseconds(number);
    camera.m_frameCond.notify_all();
  }

  // Publishes further frames until `done`, so that a reader that was late for the first gets one of these.
  void publishUntil(const std::atomic<bool>& done, int from) {
    EXPECT_TRUE(await([&] {
      if (!done) {
        publish(from++);
      }
      return done.load();
    }));
  }

  TestCamera camera;
};

TEST_F(PublishedByHand, AFrameThatIsAlreadyThereIsNotReturned) {
  publish(10);
  std::atomic<bool> done{false};
  cv::Mat frame;
  microseconds timestamp{0};
  std::thread reader([&] {
    EXPECT_TRUE(camera.getRawFrame(frame, timestamp));
    done = true;
  });
  publishUntil(done, 20);
  reader.join();
  EXPECT_GE(timestamp.count(), 20);
  EXPECT_EQ(frame.at<cv::Vec3b>(0, 0)[0], timestamp.count());
  EXPECT_EQ(frame.at<cv::Vec3b>(0, 7)[0], timestamp.count() + 1);
}

TEST_F(PublishedByHand, StopCaptureReleasesWaitingReadersWithTheirOutputsUntouched) {
  for (const bool early : {false, true}) {  // readers that wait, and readers that come when all is over
    TestCamera stopped;
    std::atomic<int> returned{0};
    cv::Mat images[4];
    microseconds timestamp{sentinel};
    if (early) {
      stopped.startCapture(false, false);
      stopped.stopCapture();
    }
    std::vector<std::thread> readers;
    readers.emplace_back([&] {
      EXPECT_FALSE(stopped.getRawFrame(images[0], timestamp));
      ++returned;
    });
    readers.emplace_back([&] {
      microseconds other{sentinel};
      EXPECT_FALSE(stopped.getStereoFrame(images[1], images[2], other));
      EXPECT_EQ(other.count(), sentinel);
      ++returned;
    });
    readers.emplace_back([&] {
      cv::Mat right;
      EXPECT_FALSE(stopped.getRectStereoFrame(images[3], right));
      ++returned;
    });
    // The stop reaches readers that wait; at the first stop a reader may not have got there.
    EXPECT_TRUE(await([&] {
      stopped.stopCapture();
      return returned == 3;
    }));
    for (std::thread& reader : readers) {
      reader.join();
    }
    EXPECT_EQ(returned, 3);
    EXPECT_EQ(timestamp.count(), sentinel);
    for (const cv::Mat& image : images) {
      EXPECT_TRUE(image.empty());
    }
  }
}

TEST_F(PublishedByHand, AReaderWaitsAsLongAsNobodyPublishes) {
  std::atomic<bool> done{false};
  std::thread reader([&] {
    cv::Mat frame;
    microseconds timestamp{0};
    EXPECT_FALSE(camera.getRawFrame(frame, timestamp));
    done = true;
  });
  // Only time can be waited for here: the call must not return while it passes.
  EXPECT_FALSE(await([&] { return done.load(); }, std::chrono::milliseconds(150)));
  EXPECT_TRUE(await([&] {
    camera.stopCapture();
    return done.load();
  }));
  reader.join();
}
