// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/RangePicture.hpp"

#include <cmath>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace stereo::app {
namespace {

WideDepthImage image(cv::Size size) {
  WideDepthImage image;
  image.range = cv::Mat::zeros(size, CV_32FC1);
  image.state = cv::Mat(size, CV_8UC1, cv::Scalar(static_cast<int>(RangeState::textureless)));
  image.confidence = cv::Mat::zeros(size, CV_8UC1);
  image.view = cv::Mat(size, CV_8UC3, cv::Scalar(200, 100, 50));
  return image;
}

void measure(WideDepthImage& image, int row, int col, float range) {
  image.range.at<float>(row, col) = range;
  image.state.at<uchar>(row, col) = static_cast<uchar>(RangeState::measured);
}

int valueAt(const std::vector<std::uint8_t>& packed, int index) {
  return packed.at(2 * index) + 256 * packed.at(2 * index + 1);
}

TEST(RangePicture, KeepsTheNearestOfFourPixels) {
  WideDepthImage wide = image({6, 4});
  measure(wide, 0, 0, 2.0F);
  measure(wide, 1, 1, 0.4996F);
  measure(wide, 0, 3, 70.0F);  // more than two bytes hold
  wide.state.at<uchar>(0, 4) = static_cast<uchar>(RangeState::tooFar);
  measure(wide, 3, 0, 0.0004F);
  const std::vector<std::uint8_t> packed = packRange(wide);
  ASSERT_EQ(packed.size(), 2U * 3U * 2U);
  EXPECT_EQ(valueAt(packed, 0), 500);
  EXPECT_EQ(valueAt(packed, 1), packedFarthest);
  EXPECT_EQ(valueAt(packed, 2), packedState + 5);
  EXPECT_EQ(valueAt(packed, 3), 0);  // measured, and nearer than a millimeter
  EXPECT_EQ(valueAt(packed, 4), packedState + 3);
}

TEST(RangePicture, DropsAnOddRowAndColumn) { EXPECT_EQ(packRange(image({7, 5})).size(), 2U * 3U * 2U); }

TEST(RangePicture, CarriesTheLeftEyeInTheSameGeometry) {
  WideDepthImage wide = image({464, 400});
  cv::rectangle(wide.view, {0, 0, 232, 400}, {0, 0, 0}, cv::FILLED);
  JpegEncoder encoder;
  const ViewMessage message = rangeMessage(wide, 42, encoder);
  EXPECT_TRUE(message.isRange);
  EXPECT_EQ(message.view, View::range);
  EXPECT_EQ(message.timestamp, 42);
  EXPECT_EQ(message.size, cv::Size(232, 200));
  ASSERT_EQ(message.payload.size(), 2U * 232U * 200U + message.jpegBytes);
  const std::vector<std::uint8_t> jpeg(message.payload.end() - message.jpegBytes, message.payload.end());
  const cv::Mat decoded = cv::imdecode(jpeg, cv::IMREAD_COLOR);
  ASSERT_EQ(decoded.size(), message.size);
  EXPECT_LT(cv::norm(decoded.at<cv::Vec3b>(100, 50), cv::Vec3b(0, 0, 0)), 12);
  EXPECT_LT(cv::norm(decoded.at<cv::Vec3b>(100, 180), cv::Vec3b(200, 100, 50)), 12);
}

TEST(JpegEncoder, RefusesWhatIsNoColorPicture) {
  JpegEncoder encoder;
  std::vector<std::uint8_t> bytes{1, 2, 3};
  EXPECT_THROW(encoder.append(cv::Mat(), bytes), std::runtime_error);
  EXPECT_THROW(encoder.append(cv::Mat::zeros(4, 4, CV_8UC1), bytes), std::runtime_error);
  EXPECT_EQ(bytes.size(), 3U);
}

}  // namespace
}  // namespace stereo::app
