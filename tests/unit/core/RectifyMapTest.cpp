// SPDX-License-Identifier: Apache-2.0
#include <cmath>

#include <gtest/gtest.h>

#include <opencv2/calib3d.hpp>
#include <opencv2/ccalib/omnidir.hpp>

#include "StereoCamera.hpp"
#include "src/core/RectifyMap.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/TestCamera.hpp"

using stereo::test::sameBits;
using stereo::test::someCalibration;

namespace {

struct Eye {
  cv::Mat K, D, R;
  double xi;

  explicit Eye(int number) {
    const auto params = someCalibration(number);
    K = params[0];
    D = params[1];
    xi = params[2].at<double>(0, 0);
    R = params[3];
  }
};

struct Maps {
  cv::Mat columns, rows;
};

Maps build(const Eye& eye, const cv::Mat& P, double xi2, cv::Size size, int mode) {
  Maps maps;
  EXPECT_TRUE(initRectifyMap(eye.K, eye.D, eye.R, P, eye.xi, xi2, size, mode, maps.columns, maps.rows));
  return maps;
}

cv::Mat perspectiveMatrix(cv::Size size, double degrees) {
  const double f = (size.width / 2.0) / std::tan(degrees / 180 * CV_PI / 2);
  return (cv::Mat_<double>(3, 3) << f, 0, size.width / 2.0 - 0.5, 0, f, size.height / 2.0 - 0.5, 0, 0, 1);
}

cv::Mat lonLatMatrix(cv::Size size, double alpha) {
  return (cv::Mat_<double>(3, 3) << size.width / alpha, 0, -size.width * (CV_PI - alpha) / (2 * alpha), 0,
          size.height / alpha, -size.height * (CV_PI - alpha) / (2 * alpha), 0, 0, 1);
}

// The same arithmetic written out again for one pixel, independently.
cv::Vec2f mapPixel(const Eye& eye, const cv::Mat& P, double xi2, int mode, int i, int j) {
  const cv::Mat iP = P.inv();
  const cv::Mat iR = eye.R.inv();
  const cv::Mat iKR = cv::Mat(P * eye.R).inv();
  double x = 0;
  double y = 0;
  double z = 0;
  if (mode == 2) {
    x = MatRowMul(iKR, j, i, 1, 0);
    y = MatRowMul(iKR, j, i, 1, 1);
    z = MatRowMul(iKR, j, i, 1, 2);
  } else if (mode == 0 || mode == 1) {
    const double a = MatRowMul(iP, j, i, 1, 0);
    const double b = MatRowMul(iP, j, i, 1, 1);
    double X = -std::cos(a);
    double Y = -std::sin(a) * std::cos(b);
    double Z = std::sin(a) * std::sin(b);
    if (mode == 0) {
      const double r2 = b * b + a * a;
      const double eta = (std::sqrt(1 + (1 - xi2 * xi2) * r2) + xi2) / (1 + r2);
      X = eta * a;
      Y = eta * b;
      Z = eta - xi2;
    }
    x = MatRowMul(iR, X, Y, Z, 0);
    y = MatRowMul(iR, X, Y, Z, 1);
    z = MatRowMul(iR, X, Y, Z, 2);
  }
  const double n = std::sqrt((x * x + y * y) + z * z);
  const double xu = (x / n) / (z / n + eye.xi);
  const double yu = (y / n) / (z / n + eye.xi);
  const double r2 = xu * xu + yu * yu;
  const double r4 = r2 * r2;
  const double k1 = eye.D.at<double>(0, 0);
  const double k2 = eye.D.at<double>(0, 1);
  const double p1 = eye.D.at<double>(0, 2);
  const double p2 = eye.D.at<double>(0, 3);
  const double g = (k1 * r2 + 1) + k2 * r4;
  const double xd = g * xu + 2 * p1 * xu * yu + p2 * (r2 + 2 * xu * xu);
  const double yd = g * yu + 2 * p2 * xu * yu + p1 * (r2 + 2 * yu * yu);
  return {static_cast<float>(eye.K.at<double>(0, 0) * xd + eye.K.at<double>(0, 1) * yd + eye.K.at<double>(0, 2)),
          static_cast<float>(eye.K.at<double>(1, 1) * yd + eye.K.at<double>(1, 2))};
}

}  // namespace

