// SPDX-License-Identifier: Apache-2.0
#include "src/core/Cloud.hpp"

#include <cmath>
#include <functional>

#include <gtest/gtest.h>

using stereo::core::CloudForm;
using stereo::core::CloudImages;
using stereo::core::CloudModel;
using stereo::core::CloudPoint;
using stereo::core::sampleCloud;
using stereo::core::SampledCloud;

namespace {

CloudModel cloudModel(int mode) {
  CloudModel m;
  m.mode = mode;
  m.fx = 30.25;
  m.fy = 30.25;
  m.cx = 19.5;
  m.cy = 17.5;
  m.baselineMillimeters = 60.5;
  m.xi = 1.37;
  m.threshold = 14;
  return m;
}

// Square, so that transposed look-ups stay inside; about a quarter of the pixels without a depth.
CloudImages images(int seed, cv::Size viewSize = {40, 40}, cv::Size disparitySize = {40, 40}) {
  CloudImages result{cv::Mat(viewSize, CV_8UC3), cv::Mat(disparitySize, CV_32FC1), cv::Mat(disparitySize, CV_32FC1)};
  cv::RNG random(static_cast<std::uint64_t>(seed) + 1);
  random.fill(result.view, cv::RNG::UNIFORM, 0, 256);
  random.fill(result.disparity, cv::RNG::UNIFORM, -8, 32);
  random.fill(result.depth, cv::RNG::UNIFORM, -0.3, 1.0);
  return result;
}

struct Sample {
  double key;
  cv::Vec3f point;
  int row, col;
};

// The stated sampling, written out without any of the library's helpers: `lookUp` is false where a look-up leaves an
// image.
std::vector<Sample> expectedCloud(const CloudImages& in, const CloudModel& m, bool colored) {
  std::vector<Sample> cloud;
  const bool border = colored && m.mode == 1;
  const int startRow = border ? static_cast<int>(0.05 * in.view.rows) : 0;
  const int startCol = border ? static_cast<int>(0.05 * in.view.cols) : 0;
  const double endRow = border ? 0.95 * in.view.rows : in.view.rows;
  const double endCol = border ? 0.95 * in.view.cols : in.view.cols;
  const auto inside = [](const cv::Mat& image, double row, double col) {
    return row >= 0 && col >= 0 && row < image.rows && col < image.cols;
  };
  for (int r0 = startRow; r0 < endRow; r0 += 4) {
    for (int c0 = startCol; c0 < endCol; c0 += 4) {
      std::vector<Sample> block;
      for (int i = r0; i <= r0 + 3; ++i) {
        for (int j = c0; j <= c0 + 3; ++j) {
          if (i % 2 == 0 || j % 2 == 0) {
            continue;
          }
          const bool far = std::hypot(j - m.cx, i - m.cy) > m.threshold;
          double X = (j - m.cx) / m.fx;
          double Y = (i - m.cy) / m.fy;
          double Z = 1.0;
          float z = 0;
          if (m.mode == 1) {
            if (far) {
              continue;
            }
            const double r2 = X * X + Y * Y;
            const double lambda = (m.xi + std::sqrt(1 + (1 - m.xi * m.xi) * r2)) / (1 + r2);
            if (std::isnan(lambda)) {
              continue;
            }
            X *= lambda;
            Y *= lambda;
            Z = lambda - m.xi;
            const double row = std::acos(-Y / std::hypot(Y, Z)) * (in.disparity.rows / CV_PI);
            const double col = std::acos(-X) * (in.disparity.cols / CV_PI);
            if (!inside(in.disparity, row, col) || !inside(in.depth, row, col)) {
              continue;
            }
            z = in.depth.at<float>(static_cast<int>(row), static_cast<int>(col));
            if (!(in.disparity.at<float>(static_cast<int>(row), static_cast<int>(col)) > 0)) {
              continue;
            }
          } else if (colored) {
            if (far || !inside(in.depth, j, i)) {
              continue;
            }
            z = in.depth.at<float>(j, i);
          } else {
            if (!inside(in.disparity, j, i)) {
              continue;
            }
            z = static_cast<float>(m.baselineMillimeters / 1000.0 * m.fx / in.disparity.at<float>(j, i));
          }
          if (!(z > 0) || (colored && !inside(in.view, i, j))) {
            continue;
          }
          block.push_back({std::sqrt(z * (X * X) + z * (Y * Y) + z * (Z * Z)),
                           {static_cast<float>(X * z), static_cast<float>(Y * z), static_cast<float>(Z * z)},
                           i,
                           j});
        }
      }
      if (block.size() <= 2) {
        continue;
      }
      std::size_t least = 0;
      std::size_t most = 0;
      double leastKey = 1e9;
      double mostKey = 0.0;
      for (std::size_t k = 0; k < block.size(); ++k) {
        if (block[k].key < leastKey) {
          leastKey = block[k].key;
          least = k;
        }
        if (block[k].key > mostKey) {
          mostKey = block[k].key;
          most = k;
        }
      }
      for (std::size_t k = 0; k < block.size(); ++k) {
        if (k != least && k != most) {
          cloud.push_back(block[k]);
        }
      }
    }
  }
  return cloud;
}

void expectSame(const SampledCloud& cloud, const std::vector<Sample>& expected, const std::string& what) {
  ASSERT_EQ(cloud.size(), expected.size()) << what;
  for (std::size_t k = 0; k < cloud.size(); ++k) {
    EXPECT_EQ(cloud[k].point, expected[k].point) << what << " " << k;
    EXPECT_EQ(cloud[k].row, expected[k].row) << what << " " << k;
    EXPECT_EQ(cloud[k].col, expected[k].col) << what << " " << k;
  }
}

}  // namespace

