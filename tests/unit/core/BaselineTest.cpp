// SPDX-License-Identifier: Apache-2.0
// The plain forms, which everything else is compared with, against figures worked out by hand.
#include <gtest/gtest.h>
#include <opencv2/core.hpp>

#include "bench/baseline/MatRowMul.hpp"
#include "bench/baseline/PlainCapturePass.hpp"
#include "bench/baseline/PlainCloud.hpp"
#include "bench/baseline/PlainDepth.hpp"
#include "bench/baseline/PlainFisheyeMask.hpp"
#include "bench/baseline/PlainRectifyMap.hpp"

using namespace stereo;

namespace {

int blackPixels(const cv::Mat& image) {
  return image.rows * image.cols - cv::countNonZero(image.reshape(1, image.rows * image.cols).col(0));
}

}  // namespace

TEST(Baseline, RowProduct) {
  const cv::Mat m = (cv::Mat_<double>(2, 3) << 1, 2, 3, 4, 5, 6);
  EXPECT_EQ(baseline::MatRowMul(m, 10, 100, 1000, 1), 6540);
}

// To the bit where OpenCV is compiled without fused multiply-add.
TEST(Baseline, InverseAndProductAreOpenCVs) {
  cv::RNG random(31);
  for (int k = 0; k < 5000; ++k) {
    cv::Mat a(3, 3, CV_64FC1);
    cv::Mat b(3, 3, CV_64FC1);
    random.fill(a, cv::RNG::UNIFORM, -2, 2);
    random.fill(b, cv::RNG::UNIFORM, -500, 500);
    const cv::Mat product = a * b;
    // A matrix that is nearly singular loses as many digits.
    const double digits = cv::norm(b) * cv::norm(b.inv());
    const double apart = cv::norm(baseline::inverse(b), b.inv(), cv::NORM_INF);
#if defined(__x86_64__)
    ASSERT_EQ(apart, 0.0);
    ASSERT_EQ(cv::norm(baseline::product(a, b), product, cv::NORM_INF), 0.0);
#else
    ASSERT_LE(apart, 1e-15 * digits * cv::norm(b.inv()));
    ASSERT_LE(cv::norm(baseline::product(a, b), product, cv::NORM_INF), 1e-12);
#endif
    ASSERT_LT(cv::norm(baseline::inverse(b) * b, cv::Mat::eye(3, 3, CV_64F), cv::NORM_INF), 1e-13 * digits);
  }
  EXPECT_EQ(cv::countNonZero(baseline::inverse(cv::Mat::ones(3, 3, CV_64FC1))), 0);
}

TEST(Baseline, MapOfAnEyeOntoItselfIsTheIdentity) {
  const cv::Mat K = (cv::Mat_<double>(3, 3) << 64, 0, 8, 0, 64, 4, 0, 0, 1);
  cv::Mat columns;
  cv::Mat rows;
  EXPECT_TRUE(baseline::initRectifyMap(K, cv::Mat::zeros(1, 4, CV_64F), cv::Mat::eye(3, 3, CV_64F), K, 0, 0, {16, 9}, 2,
                                       columns, rows));
  for (int i = 0; i < 9; ++i) {
    for (int j = 0; j < 16; ++j) {
      EXPECT_NEAR(columns.at<float>(i, j), j, 1e-5);
      EXPECT_NEAR(rows.at<float>(i, j), i, 1e-5);
    }
  }
}

TEST(Baseline, LongitudeLatitudeMapLooksAheadInTheMiddle) {
  // Both angles pi / 2 at column 2 and row 1; a quarter turn further, along the row, the ray (1, 0, 0) meets xi = 2 at
  // x / (z + xi) = 1 / 2.
  const cv::Mat K = (cv::Mat_<double>(3, 3) << 100, 0, 50, 0, 100, 40, 0, 0, 1);
  const double f = 2 / (CV_PI / 2);
  const cv::Mat P = (cv::Mat_<double>(3, 3) << f, 0, 0, 0, f / 2, 0, 0, 0, 1);
  cv::Mat columns;
  cv::Mat rows;
  baseline::initRectifyMap(K, cv::Mat::zeros(1, 4, CV_64F), cv::Mat::eye(3, 3, CV_64F), P, 2, 0, {5, 3}, 1, columns,
                           rows);
  EXPECT_NEAR(columns.at<float>(1, 2), 50, 1e-4);
  EXPECT_NEAR(rows.at<float>(1, 2), 40, 1e-4);
  EXPECT_NEAR(columns.at<float>(1, 4), 100, 1e-4);
  EXPECT_NEAR(rows.at<float>(1, 4), 40, 1e-4);
}