TEST(InitRectifyMap, PerspectiveIsTheSameToTheBitAsThePeer) {
  for (int number = 0; number < 20; ++number) {
    const Eye eye(number);
    const cv::Size size(61 + number, 47 + 2 * number);
    const cv::Mat P = perspectiveMatrix(size, 60 + 4 * number);
    const Maps maps = build(eye, P, eye.xi, size, 2);
    Maps peer;
    cv::omnidir::initUndistortRectifyMap(eye.K, eye.D, cv::Mat(1, 1, CV_64F, cv::Scalar(eye.xi)), eye.R, P, size,
                                         CV_32FC1, peer.columns, peer.rows, cv::omnidir::RECTIFY_PERSPECTIVE);
    EXPECT_TRUE(sameBits(maps.columns, peer.columns)) << number;
    EXPECT_TRUE(sameBits(maps.rows, peer.rows)) << number;
  }
}

TEST(InitRectifyMap, LongitudeLatitudeIsTheSameToTheBitAsThePeer) {
  for (int number = 0; number < 20; ++number) {
    const Eye eye(number);
    const cv::Size size(61 + number, 47 + 2 * number);
    const cv::Mat P = lonLatMatrix(size, (100 + 4.0 * number) / 222 * CV_PI);
    const Maps maps = build(eye, P, 0.0, size, 1);
    Maps peer;
    cv::omnidir::initUndistortRectifyMap(eye.K, eye.D, cv::Mat(1, 1, CV_64F, cv::Scalar(eye.xi)), eye.R, P, size,
                                         CV_32FC1, peer.columns, peer.rows, cv::omnidir::RECTIFY_LONGLATI);
    EXPECT_TRUE(sameBits(maps.columns, peer.columns)) << number;
    EXPECT_TRUE(sameBits(maps.rows, peer.rows)) << number;
  }
}

TEST(InitRectifyMap, EveryModeIsTheStatedArithmeticToTheBit) {
  for (int number = 0; number < 10; ++number) {
    const Eye eye(number);
    const cv::Size size(23 + number, 17);
    for (const int mode : {0, 1, 2}) {
      const cv::Mat P = mode == 1 ? lonLatMatrix(size, 2.5) : perspectiveMatrix(size, 100);
      const double xi2 = 0.25 * (number % 5);
      const Maps maps = build(eye, P, xi2, size, mode);
      for (int i = 0; i < size.height; ++i) {
        for (int j = 0; j < size.width; ++j) {
          const cv::Vec2f expected = mapPixel(eye, P, xi2, mode, i, j);
          ASSERT_EQ(maps.columns.at<float>(i, j), expected[0]) << number << " mode " << mode << " at " << i << "," << j;
          ASSERT_EQ(maps.rows.at<float>(i, j), expected[1]) << number << " mode " << mode << " at " << i << "," << j;
        }
      }
    }
  }
}

// Mode 0 with xi2 = 1 undoes the stereographic projection and with xi2 = 0 the pinhole: an eye that projects that way
// itself sees the normalised plane unchanged.
TEST(InitRectifyMap, LiftedPlaneUndoesItsOwnProjection) {
  const cv::Size size(40, 30);
  Eye eye(1);
  eye.R = cv::Mat::eye(3, 3, CV_64F);
  eye.D = cv::Mat::zeros(1, 4, CV_64F);
  eye.K = perspectiveMatrix(size, 100);
  for (const double xi : {0.0, 0.5, 1.0}) {
    eye.xi = xi;
    const Maps maps = build(eye, eye.K, xi, size, 0);
    for (int i = 0; i < size.height; ++i) {
      for (int j = 0; j < size.width; ++j) {
        EXPECT_NEAR(maps.columns.at<float>(i, j), j, 1e-4) << xi;
        EXPECT_NEAR(maps.rows.at<float>(i, j), i, 1e-4) << xi;
      }
    }
  }
}

