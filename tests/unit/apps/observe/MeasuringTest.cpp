// SPDX-License-Identifier: Apache-2.0
#include <memory>

#include <gtest/gtest.h>

#include <opencv2/core.hpp>

#include "apps/stereo-camera/bench/LatencyFigures.hpp"
#include "apps/stereo-camera/observe/MeasuredCapture.hpp"
#include "apps/stereo-camera/observe/RunRecord.hpp"
#include "tests/support/ScriptedCapture.hpp"

using namespace stereo::app;
using std::chrono::microseconds;
using stereo::test::ScriptedCapture;

namespace {

const cv::Mat picture(4, 8, CV_8UC3, cv::Scalar::all(7));

/// A device that says of each call what it was.
class TellingCapture : public cv::VideoCapture {
public:
  explicit TellingCapture(std::string& calls) : m_calls(calls) {}
  ~TellingCapture() override { m_calls += "gone "; }
  bool read(cv::OutputArray image) override {
    m_calls += "read ";
    picture.copyTo(image);
    return true;
  }
  bool grab() override {
    m_calls += "grab ";
    return true;
  }
  bool retrieve(cv::OutputArray image, int flag) override {
    m_calls += "retrieve" + std::to_string(flag) + " ";
    picture.copyTo(image);
    return true;
  }
  bool set(int property, double value) override {
    m_calls += "set" + std::to_string(property) + " ";
    return value > 0;
  }
  double get(int property) const override { return property + 0.5; }
  bool isOpened() const override { return m_calls.find("release") == std::string::npos; }
  void release() override { m_calls += "release "; }

private:
  std::string& m_calls;
};

std::unique_ptr<MeasuredCapture> measured(
    RunRecord& record, ScriptedCapture::Script script,
    std::function<microseconds()> newest = [] { return microseconds(0); }) {
  return std::make_unique<MeasuredCapture>(std::make_unique<ScriptedCapture>(std::move(script)),
                                           std::make_shared<MeasuredCapture::Link>(record), std::move(newest));
}

}  // namespace

TEST(MeasuredCapture, DoesWhatItsDeviceDoes) {
  std::string calls;
  RunRecord record;
  {
    MeasuredCapture capture(std::make_unique<TellingCapture>(calls), std::make_shared<MeasuredCapture::Link>(record),
                            [] { return microseconds(0); });
    cv::Mat image;
    EXPECT_TRUE(capture.read(image));
    EXPECT_EQ(cv::norm(image, picture, cv::NORM_INF), 0);
    EXPECT_TRUE(capture.grab());
    cv::Mat retrieved;
    EXPECT_TRUE(capture.retrieve(retrieved, 3));
    EXPECT_EQ(cv::norm(retrieved, picture, cv::NORM_INF), 0);
    EXPECT_TRUE(capture.set(5, 1));
    EXPECT_FALSE(capture.set(6, -1));
    EXPECT_EQ(capture.get(9), 9.5);
    EXPECT_TRUE(capture.isOpened());
    capture.release();
    EXPECT_FALSE(capture.isOpened());
  }
  EXPECT_EQ(calls, "read grab retrieve3 set5 set6 release gone ");
  EXPECT_EQ(record.framesRead, 2U) << "a read and a grab";
}

TEST(MeasuredCapture, NotesWhenFramesWereAskedForAndCame) {
  RunRecord record;
  std::vector<std::int64_t> inside;
  const auto capture = measured(record, [&](int) {
    inside.push_back(systemMicroseconds());
    return picture;
  });
  const std::int64_t before = systemMicroseconds();
  cv::Mat image;
  for (int i = 0; i < 5; ++i) {
    ASSERT_TRUE(capture->read(image));
  }
  const std::int64_t after = systemMicroseconds();
  const std::vector<DeviceFrame>& frames = record.frames.kept();
  ASSERT_EQ(frames.size(), 5U);
  std::int64_t last = before;
  std::int64_t cpu = 0;
  for (std::size_t i = 0; i < 5; ++i) {
    EXPECT_GE(frames[i].called, last);
    EXPECT_GE(inside[i], frames[i].called);
    EXPECT_GE(frames[i].returned, inside[i]);
    EXPECT_GE(frames[i].cpu, cpu);
    last = frames[i].returned;
    cpu = frames[i].cpu;
  }
  EXPECT_LE(last, after);
}

