// SPDX-License-Identifier: Apache-2.0
// That the soak's checks let pass what is right and notice what is wrong, each in its way.
#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/campaigns/soak/Checks.hpp"
#include "tests/campaigns/soak/ExpectedImages.hpp"
#include "tests/campaigns/soak/Ledger.hpp"
#include "tests/campaigns/soak/NumberedDevice.hpp"
#include "tests/campaigns/soak/Numbering.hpp"

using std::chrono::microseconds;
using stereo::soak::Checks;
using stereo::soak::differenceOfEye;
using stereo::soak::drawNumber;
using stereo::soak::ExpectedDepth;
using stereo::soak::ExpectedImages;
using stereo::soak::Ledger;
using stereo::soak::now;
using stereo::soak::numberIn;
using stereo::soak::Picture;
using stereo::soak::Setting;
using testing::HasSubstr;

namespace {

const ExpectedImages& book() {
  static const ExpectedImages made({928, 400}, [] {
    Setting setting;
    setting.pictures = 3;
    setting.rectSize = {160, 144};
    return setting;
  }());
  return made;
}

constexpr int depthMode = 2;
constexpr int algorithm = 1;

const ExpectedDepth& depthOf(std::uint32_t number) { return book().of(number).depth[depthMode - 1][algorithm]; }

// An eye as the camera hands it over.
cv::Mat drawnEye(std::uint32_t number, int eye) {
  cv::Mat image = book().of(number).eye[eye].clone();
  drawNumber(image, number);
  return image;
}

cv::Mat withOtherPixel(const cv::Mat& image) {
  cv::Mat changed = image.clone();
  changed.ptr(changed.rows / 2, changed.cols / 2)[0] ^= 1;
  return changed;
}

// Frames of one microsecond could not be told apart.
void awaitTick() {
  for (const microseconds begin = now(); now() <= begin;) {
  }
}

// Frames 1 to 12, the first ten being the warm-up, 11 and 12 published.
class SoakChecks : public testing::Test {
protected:
  SoakChecks() {
    for (std::uint32_t number = 1; number <= 12; ++number) {
      ledger.asked();
      awaitTick();
      ledger.delivered(number, number <= 10);
      timestamps[number] = now();
      awaitTick();
    }
  }

  Ledger ledger;
  microseconds timestamps[13]{};
  const Checks checks{book(), ledger, depthMode, algorithm};
};

}  // namespace

TEST(SoakNumbering, EveryRowTellsTheNumber) {
  for (const std::uint32_t number : {0U, 1U, 77U, 0x80000001U, 0xFFFFFFFFU}) {
    const cv::Mat eye = drawnEye(number, 1);
    for (int row = 0; row < eye.rows; ++row) {
      ASSERT_EQ(numberIn(eye, row), number) << row;
    }
    EXPECT_EQ(differenceOfEye(book().of(number).eye[1], number, eye), "");
  }
}

TEST(SoakNumbering, EverySinglePixelCounts) {
  const cv::Mat eye = drawnEye(5, 0);
  for (const int row : {0, eye.rows / 2, eye.rows - 1}) {
    for (const int column : {0, stereo::soak::numberColumn(eye.size(), row), eye.cols / 2, eye.cols - 1}) {
      cv::Mat changed = eye.clone();
      changed.ptr(row, column)[2] ^= 1;
      EXPECT_THAT(differenceOfEye(book().of(5).eye[0], 5, changed), HasSubstr("row " + std::to_string(row) + " is"));
    }
  }
}