TEST(InitRectifyMap, SamePinholeOnBothSidesIsTheIdentity) {
  const cv::Size size(50, 40);
  Eye eye(1);
  eye.K = (cv::Mat_<double>(3, 3) << 33.0, 0, 20.25, 0, 33.0, 18.5, 0, 0, 1);
  eye.D = cv::Mat::zeros(1, 4, CV_64F);
  eye.R = cv::Mat::eye(3, 3, CV_64F);
  eye.xi = 0;
  const Maps maps = build(eye, eye.K, 0, size, 2);
  for (int i = 0; i < size.height; ++i) {
    for (int j = 0; j < size.width; ++j) {
      EXPECT_NEAR(maps.columns.at<float>(i, j), j, 1e-5);
      EXPECT_NEAR(maps.rows.at<float>(i, j), i, 1e-5);
    }
  }
}

TEST(InitRectifyMap, PrincipalPointGoesToPrincipalPoint) {
  const cv::Mat P = (cv::Mat_<double>(3, 3) << 50, 0, 20, 0, 50, 10, 0, 0, 1);
  for (const double xi : {0.0, 0.7, 1.0, 1.9, -0.5}) {
    Eye eye(3);
    eye.R = cv::Mat::eye(3, 3, CV_64F);
    eye.xi = xi;
    const Maps maps = build(eye, P, xi, {41, 21}, 2);
    EXPECT_EQ(maps.columns.at<float>(10, 20), static_cast<float>(eye.K.at<double>(0, 2)));
    EXPECT_EQ(maps.rows.at<float>(10, 20), static_cast<float>(eye.K.at<double>(1, 2)));
  }
  Eye eye(3);
  eye.R = cv::Mat::eye(3, 3, CV_64F);
  eye.xi = -1;
  EXPECT_TRUE(std::isnan(build(eye, P, -1, {41, 21}, 2).columns.at<float>(10, 20)));
}

TEST(InitRectifyMap, LongitudeLatitudeLooksAlongTheAxisAtHalfPi) {
  const cv::Size size(40, 30);
  Eye eye(4);
  eye.R = cv::Mat::eye(3, 3, CV_64F);
  const Maps maps = build(eye, lonLatMatrix(size, 180.0 / 222 * CV_PI), 0, size, 1);
  // Column W / 2, row H / 2 is where both angles are pi / 2.
  EXPECT_NEAR(maps.columns.at<float>(15, 20), eye.K.at<double>(0, 2), 1e-3);
  EXPECT_NEAR(maps.rows.at<float>(15, 20), eye.K.at<double>(1, 2), 1e-3);
}

TEST(InitRectifyMap, RaysAtAndBehindTheEdgeOfTheModelAreProjectedAllTheSame) {
  Eye eye(1);
  eye.D = cv::Mat::zeros(1, 4, CV_64F);
  eye.R = cv::Mat::eye(3, 3, CV_64F);
  eye.K = (cv::Mat_<double>(3, 3) << 10, 0, 0, 0, 10, 0, 0, 0, 1);
  eye.xi = 0;
  // One pixel at (0, 0), whose angles are the last column of P's inverse.
  const auto pixelAt = [&eye](double a, double b) {
    const cv::Mat inverse = (cv::Mat_<double>(3, 3) << 1, 0, a, 0, 1, b, 0, 0, 1);
    return build(eye, inverse.inv(), 0, {1, 1}, 1);
  };
  // Angles pi / 4, -pi / 2: ray (-cos a, -0, -sin a), behind the eye, comes back mirrored at xu = 1.
  EXPECT_NEAR(pixelAt(CV_PI / 4, -CV_PI / 2).columns.at<float>(0, 0), 10.0, 1e-4);
  // Angles 0, 0: ray (-1, -0, 0), square to the axis, is divided by 0 and does not come out finite.
  EXPECT_FALSE(std::isfinite(pixelAt(0, 0).columns.at<float>(0, 0)));
}

