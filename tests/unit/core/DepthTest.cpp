// SPDX-License-Identifier: Apache-2.0
#include "src/core/Depth.hpp"

#include <cmath>

#include <gtest/gtest.h>

#include "StereoCamera.hpp"
#include "tests/support/DepthImages.hpp"
#include "tests/support/Images.hpp"

using stereo::core::DepthModel;
using stereo::core::DepthRange;
using stereo::test::depthRange;
using stereo::test::metricDepth;
using stereo::test::paintDepth;
using stereo::test::sameBits;

namespace {

DepthModel depthModel(int mode) {
  DepthModel m;
  m.mode = mode;
  m.b = 0.06F;
  m.f = 232.5;
  m.W = 41;
  m.lonLatFov = 180;
  return m;
}

// The stated precision of each step, for one pixel.
float depthOf(const DepthModel& m, float d, int column) {
  if (m.mode == 2) {
    return static_cast<float>(m.f * static_cast<double>(m.b) / static_cast<double>(d));
  }
  const float width = static_cast<float>(m.W);
  const float a = (static_cast<float>(column) - d) / width;
  const double offset = ((180.0 - m.lonLatFov) / 2.0) / 180.0;
  const float ratio = d / width;
  return static_cast<float>(static_cast<double>(m.b) * std::sin(CV_PI * (static_cast<double>(a) + offset)) /
                            std::sin(CV_PI * static_cast<double>(ratio)));
}

// Disparities of every kind: none, below and above the cut-offs, whole range of the matcher, not finite.
cv::Mat disparities(int seed) {
  cv::Mat d(23, 41, CV_32FC1);
  cv::RNG random(static_cast<std::uint64_t>(seed) + 1);
  random.fill(d, cv::RNG::UNIFORM, -1, 33);
  for (int i = 0; i < 60; ++i) {
    d.at<float>(random.uniform(0, d.rows), random.uniform(0, d.cols)) = static_cast<float>(random.uniform(0.0, 0.1));
  }
  d.at<float>(0, 0) = -1;
  d.at<float>(1, 1) = 0;
  d.at<float>(2, 2) = 0.05F;  // the cut-off itself
  d.at<float>(3, 3) = std::nextafter(0.05F, 1.0F);
  d.at<float>(4, 4) = HUGE_VALF;
  d.at<float>(5, 5) = std::nanf("");
  d.at<float>(6, 6) = 41;  // mode 1: sin(pi)
  return d;
}

}  // namespace

TEST(MetricDepth, IsTheStatedArithmeticToTheBit) {
  for (const int mode : {1, 2}) {
    for (const double field : {180.0, 150.0, 222.0}) {
      DepthModel m = depthModel(mode);
      m.lonLatFov = field;
      const cv::Mat d = disparities(mode);
      const cv::Mat depth = metricDepth(d, m);
      ASSERT_EQ(depth.size(), d.size());
      ASSERT_EQ(depth.type(), CV_32FC1);
      for (int r = 0; r < d.rows; ++r) {
        for (int c = 0; c < d.cols; ++c) {
          const float disparity = d.at<float>(r, c);
          float expected = -1.0F;
          if (disparity > m.minDepth) {
            expected = depthOf(m, disparity, c);
            if (expected > m.maxDepth || expected < m.minDepth) {
              expected = 0;
            }
          }
          EXPECT_TRUE(depth.at<float>(r, c) == expected || (std::isnan(depth.at<float>(r, c)) && std::isnan(expected)))
              << mode << " " << r << "," << c << ": " << disparity;
        }
      }
    }
  }
}

TEST(MetricDepth, LimitsAndCutOff) {
  DepthModel m = depthModel(2);
  m.b = 0.1F;
  m.f = 100;  // depth = 10 / d
  const cv::Mat d = (cv::Mat_<float>(1, 6) << 20.0F, 8.0F, 0.03F, 0.05F, 250.0F, -1.0F);
  const cv::Mat depth = metricDepth(d, m);
  EXPECT_EQ(depth.at<float>(0), 0.5F);   // kept
  EXPECT_EQ(depth.at<float>(1), 0.0F);   // 1.25 m: beyond the far limit
  EXPECT_EQ(depth.at<float>(2), -1.0F);  // disparity not above 0.05
  EXPECT_EQ(depth.at<float>(3), -1.0F);  // 0.05 itself is not above
  EXPECT_EQ(depth.at<float>(4), 0.0F);   // 0.04 m: before the near limit
  EXPECT_EQ(depth.at<float>(5), -1.0F);
}

TEST(MetricDepth, OtherModesAndAnUnbuiltCameraGiveNoDepth) {
  const cv::Mat d(3, 4, CV_32FC1, cv::Scalar(5));
  EXPECT_EQ(cv::countNonZero(metricDepth(d, depthModel(3))), 0);
  DepthModel unbuilt = depthModel(2);
  unbuilt.f = 0;
  EXPECT_EQ(cv::countNonZero(metricDepth(d, unbuilt)), 0);
  EXPECT_TRUE(metricDepth(cv::Mat(), depthModel(1)).empty());
}

