// SPDX-License-Identifier: Apache-2.0
// Metric and colored depth against their plain forms, to the bit.
#include <algorithm>
#include <cmath>
#include <sstream>

#include "bench/baseline/PlainDepth.hpp"
#include "src/core/Depth.hpp"
#include "tests/unit/core/FastPaths.hpp"

using namespace stereo::test;
using stereo::core::DepthModel;
using stereo::core::DepthRange;
namespace baseline = stereo::baseline;
namespace core = stereo::core;

namespace {

// Sixteenths of a pixel, as a matcher gives them.
float matched(cv::RNG& random) { return static_cast<float>(random.uniform(1, 80 * 16)) / 16; }

// With everything that a disparity image could hold. The share of such pixels matters: for an ordinary row
// a kernel may take another path.
cv::Mat someDisparity(cv::RNG& random, cv::Size size, double exceptionalShare) {
  const auto W = static_cast<float>(size.width);
  const std::vector<float> exceptional = {notANumber, -notANumber, infinity, -infinity, 0,
                                          -0.0F,      -1,          denormal, 1e-37F,    1e-30F,
                                          1e30F,      3e38F,       -3e38F,   0.05F,     std::nextafter(0.05F, 1.0F),
                                          0.03F,      W,           W / 2,    -W,        2 * W,
                                          1e5F,       1e9F,        1e-5F,    464};
  cv::Mat disparity(size, CV_32FC1);
  for (int r = 0; r < size.height; ++r) {
    for (int c = 0; c < size.width; ++c) {
      disparity.at<float>(r, c) =
          chance(random, exceptionalShare) ? pick(random, exceptional) : (chance(random, 0.1) ? -1 : matched(random));
    }
  }
  return disparity;
}

DepthModel usualModel(int mode, int W) {
  DepthModel model;
  model.mode = mode;
  model.b = 0.0601F;
  model.f = 232.0;
  model.W = W;
  return model;
}

DepthModel someModel(cv::RNG& random, int mode, int W) {
  DepthModel model = usualModel(mode, chance(random, 0.5) ? W : pick<int>(random, {0, 1, 464, 928, -5, 1 << 30}));
  const std::vector<cv::Vec2f> limits = {{0.05F, 1},
                                         {1, 0.05F},
                                         {0, 0},
                                         {-1, 1},
                                         {-2, -1},
                                         {0, 1e30F},
                                         {notANumber, 1},
                                         {0.05F, notANumber},
                                         {notANumber, notANumber},
                                         {-infinity, infinity},
                                         {infinity, -infinity},
                                         {0.05F, infinity},
                                         {0.4F, 0.4F},
                                         {-0.0F, 2},
                                         {0, denormal}};
  if (chance(random, 0.7)) {
    const cv::Vec2f limit = pick(random, limits);
    model.minDepth = limit[0];
    model.maxDepth = limit[1];
  }
  if (chance(random, 0.2)) {
    model.b = pick<float>(random, {0, -0.06F, notANumber, infinity, 1e-30F, 1e30F});
  }
  if (chance(random, 0.2)) {
    model.f = pick<double>(random, {0, -232, double{notANumber}, double{infinity}, 1e300, 1e-300});
  }
  if (chance(random, 0.4)) {
    model.lonLatFov =
        pick<double>(random, {145.9, 0, 90, 222, 720, -180, 1e9, 1e13, -1e15, double{notANumber}, double{infinity}});
  }
  return model;
}

std::string text(const DepthModel& m, cv::Size size) {
  std::ostringstream out;
  out.precision(9);
  out << size << ", mode " << m.mode << ", b " << m.b << ", f " << m.f << ", W " << m.W << ", field " << m.lonLatFov
      << ", limits " << m.minDepth << " and " << m.maxDepth;
  return out.str();
}

cv::Mat one(float value) { return cv::Mat(1, 1, CV_32FC1, cv::Scalar(value)); }

// By `metricDepth`: into no image, into one that fits and holds other values, and into a part of a larger one.
void expectSameMetric(const cv::Mat& disparity, const DepthModel& model) {
  cv::Mat expected;
  baseline::metricDepth(disparity, model, expected);
  const Framed source(disparity);
  withEachInstructionSet([&] {
    cv::Mat fresh;
    core::metricDepth(disparity, model, fresh);
    EXPECT_TRUE(same(expected, fresh)) << text(model, disparity.size());
    cv::Mat kept(disparity.size(), CV_32FC1, cv::Scalar(77));
    core::metricDepth(source.inside(), model, kept);
    EXPECT_TRUE(same(expected, kept)) << text(model, disparity.size());
    const Framed target(cv::Mat(disparity.size(), CV_32FC1, cv::Scalar(77)));
    cv::Mat part = target.inside();
    core::metricDepth(source.inside(), model, part);
    EXPECT_TRUE(same(expected, target.inside())) << text(model, disparity.size());
    EXPECT_TRUE(target.untouchedOutside());
  });
}

// By `measureDepths` and `paintDepths`, likewise.
void expectSamePicture(const cv::Mat& disparity, const DepthModel& model) {
  cv::Mat expected;
  baseline::coloredDepth(disparity, model, expected);
  const DepthRange expectedRange = baseline::depthRange(disparity, model);
  const Framed source(disparity);
  withEachInstructionSet([&] {
    cv::Mat depths;
    cv::Mat picture;
    const DepthRange range = core::measureDepths(disparity, model, depths);
    // The smallest of zeros of both signs is either; neither shows in a color.
    EXPECT_TRUE(same(one(expectedRange.min + 0.0F), one(range.min + 0.0F)))
        << "least, " << text(model, disparity.size());
    EXPECT_TRUE(same(one(expectedRange.max), one(range.max))) << "largest, " << text(model, disparity.size());
    core::paintDepths(depths, range, picture);
    EXPECT_TRUE(same(expected, picture)) << text(model, disparity.size());

    const Framed keptDepths(cv::Mat(disparity.size(), CV_32FC1, cv::Scalar(0.3)));
    const Framed keptPicture(cv::Mat(disparity.size(), CV_8UC3, cv::Scalar::all(77)));
    cv::Mat depthsPart = keptDepths.inside();
    cv::Mat picturePart = keptPicture.inside();
    core::paintDepths(depthsPart, core::measureDepths(source.inside(), model, depthsPart), picturePart);
    EXPECT_TRUE(same(expected, picturePart)) << "in parts, " << text(model, disparity.size());
    EXPECT_TRUE(keptDepths.untouchedOutside());
    EXPECT_TRUE(keptPicture.untouchedOutside());
  });
}

void expectSame(const cv::Mat& disparity, const DepthModel& model) {
  expectSameMetric(disparity, model);
  expectSamePicture(disparity, model);
}

}  // namespace