TEST(InitRectifyMap, UnknownModesGiveNotANumberEverywhere) {
  const Eye eye(5);
  for (const int mode : {3, -1, 1000}) {
    const Maps maps = build(eye, perspectiveMatrix({9, 7}, 90), 0, {9, 7}, mode);
    EXPECT_EQ(cv::countNonZero(maps.columns == maps.columns), 0) << mode;
    EXPECT_EQ(cv::countNonZero(maps.rows == maps.rows), 0) << mode;
    EXPECT_EQ(maps.columns.size(), cv::Size(9, 7));
  }
}

TEST(InitRectifyMap, ModesOneAndTwoIgnoreTheSecondMirrorParameter) {
  const Eye eye(6);
  const cv::Size size(20, 10);
  for (const int mode : {1, 2}) {
    const cv::Mat P = mode == 1 ? lonLatMatrix(size, 2) : perspectiveMatrix(size, 90);
    EXPECT_TRUE(sameBits(build(eye, P, 0, size, mode).columns, build(eye, P, 5, size, mode).columns));
  }
}

TEST(InitRectifyMap, SingularMatricesInvertToZero) {
  const cv::Size size(8, 6);
  Eye eye(7);
  const cv::Mat zero = cv::Mat::zeros(3, 3, CV_64F);
  // (P R) singular: no ray at all.
  EXPECT_EQ(cv::countNonZero(build(eye, zero, 0, size, 2).columns == 0), 0);
  EXPECT_TRUE(std::isnan(build(eye, zero, 0, size, 2).columns.at<float>(3, 3)));
  // P singular in the other modes: one ray for all pixels.
  for (const int mode : {0, 1}) {
    const Maps maps = build(eye, zero, 0.5, size, mode);
    EXPECT_EQ(cv::countNonZero(maps.columns == maps.columns.at<float>(0, 0)), size.area()) << mode;
    EXPECT_EQ(cv::countNonZero(maps.rows == maps.rows.at<float>(0, 0)), size.area()) << mode;
  }
  eye.R = zero;
  for (const int mode : {0, 1, 2}) {
    EXPECT_TRUE(std::isnan(build(eye, perspectiveMatrix(size, 90), 0.5, size, mode).rows.at<float>(1, 1))) << mode;
  }
}

TEST(InitRectifyMap, EmptySizeGivesEmptyMaps) {
  Maps maps = build(Eye(8), perspectiveMatrix({4, 4}, 90), 0, {0, 0}, 2);
  EXPECT_TRUE(maps.columns.empty());
  EXPECT_TRUE(maps.rows.empty());
}

TEST(InitRectifyMap, ReusesBuffersOfTheRightSizeAndType) {
  const Eye eye(9);
  const cv::Size size(12, 8);
  Maps maps{cv::Mat(size, CV_32FC1), cv::Mat(size, CV_32FC1)};
  const void* const columns = maps.columns.data;
  const void* const rows = maps.rows.data;
  initRectifyMap(eye.K, eye.D, eye.R, perspectiveMatrix(size, 90), eye.xi, 0, size, 2, maps.columns, maps.rows);
  EXPECT_EQ(maps.columns.data, columns);
  EXPECT_EQ(maps.rows.data, rows);
  EXPECT_EQ(maps.columns.type(), CV_32FC1);
}

