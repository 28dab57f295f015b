// SPDX-License-Identifier: Apache-2.0
#include "sim/Scene.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>
#include <utility>

#include "sim/Furniture.hpp"
#include "sim/Texture.hpp"

namespace stereo::sim {

namespace {

// Hits nearer than this are the ray's own starting surface; far below the nearest object, far above rounding.
constexpr double nearestHit = 1e-9;
// Width of the coarsest texture cells as seen by the viewer, radians: the same for any resolution, so that pictures of
// any size show the same surfaces. More than a dozen of the wider pixels.
constexpr double coarsestAngle = 0.12;
constexpr double noHit = std::numeric_limits<double>::infinity();

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
    case Shape::box:
      return crossBox(solid, origin, direction);
    case Shape::sphere:
      return crossSphere(solid, origin, direction);
    case Shape::panel:
      return crossPanel(solid, origin, direction);
  }
  return {};
}

cv::Vec3d normalOf(const Solid& solid, int face, const cv::Vec3d& local) {
  switch (solid.shape) {
    case Shape::sphere:
      return solid.rotation * (local / cv::norm(local));
    case Shape::panel:
      return solid.rotation * cv::Vec3d(0, 0, 1);
    case Shape::box:
      break;
  }
  cv::Vec3d normal(0, 0, 0);
  normal[face / 2] = face % 2 == 0 ? -1.0 : 1.0;
  return solid.rotation * normal;
}

// Mean over `width` about x of a wave that is 1 and -1 in turn, over a length of 1 each.
double squareWave(double x, double width) {
  // Its integral rises and falls by turns.
  const auto integral = [](double at) { return 1.0 - std::abs(std::fmod(std::fmod(at, 2.0) + 2.0, 2.0) - 1.0); };
  return (integral(x + 0.5 * width) - integral(x - 0.5 * width)) / width;
}

}  // namespace

SceneSnapshot::SceneSnapshot(std::vector<Solid> solids, std::uint32_t seed)
    : m_solids(std::move(solids)), m_seed(seed) {
  m_reach.reserve(m_solids.size());
  for (const Solid& solid : m_solids) {
    // Slightly wider than the solid, so that rounding cuts off no corner.
    m_reach.push_back((solid.shape == Shape::sphere ? solid.halfExtent[0] : cv::norm(solid.halfExtent)) * 1.000001);
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
  if (const double square = m_solids[index].square; square > 0.0) {
    constexpr double contrast = 0.6;
    const double footprint = pixelAngle * spread;
    base *= static_cast<float>(1.0 + contrast * squareWave(hit.local[0] / square, footprint / square) *
                                         squareWave(hit.local[1] / square, footprint / square));
  }
  cv::Vec3f tone = textureColor(hit.local, pixelAngle * spread, coarsestAngle * spread, base, seed);
  if (const auto plain = static_cast<float>(m_solids[index].plain); plain > 0.0F) {
    tone = (1.0F - plain) * tone + plain * base;
  }
  cv::Vec3b color;
  for (int c = 0; c < 3; ++c) {
    color[c] = cv::saturate_cast<unsigned char>(255.0 * shade * tone[c]);
  }
  return color;
}

Scene::Scene(const Options& options)
    : m_options(options),
      m_solids(options.scenery.things > 0 ? randomRoom(options.seed, options.scenery.things)
                                          : furnishedRoom(options.seed)) {
  applyScenery(options.scenery, options.seed, m_solids);
  if (!(options.period > 0.0) || !std::isfinite(options.period)) {
    throw std::invalid_argument("the scene's period must be above 0 s");
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