TEST_F(SoakChecks, LetPassWhatIsRight) {
  const Picture& picture = book().of(12);
  ledger.matched(timestamps[11]);
  ledger.matched(timestamps[12]);
  EXPECT_EQ(checks.timestamp(timestamps[12], timestamps[11], timestamps[11], false), "");
  EXPECT_EQ(checks.timestamp(timestamps[12], timestamps[12], timestamps[12], true), "");
  EXPECT_EQ(checks.eyes(drawnEye(12, 0), drawnEye(12, 1), timestamps[12]), "");
  cv::Mat joined;
  cv::hconcat(drawnEye(12, 0), drawnEye(12, 1), joined);
  EXPECT_EQ(checks.joinedEyes(joined, timestamps[12]), "");
  EXPECT_EQ(checks.perspectivePair(picture.perspective[0], picture.perspective[1], timestamps[12]), "");
  EXPECT_EQ(checks.depthPair(picture.perspective[0], picture.perspective[1], picture.perspective[0], timestamps[12]),
            "");
  const Checks angular(book(), ledger, 1, algorithm);
  EXPECT_EQ(angular.depthPair(picture.lonLat[0], picture.lonLat[1], picture.perspective[0], timestamps[12]), "");
  EXPECT_EQ(checks.disparity(picture.perspective[0], depthOf(12).disparity, depthOf(12).metric, timestamps[12]), "");
  EXPECT_EQ(checks.coloredDepth(depthOf(11).colored, timestamps[11], timestamps[12]), "");
  EXPECT_EQ(checks.coloredDepth(depthOf(12).colored, timestamps[11], timestamps[12]), "");
  EXPECT_EQ(checks.cloud(depthOf(12).plainCloud, timestamps[11], timestamps[12]), "");
  EXPECT_EQ(checks.cloud(depthOf(12).coloredCloud, timestamps[11], timestamps[12]), "");
  EXPECT_GT(checks.made(), 0U);
}

TEST_F(SoakChecks, NoticeStampsOfNoFrameOldOnesAndOnesThatGoBack) {
  EXPECT_THAT(checks.timestamp(microseconds(0), microseconds(0), microseconds(0), false),
              HasSubstr("no published frame"));
  EXPECT_THAT(checks.timestamp(timestamps[10], microseconds(0), microseconds(0), false),
              HasSubstr("no published frame"));
  ledger.asked();
  EXPECT_THAT(checks.timestamp(now() + microseconds(10), microseconds(0), microseconds(0), false),
              HasSubstr("no published frame"));
  EXPECT_THAT(checks.timestamp(timestamps[11], timestamps[11] + microseconds(1), microseconds(0), false),
              HasSubstr("before the read"));
  EXPECT_THAT(checks.timestamp(timestamps[11], microseconds(0), timestamps[12], true), HasSubstr("no newer"));
  EXPECT_THAT(checks.timestamp(timestamps[12], microseconds(0), timestamps[12], false), HasSubstr("no newer"));
}

TEST_F(SoakChecks, NoticeTornSwappedAndForeignEyes) {
  const cv::Mat left = drawnEye(12, 0);
  const cv::Mat right = drawnEye(12, 1);
  cv::Mat torn = left.clone();
  const cv::Range lowerHalf(torn.rows / 2, torn.rows);
  drawnEye(11, 0).rowRange(lowerHalf).copyTo(torn.rowRange(lowerHalf));
  EXPECT_THAT(checks.eyes(torn, right, timestamps[12]), HasSubstr("is frame 11's, not frame 12's"));
  EXPECT_THAT(checks.eyes(left, drawnEye(11, 1), timestamps[12]), HasSubstr("right eye: row 0 is frame 11's"));
  EXPECT_THAT(checks.eyes(right, left, timestamps[12]), HasSubstr("left eye"));
  EXPECT_THAT(checks.eyes(left, right, timestamps[11]), HasSubstr("is frame 12's, not frame 11's"));
  EXPECT_THAT(checks.eyes(left, right, timestamps[3]), HasSubstr("no published frame"));
  EXPECT_THAT(checks.eyes(cv::Mat(), right, timestamps[12]), HasSubstr("size"));
  cv::Mat joined;
  cv::hconcat(right, left, joined);
  EXPECT_NE(checks.joinedEyes(joined, timestamps[12]), "");
  // The same picture again, but another frame: the number alone tells.
  EXPECT_THAT(checks.eyes(drawnEye(15, 0), right, timestamps[12]), HasSubstr("is frame 15's"));
}

TEST_F(SoakChecks, NoticeWrongViewsDisparitiesAndDepths) {
  const Picture& picture = book().of(12);
  const cv::Mat(&pair)[2] = picture.perspective;
  EXPECT_THAT(checks.perspectivePair(withOtherPixel(pair[0]), pair[1], timestamps[12]), HasSubstr("left view"));
  EXPECT_THAT(checks.perspectivePair(pair[0], withOtherPixel(pair[1]), timestamps[12]), HasSubstr("right view"));
  EXPECT_NE(checks.perspectivePair(pair[0], pair[1], timestamps[11]), "");
  EXPECT_THAT(checks.depthPair(picture.lonLat[0], pair[1], pair[0], timestamps[12]), HasSubstr("left view"));
  EXPECT_THAT(checks.depthPair(pair[0], picture.lonLat[1], pair[0], timestamps[12]), HasSubstr("right view"));
  EXPECT_THAT(checks.depthPair(pair[0], pair[1], withOtherPixel(pair[0]), timestamps[12]), HasSubstr("third view"));
  const ExpectedDepth& depth = depthOf(12);
  EXPECT_THAT(checks.disparity(book().of(11).perspective[0], depth.disparity, depth.metric, timestamps[12]),
              HasSubstr("view is not"));
  EXPECT_THAT(checks.disparity(pair[0], withOtherPixel(depth.disparity), depth.metric, timestamps[12]),
              HasSubstr("disparity is not"));
  EXPECT_THAT(checks.disparity(pair[0], depth.disparity, withOtherPixel(depth.metric), timestamps[12]),
              HasSubstr("metric depth is not"));
}