TEST(SampleCloud, IsTheStatedSamplingToTheBit) {
  for (int seed = 0; seed < 20; ++seed) {
    for (const int mode : {1, 2}) {
      for (const bool colored : {false, true}) {
        CloudModel m = cloudModel(mode);
        m.threshold = 5 + 2 * seed;
        m.xi = 0.1 * seed;
        const CloudImages in = images(seed);
        const auto cloud = sampleCloud(in, m, colored ? CloudForm::colored : CloudForm::plain);
        expectSame(cloud, expectedCloud(in, m, colored),
                   "seed " + std::to_string(seed) + " mode " + std::to_string(mode) + (colored ? " coloured" : ""));
        if (seed == 10) {
          EXPECT_FALSE(cloud.empty());
        }
      }
    }
  }
}

// Wide views send the transposed look-ups out of the image, odd sizes the blocks; the rest must not change.
TEST(SampleCloud, SkipsLookUpsThatWouldLeaveTheImages) {
  for (const cv::Size size : {cv::Size(46, 40), cv::Size(40, 46), cv::Size(37, 29), cv::Size(5, 3), cv::Size(3, 3),
                              cv::Size(2, 2), cv::Size(1, 1), cv::Size(9, 1)}) {
    for (const int mode : {1, 2}) {
      for (const bool colored : {false, true}) {
        for (const cv::Size other : {size, cv::Size(20, 31)}) {
          const CloudImages in = images(3, size, other);
          CloudModel m = cloudModel(mode);
          m.cx = size.width / 2.0;
          m.cy = size.height / 2.0;
          expectSame(sampleCloud(in, m, colored ? CloudForm::colored : CloudForm::plain), expectedCloud(in, m, colored),
                     "size " + std::to_string(size.width));
        }
      }
    }
  }
}

// One block of 4 x 4 in mode 2, whose candidates (1,1), (1,3), (3,1), (3,3) are given depths by hand.
class OneBlock : public testing::Test {
protected:
  SampledCloud cloudOf(float z11, float z13, float z31, float z33) {
    CloudImages in{cv::Mat(4, 4, CV_8UC3, cv::Scalar::all(9)), cv::Mat(4, 4, CV_32FC1, cv::Scalar(1)),
                   cv::Mat(4, 4, CV_32FC1, cv::Scalar(0))};
    // Row and column change places in the look-up.
    in.depth.at<float>(1, 1) = z11;
    in.depth.at<float>(3, 1) = z13;
    in.depth.at<float>(1, 3) = z31;
    in.depth.at<float>(3, 3) = z33;
    CloudModel m = cloudModel(2);
    m.fx = m.fy = 1000;  // nearly along the axis: the key follows the depth
    m.cx = m.cy = 2;
    return sampleCloud(in, m, CloudForm::colored);
  }
};

