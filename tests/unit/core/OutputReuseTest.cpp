// SPDX-License-Identifier: Apache-2.0
#include "src/core/OutputReuse.hpp"

#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "src/core/CapturePass.hpp"
#include "tests/support/Images.hpp"

using stereo::core::copyInto;
using stereo::core::overlap;
using stereo::core::writeInto;
using stereo::test::sameBits;

namespace {

constexpr int before = 9;
constexpr int after = 1;

cv::Mat image(int value, cv::Size size = {6, 4}) { return cv::Mat(size, CV_8UC1, cv::Scalar(value)); }

bool isAll(const cv::Mat& pixels, int value) { return cv::countNonZero(pixels != value) == 0; }

}  // namespace

TEST(CopyInto, WritesIntoAnImageThatNobodyElseSees) {
  cv::Mat output = image(before);
  const unsigned char* const memory = output.data;
  copyInto(image(after), output);
  EXPECT_TRUE(isAll(output, after));
  EXPECT_EQ(output.data, memory);
}

TEST(CopyInto, LeavesPixelsThatAnotherHeaderShows) {
  cv::Mat output = image(before);
  const cv::Mat other = output;
  copyInto(image(after), output);
  EXPECT_TRUE(isAll(output, after));
  EXPECT_TRUE(isAll(other, before));
}

TEST(CopyInto, LeavesPixelsThatAnotherKindOfImageShows) {
  cv::UMat other(4, 6, CV_8UC1, cv::Scalar(before));
  cv::Mat output = other.getMat(cv::ACCESS_RW);
  copyInto(image(after), output);
  EXPECT_TRUE(isAll(output, after));
  output.release();
  EXPECT_TRUE(isAll(other.getMat(cv::ACCESS_READ), before));
}

TEST(CopyInto, LeavesTheCallersOwnMemory) {
  std::vector<unsigned char> memory(24, before);
  cv::Mat output(4, 6, CV_8UC1, memory.data());
  copyInto(image(after), output);
  EXPECT_TRUE(isAll(output, after));
  EXPECT_EQ(memory, std::vector<unsigned char>(24, before));
}

TEST(CopyInto, GivesAnImageInOnePieceWhereThereWasAPartOfALargerOne) {
  cv::Mat output = image(before, {10, 10})(cv::Rect(2, 2, 6, 4));
  copyInto(image(after), output);
  EXPECT_TRUE(isAll(output, after));
  EXPECT_TRUE(output.isContinuous());
}

TEST(CopyInto, EmptiesAndFills) {
  cv::Mat output = image(before);
  copyInto(cv::Mat(), output);
  EXPECT_TRUE(output.empty());
  copyInto(image(after), output);
  EXPECT_TRUE(isAll(output, after));
  copyInto(image(3, {2, 2}), output);
  EXPECT_TRUE(sameBits(output, image(3, {2, 2})));
}

TEST(WriteInto, AnEmptyOutputStaysEmptyWhereTheResultFails) {
  cv::Mat output;
  const auto fails = [](cv::Mat& out) {
    out.create(4, 6, CV_8UC1);
    throw std::runtime_error("no result");
  };
  EXPECT_THROW(writeInto(output, fails), std::runtime_error);
  EXPECT_TRUE(output.empty());
}

TEST(Overlap, IsByMemoryNotByHeader) {
  const cv::Mat whole = image(before, {10, 10});
  EXPECT_TRUE(overlap(whole, whole));
  EXPECT_TRUE(overlap(whole, whole.row(9)));
  EXPECT_FALSE(overlap(whole.rowRange(0, 5), whole.rowRange(5, 10)));
  EXPECT_TRUE(overlap(whole.rowRange(0, 6), whole.rowRange(5, 10)));
  const cv::Mat withoutReference(2, 10, CV_8UC1, whole.data + 80);
  EXPECT_TRUE(overlap(whole, withoutReference));
  EXPECT_FALSE(overlap(whole, image(before)));
  EXPECT_FALSE(overlap(whole, cv::Mat()));
}

// They have no rows to count: what a host passes by mistake must be refused, not crash.
TEST(Overlap, TakesMatricesOfMoreDimensions) {
  const int sizes[] = {2, 3, 4};
  const cv::Mat cube(3, sizes, CV_32FC1, cv::Scalar(before));
  const cv::Mat row(1, 4, CV_32FC1, cube.data + 20 * sizeof(float));
  EXPECT_TRUE(overlap(cube, cube));
  EXPECT_TRUE(overlap(cube, row));
  EXPECT_TRUE(overlap(row, cube));
  EXPECT_FALSE(overlap(cube, cv::Mat(3, sizes, CV_32FC1, cv::Scalar(before))));
}

TEST(CopyInto, LeavesTheFrameThatAHeaderSomebodyKeptShows) {
  cv::Mat published;
  copyInto(image(1), published);
  const unsigned char* const memory = published.data;
  copyInto(image(2), published);
  EXPECT_EQ(published.data, memory);
  const cv::Mat kept = published;
  copyInto(image(3), published);
  EXPECT_TRUE(isAll(kept, 2));
  EXPECT_TRUE(isAll(published, 3));
}

TEST(SplitEyes, AreTheHalvesInImagesOfTheirOwn) {
  cv::Mat frame(3, 7, CV_8UC3);
  cv::RNG random(1);
  random.fill(frame, cv::RNG::UNIFORM, 0, 256);
  cv::Mat left;
  cv::Mat right;
  stereo::core::splitEyes(frame, left, right);
  EXPECT_TRUE(sameBits(left, frame.colRange(0, 3)));
  EXPECT_TRUE(sameBits(right, frame.colRange(3, 6)));  // the odd column is dropped
  EXPECT_FALSE(overlap(left, frame));
  EXPECT_TRUE(left.isContinuous());
}
