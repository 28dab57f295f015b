// SPDX-License-Identifier: Apache-2.0
#include "src/core/Numbers.hpp"

#include <limits>

#include <gtest/gtest.h>

using stereo::core::numberAt;
using stereo::core::scalarOf;
using stereo::core::toInt;

TEST(ToInt, TruncatesTowardZero) {
  EXPECT_EQ(toInt(12345.9), 12345);
  EXPECT_EQ(toInt(-3.7), -3);
  EXPECT_EQ(toInt(-0.9), 0);
}

TEST(ToInt, ClampsWhatDoesNotFitAndTakesNotANumberForZero) {
  constexpr int lowest = std::numeric_limits<int>::min();
  constexpr int highest = std::numeric_limits<int>::max();
  EXPECT_EQ(toInt(1e300), highest);
  EXPECT_EQ(toInt(-1e300), lowest);
  EXPECT_EQ(toInt(std::numeric_limits<double>::infinity()), highest);
  EXPECT_EQ(toInt(-std::numeric_limits<double>::infinity()), lowest);
  EXPECT_EQ(toInt(2147483647.0), highest);
  EXPECT_EQ(toInt(2147483646.5), highest - 1);
  EXPECT_EQ(toInt(-2147483648.0), lowest);
  EXPECT_EQ(toInt(std::numeric_limits<double>::quiet_NaN()), 0);
}

TEST(NumberAt, ConvertsEveryElementType) {
  for (const int depth : {CV_8U, CV_8S, CV_16U, CV_16S, CV_32S, CV_32F, CV_64F, CV_16F}) {
    const cv::Mat numbers = (cv::Mat_<double>(1, 2) << 7, 9);
    cv::Mat matrix;
    numbers.convertTo(matrix, depth);
    EXPECT_EQ(numberAt(matrix, 0), 7.0) << depth;
    EXPECT_EQ(numberAt(matrix, 1), 9.0) << depth;
  }
}

TEST(NumberAt, RefusesElementsThatAreNotThere) {
  const cv::Mat row = (cv::Mat_<double>(1, 1) << 1);
  EXPECT_THROW(numberAt(row, 1), cv::Exception);
  EXPECT_THROW(numberAt(row, -1), cv::Exception);
  EXPECT_THROW(numberAt(cv::Mat(), 0), cv::Exception);
  const cv::Mat column = (cv::Mat_<double>(2, 1) << 1, 2);
  EXPECT_THROW(numberAt(column, 1), cv::Exception);
  const int sizes[] = {2, 2, 2};
  EXPECT_THROW(numberAt(cv::Mat(3, sizes, CV_64F), 0), cv::Exception);
}

TEST(ScalarOf, WantsOneDouble) {
  EXPECT_EQ(scalarOf((cv::Mat_<double>(1, 1) << 1.5)), 1.5);
  EXPECT_THROW(scalarOf(cv::Mat()), cv::Exception);
  EXPECT_THROW(scalarOf((cv::Mat_<float>(1, 1) << 1.5F)), cv::Exception);
  EXPECT_THROW(scalarOf(cv::Mat(1, 1, CV_64FC2)), cv::Exception);
}