TEST(MetricDepth, WorksOnPartsOfImagesAndRefusesOtherTypes) {
  const cv::Mat d = disparities(5);
  const cv::Mat part = d(cv::Rect(3, 2, 30, 15));
  EXPECT_TRUE(sameBits(metricDepth(part, depthModel(1)), metricDepth(part.clone(), depthModel(1))));
  EXPECT_THROW(metricDepth(cv::Mat(3, 3, CV_16SC1), depthModel(1)), cv::Exception);
  EXPECT_THROW(metricDepth(cv::Mat(3, 3, CV_32FC2), depthModel(1)), cv::Exception);
  EXPECT_THROW(paintDepth(cv::Mat(3, 3, CV_64FC1), depthModel(1), {0, 1}), cv::Exception);
  EXPECT_THROW(depthRange(cv::Mat(3, 3, CV_8UC1), depthModel(1)), cv::Exception);
}

TEST(DepthRange, SpansAllDepthsAboveTheCutOffAndIsThenClamped) {
  DepthModel m = depthModel(2);
  m.b = 0.1F;
  m.f = 100;  // depth = 10 / d
  // Depths 0.5, 0.8 and, not above the cut-off, 250.
  const cv::Mat within = (cv::Mat_<float>(1, 3) << 20.0F, 12.5F, 0.04F);
  const DepthRange inside = depthRange(within, m);
  EXPECT_EQ(inside.min, 0.5F);
  EXPECT_EQ(inside.max, 0.8F);
  // Depths 5 and 0.01, both out of limits.
  const DepthRange clamped = depthRange((cv::Mat_<float>(1, 2) << 2.0F, 1000.0F), m);
  EXPECT_EQ(clamped.min, 0.05F);
  EXPECT_EQ(clamped.max, 1.0F);
  // No pixel at all: the start values, of which only the near one is within the limits' reach.
  const DepthRange none = depthRange(cv::Mat(2, 2, CV_32FC1, cv::Scalar(-1)), m);
  EXPECT_EQ(none.max, 0.0F);
  EXPECT_EQ(none.min, 1e11F);
}

TEST(PaintDepth, ColorsEveryDepthWithinLimitsAndTurnsThePicture) {
  for (const int mode : {1, 2}) {
    const DepthModel m = depthModel(mode);
    const cv::Mat d = disparities(mode + 10);
    const DepthRange range = depthRange(d, m);
    const cv::Mat picture = paintDepth(d, m, range);
    ASSERT_EQ(picture.type(), CV_8UC3);
    ASSERT_EQ(picture.size(), d.size());
    int painted = 0;
    for (int r = 0; r < d.rows; ++r) {
      for (int c = 0; c < d.cols; ++c) {
        cv::Vec3b expected(0, 0, 0);
        const float disparity = d.at<float>(r, c);
        if (disparity > 0) {
          const float depth = depthOf(m, disparity, c);
          if (!(depth > m.maxDepth || depth < m.minDepth) && depth > 0) {
            expected = getclolor(range.min, range.max, depth);
            ++painted;
          }
        }
        EXPECT_EQ(picture.at<cv::Vec3b>(d.rows - 1 - r, d.cols - 1 - c), expected) << mode << " " << r << "," << c;
      }
    }
    EXPECT_GT(painted, 10);
  }
}

TEST(PaintDepth, PaintsDisparitiesThatTheMetricDepthCutsOff) {
  DepthModel m = depthModel(2);
  m.b = 0.01F;
  m.f = 1;  // depth = 0.01 / d
  const cv::Mat d = (cv::Mat_<float>(1, 2) << 0.03F, 0.0F);
  EXPECT_EQ(metricDepth(d, m).at<float>(0), -1.0F);
  const cv::Mat picture = paintDepth(d, m, {0.05F, 1.0F});
  EXPECT_NE(picture.at<cv::Vec3b>(0, 1), cv::Vec3b(0, 0, 0));
  EXPECT_EQ(picture.at<cv::Vec3b>(0, 0), cv::Vec3b(0, 0, 0));
}

TEST(BaselineMeters, IsTheNormInMetresRoundedOnce) {
  EXPECT_EQ(stereo::core::baselineMeters((cv::Mat_<double>(3, 1) << -60.1, 1.2, 0.3)),
            static_cast<float>(0.001 * std::sqrt(60.1 * 60.1 + 1.2 * 1.2 + 0.3 * 0.3)));
  EXPECT_EQ(stereo::core::baselineMeters((cv::Mat_<double>(1, 3) << 3, 0, 4)), 0.005F);
  EXPECT_EQ(stereo::core::baselineMeters(cv::Mat()), 0.0F);
}

// Within a few units in the last place where OpenCV is compiled with fused multiply-add.
TEST(BaselineMillimeters, IsOpenCVsNorm) {
  cv::RNG random(21);
  for (int k = 0; k < 20000; ++k) {
    cv::Mat translation = cv::Mat(k % 2 == 0 ? cv::Size(1, 3) : cv::Size(3, 1), CV_64FC1);
    random.fill(translation, cv::RNG::UNIFORM, -100, 100);
    const double norm = cv::norm(translation, cv::NORM_L2);
    const double millimeters = stereo::core::baselineMillimeters(translation);
#if defined(__x86_64__)
    ASSERT_EQ(millimeters, norm);
#else
    ASSERT_LE(std::abs(millimeters - norm), 4 * (std::nextafter(norm, HUGE_VALF) - norm));
#endif
  }
  EXPECT_EQ(stereo::core::baselineMillimeters(cv::Mat()), 0.0);
  EXPECT_EQ(stereo::core::baselineMillimeters((cv::Mat_<float>(1, 3) << 3, 0, 4)), 5.0);
  EXPECT_EQ(stereo::core::baselineMillimeters((cv::Mat_<double>(1, 4) << 1, 1, 1, 1)), 2.0);
}
