// SPDX-License-Identifier: Apache-2.0
// Clouds against their plain forms, to the bit.
#include <cmath>
#include <sstream>

#include "bench/baseline/PlainCloud.hpp"
#include "src/core/Cloud.hpp"
#include "tests/unit/core/FastPaths.hpp"

using namespace stereo::test;
using stereo::core::CloudForm;
using stereo::core::CloudImages;
using stereo::core::CloudModel;
namespace baseline = stereo::baseline;
namespace core = stereo::core;

namespace {

constexpr int most = std::numeric_limits<int>::max();

cv::Mat floats(cv::RNG& random, cv::Size size, double lowest, double highest, double exceptionalShare) {
  const std::vector<float> exceptional = {notANumber, infinity, -infinity, 0,     -0.0F,
                                          -1,         denormal, 1e-30F,    1e30F, 3e38F};
  cv::Mat image(size, CV_32FC1);
  fill(random, image, lowest, highest);
  for (int r = 0; r < size.height; ++r) {
    for (int c = 0; c < size.width; ++c) {
      if (chance(random, exceptionalShare)) {
        image.at<float>(r, c) = pick(random, exceptional);
      }
    }
  }
  return image;
}

// About a fifth of the pixels have no disparity, or no depth.
CloudImages someImages(cv::RNG& random, cv::Size view, cv::Size disparity, cv::Size depth, double exceptionalShare) {
  CloudImages images;
  images.view.create(view, CV_8UC3);
  fill(random, images.view, 0, 256);
  images.disparity = floats(random, disparity, -10, 60, exceptionalShare);
  images.depth = floats(random, depth, -0.2, 1.0, exceptionalShare);
  return images;
}

CloudModel usualModel(int mode, cv::Size view) {
  CloudModel model;
  model.mode = mode;
  model.fx = view.width / 2.0 + 0.25;
  model.fy = model.fx;
  model.cx = view.width / 2.0 - 0.5;
  model.cy = view.height / 2.0 - 0.5;
  model.baselineMillimeters = 60.3;
  model.xi = 1.47;
  model.threshold = view.width;
  return model;
}

CloudModel someModel(cv::RNG& random, int mode, cv::Size view) {
  CloudModel model = usualModel(mode, view);
  const std::vector<double> odd = {
      0, -0.0, -1, 1e-3, 1e9, 1e300, double{notANumber}, double{infinity}, -double{infinity}};
  for (double CloudModel::*number : {&CloudModel::fx, &CloudModel::fy, &CloudModel::cx, &CloudModel::cy,
                                     &CloudModel::baselineMillimeters, &CloudModel::xi}) {
    if (chance(random, 0.08)) {
      model.*number = pick(random, odd);
    }
  }
  if (chance(random, 0.6)) {
    model.xi = between(random, 0, 3);
  }
  if (chance(random, 0.6)) {
    model.cx += between(random, -5, 5);
    model.fx *= between(random, 0.3, 2);
  }
  if (chance(random, 0.7)) {
    model.threshold = pick<int>(random, {-1, 0, 1, 7, 12, view.width / 3, most, -most});
  }
  return model;
}

std::string text(const CloudImages& images, const CloudModel& m) {
  std::ostringstream out;
  out.precision(17);
  out << "view " << images.view.size() << ", disparity " << images.disparity.size() << ", depth " << images.depth.size()
      << ", mode " << m.mode << ", f " << m.fx << " " << m.fy << ", c " << m.cx << " " << m.cy << ", b "
      << m.baselineMillimeters << ", xi " << m.xi << ", threshold " << m.threshold;
  return out.str();
}

std::vector<cv::Vec3f> plainCloud(const CloudImages& images, const CloudModel& model) {
  std::vector<cv::Vec3f> points;
  for (const core::CloudPoint& sampled : core::sampleCloud(images, model, CloudForm::plain)) {
    points.push_back(sampled.point);
  }
  return points;
}

std::vector<PCL> coloredCloud(const CloudImages& images, const CloudModel& model) {
  std::vector<PCL> points;
  for (const core::CloudPoint& sampled : core::sampleCloud(images, model, CloudForm::colored)) {
    points.push_back({sampled.point, images.view.at<cv::Vec3b>(sampled.row, sampled.col)});
  }
  return points;
}

// Both forms; returns how many points there were, so that a test can see that it compared something.
std::size_t expectSameClouds(const CloudImages& images, const CloudModel& model) {
  std::vector<cv::Vec3f> plain;
  std::vector<PCL> colored;
  baseline::plainCloud(images, model, plain);
  baseline::coloredCloud(images, model, colored);
  withEachInstructionSet([&] {
    EXPECT_TRUE(same(plain, plainCloud(images, model))) << "plain, " << text(images, model);
    EXPECT_TRUE(same(colored, coloredCloud(images, model))) << "coloured, " << text(images, model);
  });
  return plain.size() + colored.size();
}

}  // namespace