TEST(FastDepth, EqualsThePlainFormForOrdinaryDisparities) {
  cv::RNG random(1);
  for (const cv::Size size : smallSizes()) {
    for (const int mode : {1, 2}) {
      for (int k = 0; k < 5; ++k) {
        expectSame(someDisparity(random, size, 0), usualModel(mode, size.width));
      }
    }
  }
  for (const cv::Size size : realSizes()) {
    for (const int mode : {1, 2}) {
      expectSame(someDisparity(random, size, 0), usualModel(mode, size.width));
    }
  }
}

TEST(FastDepth, EqualsThePlainFormForAnyDisparityAndModel) {
  cv::RNG random(2);
  for (const cv::Size size : smallSizes()) {
    for (int k = 0; k < 400; ++k) {
      const int mode = pick<int>(random, {1, 1, 1, 2, 2, 2, 0, 3, -1});
      expectSame(someDisparity(random, size, pick<double>(random, {0, 0.05, 0.4, 1})),
                 someModel(random, mode, size.width));
    }
  }
}

TEST(FastDepth, EqualsThePlainFormForLargeImagesWithHoles) {
  cv::RNG random(3);
  for (const int mode : {0, 1, 2, 3}) {
    for (int k = 0; k < 3; ++k) {
      expectSame(someDisparity(random, {464, 400}, 0.01), someModel(random, mode, 464));
    }
  }
}

TEST(FastDepth, EqualsThePlainFormWhereAllIsAlike) {
  // One depth, so that the color scale has no width; nothing but holes; nothing but the last pixel.
  for (const cv::Size size : {cv::Size(33, 7), cv::Size(1, 1), cv::Size(64, 2)}) {
    for (const int mode : {1, 2}) {
      for (const float d : {20.0F, -1.0F, 0.03F, infinity, notANumber, 0.0F}) {
        cv::Mat disparity(size, CV_32FC1, cv::Scalar(d));
        expectSame(disparity, usualModel(mode, size.width));
        disparity.at<float>(size.height - 1, size.width - 1) = 14;
        expectSame(disparity, usualModel(mode, size.width));
      }
    }
  }
}

