// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/observe/TappedCamera.hpp"

#include <atomic>
#include <limits>
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include "sources/Recorder.hpp"
#include "sources/Recording.hpp"
#include "sources/ReplayCamera.hpp"
#include "sources/ReplayCapture.hpp"
#include "tests/support/Await.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/StalledPipeline.hpp"
#include "tests/support/TempDir.hpp"

using namespace stereo::app;
using std::chrono::microseconds;
using stereo::sources::Recorder;
using stereo::sources::RecordingError;
using stereo::sources::ReplayCapture;
using stereo::test::StalledPipeline;
using testing::HasSubstr;

namespace {

cv::Mat recorded(int number, cv::Size size = {64, 32}) { return stereo::test::noise(size, number); }

class RecorderTest : public testing::Test {
protected:
  Recorder::Options options() const { return {.folder = m_folder.path()}; }

  static void readAndPublish(Recorder& recorder, const cv::Mat& frame, std::int64_t timestamp) {
    recorder.read(frame);
    recorder.published(microseconds(timestamp));
  }

  static std::string failureOf(const std::function<void()>& action) {
    try {
      action();
    } catch (const RecordingError& failure) {
      return failure.what();
    }
    return {};
  }

  ReplayCapture replay() const { return ReplayCapture({.path = m_folder.path(), .rate = 0, .loop = false}); }

  void expectFrame(ReplayCapture& capture, const cv::Mat& expected, std::int64_t timestamp) const {
    cv::Mat frame;
    ASSERT_TRUE(capture.read(frame));
    ASSERT_EQ(frame.size(), expected.size());
    EXPECT_EQ(cv::norm(frame, expected, cv::NORM_INF), 0.0);
    EXPECT_EQ(capture.recordedTimestamp(), timestamp);
  }

  const stereo::test::TempDir m_folder;
};

// Its device is abandoned by a stop.
class StalledCamera : public stereo::sources::HostCamera {
public:
  explicit StalledCamera(const std::shared_ptr<StalledPipeline::Fate>& fate) {
    delete m_videoCapture;
    m_videoCapture = new StalledPipeline(fate);
    m_isOpened = true;
  }
  ~StalledCamera() override { stopWorkers(); }
};

// Counts for a test that outlives it.
class CountingTap : public stereo::sources::FrameTap {
public:
  explicit CountingTap(std::atomic<int>& calls) : m_calls(calls) {}
  void read(const cv::Mat& /*frame*/) override { ++m_calls; }
  void published(microseconds /*timestamp*/) override { ++m_calls; }

private:
  std::atomic<int>& m_calls;
};

}  // namespace

TEST_F(RecorderTest, KeepsPublishedFramesToTheBitInBothCodecs) {
  for (const char* codec : {"huffyuv", "ffv1"}) {
    const std::filesystem::path folder = m_folder.path(codec);
    std::filesystem::create_directory(folder);
    Recorder recorder({.folder = folder, .codec = codec});
    recorder.published(microseconds(0));
    for (int i = 0; i < 5; ++i) {
      readAndPublish(recorder, recorded(i), 1000 + 7 * i);
    }
    recorder.finish();
    EXPECT_EQ(recorder.counts().written, 5U);
    EXPECT_EQ(recorder.counts().dropped, 0U);
    EXPECT_EQ(recorder.frameSize(), cv::Size(64, 32));
    ReplayCapture capture({.path = folder.string(), .rate = 0, .loop = false});
    for (int i = 0; i < 5; ++i) {
      expectFrame(capture, recorded(i), 1000 + 7 * i);
    }
    cv::Mat none;
    EXPECT_FALSE(capture.read(none));
  }
}

TEST_F(RecorderTest, LeavesOutWhatWasReadButNotPublished) {
  Recorder recorder(options());
  recorder.read(recorded(0));
  recorder.published(microseconds(0));  // none published yet: this one warmed the camera up
  readAndPublish(recorder, recorded(1), 10);
  recorder.read(recorded(2));
  recorder.published(microseconds(10));
  readAndPublish(recorder, recorded(3), 30);
  recorder.published(microseconds(40));  // published by somebody else: nothing was read for it
  recorder.finish();
  ReplayCapture capture = replay();
  expectFrame(capture, recorded(1), 10);
  expectFrame(capture, recorded(3), 30);
  EXPECT_EQ(recorder.counts().written, 2U);
}

TEST_F(RecorderTest, CountsWhatThereWasNoRoomForAndNeverWaits) {
  Recorder::Options small = options();
  small.queue = 1;
  small.codec = "ffv1";
  Recorder recorder(small);
  constexpr std::uint64_t frames = 40;
  const cv::Mat large = recorded(1, {1856, 800});  // a tenth of a second's work for the codec, a millisecond's to copy
  for (std::uint64_t i = 1; i <= frames; ++i) {
    readAndPublish(recorder, large, static_cast<std::int64_t>(i));
  }
  recorder.finish();
  const Recorder::Counts counts = recorder.counts();
  EXPECT_GE(counts.written, 1U);
  EXPECT_GE(counts.dropped, 1U);
  EXPECT_EQ(counts.written + counts.dropped, frames);
  ReplayCapture capture = replay();
  std::uint64_t replayed = 0;
  for (cv::Mat frame; capture.read(frame); ++replayed) {
  }
  EXPECT_EQ(replayed, counts.written);
}

