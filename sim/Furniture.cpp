// SPDX-License-Identifier: Apache-2.0
#include "sim/Furniture.hpp"

#include <cmath>

#include "sim/Texture.hpp"

namespace stereo::sim {

namespace {

cv::Matx33d turn(double yawDegrees, double pitchDegrees, double rollDegrees) {
  const double y = yawDegrees * CV_PI / 180.0;
  const double p = pitchDegrees * CV_PI / 180.0;
  const double r = rollDegrees * CV_PI / 180.0;
  const cv::Matx33d yaw(std::cos(y), 0, std::sin(y), 0, 1, 0, -std::sin(y), 0, std::cos(y));
  const cv::Matx33d pitch(1, 0, 0, 0, std::cos(p), -std::sin(p), 0, std::sin(p), std::cos(p));
  const cv::Matx33d roll(std::cos(r), -std::sin(r), 0, std::sin(r), std::cos(r), 0, 0, 0, 1);
  return yaw * pitch * roll;
}

std::vector<Solid> furniture() {
  const cv::Matx33d straight = cv::Matx33d::eye();
  std::vector<Solid> solids;
  // The room: 5 m wide, 2.5 m high, 5 m long; the camera stands in its rear half.
  solids.push_back({Shape::box, {0.1, -0.15, 0.7}, {2.5, 1.25, 2.5}, straight, {}, 1, 0.0, {0.55F, 0.60F, 0.62F}});
  // Large tilted planes in front; most of their surface is between 0.45 and 1 m, one comes as near as 0.25 m.
  solids.push_back(
      {Shape::panel, {-0.42, -0.04, 0.68}, {0.26, 0.36, 0}, turn(-38, 0, 4), {}, 1, 0.0, {0.42F, 0.50F, 0.72F}});
  solids.push_back(
      {Shape::panel, {0.50, -0.02, 0.72}, {0.26, 0.36, 0}, turn(36, 0, -3), {}, 1, 0.0, {0.66F, 0.56F, 0.42F}});
  solids.push_back(
      {Shape::panel, {0.04, 0.36, 0.62}, {0.46, 0.40, 0}, turn(0, 78, 0), {}, 1, 0.0, {0.40F, 0.55F, 0.62F}});
  solids.push_back({Shape::panel,
                    {0.05, -0.20, 0.94},
                    {0.36, 0.22, 0},
                    turn(8, -20, 2),
                    {0.02, 0.0, 0.02},
                    1,
                    0.6,
                    {0.50F, 0.68F, 0.48F}});
  solids.push_back(
      {Shape::panel, {0.02, -0.78, 0.45}, {0.5, 0.4, 0}, turn(0, -65, 5), {}, 1, 0.0, {0.62F, 0.48F, 0.60F}});
  // Near objects in front.
  solids.push_back({Shape::sphere,
                    {0.07, 0.06, 0.56},
                    {0.09, 0.09, 0.09},
                    straight,
                    {0.03, 0.0, 0.02},
                    1,
                    0.0,
                    {0.36F, 0.44F, 0.78F}});
  solids.push_back({Shape::box,
                    {-0.12, 0.15, 0.36},
                    {0.045, 0.045, 0.045},
                    turn(30, 25, 10),
                    {0.0, -0.012, 0.0},
                    2,
                    0.9,
                    {0.40F, 0.72F, 0.72F}});
  solids.push_back({Shape::panel,
                    {0.15, -0.13, 0.18},
                    {0.032, 0.032, 0},
                    turn(-25, 15, 12),
                    {0.006, 0.0, 0.0},
                    1,
                    2.1,
                    {0.70F, 0.50F, 0.50F}});
  solids.push_back({Shape::sphere,
                    {-0.16, -0.22, 0.52},
                    {0.055, 0.055, 0.055},
                    straight,
                    {0.0, 0.03, 0.0},
                    1,
                    1.4,
                    {0.74F, 0.52F, 0.40F}});
  // Farther objects in front.
  solids.push_back(
      {Shape::box, {-0.15, 0.55, 2.1}, {0.35, 0.45, 0.3}, turn(25, 0, 0), {}, 1, 0.0, {0.45F, 0.50F, 0.65F}});
  solids.push_back({Shape::sphere, {0.9, -0.5, 1.9}, {0.35, 0.35, 0.35}, straight, {}, 1, 0.0, {0.62F, 0.66F, 0.46F}});
  // Beside and behind the camera, where only the widest rays reach.
  solids.push_back({Shape::box, {-0.95, 0.2, -0.1}, {0.2, 0.3, 0.2}, turn(20, 0, 0), {}, 1, 0.0, {0.5F, 0.5F, 0.68F}});
  solids.push_back(
      {Shape::sphere, {1.1, -0.15, -0.05}, {0.3, 0.3, 0.3}, straight, {0.0, 0.05, 0.0}, 1, 2.6, {0.68F, 0.56F, 0.44F}});
  return solids;
}

/// Random numbers of one thing.
class Draws {
public:
  Draws(std::uint32_t seed, std::uint32_t thing) : m_seed(mixBits(seed, thing)) {}

