// SPDX-License-Identifier: Apache-2.0
// Clouds of wide depth, and their files.
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

#include "tests/support/TempDir.hpp"
#include "tests/unit/depth/SimulatedEyes.hpp"

using namespace stereo;

namespace {

// Two pixels are measured.
struct Clouds : testing::Test {
  Clouds() : depth(test::SimulatedEyes().calibration(), test::eyeSize, test::smallView()) {
    const cv::Size size = test::smallView().size;
    image.range = cv::Mat::zeros(size, CV_32FC1);
    image.state = cv::Mat(size, CV_8UC1, cv::Scalar(1));
    image.confidence = cv::Mat::zeros(size, CV_8UC1);
    image.view = cv::Mat::zeros(size, CV_8UC3);
    set({50, 20}, 2.0F, 200, {1, 2, 3});
    set({120, 150}, 0.5F, 90, {4, 5, 6});
  }

  void set(cv::Point pixel, float range, int confidence, const cv::Vec3b& color) {
    image.range.at<float>(pixel) = range;
    image.state.at<unsigned char>(pixel) = 0;
    image.confidence.at<unsigned char>(pixel) = static_cast<unsigned char>(confidence);
    image.view.at<cv::Vec3b>(pixel) = color;
  }

  WideDepth depth;
  WideDepthImage image;
};

}  // namespace

TEST_F(Clouds, TheOrganizedCloudHasThePointsAtTheirPixels) {
  cv::Mat cloud;
  depth.organizedCloud(image, cloud);
  ASSERT_EQ(cloud.type(), CV_32FC3);
  ASSERT_EQ(cloud.size(), image.range.size());
  int points = 0;
  for (int row = 0; row < cloud.rows; ++row) {
    for (int column = 0; column < cloud.cols; ++column) {
      points += std::isnan(cloud.at<cv::Vec3f>(row, column)[0]) ? 0 : 1;
    }
  }
  EXPECT_EQ(points, 2);
  // 160 degrees over 232 columns, 140 over 200 rows.
  const double longitude = (50.5 - 116) * 160 / 232 * CV_PI / 180;
  const double latitude = (20.5 - 100) * 140 / 200 * CV_PI / 180;
  const cv::Vec3f point = cloud.at<cv::Vec3f>(20, 50);
  EXPECT_NEAR(point[0], 2 * std::sin(longitude), 1e-5);
  EXPECT_NEAR(point[1], 2 * std::cos(longitude) * std::sin(latitude), 1e-5);
  EXPECT_NEAR(point[2], 2 * std::cos(longitude) * std::cos(latitude), 1e-5);
}

TEST_F(Clouds, ACloudThatIsSharedIsReplaced) {
  cv::Mat cloud;
  depth.organizedCloud(image, cloud);
  const cv::Mat kept = cloud;
  const unsigned char* const pixels = cloud.data;
  depth.organizedCloud(image, cloud);
  EXPECT_NE(cloud.data, pixels);
  EXPECT_EQ(kept.data, pixels);
}

TEST_F(Clouds, PointsHaveColorAndConfidence) {
  std::vector<WidePoint> points(7);
  depth.points(image, points);
  ASSERT_EQ(points.size(), 2U);
  EXPECT_NEAR(cv::norm(points[0].point), 2.0, 1e-5);
  EXPECT_EQ(points[0].color, cv::Vec3b(1, 2, 3));
  EXPECT_EQ(points[0].confidence, 200);
  EXPECT_NEAR(cv::norm(points[1].point), 0.5, 1e-5);
  depth.points(image, points, 91);
  ASSERT_EQ(points.size(), 1U);
  EXPECT_EQ(points[0].confidence, 200);
}

TEST_F(Clouds, ImagesOfAnotherSizeOrTypeAreRefused) {
  cv::Mat cloud;
  std::vector<WidePoint> points;
  WideDepthImage other = image;
  other.range = cv::Mat::zeros(10, 10, CV_32FC1);
  EXPECT_THROW(depth.organizedCloud(other, cloud), cv::Exception);
  EXPECT_THROW(depth.points(other, points), cv::Exception);
  other = image;
  other.range.convertTo(other.range, CV_64F);
  EXPECT_THROW(depth.organizedCloud(other, cloud), cv::Exception);
  other = image;
  other.view = cv::Mat();
  EXPECT_THROW(depth.points(other, points), cv::Exception);
  EXPECT_THROW(depth.points(WideDepthImage(), points), cv::Exception);
}

TEST_F(Clouds, APlyFileHasAHeaderAndSixteenBytesAPoint) {
  const test::TempDir folder;
  const std::string path = folder.path("cloud.ply");
  std::vector<WidePoint> points;
  depth.points(image, points);
  points[0].point = {1.5F, -2.25F, 3.0F};
  writePly(path, points);
  std::ifstream in(path, std::ios::binary);
  const std::string text((std::istreambuf_iterator<char>(in)), {});
  const std::string end = "end_header\n";
  const std::size_t body = text.find(end) + end.size();
  EXPECT_EQ(text.rfind("ply\nformat binary_little_endian 1.0\nelement vertex 2\n", 0), 0U);
  ASSERT_EQ(text.size(), body + 32);
  const char x[] = {0, 0, '\xc0', '\x3f'};  // 1.5
  EXPECT_EQ(text.compare(body, 4, x, 4), 0);
  const char y[] = {0, 0, '\x10', '\xc0'};  // -2.25
  EXPECT_EQ(text.compare(body + 4, 4, y, 4), 0);
  const char rest[] = {3, 2, 1, '\xc8'};  // red, green, blue, confidence
  EXPECT_EQ(text.compare(body + 12, 4, rest, 4), 0);
}

TEST(WideDepthPly, AFileThatCannotBeWrittenIsAnError) {
  EXPECT_THROW(writePly("/nowhere/at/all.ply", {}), cv::Exception);
}
