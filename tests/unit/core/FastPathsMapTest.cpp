// SPDX-License-Identifier: Apache-2.0
// Look-up maps against their plain form, to the bit.
#include <opencv2/calib3d.hpp>

#include "StereoCamera.hpp"
#include "bench/baseline/PlainRectifyMap.hpp"
#include "tests/unit/core/FastPaths.hpp"

using namespace stereo::test;
namespace baseline = stereo::baseline;

namespace {

struct Calibration {
  cv::Mat K, D, R, P;
  double xi = 0;
  double xi2 = 0;
};

cv::Mat rotation(cv::RNG& random, double reach) {
  cv::Mat R;
  cv::Rodrigues(
      cv::Vec3d(between(random, -reach, reach), between(random, -reach, reach), between(random, -reach, reach)), R);
  return R;
}

enum class View { straight, bent };

// Camera matrix of a view: of angles or of pixels, with zeros off the diagonal (straight) or without.
cv::Mat viewMatrix(cv::RNG& random, cv::Size size, View view) {
  const double W = size.width;
  const double H = size.height;
  const double span = between(random, 0.5, 3.5);
  cv::Mat P = (cv::Mat_<double>(3, 3) << W / span + 0.5, 0, between(random, -W, W), 0, H / span + 0.5,
               between(random, -H, H), 0, 0, 1);
  if (chance(random, 0.2)) {
    P.at<double>(0, 2) = 0;  // an angle of zero at the edge
    P.at<double>(1, 2) = 0;
  }
  if (chance(random, 0.2)) {
    P.row(0) *= -1;
  }
  if (view == View::bent) {
    // Each by itself too: a view may be bent one way and straight the other.
    for (const cv::Point element : {cv::Point(1, 0), cv::Point(0, 1), cv::Point(0, 2), cv::Point(1, 2)}) {
      if (chance(random, 0.5)) {
        const double reach = element.y == 2 ? 1e-4 : 0.3;
        P.at<double>(element.y, element.x) = between(random, -reach, reach);
      }
    }
  }
  return P;
}

Calibration someCalibration(cv::RNG& random, cv::Size size, View view) {
  Calibration c;
  const double f = between(random, 100, 700);
  c.K = (cv::Mat_<double>(3, 3) << f, between(random, -2, 2), between(random, 0, 500), 0, f + between(random, -9, 9),
         between(random, 0, 500), 0, 0, 1);
  c.D = (cv::Mat_<double>(1, 4) << between(random, -0.3, 0.3), between(random, -0.1, 0.1), between(random, -0.01, 0.01),
         between(random, -0.01, 0.01));
  c.R = rotation(random, chance(random, 0.5) ? 0.05 : 3.0);
  c.P = viewMatrix(random, size, view);
  c.xi = between(random, 0, 3);
  c.xi2 = between(random, 0, 1.5);
  return c;
}

void expectSameMaps(const Calibration& c, cv::Size size, int mode) {
  cv::Mat columns;
  cv::Mat rows;
  baseline::initRectifyMap(c.K, c.D, c.R, c.P, c.xi, c.xi2, size, mode, columns, rows);
  withEachInstructionSet([&] {
    cv::Mat map1;
    cv::Mat map2;
    EXPECT_TRUE(initRectifyMap(c.K, c.D, c.R, c.P, c.xi, c.xi2, size, mode, map1, map2));
    EXPECT_TRUE(same(columns, map1)) << "columns, mode " << mode << ", " << size << "\n" << c.P << "\n" << c.R;
    EXPECT_TRUE(same(rows, map2)) << "rows, mode " << mode << ", " << size << "\n" << c.P << "\n" << c.R;
  });
}

// The maps round doubles to single precision, and that hides nearly every change in the arithmetic before it. So: a
// view through a telescope, across which rays differ by some 1e-11, onto an eye that magnifies as much and has its
// origin where they meet. What is left are the last bits of the doubles.
Calibration telescope(cv::RNG& random, cv::Size size, int mode) {
  constexpr double magnification = 1e12;
  Calibration c = someCalibration(random, size, View::straight);
  c.R = rotation(random, 0.3);
  c.P = (cv::Mat_<double>(3, 3) << magnification, 0, -magnification * between(random, 0.2, 0.9), 0, magnification,
         -magnification * between(random, 0.2, 0.9), 0, 0, 1);
  c.K = (cv::Mat_<double>(3, 3) << magnification, 0, 0, 0, magnification, 0, 0, 0, 1);
  for (int round = 0; round < 3; ++round) {
    cv::Mat columns;
    cv::Mat rows;
    baseline::initRectifyMap(c.K, c.D, c.R, c.P, c.xi, c.xi2, {1, 1}, mode, columns, rows);
    c.K.at<double>(0, 2) -= columns.at<float>(0, 0);
    c.K.at<double>(1, 2) -= rows.at<float>(0, 0);
  }
  return c;
}

}  // namespace

TEST(FastMaps, EqualThePlainFormToTheLastBitOfTheDoubles) {
  cv::RNG random(6);
  const cv::Size size(37, 29);
  for (const int mode : {0, 1, 2}) {
    for (int k = 0; k < 20; ++k) {
      expectSameMaps(telescope(random, size, mode), size, mode);
    }
  }
}

TEST(FastMaps, EqualThePlainFormInSmallViews) {
  cv::RNG random(1);
  for (const cv::Size size : smallSizes()) {
    for (const int mode : {0, 1, 2, 3}) {
      for (int k = 0; k < 40; ++k) {
        expectSameMaps(someCalibration(random, size, k % 2 == 0 ? View::straight : View::bent), size, mode);
      }
    }
  }
}

