// SPDX-License-Identifier: Apache-2.0
#include <cmath>
#include <functional>

#include <gtest/gtest.h>

#include "StereoCamera.hpp"
#include "tests/support/Images.hpp"

using stereo::test::noise;
using stereo::test::sameBits;

namespace {

using Keep = std::function<bool(int row, int column)>;

cv::Mat masked(const cv::Mat& image, cv::Size area, const Keep& keep) {
  cv::Mat result = image.clone();
  for (int i = 0; i < area.height; ++i) {
    for (int j = 0; j < area.width; ++j) {
      if (!keep(i, j)) {
        result.at<cv::Vec3b>(i, j) = {0, 0, 0};
      }
    }
  }
  return result;
}

Keep circle(cv::Size size, int radius) {
  return [=](int i, int j) {
    const int d = (size.height >> 1) - i;
    const float rest = static_cast<float>(radius * radius) - static_cast<float>(d * d);
    if (rest < 0) {
      return false;
    }
    const int half = static_cast<int>(std::sqrt(rest));
    return j >= (size.width >> 1) - half && j <= (size.width >> 1) + half;
  };
}

Keep ellipse(cv::Size size, float dry, float drx, float dcx, float dcy) {
  return [=](int i, int j) {
    const float hw = static_cast<float>(size.width >> 1);
    const float hh = static_cast<float>(size.height >> 1);
    const float ry = hh + dry;
    const float rx = hw + drx;
    const float dy = static_cast<float>(i) - (hh + dcy);
    const float dx = static_cast<float>(j) - (hw + dcx);
    const float e = dx * dx / (rx * rx) + dy * dy / (ry * ry);
    return !(e > 1.0);
  };
}

}  // namespace

TEST(CircularMask, KeepsTheStatedSpanOfEveryRow) {
  for (const cv::Size size : {cv::Size(928, 800), cv::Size(464, 400), cv::Size(7, 5), cv::Size(1, 1), cv::Size(1, 9),
                              cv::Size(9, 1), cv::Size(10, 3), cv::Size(33, 64)}) {
    for (const int radius : {0, 1, 2, 5, 17, 232, 464, 700, 1300, -17}) {
      const cv::Mat first = noise(size, radius);
      const cv::Mat second = noise(size, radius + 1);
      cv::Mat a = first.clone();
      cv::Mat b = second.clone();
      EXPECT_EQ(convertRawFisheyeImage(radius, a, b), 0);
      EXPECT_TRUE(sameBits(a, masked(first, size, circle(size, radius)))) << size << " " << radius;
      EXPECT_TRUE(sameBits(b, masked(second, size, circle(size, radius)))) << size << " " << radius;
    }
  }
}

TEST(CircularMask, FullSizeEyeKeepsTheColumnsCountedByHand) {
  cv::Mat first = noise({928, 800}, 1);
  cv::Mat second = noise({928, 800}, 2);
  convertRawFisheyeImage(464, first, second);
  const auto black = [](const cv::Mat& image, int row, int from, int to) {
    return cv::countNonZero(image.row(row).colRange(from, to + 1).reshape(1)) == 0;
  };
  const auto untouched = [](const cv::Mat& image, int row, int from, int to) {
    return cv::countNonZero(image.row(row).colRange(from, to + 1).reshape(1)) == 3 * (to - from + 1);
  };
  for (const cv::Mat& image : {first, second}) {
    EXPECT_TRUE(black(image, 0, 0, 228));
    EXPECT_TRUE(untouched(image, 0, 229, 699));
    EXPECT_TRUE(black(image, 0, 700, 927));
    EXPECT_TRUE(untouched(image, 400, 0, 927));
  }
}

TEST(CircularMask, RadiusZeroKeepsOnePixel) {
  cv::Mat first = noise({7, 6}, 1);
  cv::Mat second = noise({7, 6}, 2);
  const cv::Vec3b kept = first.at<cv::Vec3b>(3, 3);
  convertRawFisheyeImage(0, first, second);
  EXPECT_EQ(first.at<cv::Vec3b>(3, 3), kept);
  EXPECT_EQ(cv::countNonZero(first.reshape(1)), 3);
  EXPECT_EQ(cv::countNonZero(second.reshape(1)), 3);
}

TEST(CircularMask, AnyRadiusBeyondTheHalfDiagonalKeepsEverything) {
  const cv::Mat image = noise({9, 7}, 1);
  for (const int radius : {8, 100, 46341, 65536, 2147483647}) {
    cv::Mat first = image.clone();
    cv::Mat second = image.clone();
    convertRawFisheyeImage(radius, first, second);
    EXPECT_TRUE(sameBits(first, image)) << radius;
    EXPECT_TRUE(sameBits(second, image)) << radius;
  }
}