  double between(double least, double most) { return least + (most - least) * unitNumber(m_seed, m_drawn++); }
  /// Each factor is as likely as any other.
  double scaled(double least, double most) { return std::exp(between(std::log(least), std::log(most))); }

private:
  std::uint32_t m_seed;
  std::uint32_t m_drawn = 0;
};

// First numbers of the things' seeds, so that more of one kind don't change the others.
constexpr std::uint32_t firstThing = 20000;
constexpr std::uint32_t firstNearThing = 30000;
constexpr std::uint32_t firstPole = 40000;
constexpr std::uint32_t firstPlain = 50000;
constexpr std::uint32_t firstNearPole = 60000;
constexpr std::uint32_t firstPlate = 70000;

cv::Vec3d drawDirection(Draws& draws, double mostOffAxisDegrees) {
  const double z = draws.between(std::cos(mostOffAxisDegrees * CV_PI / 180.0), 1.0);
  const double about = draws.between(0.0, 2.0 * CV_PI);
  const double aside = std::sqrt(1.0 - z * z);
  return {aside * std::cos(about), aside * std::sin(about), z};
}

cv::Vec3f drawColor(Draws& draws) {
  cv::Vec3f color;
  for (int c = 0; c < 3; ++c) {
    color[c] = static_cast<float>(draws.between(0.35, 0.72));
  }
  return color;
}

/// A thing in a sphere that begins `distance` meters from the left eye and reaches `angle` degrees to all sides.
Solid drawThing(Draws& draws, const cv::Vec3d& direction, double distance, double angle) {
  const double share = std::sin(angle * CV_PI / 180.0);
  double radius = distance * share / (1.0 - share);
  // The right eye, wherever between 50 and 80 mm it is, stays outside.
  for (const double aside : {0.05, 0.065, 0.08}) {
    while (cv::norm((distance + radius) * direction - cv::Vec3d(aside, 0, 0)) < radius + 0.02) {
      radius *= 0.8;
    }
  }
  Solid thing;
  thing.center = (distance + radius) * direction;
  thing.color = drawColor(draws);
  const double kind = draws.between(0.0, 1.0);
  if (kind < 0.3) {
    thing.shape = Shape::sphere;
    thing.halfExtent = cv::Vec3d::all(radius);
    return thing;
  }
  const double yaw = draws.between(-180, 180);
  const double pitch = draws.between(-60, 60);
  const double roll = draws.between(-180, 180);
  thing.rotation = turn(yaw, pitch, roll);
  cv::Vec3d extent;
  for (int axis = 0; axis < 3; ++axis) {
    extent[axis] = draws.between(0.4, 1.0);
  }
  if (kind < 0.5) {
    thing.shape = Shape::panel;
    extent[2] = 0.0;
  }
  thing.halfExtent = extent * (radius / cv::norm(extent));
  return thing;
}

struct Span {
  double least;
  double most;
};

/// An upright pole; `halfWidth` in meters.
Solid drawPole(Draws& draws, const Span& away, const Span& halfWidth) {
  const double aside = draws.between(-80, 80) * CV_PI / 180.0;
  const double distance = draws.scaled(away.least, away.most);
  const double width = draws.scaled(halfWidth.least, halfWidth.most);
  const double pitch = draws.between(-5, 5);
  const double roll = draws.between(-5, 5);
  Solid pole;
  pole.center = {distance * std::sin(aside), 0.0, distance * std::cos(aside)};
  pole.halfExtent = {width, 2.0, width};
  pole.rotation = turn(aside * 180.0 / CV_PI, pitch, roll);
  pole.color = drawColor(draws);
  return pole;
}

/// A plate that faces the eyes, more or less, with squares of 2 to 10 degrees.
Solid drawPlate(Draws& draws) {
  const cv::Vec3d direction = drawDirection(draws, 65.0);
  const double distance = draws.scaled(0.15, 0.8);
  const double yaw = std::atan2(direction[0], direction[2]) * 180.0 / CV_PI + draws.between(-25, 25);
  const double pitch = -std::asin(direction[1]) * 180.0 / CV_PI + draws.between(-25, 25);
  Solid plate;
  plate.shape = Shape::panel;
  plate.center = distance * direction;
  plate.halfExtent = {distance * draws.between(0.2, 0.5), distance * draws.between(0.2, 0.5), 0.0};
  plate.rotation = turn(yaw, pitch, draws.between(-10, 10));
  plate.color = drawColor(draws);
  plate.plain = 1.0;
  plate.square = distance * draws.scaled(0.035, 0.17);
  return plate;
}

}  // namespace

std::vector<Solid> furnishedRoom(std::uint32_t seed) {
  std::vector<Solid> solids = furniture();
  // The room stays; everything else is shifted by up to a centimeter, rotated a little and tinted.
  for (std::size_t i = 1; i < solids.size(); ++i) {
    Solid& solid = solids[i];
    const std::uint32_t own = mixBits(seed, 1000U + static_cast<std::uint32_t>(i));
    for (std::uint32_t axis = 0; axis < 3; ++axis) {
      solid.center[static_cast<int>(axis)] += 0.02 * (unitNumber(own, axis) - 0.5);
      solid.color[static_cast<int>(axis)] += static_cast<float>(0.16 * (unitNumber(own, 10 + axis) - 0.5));
    }
    solid.rotation = turn(6.0 * (unitNumber(own, 20) - 0.5), 6.0 * (unitNumber(own, 21) - 0.5), 0) * solid.rotation;
  }
  return solids;
}

std::vector<Solid> randomRoom(std::uint32_t seed, int things) {
  std::vector<Solid> solids;
  Draws walls(seed, firstThing - 1);
  Solid room;
  room.halfExtent[0] = walls.scaled(1.3, 5.0);
  room.halfExtent[1] = walls.scaled(1.2, 2.5);
  room.halfExtent[2] = walls.scaled(1.6, 7.0);
  const double yaw = walls.between(-25, 25);
  const double pitch = walls.between(-8, 8);
  const double roll = walls.between(-8, 8);
  room.rotation = turn(yaw, pitch, roll);
  for (int axis = 0; axis < 3; ++axis) {
    // Each wall is at least 0.8 m away.
    room.center[axis] = (room.halfExtent[axis] - 0.8) * walls.between(-1.0, 1.0);
  }
  room.center = room.rotation * room.center;
  room.color = drawColor(walls);
  solids.push_back(room);
  for (int n = 0; n < things; ++n) {
    Draws draws(seed, firstThing + static_cast<std::uint32_t>(n));
    const cv::Vec3d direction = drawDirection(draws, 95.0);
    const double distance = draws.scaled(0.11, 6.0);
    const double angle = draws.between(3.0, 17.0);
    Solid thing = drawThing(draws, direction, distance, angle);
    if (distance > 0.5 && draws.between(0.0, 1.0) < 0.3) {
      for (int axis = 0; axis < 3; ++axis) {
        thing.swing[axis] = 0.1 * draws.between(-distance, distance);
      }
      thing.phase = draws.between(0.0, 2.0 * CV_PI);
    }
    solids.push_back(thing);
  }
  return solids;
}

void applyScenery(const Scenery& scenery, std::uint32_t seed, std::vector<Solid>& solids) {
  for (int n = 0; n < scenery.nearThings; ++n) {
    Draws draws(seed, firstNearThing + static_cast<std::uint32_t>(n));
    const cv::Vec3d direction = drawDirection(draws, 70.0);
    const double distance = draws.between(0.05, 0.09);
    const double angle = draws.between(5.0, 16.0);
    solids.push_back(drawThing(draws, direction, distance, angle));
  }
  for (int n = 0; n < scenery.poles; ++n) {
    Draws draws(seed, firstPole + static_cast<std::uint32_t>(n));
    solids.push_back(drawPole(draws, {0.4, 3.0}, {0.003, 0.012}));
  }
  for (int n = 0; n < scenery.nearPoles; ++n) {
    Draws draws(seed, firstNearPole + static_cast<std::uint32_t>(n));
    solids.push_back(drawPole(draws, {0.15, 0.4}, {0.002, 0.015}));
  }
  for (int n = 0; n < scenery.plates; ++n) {
    Draws draws(seed, firstPlate + static_cast<std::uint32_t>(n));
    solids.push_back(drawPlate(draws));
  }
  for (std::size_t i = 0; i < solids.size(); ++i) {
    const double drawn = 100.0 * unitNumber(mixBits(seed, firstPlain), static_cast<std::uint32_t>(i));
    if (i == 0 ? scenery.plainWalls : drawn < scenery.plainThings) {
      solids[i].plain = std::max(solids[i].plain, 0.01 * scenery.plain);
    }
  }
}

}  // namespace stereo::sim