TEST(FastMaps, EqualThePlainFormInViewsOfRealSize) {
  cv::RNG random(2);
  for (const int mode : {0, 1, 2, 3}) {
    for (const View view : {View::straight, View::bent}) {
      expectSameMaps(someCalibration(random, {464, 400}, view), {464, 400}, mode);
    }
    expectSameMaps(someCalibration(random, {928, 800}, View::straight), {928, 800}, mode);
  }
}

TEST(FastMaps, EqualThePlainFormForTheCalibrationsOfACamera) {
  // A lens that looks ahead and views as a start of the camera asks for them: 90 degrees, and 145.9 by 145.9.
  cv::RNG random(3);
  const cv::Size size(464, 400);
  const double W = size.width;
  const double H = size.height;
  const double pi = CV_PI;
  const double alpha = 180.0 / 222 * pi;
  Calibration c = someCalibration(random, size, View::straight);
  c.R = rotation(random, 0.02);
  c.xi = 1.5;
  c.P = (cv::Mat_<double>(3, 3) << W / 2, 0, W / 2 - 0.5, 0, W / 2, H / 2 - 0.5, 0, 0, 1);
  expectSameMaps(c, size, 2);
  c.P = (cv::Mat_<double>(3, 3) << W / alpha, 0, -W * (pi - alpha) / (2 * alpha), 0, H / alpha,
         -H * (pi - alpha) / (2 * alpha), 0, 0, 1);
  expectSameMaps(c, size, 1);
}

TEST(FastMaps, EqualThePlainFormForDegenerateCalibrations) {
  cv::RNG random(4);
  const cv::Size size(35, 6);
  const cv::Mat zeros = cv::Mat::zeros(3, 3, CV_64F);
  const double huge = 1e300;
  for (const int mode : {0, 1, 2, 3}) {
    for (const View view : {View::straight, View::bent}) {
      const Calibration usual = someCalibration(random, size, view);
      for (const double xi : {-1.0, 0.0, 1.0, -3.0, huge, double{infinity}, double{notANumber}}) {
        Calibration c = usual;
        c.R = cv::Mat::eye(3, 3, CV_64F);
        c.xi = xi;
        c.xi2 = xi;
        expectSameMaps(c, size, mode);
      }
      for (cv::Mat Calibration::*matrix : {&Calibration::K, &Calibration::R, &Calibration::P}) {
        Calibration c = usual;
        c.*matrix = zeros;
        expectSameMaps(c, size, mode);
        for (const double value : {double{notANumber}, double{infinity}, huge}) {
          c = usual;
          (c.*matrix).at<double>(0, 1) = value;
          expectSameMaps(c, size, mode);
        }
      }
      Calibration c = usual;
      c.P = (cv::Mat_<double>(3, 3) << 1e-7, 0, -3, 0, 1e-9, 5, 0, 0, 1);  // angles far beyond a turn
      expectSameMaps(c, size, mode);
      c.P = (cv::Mat_<double>(3, 3) << -1, 0, 0, 0, -1, 0, 0, 0, -1);  // zeros of either sign
      expectSameMaps(c, size, mode);
    }
  }
}

TEST(FastMaps, AreWrittenIntoPartsOfLargerBuffers) {
  cv::RNG random(5);
  for (const cv::Size size : {cv::Size(37, 29), cv::Size(16, 2), cv::Size(1, 1), cv::Size(250, 131)}) {
    for (const int mode : {0, 1, 2}) {
      const Calibration c = someCalibration(random, size, View::straight);
      cv::Mat columns;
      cv::Mat rows;
      baseline::initRectifyMap(c.K, c.D, c.R, c.P, c.xi, c.xi2, size, mode, columns, rows);
      withEachInstructionSet([&] {
        const Framed first(cv::Mat::zeros(size, CV_32FC1));
        const Framed second(cv::Mat::zeros(size, CV_32FC1));
        cv::Mat map1 = first.inside();
        cv::Mat map2 = second.inside();
        initRectifyMap(c.K, c.D, c.R, c.P, c.xi, c.xi2, size, mode, map1, map2);
        EXPECT_TRUE(same(columns, first.inside())) << size << " mode " << mode;
        EXPECT_TRUE(same(rows, second.inside())) << size << " mode " << mode;
        EXPECT_TRUE(first.untouchedOutside());
        EXPECT_TRUE(second.untouchedOutside());
      });
    }
  }
}

// One matrix for both, or two that share rows: pixel by pixel, what is written last stays.
TEST(FastMaps, AreWrittenInTurnsWhereTheyShareMemory) {
  cv::RNG random(6);
  const cv::Size size(250, 131);
  for (const int mode : {0, 1, 2}) {
    for (const int shift : {0, 1, 130, -1}) {
      const Calibration c = someCalibration(random, size, View::straight);
      const auto halves = [&](cv::Mat& memory, cv::Mat& map1, cv::Mat& map2) {
        memory = cv::Mat::zeros(2 * size.height, size.width, CV_32FC1);
        map1 = memory.rowRange(std::max(-shift, 0), std::max(-shift, 0) + size.height);
        map2 = memory.rowRange(std::max(shift, 0), std::max(shift, 0) + size.height);
      };
      cv::Mat expected;
      cv::Mat columns;
      cv::Mat rows;
      halves(expected, columns, rows);
      baseline::initRectifyMap(c.K, c.D, c.R, c.P, c.xi, c.xi2, size, mode, columns, rows);
      withEachInstructionSet([&] {
        cv::Mat memory;
        cv::Mat map1;
        cv::Mat map2;
        halves(memory, map1, map2);
        initRectifyMap(c.K, c.D, c.R, c.P, c.xi, c.xi2, size, mode, map1, map2);
        EXPECT_TRUE(same(expected, memory)) << "mode " << mode << ", " << shift << " rows apart";
      });
    }
  }
}
