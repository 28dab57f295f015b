// SPDX-License-Identifier: Apache-2.0
// What the camera measures in the simulated room, against the truth. This prints the table in
// docs/accuracy.md.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <vector>

#include <gtest/gtest.h>

#include "sim/SimulatedCamera.hpp"

using std::chrono::microseconds;
using stereo::sim::SimulatedCamera;
using stereo::sim::Truth;
using stereo::sim::View;

namespace {

constexpr double nearest = 0.2;   // meters
constexpr double farthest = 1.0;  // meters
constexpr double reach = 31.0;    // pixels of disparity that the matchers can find

double quantile(std::vector<double> values, double share) {
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

std::vector<double> absolute(std::vector<double> values) {
  for (double& value : values) {
    value = std::abs(value);
  }
  return values;
}

// Relative errors of depth over the pixels of one part of the view.
struct Errors {
  std::vector<double> relative;
  std::size_t candidates = 0;

  double bias() const { return quantile(relative, 0.5); }
  double median() const { return quantile(absolute(relative), 0.5); }
  double p90() const { return quantile(absolute(relative), 0.9); }
  double validShare() const { return static_cast<double>(relative.size()) / static_cast<double>(candidates); }
  void print(const char* what) const {
    std::printf("| %-28s | %7zu | %5.1f | %6.2f | %5.2f | %6.2f |\n", what, candidates, 100 * validShare(),
                100 * bias(), 100 * median(), 100 * p90());
  }
};

struct Setting {
  int algorithm;
  cv::Size size;
  double field;
};

void PrintTo(const Setting& setting, std::ostream* out) {
  *out << (setting.algorithm == 0 ? "semi-global " : "block ") << setting.size.width << " x " << setting.size.height
       << " over " << setting.field << " degrees";
}

std::unique_ptr<SimulatedCamera> runningCamera(const Setting& setting, int depthMode) {
  SimulatedCamera::Options options;
  options.moving = false;
  options.rectFrameSize = setting.size;
  auto camera = std::make_unique<SimulatedCamera>(options);
  camera->setDepthMode(depthMode);
  camera->setAlgorithm(setting.algorithm);
  camera->setHorizontalField(setting.field);
  camera->setDepthLimits(0.05F, 20.0F);  // beyond the depths that are looked at, so that no error is cut off
  camera->setCloudRadius(10000);
  camera->startCapture(false, false);
  camera->startStereoCompute();
  return camera;
}

// One disparity and its meters.
cv::Mat metricDepth(SimulatedCamera& camera) {
  std::vector<cv::Vec3f> points;
  microseconds timestamp{0};
  camera.getPointCloud(points, timestamp);
  cv::Mat disparity = camera.latestDisparity().second;
  cv::Mat depth;
  camera.getDepthFrame(disparity, depth);
  return depth;
}

class DepthAccuracy : public testing::TestWithParam<Setting> {};

}  // namespace

// Limits: the bias may be 1 % of the depth. A tenth of a pixel, which is what a matcher with sixteenths can be expected
// to do on a clean picture, is 1.3 % of the depth at 1 m with f = 232 px and b = 60 mm (d = 14 px), which bounds the
// median of the errors; the tail (edges, slanted surfaces under a 9 x 9 block) is held to a third of a pixel.
TEST_P(DepthAccuracy, OfThePinholeFormula) {
  const Setting setting = GetParam();
  const auto camera = runningCamera(setting, 2);
  const cv::Mat depth = metricDepth(*camera);
  const View view = camera->perspectiveView();
  const Truth truth = camera->truth(view);
  Errors all;
  Errors withinReach;
  std::map<int, Errors> rings;
  for (int r = 0; r < depth.rows; ++r) {
    for (int c = 0; c < depth.cols; ++c) {
      const double z = truth.depth.at<double>(r, c);
      if (!(z >= nearest && z <= farthest)) {
        continue;
      }
      const bool findable = truth.seen.at<uchar>(r, c) != 0 && truth.disparity.at<double>(r, c) <= reach;
      const int ring = static_cast<int>(std::acos(view.ray(c, r)[2]) * 180 / CV_PI / 10);
      const float measured = depth.at<float>(r, c);
      ++all.candidates;
      withinReach.candidates += findable ? 1 : 0;
      rings[ring].candidates += findable ? 1 : 0;
      if (measured > 0) {
        const double error = (measured - z) / z;
        all.relative.push_back(error);
        if (findable) {
          withinReach.relative.push_back(error);
          rings[ring].relative.push_back(error);
        }
      }
    }
  }
  std::printf("\n%s, %d x %d, %.0f degrees\n\n", setting.algorithm == 0 ? "Semi-global matching" : "Block matching",
              setting.size.width, setting.size.height, setting.field);
  std::printf(
      "| pixels                       | number  | valid %% | bias %% | median %% | 90 %% "
      "|\n|---|---|---|---|---|---|\n");
  all.print("0.2 to 1.0 m");
  withinReach.print("of these, within reach");
  for (const auto& [ring, errors] : rings) {
    if (errors.relative.size() > 500) {
      char name[40];
      std::snprintf(name, sizeof name, "%d to %d degrees off axis", 10 * ring, 10 * ring + 10);
      errors.print(name);
    }
  }
  EXPECT_GT(withinReach.candidates, 20000U);
  EXPECT_LT(std::abs(withinReach.bias()), 0.01);
  EXPECT_LT(withinReach.median(), 0.016);
  EXPECT_LT(withinReach.p90(), 0.045);
  EXPECT_GT(withinReach.validShare(), 0.80);
  // With things nearer than the matchers' reach: the median still holds.
  EXPECT_LT(std::abs(all.bias()), 0.02);
}

INSTANTIATE_TEST_SUITE_P(Settings, DepthAccuracy,
                         testing::Values(Setting{0, {464, 400}, 90}, Setting{1, {464, 400}, 90},
                                         Setting{0, {464, 400}, 120}, Setting{1, {464, 400}, 120},
                                         Setting{0, {928, 800}, 120}, Setting{1, {928, 800}, 120}));

namespace {

// Least-squares plane n . p = e through points; returns n and e with |n| = 1.
cv::Vec4d planeThrough(const std::vector<cv::Vec3d>& points) {
  cv::Vec3d mean(0, 0, 0);
  for (const cv::Vec3d& point : points) {
    mean += point;
  }
  mean *= 1.0 / static_cast<double>(points.size());
  cv::Matx33d scatter = cv::Matx33d::zeros();
  for (const cv::Vec3d& point : points) {
    const cv::Vec3d off = point - mean;
    scatter += off * off.t();
  }
  cv::Mat values;
  cv::Mat vectors;
  cv::eigen(cv::Mat(scatter), values, vectors);
  const cv::Vec3d n(vectors.at<double>(2, 0), vectors.at<double>(2, 1), vectors.at<double>(2, 2));
  return {n[0], n[1], n[2], n.dot(mean)};
}

double distanceTo(const cv::Vec4d& plane, const cv::Vec3d& point) {
  return plane[0] * point[0] + plane[1] * point[1] + plane[2] * point[2] - plane[3];
}

}  // namespace

// The clouds of depth mode 2 look depth up with row and column changed. In a square view with its center in the middle
// that amounts to points with x and y changed: put back, they must lie on what they show.
TEST(CloudAccuracy, PointsLieOnTheScenesPlanes) {
  for (const int algorithm : {0, 1}) {
    const auto camera = runningCamera({algorithm, {480, 480}, 90}, 2);
    const View view = camera->perspectiveView();
    const Truth truth = camera->truth(view);
    std::vector<cv::Vec3f> plain;
    std::vector<PCL> colored;
    microseconds timestamp{0};
    ASSERT_TRUE(camera->getPointCloud(plain, timestamp));
    ASSERT_TRUE(camera->getPointCloud(colored, timestamp));
    std::vector<cv::Vec3f> fromColored;
    for (const PCL& point : colored) {
      fromColored.push_back(point.point);
    }
    for (const auto& cloud : {plain, fromColored}) {
      Errors errors;
      std::map<int, std::vector<cv::Vec3d>> measuredOn;
      std::map<int, std::vector<cv::Vec3d>> trueOn;
      for (const cv::Vec3f& raw : cloud) {
        if (!std::isfinite(raw[2])) {
          continue;  // a disparity of 0, which only the plain form lets through
        }
        const cv::Vec3d point(raw[1], raw[0], raw[2]);
        const cv::Point2d pixel = view.pixel(point);
        const int c = cvRound(pixel.x);
        const int r = cvRound(pixel.y);
        ASSERT_NEAR(pixel.x, c, 1e-3);
        ASSERT_NEAR(pixel.y, r, 1e-3);
        const double z = truth.depth.at<double>(r, c);
        if (!(z >= nearest && z <= farthest) || truth.seen.at<uchar>(r, c) == 0 ||
            truth.disparity.at<double>(r, c) > reach) {
          continue;
        }
        errors.relative.push_back((point[2] - z) / z);
        const int surface = truth.surface.at<int>(r, c);
        measuredOn[surface].push_back(point);
        trueOn[surface].push_back(view.ray(c, r) * truth.distance.at<double>(r, c));
      }
      errors.candidates = errors.relative.size();
      ASSERT_GT(errors.candidates, 2000U);
      std::printf("cloud of %zu points, %s: bias %.2f %%, median %.2f %%, 90 %% %.2f %%\n", errors.candidates,
                  algorithm == 0 ? "semi-global" : "block matching", 100 * errors.bias(), 100 * errors.median(),
                  100 * errors.p90());
      EXPECT_LT(std::abs(errors.bias()), 0.01);
      EXPECT_LT(errors.median(), 0.016);
      EXPECT_LT(errors.p90(), 0.045);
      int planes = 0;
      for (const auto& [surface, points] : trueOn) {
        const cv::Vec4d plane = planeThrough(points);
        double bend = 0;
        for (const cv::Vec3d& point : points) {
          bend = std::max(bend, std::abs(distanceTo(plane, point)));
        }
        if (points.size() < 200 || bend > 1e-6) {
          continue;  // too little of it, or not a plane
        }
        ++planes;
        std::vector<double> offsets;
        for (const cv::Vec3d& point : measuredOn[surface]) {
          offsets.push_back(distanceTo(plane, point) / cv::norm(point));
        }
        EXPECT_LT(std::abs(quantile(offsets, 0.5)), 0.01) << surface;
        EXPECT_LT(quantile(absolute(offsets), 0.5), 0.016) << surface;
        EXPECT_LT(quantile(absolute(offsets), 0.9), 0.045) << surface;
      }
      EXPECT_GE(planes, 2);
    }
  }
}

// Depth mode 1 takes the pictures to span 180 degrees, while they span 145.9. By its own formula its meters are the
// distance along the ray of a point that is seen where the picture would show it then; near the axis that comes to
// alpha / pi = 0.81 of the true distance.
TEST(LongitudeLatitudeDepth, IsRelativeByTheRatioOfTheFields) {
  const auto camera = runningCamera({0, {464, 400}, 90}, 1);
  const cv::Mat depth = metricDepth(*camera);
  const View view = camera->lonLatView();
  const Truth truth = camera->truth(view);
  std::map<int, std::vector<double>> ratios;
  for (int r = 0; r < depth.rows; ++r) {
    for (int c = 0; c < depth.cols; ++c) {
      const double distance = truth.distance.at<double>(r, c);
      if (distance >= nearest && distance <= 3 && truth.seen.at<uchar>(r, c) != 0 &&
          truth.disparity.at<double>(r, c) <= reach && depth.at<float>(r, c) > 0) {
        const int ring = static_cast<int>(std::acos(view.ray(c, r)[2]) * 180 / CV_PI / 10);
        ratios[ring].push_back(depth.at<float>(r, c) / distance);
      }
    }
  }
  std::printf("\n| off axis, degrees | measured / true distance, median |\n|---|---|\n");
  for (const auto& [ring, values] : ratios) {
    if (values.size() > 500) {
      std::printf("| %d to %d | %.3f |\n", 10 * ring, 10 * ring + 10, quantile(values, 0.5));
    }
  }
  ASSERT_GT(ratios[0].size(), 500U);
  EXPECT_NEAR(quantile(ratios[0], 0.5), 180.0 / 222, 0.02);
}
