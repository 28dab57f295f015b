// SPDX-License-Identifier: Apache-2.0
// The judge's own arithmetic, with engines whose errors are known.
#include "bench/wide/Score.hpp"

#include <cmath>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bench/wide/Report.hpp"

namespace stereo::wide {
namespace {

constexpr unsigned char isMeasured = 0;
constexpr unsigned char isTextureless = 3;

const View coarse{{116, 100}, 180.0, 172.0};

/// Everything at `range` meters, seen by both eyes, one textured thing.
Sample evenSample(float range) {
  Sample sample;
  sample.truth.range = cv::Mat(coarse.size, CV_32FC1, cv::Scalar(range));
  sample.truth.surface = cv::Mat::zeros(coarse.size, CV_32SC1);
  sample.truth.seen = cv::Mat(coarse.size, CV_8UC1, cv::Scalar(255));
  sample.plain = cv::Mat::zeros(coarse.size, CV_8UC1);
  sample.inside = insideOf(sample.truth.surface);
  return sample;
}

Measured measuredAs(const cv::Mat& range) {
  Measured measured;
  measured.range = range.clone();
  return measured;
}

Figures figuresOf(const Sample& sample, const Measured& measured) {
  Score score{Limits{}};
  score.add(sample, measured, coarse);
  return score.figures();
}

int pixelsWithin82Degrees() {
  int columns = 0;
  for (int col = 0; col < coarse.size.width; ++col) {
    columns += std::abs(coarse.longitude(col)) <= 82.0 * CV_PI / 180.0 ? 1 : 0;
  }
  return columns * coarse.size.height;
}

TEST(WideScore, TheTruthIsValidAndRight) {
  const Sample sample = evenSample(2.0F);
  const Figures figures = figuresOf(sample, measuredAs(sample.truth.range));
  EXPECT_EQ(figure(figures, "pixels"), pixelsWithin82Degrees());
  EXPECT_EQ(figure(figures, "valid"), 100.0);
  EXPECT_EQ(figure(figures, "wrong"), 0.0);
  EXPECT_EQ(figure(figures, "median"), 0.0);
  EXPECT_EQ(figure(figures, "bias"), 0.0);
  EXPECT_EQ(figure(figures, "band 1-3 valid"), 100.0);
  EXPECT_TRUE(std::isnan(figure(figures, "band 3-10 valid"))) << "no pixel to count";
  double inRings = 0.0;
  for (const char* const ring : Score::ringNames) {
    inRings += figure(figures, std::string("ring ") + ring + " pixels");
  }
  EXPECT_EQ(inRings, pixelsWithin82Degrees());
}

TEST(WideScore, AFifthTooFarIsAllWrong) {
  const Sample sample = evenSample(2.0F);
  const Figures figures = figuresOf(sample, measuredAs(1.2F * sample.truth.range));
  EXPECT_EQ(figure(figures, "valid"), 100.0);
  EXPECT_EQ(figure(figures, "wrong"), 100.0);
  EXPECT_NEAR(figure(figures, "median"), 20.0, 1e-4);
  EXPECT_NEAR(figure(figures, "bias"), 20.0, 1e-4);
  const Figures nearer = figuresOf(sample, measuredAs(0.95F * sample.truth.range));
  EXPECT_EQ(figure(nearer, "wrong"), 0.0);
  EXPECT_NEAR(figure(nearer, "median"), 5.0, 1e-4);
  EXPECT_NEAR(figure(nearer, "bias"), -5.0, 1e-4);
}

TEST(WideScore, NothingMeasuredIsNothingValid) {
  const Sample sample = evenSample(2.0F);
  const Figures figures = figuresOf(sample, measuredAs(cv::Mat::zeros(coarse.size, CV_32FC1)));
  EXPECT_EQ(figure(figures, "valid"), 0.0);
  EXPECT_TRUE(std::isnan(figure(figures, "wrong")));
}

TEST(WideScore, AQuarterMeasuredAndHalfOfThatWrong) {
  const Sample sample = evenSample(2.0F);
  Measured measured = measuredAs(cv::Mat::zeros(coarse.size, CV_32FC1));
  measured.range.rowRange(0, 50).colRange(0, 58).setTo(2.0);
  measured.range.rowRange(0, 25).colRange(0, 58).setTo(3.0);
  const Figures figures = figuresOf(sample, measured);
  EXPECT_NEAR(figure(figures, "valid"), 25.0, 1e-9);
  EXPECT_NEAR(figure(figures, "wrong"), 50.0, 1e-9);
}

TEST(WideScore, HiddenPixelsCountApart) {
  Sample sample = evenSample(2.0F);
  sample.truth.seen.rowRange(0, 50).setTo(0);
  Measured measured = measuredAs(sample.truth.range);
  measured.range.rowRange(0, 25).setTo(5.0);
  const Figures figures = figuresOf(sample, measured);
  EXPECT_EQ(figure(figures, "pixels"), pixelsWithin82Degrees() / 2);
  EXPECT_EQ(figure(figures, "wrong"), 0.0);
  EXPECT_EQ(figure(figures, "hidden valid"), 100.0);
  EXPECT_NEAR(figure(figures, "hidden wrong"), 50.0, 1e-9);
}

TEST(WideScore, NearThingsReportedTooFarCountWithAndWithoutTheirRim) {
  Sample sample = evenSample(2.0F);
  const cv::Rect thing(40, 30, 20, 10);
  sample.truth.surface(thing).setTo(6);
  sample.truth.range(thing).setTo(0.2);
  sample.inside = insideOf(sample.truth.surface);
  EXPECT_EQ(cv::countNonZero(sample.inside(thing)), 16 * 6);
  // The rim of one pixel is taken for the background.
  Measured measured = measuredAs(sample.truth.range);
  measured.range(thing).setTo(2.0);
  measured.range(cv::Rect(41, 31, 18, 8)).setTo(0.24);
  Figures figures = figuresOf(sample, measured);
  EXPECT_NEAR(figure(figures, "near too far"), 100.0 * (200 - 18 * 8) / 200, 1e-9);
  EXPECT_EQ(figure(figures, "near inside too far"), 0.0);
  // One pixel inside.
  measured.range.at<float>(35, 50) = 0.26F;
  figures = figuresOf(sample, measured);
  EXPECT_NEAR(figure(figures, "near inside too far"), 100.0 / (16 * 6), 1e-9);
  // The same thing nearer than the engine was asked to measure.
  sample.truth.range(thing).setTo(0.07);
  figures = figuresOf(sample, measured);
  EXPECT_EQ(figure(figures, "nearer than nearest too far"), 100.0);
  EXPECT_TRUE(std::isnan(figure(figures, "near too far")));
  measured.range(thing).setTo(0.0);
  EXPECT_EQ(figure(figuresOf(sample, measured), "nearer than nearest too far"), 0.0);
}

TEST(WideScore, RangesThatAreNoNumbersAreWrong) {
  const Sample sample = evenSample(0.2F);
  for (const float range : {std::nanf(""), -1.0F, HUGE_VALF}) {
    const Figures figures = figuresOf(sample, measuredAs(cv::Mat(coarse.size, CV_32FC1, cv::Scalar(range))));
    EXPECT_EQ(figure(figures, "wrong"), 100.0) << range;
    EXPECT_EQ(figure(figures, "near too far"), 100.0) << range;
  }
}

TEST(WideScore, ConfidenceThatSortsHasNoWrongOnesInItsBetterHalf) {
  const Sample sample = evenSample(2.0F);
  Measured measured = measuredAs(sample.truth.range);
  measured.range.rowRange(0, 25).setTo(5.0);
  measured.confidence = cv::Mat(coarse.size, CV_8UC1, cv::Scalar(200));
  measured.confidence.rowRange(0, 50).setTo(100);
  EXPECT_EQ(figure(figuresOf(sample, measured), "wrong in better half"), 0.0);
  measured.confidence = 255 - measured.confidence;
  EXPECT_EQ(figure(figuresOf(sample, measured), "wrong in better half"), 100.0);
  measured.confidence.setTo(77);
  EXPECT_NEAR(figure(figuresOf(sample, measured), "wrong in better half"), 50.0, 1e-9) << "says nothing";
}

TEST(WideScore, StatesCountByWhatIsThere) {
  Sample sample = evenSample(2.0F);
  sample.plain.rowRange(0, 50).setTo(255);
  Measured measured = measuredAs(sample.truth.range);
  measured.state = cv::Mat(coarse.size, CV_8UC1, cv::Scalar(isMeasured));
  measured.state.rowRange(0, 25).setTo(isTextureless);
  const Figures figures = figuresOf(sample, measured);
  EXPECT_NEAR(figure(figures, "plain: textureless"), 50.0, 1e-9);
  EXPECT_NEAR(figure(figures, "plain: measured"), 50.0, 1e-9);
  EXPECT_EQ(figure(figures, "textured: measured"), 100.0);
}

TEST(WideScore, OtherSizesAreRefused) {
  Score score{Limits{}};
  EXPECT_THROW(score.add(evenSample(1.0F), measuredAs(cv::Mat::zeros(10, 10, CV_32FC1)), coarse), std::logic_error);
}

TEST(WideReport, TablesAndJsonHoldTheFigures) {
  const std::vector<Entry> entries = {{"rich", "an \"engine\"", {{"valid", 91.25}, {"wrong", std::nan("")}}}};
  std::ostringstream tables;
  writeTables(tables, entries);
  EXPECT_THAT(tables.str(), testing::HasSubstr("91.2"));
  EXPECT_THAT(tables.str(), testing::Not(testing::HasSubstr("nan")));
  std::ostringstream json;
  writeJson(json, coarse, "tuning", entries);
  EXPECT_THAT(json.str(), testing::HasSubstr(R"("engine": "an \"engine\"")"));
  EXPECT_THAT(json.str(), testing::HasSubstr(R"("valid": 91.25)"));
  EXPECT_THAT(json.str(), testing::HasSubstr(R"("wrong": null)"));
}

}  // namespace
}  // namespace stereo::wide
