// SPDX-License-Identifier: Apache-2.0
// Inputs of the benchmarks; the same in every run.
#include "bench/support/Inputs.hpp"

#include <cstdint>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "bench/baseline/PlainDepth.hpp"
#include "bench/baseline/PlainFisheyeMask.hpp"
#include "src/core/RectifyMap.hpp"

namespace stereo::bench {

namespace {

constexpr float baseline = 0.06F;  // meters
constexpr double hFov = 90.0;      // degrees

Eye eye(double fx, double cx, const cv::Vec3d& rotation, double xi) {
  Eye result;
  result.K = (cv::Mat_<double>(3, 3) << fx, 0.1, cx, 0, fx + 1, 400.7, 0, 0, 1);
  result.D = (cv::Mat_<double>(1, 4) << -0.1, 0.02, 0.001, -0.001);
  cv::Rodrigues(rotation, result.R);
  result.xi = cv::Mat(1, 1, CV_64F, cv::Scalar(xi));
  return result;
}

// Random values on a coarse grid, interpolated.
cv::Mat smoothField(cv::Size size, cv::Size grid, cv::RNG& random, double lowest, double highest) {
  cv::Mat coarse(grid, CV_32FC1);
  random.fill(coarse, cv::RNG::UNIFORM, lowest, highest);
  cv::Mat field;
  cv::resize(coarse, field, size, 0, 0, cv::INTER_LINEAR);
  return field;
}

cv::Mat blackened(cv::Size size, const cv::Mat& masked) {
  cv::Mat mask(size, CV_8UC1);
  cv::inRange(masked, cv::Scalar::all(0), cv::Scalar::all(0), mask);
  return mask;
}

}  // namespace

Eye leftEye() { return eye(620, 464.3, {0.01, -0.02, 0.005}, 1.5); }

Eye rightEye() { return eye(618, 461.8, {-0.012, 0.017, -0.004}, 1.48); }

cv::Mat viewMatrix(cv::Size size, int mode) {
  return mode == perspectiveMode ? core::perspectiveCameraMatrix(size, hFov)
                                 : core::lonLatCameraMatrix(size, lonLatField);
}

cv::Mat picture(cv::Size size, int seed) {
  cv::Mat image(size, CV_8UC3);
  cv::RNG random(static_cast<std::uint64_t>(seed) + 1);
  random.fill(image, cv::RNG::UNIFORM, 1, 256);
  cv::blur(image, image, {5, 5});
  return image;
}

cv::Mat matchedDisparity(cv::Size size, int seed) {
  cv::RNG random(static_cast<std::uint64_t>(seed) + 1);
  const double scale = size.width / 464.0;
  cv::Mat disparity = smoothField(size, {9, 8}, random, 12 * scale, 64 * scale);
  const cv::Mat holes = smoothField(size, {31, 27}, random, 0.0, 1.0);
  for (int r = 0; r < size.height; ++r) {
    for (int c = 0; c < size.width; ++c) {
      auto& d = disparity.at<float>(r, c);
      d = holes.at<float>(r, c) < 0.25F ? -1.0F : static_cast<float>(cvRound(d * 16)) / 16;
    }
  }
  return disparity;
}

core::DepthModel depthModel(cv::Size size, int mode) {
  core::DepthModel model;
  model.mode = mode;
  model.b = baseline;
  model.f = viewMatrix(size, perspectiveMode).at<double>(0, 0);
  model.W = size.width;
  model.lonLatFov = lonLatField;
  return model;
}

core::CloudImages cloudImages(cv::Size size, int mode) {
  core::CloudImages images{picture(size, 1), matchedDisparity(size, 2), {}};
  baseline::metricDepth(images.disparity, depthModel(size, mode), images.depth);
  return images;
}

core::CloudModel cloudModel(cv::Size size, int mode) {
  const cv::Mat camera = viewMatrix(size, perspectiveMode);
  core::CloudModel model;
  model.mode = mode;
  model.fx = camera.at<double>(0, 0);
  model.fy = camera.at<double>(1, 1);
  model.cx = camera.at<double>(0, 2);
  model.cy = camera.at<double>(1, 2);
  model.baselineMillimeters = 1000.0 * 0.06;
  model.xi = leftEye().mirror();
  model.threshold = size.width;  // nothing of the view is left out
  return model;
}

cv::Mat reprojection(cv::Size size) {
  const core::CloudModel model = cloudModel(size, perspectiveMode);
  return (cv::Mat_<double>(4, 4) << 1, 0, 0, -model.cx, 0, 1, 0, -model.cy, 0, 0, 0, model.fx, 0, 0,
          1000.0 / model.baselineMillimeters, 0);
}

cv::Mat circleMask(cv::Size size, int radius) {
  cv::Mat first(size, CV_8UC3, cv::Scalar::all(1));
  cv::Mat second = first.clone();
  baseline::convertRawFisheyeImage(radius, first, second);
  return blackened(size, first);
}

cv::Mat ellipseMask(cv::Size size) {
  cv::Mat first(size, CV_8UC3, cv::Scalar::all(1));
  cv::Mat second = first.clone();
  baseline::convertRawFisheyeImage(first, second, 0, 0, 0, 0);
  return blackened(size, first);
}

}  // namespace stereo::bench