TEST(FastClouds, EqualThePlainFormForOrdinaryImages) {
  cv::RNG random(1);
  for (const cv::Size size : {cv::Size(464, 400), cv::Size(464, 464), cv::Size(928, 800), cv::Size(101, 97)}) {
    for (const int mode : {1, 2}) {
      for (const int threshold : {120, size.width}) {
        const CloudImages images = someImages(random, size, size, size, 0);
        CloudModel model = usualModel(mode, size);
        model.threshold = threshold;
        EXPECT_GT(expectSameClouds(images, model), 500U);
      }
    }
  }
}

TEST(FastClouds, EqualThePlainFormForOtherModelsAndExceptionalPixels) {
  cv::RNG random(2);
  std::size_t points = 0;
  for (int k = 0; k < 3000; ++k) {
    const cv::Size size(random.uniform(0, 70), random.uniform(0, 70));
    const int mode = pick<int>(random, {1, 1, 1, 2, 2, 2, 0, 3});
    points += expectSameClouds(someImages(random, size, size, size, pick<double>(random, {0, 0.05, 0.5})),
                               someModel(random, mode, size));
  }
  EXPECT_GT(points, 10'000U);
}

TEST(FastClouds, EqualThePlainFormForImagesOfDifferentSizes) {
  cv::RNG random(3);
  std::size_t points = 0;
  const auto size = [&random] { return cv::Size(random.uniform(0, 60), random.uniform(0, 60)); };
  for (int k = 0; k < 2000; ++k) {
    const cv::Size view = size();
    points += expectSameClouds(someImages(random, view, size(), size(), 0.02), someModel(random, 1 + k % 2, view));
  }
  EXPECT_GT(points, 5'000U);
}

TEST(FastClouds, EqualThePlainFormForPartsOfLargerImages) {
  cv::RNG random(4);
  for (int k = 0; k < 60; ++k) {
    const cv::Size size(random.uniform(8, 70), random.uniform(8, 70));
    const CloudImages whole = someImages(random, size, size, size, 0.02);
    const Framed view(whole.view);
    const Framed disparity(whole.disparity);
    const Framed depth(whole.depth);
    expectSameClouds({view.inside(), disparity.inside(), depth.inside()}, usualModel(1 + k % 2, size));
  }
}

TEST(FastClouds, EqualThePlainFormAlongTheRadius) {
  // Whole and half distances, so that pixels lie exactly on the radius, just inside and just outside.
  cv::RNG random(5);
  const cv::Size size(61, 61);
  const CloudImages images = someImages(random, size, size, size, 0);
  for (const double center : {31.0, 30.0, 29.5, 30.3}) {
    for (int threshold = -1; threshold < 45; ++threshold) {
      for (const int mode : {1, 2}) {
        CloudModel model = usualModel(mode, size);
        model.cx = center;
        model.cy = center;
        model.threshold = threshold;
        expectSameClouds(images, model);
      }
    }
  }
}

TEST(FastClouds, EqualThePlainFormToTheLastBitOfTheDoubles) {
  // Single precision hides nearly every change in the arithmetic before it. A view so narrow that all its rays are
  // nearly the same, at one depth: which points of a block are the nearest and the farthest then hangs on the last
  // bits, and in mode 1, at right angles to the axis (|(x, y)| = 1 / xi), so does what is left of the third coordinate.
  cv::RNG random(6);
  const cv::Size size(40, 40);
  std::size_t points = 0;
  for (int k = 0; k < 200; ++k) {
    const CloudImages images{cv::Mat(size, CV_8UC3, cv::Scalar::all(9)), cv::Mat(size, CV_32FC1, cv::Scalar(20)),
                             cv::Mat(size, CV_32FC1, cv::Scalar(between(random, 0.3, 0.7)))};
    CloudModel model = usualModel(1 + k % 2, size);
    const double magnification = pick<double>(random, {1e7, 1e8, 1e9});
    const double angle = between(random, 0, 2 * CV_PI);
    model.xi = between(random, 0.8, 2.5);
    model.fx = magnification;
    model.fy = magnification;
    model.cx = -magnification * std::cos(angle) / model.xi;
    model.cy = -magnification * std::sin(angle) / model.xi;
    model.threshold = most;
    points += expectSameClouds(images, model);
  }
  EXPECT_GT(points, 20'000U);
}