TEST_F(OneBlock, KeepsTwoOfFourOneOfThreeAndNoneOfFewer) {
  EXPECT_EQ(cloudOf(0.4F, 0.5F, 0.6F, 0.7F).size(), 2U);
  EXPECT_EQ(cloudOf(0.4F, 0.5F, 0.6F, 0).size(), 1U);
  EXPECT_EQ(cloudOf(0.4F, 0.5F, 0, 0).size(), 0U);
  EXPECT_EQ(cloudOf(0.4F, 0, 0, 0).size(), 0U);
  EXPECT_EQ(cloudOf(0, 0, 0, 0).size(), 0U);
}

TEST_F(OneBlock, LeavesOutNearestAndFarthestAndKeepsTheOrder) {
  const auto cloud = cloudOf(0.7F, 0.5F, 0.6F, 0.4F);
  ASSERT_EQ(cloud.size(), 2U);
  EXPECT_EQ(cloud[0].row, 1);
  EXPECT_EQ(cloud[0].col, 3);
  EXPECT_EQ(cloud[0].point[2], 0.5F);
  EXPECT_EQ(cloud[1].row, 3);
  EXPECT_EQ(cloud[1].col, 1);
  EXPECT_EQ(cloud[1].point[2], 0.6F);
}

TEST(SampleCloud, AnInfiniteDepthIsTheFarthestAndIsTrimmed) {
  CloudImages in{cv::Mat(4, 4, CV_8UC3, cv::Scalar::all(9)), cv::Mat(4, 4, CV_32FC1, cv::Scalar(10)), cv::Mat()};
  in.disparity.at<float>(1, 1) = 0;  // b f / 0
  in.disparity.at<float>(3, 3) = 12;
  CloudModel m = cloudModel(2);
  m.cx = m.cy = 2;
  const auto cloud = sampleCloud(in, m, CloudForm::plain);
  ASSERT_EQ(cloud.size(), 2U);
  for (const CloudPoint& point : cloud) {
    EXPECT_LT(point.point[2], HUGE_VALF);
  }
  // Two of them: one is left.
  in.disparity.at<float>(1, 3) = 0;
  const auto infinite = sampleCloud(in, m, CloudForm::plain);
  EXPECT_EQ(
      std::count_if(infinite.begin(), infinite.end(), [](const CloudPoint& p) { return p.point[2] == HUGE_VALF; }), 1);
}

TEST(SampleCloud, OnlyTheColoredFormOfModeOneLeavesOutTheBorder) {
  CloudModel m = cloudModel(1);
  m.threshold = 1000;
  m.fx = m.fy = 60;
  CloudImages in = images(1, {80, 60}, {80, 60});
  in.disparity.setTo(5);
  cv::randu(in.depth, 0.2, 0.9);
  const auto extremes = [](const SampledCloud& cloud) {
    cv::Vec4i e(1000, -1, 1000, -1);
    for (const CloudPoint& point : cloud) {
      e = {std::min(e[0], point.row), std::max(e[1], point.row), std::min(e[2], point.col), std::max(e[3], point.col)};
    }
    return e;
  };
  const cv::Vec4i colored = extremes(sampleCloud(in, m, CloudForm::colored));
  EXPECT_GE(colored[0], 3);
  EXPECT_GE(colored[2], 4);
  // The last block that begins before 95 % may reach three pixels beyond.
  EXPECT_LT(colored[1], 57 + 4);
  EXPECT_LT(colored[3], 76 + 4);
  const cv::Vec4i plain = extremes(sampleCloud(in, m, CloudForm::plain));
  EXPECT_LT(plain[0], 4);
  EXPECT_LT(plain[2], 4);
  EXPECT_GT(plain[1], 55);
  EXPECT_GT(plain[3], 75);
}