TEST(MeasuredCapture, NotesWhichFramesWerePublished) {
  RunRecord record;
  microseconds newest{0};
  const auto capture = measured(
      record, [](int) { return picture; }, [&] { return newest; });
  cv::Mat image;
  for (const int timestamp : {0, 0, 700, 800}) {  // the first two are thrown away by whoever reads
    ASSERT_TRUE(capture->read(image));
    newest = microseconds(timestamp);
  }
  record.published(newest.count());
  record.published(newest.count());
  const std::vector<DeviceFrame>& frames = record.frames.kept();
  ASSERT_EQ(frames.size(), 4U);
  EXPECT_EQ(frames[0].published, 0);
  EXPECT_EQ(frames[1].published, 0);
  EXPECT_EQ(frames[2].published, 700);
  EXPECT_EQ(frames[3].published, 800);
}

TEST(MeasuredCapture, ReadsThatGetNothingAreNoFrames) {
  RunRecord record;
  const auto capture = measured(record, [](int n) { return n % 2 == 0 ? picture : cv::Mat(); });
  cv::Mat image;
  EXPECT_TRUE(capture->read(image));
  EXPECT_FALSE(capture->read(image));
  EXPECT_TRUE(capture->read(image));
  EXPECT_EQ(record.framesRead, 2U);
  EXPECT_EQ(record.frames.kept().size(), 2U);
}

TEST(MeasuredCapture, KeepsNoMoreThanItsRecordHolds) {
  RunRecord record(3);
  microseconds newest{0};
  const auto capture = measured(
      record, [](int) { return picture; }, [&] { return newest; });
  cv::Mat image;
  for (int i = 1; i <= 50; ++i) {
    ASSERT_TRUE(capture->read(image));
    newest = microseconds(i);
  }
  EXPECT_EQ(record.frames.count(), 50U);
  EXPECT_EQ(record.framesRead, 50U);
  ASSERT_EQ(record.frames.kept().size(), 3U);
  EXPECT_EQ(record.frames.kept().capacity(), 3U);
  EXPECT_EQ(record.frames.kept().back().published, 3) << "what was published later belongs to frames not kept";
}