TEST(Baseline, Masks) {
  // Radius 2 round (3, 3): rows 1 to 5 keep 1, 3, 5, 3, 1 pixels of 49.
  cv::Mat first(7, 7, CV_8UC3, cv::Scalar::all(9));
  cv::Mat second(8, 9, CV_8UC3, cv::Scalar::all(9));
  baseline::convertRawFisheyeImage(2, first, second);
  EXPECT_EQ(blackPixels(first), 49 - 13);
  EXPECT_EQ(blackPixels(second), 49 - 13);
  EXPECT_NE(first.at<cv::Vec3b>(3, 1), cv::Vec3b());
  EXPECT_EQ(first.at<cv::Vec3b>(3, 0), cv::Vec3b());
  // Semi-axes 2 round (2, 2): dx^2 + dy^2 > 4 holds for (-2, -2), (-2, -1), (-2, 1), (-1, -2) and (1, -2).
  cv::Mat left(4, 4, CV_8UC3, cv::Scalar::all(9));
  cv::Mat right = left.clone();
  baseline::convertRawFisheyeImage(left, right, 0, 0, 0, 0);
  EXPECT_EQ(blackPixels(left), 5);
  EXPECT_NE(left.at<cv::Vec3b>(0, 2), cv::Vec3b());
  EXPECT_EQ(right.at<cv::Vec3b>(0, 1), cv::Vec3b());
}

TEST(Baseline, CapturePassCutsAtTheMiddle) {
  cv::Mat frame(1, 7, CV_8UC3);
  for (int j = 0; j < 7; ++j) {
    frame.at<cv::Vec3b>(0, j) = cv::Vec3b::all(static_cast<unsigned char>(j + 1));
  }
  baseline::CapturePass pass;
  cv::Mat first;
  cv::Mat second;
  pass.run(frame, 0, first, second);  // radius 0 keeps the middle pixel
  EXPECT_EQ(first.size(), cv::Size(3, 1));
  EXPECT_EQ(first.at<cv::Vec3b>(0, 1), cv::Vec3b::all(2));
  EXPECT_EQ(second.at<cv::Vec3b>(0, 1), cv::Vec3b::all(5));
  EXPECT_EQ(blackPixels(second), 2);
}

TEST(Baseline, PerspectiveDepth) {
  core::DepthModel model;
  model.mode = 2;
  model.f = 200;
  model.b = 0.0625F;  // f b = 12.5
  model.minDepth = 0.25F;
  model.maxDepth = 1.0F;
  const cv::Mat disparity = (cv::Mat_<float>(1, 6) << 50, 25, 12.5, 10, 0.2, 100);
  const float expected[] = {0.25F, 0.5F, 1.0F, 0, -1, 0};
  cv::Mat depth;
  baseline::metricDepth(disparity, model, depth);
  for (int c = 0; c < 6; ++c) {
    EXPECT_EQ(depth.at<float>(0, c), expected[c]) << c;
  }
  // The picture is turned round: near blue (510 wraps to 254), the middle 0.625 m blue and green, far red.
  cv::Mat picture;
  baseline::coloredDepth((cv::Mat_<float>(1, 4) << 50, 20, 12.5, -1), model, picture);
  EXPECT_EQ(picture.at<cv::Vec3b>(0, 3), cv::Vec3b(254, 0, 0));
  EXPECT_EQ(picture.at<cv::Vec3b>(0, 2), cv::Vec3b(255, 255, 0));
  EXPECT_EQ(picture.at<cv::Vec3b>(0, 1), cv::Vec3b(0, 0, 254));
  EXPECT_EQ(picture.at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 0));
}

TEST(Baseline, AngularDepth) {
  // 0.1 sin(pi (20 - 10) / 20) / sin(pi 10 / 20) = 0.1 in column 20.
  core::DepthModel model;
  model.b = 0.1F;
  model.W = 20;
  cv::Mat depth;
  baseline::metricDepth(cv::Mat(1, 21, CV_32FC1, cv::Scalar(10)), model, depth);
  EXPECT_FLOAT_EQ(depth.at<float>(0, 20), 0.1F);
  EXPECT_EQ(depth.at<float>(0, 10), 0);  // at the edge of the field: nearer than the near limit
}

TEST(Baseline, CloudKeepsTheMiddleOfABlock) {
  // Depths 1, 2, 3, 4 at the pixels (1, 1), (1, 3), (3, 1), (3, 3) of (row, column), looked up the other way round:
  // the nearest and the farthest go.
  core::CloudModel model;
  model.mode = 2;
  model.fx = model.fy = 1000;
  model.threshold = 10;
  cv::Mat depth = cv::Mat::zeros(4, 4, CV_32FC1);
  depth.at<float>(1, 1) = 1;
  depth.at<float>(3, 1) = 2;
  depth.at<float>(1, 3) = 3;
  depth.at<float>(3, 3) = 4;
  cv::Mat view(4, 4, CV_8UC3, cv::Scalar::all(0));
  view.at<cv::Vec3b>(1, 3) = {1, 2, 3};
  std::vector<PCL> points;
  baseline::coloredCloud({view, depth, depth}, model, points);
  ASSERT_EQ(points.size(), 2U);
  EXPECT_FLOAT_EQ(points[0].point[0], 0.006F);
  EXPECT_FLOAT_EQ(points[0].point[1], 0.002F);
  EXPECT_EQ(points[0].point[2], 2);
  EXPECT_EQ(points[0].color, cv::Vec3b(1, 2, 3));
  EXPECT_EQ(points[1].point[2], 3);
  // From the disparity instead: 1 mm * 1000 / d meters.
  model.baselineMillimeters = 1;
  std::vector<cv::Vec3f> plain;
  baseline::plainCloud({view, depth, {}}, model, plain);
  ASSERT_EQ(plain.size(), 2U);
  EXPECT_FLOAT_EQ(plain[0][2], 0.5F);
  EXPECT_FLOAT_EQ(plain[1][2], 1 / 3.0F);
}
