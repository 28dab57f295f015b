// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include <opencv2/core.hpp>

#include "sim/Scene.hpp"

namespace stereo::sim::test {

/// Distance from a point to the nearest point of a solid's surface, meters. The room (the first solid) is looked at
/// from inside.
inline double distanceTo(const Solid& solid, bool isRoom, const cv::Vec3d& point) {
  const cv::Vec3d p = solid.rotation.inv() * (point - solid.center);
  if (solid.shape == Shape::sphere) {
    return std::abs(cv::norm(p) - solid.halfExtent[0]);
  }
  const cv::Vec3d over(std::abs(p[0]) - solid.halfExtent[0], std::abs(p[1]) - solid.halfExtent[1],
                       std::abs(p[2]) - solid.halfExtent[2]);
  const cv::Vec3d outside(std::max(over[0], 0.0), std::max(over[1], 0.0), std::max(over[2], 0.0));
  if (isRoom) {
    return -std::max({over[0], over[1], over[2]});
  }
  return cv::norm(outside);
}

/// Distance along a unit ray to the first surface, meters, found without solving for any crossing: steps as long as
/// nothing can be nearer.
inline double march(const std::vector<Solid>& solids, const cv::Vec3d& origin, const cv::Vec3d& direction) {
  double way = 0.0;
  for (int step = 0; step < 20000; ++step) {
    double free = 1e9;
    for (std::size_t i = 0; i < solids.size(); ++i) {
      free = std::min(free, distanceTo(solids[i], i == 0, origin + way * direction));
    }
    if (free < 1e-8) {
      return way;
    }
    way += free;
  }
  return way;
}

}  // namespace stereo::sim::test