TEST(FastDepth, EqualsThePlainFormForDisparitiesBetweenSixteenths) {
  // Mode 1 takes the sine of angles that no table of sixteenths holds.
  cv::RNG random(4);
  cv::Mat disparity(60, 464, CV_32FC1);
  for (const double most : {0.5, 60.0, 464.0, 5000.0, 1e7}) {
    fill(random, disparity, 0.0, most);
    for (const int mode : {1, 2}) {
      DepthModel model = usualModel(mode, 464);
      expectSame(disparity, model);
      model.minDepth = -infinity;
      model.maxDepth = infinity;
      expectSame(disparity, model);
    }
  }
}

TEST(FastDepth, EqualsThePlainFormWhereAnglesVanish) {
  // A field for which the first angle all but vanishes at some column: only rounding errors are left of it.
  cv::RNG random(5);
  constexpr int W = 464;
  for (int k = 0; k < 300; ++k) {
    const float d = matched(random);
    const int column = random.uniform(0, W);
    const float a = (static_cast<float>(column) - d) / static_cast<float>(W);
    DepthModel model = usualModel(1, W);
    model.lonLatFov = (180.0 + 360.0 * a) * (1 + between(random, -1e-13, 1e-13));
    model.minDepth = -infinity;
    model.maxDepth = infinity;
    expectSame(cv::Mat(1, W, CV_32FC1, cv::Scalar(d)), model);
  }
}

TEST(FastDepth, EqualsThePlainFormHalfwayBetweenTwoFloats) {
  // The field is chosen such that, at one column, the double that becomes the depth lies within a few of its last bits
  // of the middle between two floats: the least error in a sine rounds it the other way.
  cv::RNG random(6);
  constexpr int W = 464;
  std::size_t eitherWay = 0;
  for (int k = 0; k < 1500; ++k) {
    const float d = matched(random);
    const int columns = 40;
    const int column = random.uniform(0, columns);
    DepthModel model = usualModel(1, W);
    const float a = (static_cast<float>(column) - d) / static_cast<float>(W);
    const double divisor = std::sin(CV_PI * (d / static_cast<float>(W)));
    const double turn = between(random, 0.02, 0.98);  // of half a circle
    const auto below = static_cast<float>(model.b * std::sin(CV_PI * turn) / divisor);
    const double middle = (double{below} + double{std::nextafter(below, infinity)}) / 2;
    const double rising = std::asin(middle * divisor / model.b) / CV_PI;
    model.lonLatFov = 180 - 360 * ((turn > 0.5 ? 1 - rising : rising) - a);
    model.minDepth = -infinity;
    model.maxDepth = infinity;
    const cv::Mat disparity(1, columns, CV_32FC1, cv::Scalar(d));
    float least = infinity;
    float largest = -infinity;
    for (int step = -3; step <= 3; ++step) {
      DepthModel near = model;
      near.lonLatFov += step * 5e-14;
      expectSame(disparity, near);
      cv::Mat depth;
      baseline::metricDepth(disparity, near, depth);
      least = std::min(least, depth.at<float>(0, column));
      largest = std::max(largest, depth.at<float>(0, column));
    }
    eitherWay += least < largest ? 1 : 0;
  }
  EXPECT_GT(eitherWay, 500U);  // otherwise the middle was missed, and nothing was close
}

TEST(FastDepth, EqualsThePlainFormWhereAnglesAreWholeHalfTurns) {
  // The sine of a multiple of pi is what pi's own rounding leaves, some 1e-16, and takes many digits of pi to get
  // right.
  cv::RNG random(7);
  for (int k = 0; k < 20'000; ++k) {
    const int W = pick<int>(random, {464, 928});
    const bool dividend = chance(random, 0.5);  // which of the two sines it is
    const float d = dividend ? matched(random) : static_cast<float>(W * random.uniform(1, 6));
    const int column = random.uniform(0, 30);
    DepthModel model = usualModel(1, W);
    model.b = static_cast<float>(between(random, 0.01, 0.1));
    model.minDepth = -infinity;
    model.maxDepth = infinity;
    const float a = (static_cast<float>(column) - d) / static_cast<float>(W);
    const double turn = dividend ? random.uniform(-3, 4) + random.uniform(-2, 3) * 2.2e-16 : between(random, 0.1, 0.9);
    model.lonLatFov = 180 - 360 * (turn - a);
    expectSameMetric(cv::Mat(1, column + 1, CV_32FC1, cv::Scalar(d)), model);
  }
}