TEST(SampleCloud, NothingBeyondTheRadius) {
  for (const auto& [mode, form] : {std::pair(1, CloudForm::plain), std::pair(1, CloudForm::colored),
                                   std::pair(2, CloudForm::colored), std::pair(2, CloudForm::plain)}) {
    const CloudModel m = cloudModel(mode);
    double farthest = 0;
    for (const CloudPoint& point : sampleCloud(images(4), m, form)) {
      farthest = std::max(farthest, std::hypot(point.col - m.cx, point.row - m.cy));
    }
    if (mode == 2 && form == CloudForm::plain) {
      EXPECT_GT(farthest, m.threshold);  // the one form without a radius
    } else {
      EXPECT_LE(farthest, m.threshold);
      EXPECT_GT(farthest, 0.5 * m.threshold);
    }
  }
}

TEST(SampleCloud, NoPointsWithoutCameraMatrixModeOrImages) {
  for (const int mode : {1, 2}) {
    for (const CloudForm form : {CloudForm::plain, CloudForm::colored}) {
      CloudModel unbuilt;
      unbuilt.mode = mode;
      unbuilt.baselineMillimeters = 60;
      unbuilt.threshold = 1000;
      for (const double xi : {0.0, 0.5, 1.0, 1.5}) {
        unbuilt.xi = xi;
        CloudImages in = images(5);
        in.depth.setTo(0);  // what depth gives without a focal length
        EXPECT_TRUE(sampleCloud(in, unbuilt, form).empty()) << mode << " " << xi;
      }
      EXPECT_TRUE(sampleCloud(CloudImages(), cloudModel(mode), form).empty());
      CloudImages noDisparity = images(5);
      noDisparity.disparity.release();
      noDisparity.depth.release();
      EXPECT_TRUE(sampleCloud(noDisparity, cloudModel(mode), form).empty());
      EXPECT_TRUE(sampleCloud(images(5), cloudModel(7), form).empty());
    }
  }
}

TEST(SampleCloud, SurvivesNumbersThatAreNone) {
  CloudImages in = images(6);
  in.disparity.setTo(std::nanf(""), in.disparity > 20);
  in.depth.setTo(HUGE_VALF, in.depth > 0.8);
  for (const double value : {std::nan(""), static_cast<double>(HUGE_VALF), -1e300, 1e300, 0.0}) {
    for (const int mode : {1, 2}) {
      for (double CloudModel::*parameter :
           {&CloudModel::fx, &CloudModel::fy, &CloudModel::cx, &CloudModel::cy, &CloudModel::xi}) {
        CloudModel m = cloudModel(mode);
        m.*parameter = value;
        for (const CloudForm form : {CloudForm::plain, CloudForm::colored}) {
          for (const CloudPoint& point : sampleCloud(in, m, form)) {
            EXPECT_GE(point.row, 0);
            EXPECT_LT(point.row, 44);
          }
        }
      }
    }
  }
}

TEST(SampleCloud, RefusesOtherTypes) {
  CloudImages in = images(7);
  in.view = cv::Mat(40, 40, CV_8UC1);
  EXPECT_THROW(sampleCloud(in, cloudModel(1), CloudForm::colored), cv::Exception);
  // The plain form reads nothing of the view but its size, and in mode 2 nothing of the depth.
  EXPECT_EQ(sampleCloud(in, cloudModel(1), CloudForm::plain).size(),
            sampleCloud(images(7), cloudModel(1), CloudForm::plain).size());
  in = images(7);
  in.depth = cv::Mat(40, 40, CV_64FC1);
  EXPECT_THROW(sampleCloud(in, cloudModel(1), CloudForm::plain), cv::Exception);
  EXPECT_EQ(sampleCloud(in, cloudModel(2), CloudForm::plain).size(),
            sampleCloud(images(7), cloudModel(2), CloudForm::plain).size());
  EXPECT_THROW(sampleCloud(in, cloudModel(2), CloudForm::colored), cv::Exception);
}
