// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::sim {

enum class Shape {
  Box,     ///< Six faces; seen from outside, or from inside where the ray starts there.
  Sphere,  ///< Radius `halfExtent[0]`.
  Panel    ///< Rectangle in its own plane z = 0, seen from both sides.
};

/// One thing in the scene: a shape, where it is and how it swings.
struct Solid {
  Shape shape = Shape::Box;
  cv::Vec3d center;                           ///< metres
  cv::Vec3d halfExtent;                       ///< metres, along its own axes
  cv::Matx33d rotation = cv::Matx33d::eye();  ///< turns its own axes into the scene's
  cv::Vec3d swing;                            ///< metres: the centre moves by swing * sin(phase + ...)
  int swingsPerPeriod = 1;                    ///< whole, so that the motion closes after one period
  double phase = 0.0;                         ///< radians
  cv::Vec3f color{0.5F, 0.5F, 0.5F};          ///< mean blue, green, red, 0 to 1
};

/// Where a ray meets the scene first.
struct Hit {
  double distance = 0.0;  ///< metres along the unit ray
  int surface = -1;       ///< 6 * index of the solid + face (0 to 5 for boxes: -x, +x, -y, +y, -z, +z)
  cv::Vec3d point;        ///< metres, scene frame
  cv::Vec3d local;        ///< metres, frame of the solid
  cv::Vec3d normal;       ///< unit length, scene frame, either sign
};

/// The scene at one instant. Immutable; any number of threads.
class SceneSnapshot {
public:
  SceneSnapshot(std::vector<Solid> solids, std::uint32_t seed);

  /// First surface along `direction` (unit length) from `origin`, a point inside the room: there always is one.
  Hit trace(const cv::Vec3d& origin, const cv::Vec3d& direction) const;

  /// Whether nothing lies between the two points; `target` itself may lie on a surface.
  bool visible(const cv::Vec3d& origin, const cv::Vec3d& target) const;

  /// Colour (blue, green, red) of a surface point, drawn as fine as a viewer at `viewer` (metres) with pixels
  /// `pixelAngle` radians wide can resolve. Doesn't depend on where the ray came from: give the middle between the
  /// eyes, and both eyes see the same colour.
  cv::Vec3b color(const Hit& hit, const cv::Vec3d& viewer, double pixelAngle) const;

  /// The solids as they stand at this instant (the room first); their motion is already applied.
  const std::vector<Solid>& solids() const { return m_solids; }

private:
  std::vector<Solid> m_solids;
  std::vector<double> m_reach;  // radius of the sphere about each solid's centre that holds all of it
  std::uint32_t m_seed;
};

/// A textured room with things in it from 0.15 m to several metres off, for both eyes of a stereo camera.
///
/// Metres, in the rectified left camera's frame: x right, y down, z forward; the left eye is the origin and the right
/// one a few centimetres along +x. Walls stand all round, so that every ray of a lens that sees more than half the
/// world ends on something. The same seed gives the same scene, bit for bit, on any number of threads.
class Scene {
public:
  struct Options {
    std::uint32_t seed = 1;  ///< draws textures, colours and small shifts of the things
    bool moving = true;      ///< false: the scene stands still as at time 0
    double period = 2.0;     ///< seconds after which the motion repeats, above 0
  };

  explicit Scene(const Options& options);

  /// The scene at `time`, seconds.
  SceneSnapshot at(double time) const;

  const Options& options() const { return m_options; }

private:
  Options m_options;
  std::vector<Solid> m_solids;  // at rest
};

}  // namespace stereo::sim