TEST_F(SoakChecks, NoticeDepthsAndCloudsOfNoDisparityInBetween) {
  EXPECT_THAT(checks.coloredDepth(depthOf(12).colored, timestamps[11], timestamps[12]), HasSubstr("there are none"));
  ledger.matched(timestamps[11]);
  EXPECT_THAT(checks.coloredDepth(depthOf(12).colored, timestamps[11], timestamps[12]),
              HasSubstr("possible frames' 11"));
  EXPECT_THAT(checks.coloredDepth(withOtherPixel(depthOf(11).colored), timestamps[11], timestamps[12]),
              HasSubstr("none of"));
  // A cloud is made of a disparity to come: the one that was there when the read began is none of these.
  EXPECT_THAT(checks.cloud(depthOf(11).plainCloud, timestamps[11], timestamps[12]), HasSubstr("there are none"));
  ledger.matched(timestamps[12]);
  std::vector<cv::Vec3f> points = depthOf(12).plainCloud;
  std::vector<PCL> coloredPoints = depthOf(12).coloredCloud;
  ASSERT_FALSE(points.empty());
  ASSERT_FALSE(coloredPoints.empty());
  points.back()[2] += 1;
  EXPECT_THAT(checks.cloud(points, timestamps[11], timestamps[12]), HasSubstr("a cloud that is none"));
  coloredPoints.front().color[1] ^= 1;
  EXPECT_THAT(checks.cloud(coloredPoints, timestamps[11], timestamps[12]), HasSubstr("a coloured cloud that is none"));
  coloredPoints.clear();
  EXPECT_NE(checks.cloud(coloredPoints, timestamps[11], timestamps[12]), "");
}

TEST(SoakDevice, DeliversWholeNumberedFramesAndTornOnesWhenAsked) {
  for (const bool tears : {false, true}) {
    Ledger ledger;
    std::atomic<std::uint32_t> newest{100};
    stereo::soak::NumberedDevice device(book(), ledger, newest, tears);
    int torn = 0;
    for (std::uint32_t number = 101; number <= 220; ++number) {
      cv::Mat frame;
      ASSERT_TRUE(device.read(frame));
      ASSERT_EQ(newest, number);
      ASSERT_EQ(numberIn(frame.colRange(0, frame.cols / 2), 0), number);
      const cv::Mat right = frame.colRange(frame.cols / 2, frame.cols);
      torn += numberIn(right, frame.rows - 1) == number ? 0 : 1;
    }
    EXPECT_EQ(torn, tears ? 2 : 0);
    EXPECT_EQ(ledger.frames(), 110U);
  }
}

TEST(SoakLedger, ForgetsTheOldestOnly) {
  Ledger ledger;
  constexpr std::uint32_t frames = 20'000;  // more than are kept
  constexpr std::uint32_t within = 4'000;   // is among those
  microseconds first{0};
  microseconds kept{0};
  for (std::uint32_t number = 1; number <= frames; ++number) {
    ledger.asked();
    awaitTick();
    ledger.delivered(number, false);
    first = number == 1 ? now() : first;
    kept = number == within ? now() : kept;
    ledger.matched(now());
    if (number == 1) {
      ASSERT_TRUE(ledger.published(first));
      EXPECT_EQ(ledger.published(first)->number, 1U);
    }
    awaitTick();
  }
  EXPECT_EQ(ledger.frames(), frames);
  ASSERT_TRUE(ledger.published(now()));
  EXPECT_EQ(ledger.published(now())->number, frames);
  ASSERT_TRUE(ledger.published(kept));
  EXPECT_EQ(ledger.published(kept)->number, within);
  EXPECT_FALSE(ledger.published(first));
}