TEST(CircularMask, WorksInPlaceOnPartsOfImagesAndOnALargerSecond) {
  cv::Mat parent = noise({30, 20}, 3);
  const cv::Mat before = parent.clone();
  cv::Mat first = parent(cv::Rect(5, 4, 11, 9));
  cv::Mat second = noise({15, 12}, 4);
  const cv::Mat secondBefore = second.clone();
  convertRawFisheyeImage(4, first, second);
  cv::Mat expected = before.clone();
  masked(before(cv::Rect(5, 4, 11, 9)), {11, 9}, circle({11, 9}, 4)).copyTo(expected(cv::Rect(5, 4, 11, 9)));
  EXPECT_TRUE(sameBits(parent, expected));
  EXPECT_TRUE(sameBits(second, masked(secondBefore, {11, 9}, circle({11, 9}, 4))));
}

TEST(EllipticalMask, BlackensWhatLiesOutside) {
  for (const cv::Size size : {cv::Size(928, 800), cv::Size(4, 4), cv::Size(7, 5), cv::Size(1, 1), cv::Size(31, 8)}) {
    for (const cv::Vec4f& shift : {cv::Vec4f(0, 0, 0, 0), cv::Vec4f(-1.5F, 2.25F, 0.5F, -3), cv::Vec4f(10, -2, 7, 1)}) {
      const cv::Mat first = noise(size, 1);
      const cv::Mat second = noise(size, 2);
      cv::Mat a = first.clone();
      cv::Mat b = second.clone();
      EXPECT_EQ(convertRawFisheyeImage(a, b, shift[0], shift[1], shift[2], shift[3]), 0);
      const Keep keep = ellipse(size, shift[0], shift[1], shift[2], shift[3]);
      EXPECT_TRUE(sameBits(a, masked(first, size, keep))) << size << " " << shift;
      EXPECT_TRUE(sameBits(b, masked(second, size, keep))) << size << " " << shift;
    }
  }
}

TEST(EllipticalMask, FourByFour) {
  cv::Mat first = noise({4, 4}, 1);
  cv::Mat second = noise({4, 4}, 2);
  convertRawFisheyeImage(first, second, 0, 0, 0, 0);
  EXPECT_EQ(first.at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 0));  // e = 2
  EXPECT_NE(first.at<cv::Vec3b>(0, 2), cv::Vec3b(0, 0, 0));  // e = 1: on the ellipse
  EXPECT_NE(first.at<cv::Vec3b>(2, 2), cv::Vec3b(0, 0, 0));  // the center
  EXPECT_EQ(second.at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 0));
}

TEST(EllipticalMask, TakesItsArgumentsInOrder) {
  // Vertical semi-axis 1 (4 - 3), horizontal 4 + 1, center (5 + 1, 4 - 2): only rows 1 to 3 can survive.
  cv::Mat first = noise({10, 8}, 1);
  cv::Mat second = noise({10, 8}, 2);
  convertRawFisheyeImage(first, second, -3, 0, 1, -2);
  EXPECT_NE(first.at<cv::Vec3b>(1, 6), cv::Vec3b(0, 0, 0));
  EXPECT_NE(first.at<cv::Vec3b>(3, 6), cv::Vec3b(0, 0, 0));
  EXPECT_NE(first.at<cv::Vec3b>(2, 1), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(first.at<cv::Vec3b>(2, 0), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(first.at<cv::Vec3b>(4, 6), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(first.at<cv::Vec3b>(0, 6), cv::Vec3b(0, 0, 0));
}

TEST(Masks, RefuseImagesThatTheyWouldMisreadOrLeave) {
  cv::Mat image = noise({6, 6}, 1);
  cv::Mat gray(6, 6, CV_8UC1);
  cv::Mat small = noise({5, 6}, 1);
  cv::Mat low = noise({6, 5}, 1);
  cv::Mat none;
  EXPECT_THROW(convertRawFisheyeImage(1, gray, image), cv::Exception);
  EXPECT_THROW(convertRawFisheyeImage(1, image, gray), cv::Exception);
  EXPECT_THROW(convertRawFisheyeImage(1, image, small), cv::Exception);
  EXPECT_THROW(convertRawFisheyeImage(1, image, low), cv::Exception);
  EXPECT_THROW(convertRawFisheyeImage(1, image, none), cv::Exception);
  EXPECT_THROW(convertRawFisheyeImage(image, small, 0, 0, 0, 0), cv::Exception);
  EXPECT_EQ(convertRawFisheyeImage(1, none, none), 0);
}
