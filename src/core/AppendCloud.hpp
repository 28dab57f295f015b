// SPDX-License-Identifier: Apache-2.0
// Clouds in the form that the reads return: points appended to a caller's list.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "src/core/Cloud.hpp"

namespace stereo::core {

namespace detail {

template <typename Point, typename Make>
void append(const SampledCloud& cloud, const Make& make, std::vector<Point>& points) {
  points.resize(points.size() + cloud.size());
  std::transform(cloud.begin(), cloud.end(), points.end() - static_cast<std::ptrdiff_t>(cloud.size()), make);
}

}  // namespace detail

/// Appends the points of the plain cloud, meters. See `sampleCloud`.
inline void appendPlainCloud(const CloudImages& images, const CloudModel& model, std::vector<cv::Vec3f>& points) {
  const SampledCloud cloud = sampleCloud(images, model, CloudForm::plain);
  detail::append(
      cloud, [](const CloudPoint& sampled) { return sampled.point; }, points);
}

/// Appends the points of the colored cloud, each as `Point{position in meters, color}` with the color (blue, green,
/// red) of the view's pixel that it was sampled at.
template <typename Point>
void appendColoredCloud(const CloudImages& images, const CloudModel& model, std::vector<Point>& points) {
  const SampledCloud cloud = sampleCloud(images, model, CloudForm::colored);
  detail::append(
      cloud,
      [&](const CloudPoint& sampled) {
        return Point{sampled.point, images.view.ptr<cv::Vec3b>(sampled.row)[sampled.col]};
      },
      points);
}

}  // namespace stereo::core
