// SPDX-License-Identifier: Apache-2.0
#include "src/core/ColorMap.hpp"

#include <cmath>

#include <gtest/gtest.h>

#include "StereoCamera.hpp"

namespace {

// The low byte of a number that an int holds, by arithmetic instead of bits.
int wrapped(double value) {
  const auto whole = static_cast<long long>(value);
  return static_cast<int>(((whole % 256) + 256) % 256);
}

const float notANumber = std::nanf("");

}  // namespace

TEST(LowByte, WrapsLikeA32BitIntegerAndIsZeroWhereThereIsNone) {
  using stereo::core::lowByte;
  EXPECT_EQ(lowByte(0.0), 0);
  EXPECT_EQ(lowByte(255.9), 255);
  EXPECT_EQ(lowByte(256.0), 0);
  EXPECT_EQ(lowByte(510.0), 254);
  EXPECT_EQ(lowByte(-1.0), 255);
  EXPECT_EQ(lowByte(-0.9), 0);
  EXPECT_EQ(lowByte(-255.0), 1);
  EXPECT_EQ(lowByte(2147483647.0), 255);
  EXPECT_EQ(lowByte(-2147483648.0), 0);
  EXPECT_EQ(lowByte(2147483648.0), 0);
  EXPECT_EQ(lowByte(1e300), 0);
  EXPECT_EQ(lowByte(-HUGE_VALF), 0);
  EXPECT_EQ(lowByte(notANumber), 0);
}

TEST(Getclolor, EndsAndMiddleOfTheScale) {
  EXPECT_EQ(getclolor(0.05F, 1.0F, 0.05F), cv::Vec3b(254, 0, 0));
  EXPECT_EQ(getclolor(0.05F, 1.0F, 0.525F), cv::Vec3b(255, 255, 0));
  EXPECT_EQ(getclolor(0.05F, 1.0F, 1.0F), cv::Vec3b(0, 0, 254));
}

TEST(Getclolor, IsTheStatedArithmeticOverAGrid) {
  for (const auto& [lo, hi] : {std::pair(0.05F, 1.0F), std::pair(0.0F, 3.0F), std::pair(0.2F, 0.21F),
                               std::pair(-4.0F, 5.0F), std::pair(1.0F, 0.5F)}) {
    for (int step = -20; step <= 120; ++step) {
      const float v = lo + (hi - lo) * static_cast<float>(step) / 100;
      const float mid = lo + (hi - lo) / 2;
      const float below = mid - lo;
      const float above = hi - mid;
      const bool lower = v <= mid;
      const float B = lower ? 255 * ((hi - v) / below) : 0.0F;
      const float G = lower ? 255 * ((v - lo) / below) : 255 * ((hi - v) / above);
      const float R = lower ? 0.0F : 255 * ((v - lo) / above);
      const cv::Vec3b color = getclolor(lo, hi, v);
      EXPECT_EQ(color[0], wrapped(std::round(B))) << lo << " " << hi << " " << v;
      EXPECT_EQ(color[1], wrapped(std::round(G))) << lo << " " << hi << " " << v;
      EXPECT_EQ(color[2], wrapped(std::round(R))) << lo << " " << hi << " " << v;
    }
  }
}

TEST(Getclolor, AZeroRangeAndNotANumberGiveSomeColorWithoutHarm) {
  EXPECT_EQ(getclolor(1.0F, 1.0F, 1.0F), cv::Vec3b(0, 0, 0));  // 0 / 0 in every channel
  EXPECT_EQ(getclolor(1.0F, 1.0F, 2.0F), cv::Vec3b(0, 0, 0));  // infinite
  EXPECT_EQ(getclolor(0.0F, 1.0F, notANumber), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(getclolor(0.0F, HUGE_VALF, 1.0F)[2], 0);
}

TEST(SegmentValues, AreTheStatedFormulasOverAGrid) {
  for (const auto& [lo, hi] : {std::pair(0.0F, 1.0F), std::pair(0.05F, 1.0F), std::pair(-2.0F, 6.0F)}) {
    for (int step = -60; step <= 260; ++step) {
      const float v = lo + (hi - lo) * static_cast<float>(step) / 128;
      const float half = (hi - lo) / 2;
      const float range = hi - lo;
      const float x = v - lo;
      const double h = half;
      const double blue = x >= half || x < 0 ? 0.0 : 255.0 + (-255.0 * x) / h;
      double green = 0.0;
      if (x > 0 && x <= half) {
        green = (-255.0 * x) / h;
      } else if (x > half && x < range) {
        green = (-255.0 * x) / (h - range) - (255.0 * range) / (h - range);
      }
      const double red = x < half ? 0.0 : (255.0 * x) / (range - h) + (255.0 * half) / (range - h);
      EXPECT_EQ(getBlueSegVal(lo, hi, v), wrapped(blue)) << lo << " " << hi << " " << v;
      EXPECT_EQ(getGreenSegVal(lo, hi, v), wrapped(green)) << lo << " " << hi << " " << v;
      EXPECT_EQ(getRedSegVal(lo, hi, v), wrapped(red)) << lo << " " << hi << " " << v;
    }
  }
}

// Values worked out by hand on the scale from 0 to 2: half 1, range 2.
TEST(SegmentValues, ByHand) {
  EXPECT_EQ(getBlueSegVal(0, 2, 0), 255);
  EXPECT_EQ(getBlueSegVal(0, 2, 0.5F), 127);  // 127.5 truncated
  EXPECT_EQ(getBlueSegVal(0, 2, 1), 0);
  EXPECT_EQ(getBlueSegVal(0, 2, -0.1F), 0);
  EXPECT_EQ(getGreenSegVal(0, 2, 0), 0);
  EXPECT_EQ(getGreenSegVal(0, 2, 0.5F), 129);  // -127 wraps
  EXPECT_EQ(getGreenSegVal(0, 2, 1), 1);       // -255 wraps
  EXPECT_EQ(getGreenSegVal(0, 2, 1.5F), 124);  // (-382.5 - 510) / -1 = 892.5
  EXPECT_EQ(getGreenSegVal(0, 2, 2), 0);
  EXPECT_EQ(getRedSegVal(0, 2, 0.99F), 0);
  EXPECT_EQ(getRedSegVal(0, 2, 1), 254);  // 510 wraps
  EXPECT_EQ(getRedSegVal(0, 2, 4), 251);  // 1275: no upper bound
  EXPECT_EQ(getRedSegVal(0, 2, notANumber), 0);
}