TEST_F(RecorderTest, TakesNoMoreThanItWasAskedFor) {
  Recorder::Options few = options();
  few.most = 3;
  Recorder recorder(few);
  for (int i = 0; i < 6; ++i) {
    readAndPublish(recorder, recorded(i), 1 + i);
  }
  recorder.finish();
  EXPECT_EQ(recorder.counts().written, 3U);
  EXPECT_EQ(recorder.counts().dropped, 0U);
}

TEST_F(RecorderTest, LeavesOutFramesOfAnotherSizeOrType) {
  Recorder recorder(options());
  readAndPublish(recorder, recorded(0), 1);
  readAndPublish(recorder, recorded(1, {32, 32}), 2);
  readAndPublish(recorder, cv::Mat(32, 64, CV_8UC1, cv::Scalar(3)), 3);
  readAndPublish(recorder, recorded(2), 4);
  recorder.finish();
  EXPECT_EQ(recorder.counts().written, 2U);
  EXPECT_EQ(recorder.counts().unfit, 2U);
  ReplayCapture capture = replay();
  expectFrame(capture, recorded(0), 1);
  expectFrame(capture, recorded(2), 4);
}

TEST_F(RecorderTest, SaysWhatItCannotWrite) {
  EXPECT_THAT(failureOf([&] { Recorder({.folder = m_folder.path("missing")}); }), HasSubstr("cannot write"));
  const std::pair<cv::Mat, const char*> misfits[] = {{recorded(0, {63, 32}), "even width"},
                                                     {cv::Mat(32, 64, CV_16UC3, cv::Scalar::all(3)), "16UC3"}};
  for (const auto& [frame, message] : misfits) {
    Recorder recorder(options());
    readAndPublish(recorder, frame, 1);
    EXPECT_THAT(failureOf([&] { recorder.awaitFrame({}, stereo::test::deadline); }), HasSubstr(message));
    EXPECT_THAT(failureOf([&] { recorder.finish(); }), HasSubstr(message));
  }
  Recorder::Options full = options();
  full.spare = std::numeric_limits<std::uintmax_t>::max();
  EXPECT_THAT(failureOf([&] { const Recorder recorder(full); }), HasSubstr("disk is full"));
}

TEST_F(RecorderTest, DoesNotWriteOverARecording) {
  {
    Recorder recorder(options());
    readAndPublish(recorder, recorded(0), 1);
    recorder.finish();
  }
  EXPECT_THAT(failureOf([&] { Recorder again(options()); }), HasSubstr("there is already a recording"));
  ReplayCapture capture = replay();
  expectFrame(capture, recorded(0), 1);
}

TEST_F(RecorderTest, TellsOfEachFrameWritten) {
  Recorder recorder(options());
  EXPECT_FALSE(recorder.awaitFrame({}, std::chrono::milliseconds(1)));
  readAndPublish(recorder, recorded(0), 1);
  EXPECT_TRUE(recorder.awaitFrame({}, stereo::test::deadline));
  EXPECT_FALSE(recorder.awaitFrame(recorder.counts(), std::chrono::milliseconds(1)));
}

// A running camera: what is recorded is what was published, with the timestamps that readers got.
TEST_F(RecorderTest, RecordsWhatACameraPublishes) {
  constexpr int pictures = 8;
  std::filesystem::create_directory(m_folder.path("frames"));
  for (int i = 0; i < pictures; ++i) {
    ASSERT_TRUE(cv::imwrite(m_folder.path("frames/" + std::to_string(i) + ".png"), recorded(i)));
  }
  Recorder::Options roomy = options();
  roomy.queue = 2000;
  Recorder recorder(roomy);
  std::vector<std::int64_t> timestamps;
  {
    TappedCamera<stereo::sources::ReplayCamera> camera(
        recorder, stereo::sources::ReplayCamera::Options{.path = m_folder.path("frames"), .rate = 200});
    ASSERT_TRUE(camera.startCapture(false, false));
    for (int i = 0; i < 20; ++i) {
      cv::Mat left;
      cv::Mat right;
      microseconds timestamp{0};
      ASSERT_TRUE(camera.getStereoFrame(left, right, timestamp));
      timestamps.push_back(timestamp.count());
    }
    camera.stopCapture();
  }
  recorder.finish();
  ASSERT_EQ(recorder.counts().dropped, 0U);
  const stereo::sources::Recording recording = stereo::sources::Recording::open(m_folder.path());
  EXPECT_EQ(recording.timestamps.size(), recorder.counts().written);
  EXPECT_THAT(recording.timestamps, testing::IsSupersetOf(timestamps));
  // Ten warm the camera up; all later ones are there, in order.
  ReplayCapture capture = replay();
  for (std::size_t i = 0; i < recording.timestamps.size(); ++i) {
    expectFrame(capture, recorded((10 + static_cast<int>(i)) % pictures), recording.timestamps[i]);
  }
}

// A read that nothing ends is abandoned with its device. When it returns, camera and tap may be gone.
TEST(TappedCamera, ItsTapSeesNothingOfAnAbandonedRead) {
  const auto fate = std::make_shared<StalledPipeline::Fate>();
  std::atomic<int> calls{0};
  {
    CountingTap tap(calls);
    TappedCamera<StalledCamera> camera(tap, fate);
    camera.startCapture(false, false);
    ASSERT_TRUE(stereo::test::await([&] { return fate->isStalled.load(); }));
    camera.stopCapture();
    ASSERT_FALSE(fate->isGone);
  }
  const int before = calls;
  EXPECT_GE(before, 2 * StalledPipeline::framesBefore);
  fate->letGo();
  ASSERT_TRUE(stereo::test::await([&] { return fate->isGone.load(); }));
  EXPECT_EQ(calls, before);
}