TEST(InitRectifyMap, RefusesMatricesOfTheWrongShapeOrType) {
  const Eye good(10);
  const cv::Size size(4, 4);
  const cv::Mat P = perspectiveMatrix(size, 90);
  cv::Mat column;
  cv::Mat row;
  const auto attempt = [&](const cv::Mat& K, const cv::Mat& D, const cv::Mat& R, const cv::Mat& view) {
    initRectifyMap(K, D, R, view, 1, 0, size, 2, column, row);
  };
  EXPECT_NO_THROW(attempt(good.K, good.D, good.R, P));
  cv::Mat floats;
  good.K.convertTo(floats, CV_32F);
  EXPECT_THROW(attempt(floats, good.D, good.R, P), cv::Exception);
  EXPECT_THROW(attempt(cv::Mat(), good.D, good.R, P), cv::Exception);
  EXPECT_THROW(attempt(good.K.rowRange(0, 1), good.D, good.R, P), cv::Exception);
  EXPECT_THROW(attempt(good.K, good.D.colRange(0, 3), good.R, P), cv::Exception);
  EXPECT_THROW(attempt(good.K, good.D.t(), good.R, P), cv::Exception);
  EXPECT_THROW(attempt(good.K, cv::Mat(), good.R, P), cv::Exception);
  EXPECT_THROW(attempt(good.K, good.D, good.R.rowRange(0, 2), P), cv::Exception);
  EXPECT_THROW(attempt(good.K, good.D, floats, P), cv::Exception);
  EXPECT_THROW(attempt(good.K, good.D, good.R, cv::Mat::eye(4, 4, CV_64F)), cv::Exception);
  EXPECT_THROW(attempt(good.K, good.D, good.R, cv::Mat::eye(2, 2, CV_64F)), cv::Exception);
  EXPECT_THROW(attempt(good.K, good.D, cv::Mat(3, 3, CV_64FC2), P), cv::Exception);
}

TEST(MatRowMul, IsTheRowsDotProductSummedInOrder) {
  const cv::Mat m = (cv::Mat_<double>(3, 3) << 1e16, 1, -1e16, 2, 3, 4, 0.1, 0.2, 0.3);
  // (1e16 + 1) - 1e16: the 1 is lost, so the order of the sums shows.
  EXPECT_EQ(MatRowMul(m, 1, 1, 1, 0), 0.0);
  EXPECT_EQ(MatRowMul(m, 5, 6, 7, 1), 56.0);
  EXPECT_EQ(MatRowMul(m, 1, 1, 1, 2), (0.1 + 0.2) + 0.3);
}

TEST(MatRowMul, RefusesWhatItWouldMisread) {
  EXPECT_THROW(MatRowMul(cv::Mat(3, 3, CV_32F), 1, 1, 1, 0), cv::Exception);
  EXPECT_THROW(MatRowMul(cv::Mat(3, 2, CV_64F), 1, 1, 1, 0), cv::Exception);
  EXPECT_THROW(MatRowMul(cv::Mat(3, 3, CV_64F), 1, 1, 1, 3), cv::Exception);
  EXPECT_THROW(MatRowMul(cv::Mat(3, 3, CV_64F), 1, 1, 1, -1), cv::Exception);
}

TEST(ViewMatrices, AreAsStated) {
  EXPECT_TRUE(sameBits(stereo::core::perspectiveCameraMatrix({464, 400}, 90), perspectiveMatrix({464, 400}, 90)));
  EXPECT_TRUE(
      sameBits(stereo::core::lonLatCameraMatrix({464, 400}, 180), lonLatMatrix({464, 400}, 180.0 / 222 * CV_PI)));
  // One focal length for both axes; 90 degrees over 464 pixels: f = 232.
  const cv::Mat P = stereo::core::perspectiveCameraMatrix({464, 400}, 90);
  EXPECT_NEAR(P.at<double>(0, 0), 232.0, 1e-10);
  EXPECT_EQ(P.at<double>(0, 0), P.at<double>(1, 1));
  EXPECT_EQ(P.at<double>(0, 2), 231.5);
  EXPECT_EQ(P.at<double>(1, 2), 199.5);
}