TEST(Quantile, IsTheSmallestValueThatEnoughDoNotExceed) {
  const std::vector<double> ten{1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
  EXPECT_EQ(quantile(ten, 0), 1);
  EXPECT_EQ(quantile(ten, 0.5), 5);
  EXPECT_EQ(quantile(ten, 0.51), 6);
  EXPECT_EQ(quantile(ten, 0.9), 9);
  EXPECT_EQ(quantile(ten, 0.99), 10);
  EXPECT_EQ(quantile(ten, 1), 10);
  EXPECT_EQ(quantile({4}, 0.01), 4);
  // By its definition, over a grid.
  for (int k = 1; k <= 100; ++k) {
    const double q = k / 101.0;
    const double value = quantile(ten, q);
    const auto notAbove = [&](double x) {
      return std::count_if(ten.begin(), ten.end(), [x](double v) { return v <= x; });
    };
    EXPECT_GE(static_cast<double>(notAbove(value)), q * 10);
    EXPECT_LT(static_cast<double>(notAbove(value - 1)), q * 10);
  }
}

TEST(Figures, TellCountRateAndQuantilesOfTimesInAnyOrder) {
  const Figures some = figures("some", {30, 10, 20, 40}, 2);
  EXPECT_EQ(some.name, "some");
  EXPECT_EQ(some.count, 4U);
  EXPECT_EQ(some.perSecond, 2);
  EXPECT_EQ(some.p50, 20);
  EXPECT_EQ(some.p90, 40);
  EXPECT_EQ(some.max, 40);
  EXPECT_EQ(figures("none", {}, 2).count, 0U);
  EXPECT_EQ(figures("none", {}, 2).max, 0);
}

TEST(Figures, TimesCountFromTheNewestFrameBeforeTheStamp) {
  // called, returned, published
  const std::vector<DeviceFrame> frames{{0, 1000, 1300, 0}, {1400, 2000, 2500, 0}, {2600, 3000, 0, 0}};
  const Window window{1000, 9000};
  EXPECT_EQ(publicationTimes(frames, window), (std::vector<double>{0.3, 0.5}));
  EXPECT_EQ(publicationTimes(frames, {1001, 9000}), (std::vector<double>{0.5}));
  const std::vector<Product> products{{999, 1200, 0},    // older than every frame
                                      {1300, 4000, 0},   // of the first
                                      {2000, 4500, 0},   // of the second, read in that very microsecond
                                      {2500, 9000, 0}};  // comes too late
  EXPECT_EQ(productTimes(products, frames, window), (std::vector<double>{3.0, 2.5}));
}

TEST(Figures, ColoredDepthIsAsOldAsTheDisparityThatWasSurelyThere) {
  const std::vector<Product> disparities{{100, 10'000, 0}, {200, 20'000, 0}};
  const std::vector<Product> pictures{{7'999, 12'000, 1},   // before any
                                      {8'000, 13'000, 2},   // the reader looks at 9'000, when the first is there
                                      {17'999, 21'000, 3},  // and now a moment before the second
                                      {18'000, 22'000, 4}};
  const std::vector<Product> stamped = withDisparityTimestamps(pictures, disparities);
  ASSERT_EQ(stamped.size(), 3U);
  EXPECT_EQ(stamped[0].timestamp, 100);
  EXPECT_EQ(stamped[0].inHand, 13'000);
  EXPECT_EQ(stamped[1].timestamp, 100);
  EXPECT_EQ(stamped[2].timestamp, 200);
  EXPECT_EQ(stamped[2].cpu, 4);
}

TEST(Figures, GapsTellOfMissedFrames) {
  std::vector<DeviceFrame> frames;
  for (const std::int64_t returned : {0, 100'000, 240'000, 390'001, 700'000, 800'000}) {
    frames.push_back({returned, returned, 0, 0});
  }
  // 1, 1.4, 1.5 and a bit, 3.1 and 1 periods.
  EXPECT_EQ(missedByGaps(frames, {0, 1'000'000}, 10), 1U + 2U);
  EXPECT_EQ(missedByGaps(frames, {0, 700'000}, 10), 1U);
  EXPECT_EQ(missedByGaps(frames, {0, 1'000'000}, 0), 0U);
  EXPECT_EQ(missedByGaps({}, {0, 1'000'000}, 10), 0U);
}

TEST(Figures, SharesOfTime) {
  const std::vector<DeviceFrame> frames{{0, 150, 0, 5}, {200, 250, 0, 20}, {300, 400, 0, 45}, {500, 900, 0, 999}};
  EXPECT_DOUBLE_EQ(waitingShare(frames, {100, 500}), (50 + 50 + 100) / 400.0);
  EXPECT_DOUBLE_EQ(threadShare(frames, {100, 500}), 25 / 100.0);
  EXPECT_EQ(threadShare(frames, {250, 500}), 0) << "one note tells nothing";
  const std::vector<Product> products{{0, 100, 10}, {0, 300, 60}};
  EXPECT_DOUBLE_EQ(threadShare(products, {0, 500}), 0.25);
  EXPECT_EQ(threadShare(std::vector<Product>(), {0, 500}), 0);
}
