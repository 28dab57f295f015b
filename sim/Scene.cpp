// SPDX-License-Identifier: Apache-2.0
#include "sim/Scene.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

#include "sim/Texture.hpp"

namespace stereo::sim {

namespace {

// Hits nearer than this are the ray's own starting surface; far below the nearest object, far above rounding.
constexpr double nearestHit = 1e-9;
// Width of the coarsest texture cells as seen by the viewer, radians: the same for any resolution, so that pictures of
// any size show the same surfaces. More than a dozen of the wider pixels.
constexpr double coarsestAngle = 0.12;
constexpr double noHit = std::numeric_limits<double>::infinity();

cv::Matx33d turn(double yawDegrees, double pitchDegrees, double rollDegrees) {
  const double y = yawDegrees * CV_PI / 180.0;
  const double p = pitchDegrees * CV_PI / 180.0;
  const double r = rollDegrees * CV_PI / 180.0;
  const cv::Matx33d yaw(std::cos(y), 0, std::sin(y), 0, 1, 0, -std::sin(y), 0, std::cos(y));
  const cv::Matx33d pitch(1, 0, 0, 0, std::cos(p), -std::sin(p), 0, std::sin(p), std::cos(p));
  const cv::Matx33d roll(std::cos(r), -std::sin(r), 0, std::sin(r), std::cos(r), 0, 0, 0, 1);
  return yaw * pitch * roll;
}

std::vector<Solid> furnish() {
  const cv::Matx33d straight = cv::Matx33d::eye();
  std::vector<Solid> solids;
  // The room: 5 m wide, 2.5 m high, 5 m long; the camera stands in its rear half.
  solids.push_back({Shape::Box, {0.1, -0.15, 0.7}, {2.5, 1.25, 2.5}, straight, {}, 1, 0.0, {0.55F, 0.60F, 0.62F}});
  // Large tilted planes in front; most of their surface is between 0.45 and 1 m, one comes as near as 0.25 m.
  solids.push_back(
      {Shape::Panel, {-0.42, -0.04, 0.68}, {0.26, 0.36, 0}, turn(-38, 0, 4), {}, 1, 0.0, {0.42F, 0.50F, 0.72F}});
  solids.push_back(
      {Shape::Panel, {0.50, -0.02, 0.72}, {0.26, 0.36, 0}, turn(36, 0, -3), {}, 1, 0.0, {0.66F, 0.56F, 0.42F}});
  solids.push_back(
      {Shape::Panel, {0.04, 0.36, 0.62}, {0.46, 0.40, 0}, turn(0, 78, 0), {}, 1, 0.0, {0.40F, 0.55F, 0.62F}});
  solids.push_back({Shape::Panel,
                    {0.05, -0.20, 0.94},
                    {0.36, 0.22, 0},
                    turn(8, -20, 2),
                    {0.02, 0.0, 0.02},
                    1,
                    0.6,
                    {0.50F, 0.68F, 0.48F}});
  solids.push_back(
      {Shape::Panel, {0.02, -0.78, 0.45}, {0.5, 0.4, 0}, turn(0, -65, 5), {}, 1, 0.0, {0.62F, 0.48F, 0.60F}});
  // Near objects in front.
  solids.push_back({Shape::Sphere,
                    {0.07, 0.06, 0.56},
                    {0.09, 0.09, 0.09},
                    straight,
                    {0.03, 0.0, 0.02},
                    1,
                    0.0,
                    {0.36F, 0.44F, 0.78F}});
  solids.push_back({Shape::Box,
                    {-0.12, 0.15, 0.36},
                    {0.045, 0.045, 0.045},
                    turn(30, 25, 10),
                    {0.0, -0.012, 0.0},
                    2,
                    0.9,
                    {0.40F, 0.72F, 0.72F}});
  solids.push_back({Shape::Panel,
                    {0.15, -0.13, 0.18},
                    {0.032, 0.032, 0},
                    turn(-25, 15, 12),
                    {0.006, 0.0, 0.0},
                    1,
                    2.1,
                    {0.70F, 0.50F, 0.50F}});
  solids.push_back({Shape::Sphere,
                    {-0.16, -0.22, 0.52},
                    {0.055, 0.055, 0.055},
                    straight,
                    {0.0, 0.03, 0.0},
                    1,
                    1.4,
                    {0.74F, 0.52F, 0.40F}});
  // Farther objects in front.
  solids.push_back(
      {Shape::Box, {-0.15, 0.55, 2.1}, {0.35, 0.45, 0.3}, turn(25, 0, 0), {}, 1, 0.0, {0.45F, 0.50F, 0.65F}});
  solids.push_back({Shape::Sphere, {0.9, -0.5, 1.9}, {0.35, 0.35, 0.35}, straight, {}, 1, 0.0, {0.62F, 0.66F, 0.46F}});
  // Beside and behind the camera, where only the widest rays reach.
  solids.push_back({Shape::Box, {-0.95, 0.2, -0.1}, {0.2, 0.3, 0.2}, turn(20, 0, 0), {}, 1, 0.0, {0.5F, 0.5F, 0.68F}});
  solids.push_back(
      {Shape::Sphere, {1.1, -0.15, -0.05}, {0.3, 0.3, 0.3}, straight, {0.0, 0.05, 0.0}, 1, 2.6, {0.68F, 0.56F, 0.44F}});
  return solids;
}

cv::Vec3d inFrameOf(const Solid& solid, const cv::Vec3d& vector) { return solid.rotation.t() * vector; }

struct Crossing {
  double distance = noHit;
  int face = 0;
};

Crossing crossBox(const Solid& solid, const cv::Vec3d& origin, const cv::Vec3d& direction) {
  const cv::Vec3d o = inFrameOf(solid, origin - solid.center);
  const cv::Vec3d d = inFrameOf(solid, direction);
  double enter = -noHit;
  double leave = noHit;
  int enterFace = 0;
  int leaveFace = 0;
  for (int axis = 0; axis < 3; ++axis) {
    const double half = solid.halfExtent[axis];
    if (d[axis] == 0.0) {
      if (std::abs(o[axis]) > half) {
        return {};
      }
      continue;
    }
    const double inverse = 1.0 / d[axis];
    const bool forward = inverse > 0.0;
    const double first = ((forward ? -half : half) - o[axis]) * inverse;
    const double second = ((forward ? half : -half) - o[axis]) * inverse;
    if (first > enter) {
      enter = first;
      enterFace = 2 * axis + (forward ? 0 : 1);
    }
    if (second < leave) {
      leave = second;
      leaveFace = 2 * axis + (forward ? 1 : 0);
    }
  }
  if (enter > leave || leave <= nearestHit) {
    return {};
  }
  return enter > nearestHit ? Crossing{enter, enterFace} : Crossing{leave, leaveFace};
}

Crossing crossSphere(const Solid& solid, const cv::Vec3d& origin, const cv::Vec3d& direction) {
  const cv::Vec3d toCenter = solid.center - origin;
  const double along = toCenter.dot(direction);
  const cv::Vec3d aside = toCenter - along * direction;
  const double half2 = solid.halfExtent[0] * solid.halfExtent[0] - aside.dot(aside);
  if (half2 < 0.0) {
    return {};
  }
  const double half = std::sqrt(half2);
  if (along - half > nearestHit) {
    return {along - half, 0};
  }
  return along + half > nearestHit ? Crossing{along + half, 0} : Crossing{};
}

Crossing crossPanel(const Solid& solid, const cv::Vec3d& origin, const cv::Vec3d& direction) {
  const cv::Vec3d normal(solid.rotation(0, 2), solid.rotation(1, 2), solid.rotation(2, 2));
  const double slope = normal.dot(direction);
  if (slope == 0.0) {
    return {};
  }
  const double distance = normal.dot(solid.center - origin) / slope;
  if (!(distance > nearestHit)) {
    return {};
  }
  const cv::Vec3d local = inFrameOf(solid, origin + distance * direction - solid.center);
  if (std::abs(local[0]) > solid.halfExtent[0] || std::abs(local[1]) > solid.halfExtent[1]) {
    return {};
  }
  return {distance, 0};
}

Crossing cross(const Solid& solid, const cv::Vec3d& origin, const cv::Vec3d& direction) {
  switch (solid.shape) {
    case Shape::Box:
      return crossBox(solid, origin, direction);
    case Shape::Sphere:
      return crossSphere(solid, origin, direction);
    case Shape::Panel:
      return crossPanel(solid, origin, direction);
  }
  return {};
}

cv::Vec3d normalOf(const Solid& solid, int face, const cv::Vec3d& local) {
  switch (solid.shape) {
    case Shape::Sphere:
      return solid.rotation * (local / cv::norm(local));
    case Shape::Panel:
      return solid.rotation * cv::Vec3d(0, 0, 1);
    case Shape::Box:
      break;
  }
  cv::Vec3d normal(0, 0, 0);
  normal[face / 2] = face % 2 == 0 ? -1.0 : 1.0;
  return solid.rotation * normal;
}

}  // namespace

SceneSnapshot::SceneSnapshot(std::vector<Solid> solids, std::uint32_t seed)
    : m_solids(std::move(solids)), m_seed(seed) {
  m_reach.reserve(m_solids.size());
  for (const Solid& solid : m_solids) {
    // Slightly wider than the solid, so that rounding cuts off no corner.
    m_reach.push_back((solid.shape == Shape::Sphere ? solid.halfExtent[0] : cv::norm(solid.halfExtent)) * 1.000001);
  }
}

Hit SceneSnapshot::trace(const cv::Vec3d& origin, const cv::Vec3d& direction) const {
  Crossing nearest;
  std::size_t index = 0;
  for (std::size_t i = 0; i < m_solids.size(); ++i) {
    // Most rays miss most solids by far: the bounding sphere saves the exact test.
    const cv::Vec3d toCenter = m_solids[i].center - origin;
    const double along = toCenter.dot(direction);
    const double reach2 = m_reach[i] * m_reach[i];
    const double distance2 = toCenter.dot(toCenter);
    if (distance2 - along * along > reach2 || (along < 0.0 && distance2 > reach2)) {
      continue;
    }
    const Crossing crossing = cross(m_solids[i], origin, direction);
    if (crossing.distance < nearest.distance) {
      nearest = crossing;
      index = i;
    }
  }
  CV_Assert(nearest.distance < noHit);
  const Solid& solid = m_solids[index];
  Hit hit;
  hit.distance = nearest.distance;
  hit.surface = 6 * static_cast<int>(index) + nearest.face;
  hit.point = origin + nearest.distance * direction;
  hit.local = inFrameOf(solid, hit.point - solid.center);
  hit.normal = normalOf(solid, nearest.face, hit.local);
  return hit;
}

bool SceneSnapshot::visible(const cv::Vec3d& origin, const cv::Vec3d& target) const {
  const cv::Vec3d way = target - origin;
  const double length = cv::norm(way);
  // A micrometer of tolerance, so that the target's own surface is not in front of it.
  return trace(origin, way / length).distance > length - 1e-6;
}

cv::Vec3b SceneSnapshot::color(const Hit& hit, const cv::Vec3d& viewer, double pixelAngle) const {
  const auto index = static_cast<std::size_t>(hit.surface) / 6;
  const auto face = static_cast<std::uint32_t>(hit.surface) % 6;
  const cv::Vec3d way = hit.point - viewer;
  const double distance = cv::norm(way);
  const double incidence = std::max(0.15, std::abs(hit.normal.dot(way)) / distance);
  const double spread = distance / incidence;  // meters on the surface for each radian

  // Faces differ a little in color, which shows edges; light comes from above and behind.
  const cv::Vec3d light(0.2, -0.8, -0.566);
  const double shade = 0.7 + 0.3 * std::abs(hit.normal.dot(light));
  const std::uint32_t seed = mixBits(m_seed, static_cast<std::uint32_t>(index));
  cv::Vec3f base = m_solids[index].color;
  for (std::uint32_t c = 0; c < 3; ++c) {
    base[static_cast<int>(c)] *= static_cast<float>(0.8 + 0.4 * unitNumber(seed + 1, 4 * face + c));
  }
  const cv::Vec3f tone = textureColor(hit.local, pixelAngle * spread, coarsestAngle * spread, base, seed);
  cv::Vec3b color;
  for (int c = 0; c < 3; ++c) {
    color[c] = cv::saturate_cast<unsigned char>(255.0 * shade * tone[c]);
  }
  return color;
}

Scene::Scene(const Options& options) : m_options(options), m_solids(furnish()) {
  if (!(options.period > 0.0) || !std::isfinite(options.period)) {
    throw std::invalid_argument("the scene's period must be above 0 s");
  }
  // The room stays; everything else is shifted by up to a centimeter, rotated a little and tinted.
  for (std::size_t i = 1; i < m_solids.size(); ++i) {
    Solid& solid = m_solids[i];
    const std::uint32_t seed = mixBits(options.seed, 1000U + static_cast<std::uint32_t>(i));
    for (std::uint32_t axis = 0; axis < 3; ++axis) {
      solid.center[static_cast<int>(axis)] += 0.02 * (unitNumber(seed, axis) - 0.5);
      solid.color[static_cast<int>(axis)] += static_cast<float>(0.16 * (unitNumber(seed, 10 + axis) - 0.5));
    }
    solid.rotation = turn(6.0 * (unitNumber(seed, 20) - 0.5), 6.0 * (unitNumber(seed, 21) - 0.5), 0) * solid.rotation;
  }
}

SceneSnapshot Scene::at(double time) const {
  std::vector<Solid> solids = m_solids;
  const double cycles = m_options.moving ? time / m_options.period : 0.0;
  for (Solid& solid : solids) {
    const double angle = 2.0 * CV_PI * solid.swingsPerPeriod * (cycles - std::floor(cycles)) + solid.phase;
    solid.center += solid.swing * std::sin(angle);
  }
  return {std::move(solids), m_options.seed};
}

}  // namespace stereo::sim
