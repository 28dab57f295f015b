// SPDX-License-Identifier: Apache-2.0
// A textured room of known geometry.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::sim {

enum class Shape {
  box,     ///< Six faces; seen from outside, or from inside if the ray starts there.
  sphere,  ///< Radius `halfExtent[0]`.
  panel    ///< Rectangle in its own plane z = 0, seen from both sides.
};

/// One object of the scene: its shape, pose and motion.
struct Solid {
  Shape shape = Shape::box;
  cv::Vec3d center;                           ///< meters
  cv::Vec3d halfExtent;                       ///< meters, along its own axes
  cv::Matx33d rotation = cv::Matx33d::eye();  ///< from its own axes to the scene's
  cv::Vec3d swing;                            ///< meters: the center moves by swing * sin(phase + ...)
  int swingsPerPeriod = 1;                    ///< an integer, so that the motion repeats after one period
  double phase = 0.0;                         ///< radians
  cv::Vec3f color{0.5F, 0.5F, 0.5F};          ///< mean blue, green, red, 0 to 1
  double plain = 0.0;                         ///< how far the texture is blended to the mean color, 0 to 1
  double square = 0.0;  ///< above 0, of panels: edge of the squares of a checkered pattern, meters
};

/// First intersection of a ray with the scene.
struct Hit {
  double distance = 0.0;  ///< meters along the unit ray
  int surface = -1;       ///< 6 * index of the solid + face (0 to 5 for boxes: -x, +x, -y, +y, -z, +z)
  cv::Vec3d point;        ///< meters, scene frame
  cv::Vec3d local;        ///< meters, frame of the solid
  cv::Vec3d normal;       ///< unit length, scene frame, either sign
};

/// The scene at one instant. Immutable; any thread.
class SceneSnapshot {
public:
  SceneSnapshot(std::vector<Solid> solids, std::uint32_t seed);

  /// First surface along `direction` (unit length) from `origin`, a point inside the room, so there always is one.
  Hit trace(const cv::Vec3d& origin, const cv::Vec3d& direction) const;

  /// Whether nothing is between the two points; `target` itself may be on a surface.
  bool visible(const cv::Vec3d& origin, const cv::Vec3d& target) const;

  /// Color (blue, green, red) of a surface point, with the detail that a viewer at `viewer` (meters) with pixels
  /// `pixelAngle` radians wide can resolve. Does not depend on the ray's origin: with the midpoint between the eyes as
  /// viewer, both eyes see the same color.
  cv::Vec3b color(const Hit& hit, const cv::Vec3d& viewer, double pixelAngle) const;

  /// The solids at this instant, the room first; their motion is already applied.
  const std::vector<Solid>& solids() const { return m_solids; }

private:
  std::vector<Solid> m_solids;
  std::vector<double> m_reach;  // radius of each solid's bounding sphere about its center
  std::uint32_t m_seed;
};

/// What is in the room, and which surfaces are plain.
struct Scenery {
  int things = 0;            ///< above 0: a random room with so many boxes, spheres and panels, from 0.1 m on
  int nearThings = 0;        ///< further things with surfaces 0.05 to 0.09 m from the left eye
  int poles = 0;             ///< thin upright poles 0.4 to 3 m away
  int nearPoles = 0;         ///< upright poles 0.15 to 0.4 m away, 4 to 30 mm thick
  int plates = 0;            ///< checkered plates without any other texture, 0.15 to 0.8 m away
  bool plainWalls = false;   ///< whether walls, floor and ceiling are plain
  double plainThings = 0.0;  ///< percent of the things that are plain
  double plain = 90.0;       ///< how far plain surfaces are blended to one color, percent
};

/// A textured room with objects from 0.15 m to several meters away, or as its scenery says.
///
/// Meters, in the rectified left camera's frame: x right, y down, z forward; the left eye is the origin and the right
/// one a few centimeters along +x. Walls are on all sides, so that every ray of a lens with more than 180 degrees hits
/// something. The same seed gives the same scene, bit for bit, on any number of threads.
class Scene {
public:
  struct Options {
    std::uint32_t seed = 1;  ///< of textures, colors and small shifts of the objects
    bool moving = true;      ///< false: the scene stays as at time 0
    double period = 2.0;     ///< seconds after which the motion repeats, above 0
    Scenery scenery = {};
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
