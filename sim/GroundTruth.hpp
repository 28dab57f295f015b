// SPDX-License-Identifier: Apache-2.0
// True depth of rectified pixels.
#pragma once

#include <memory>

#include <opencv2/core.hpp>

#include "sim/Rig.hpp"
#include "sim/Scene.hpp"

namespace stereo::sim {

/// A rectified view as the camera makes it: pixel to ray, and point to pixel.
class View {
public:
  /// Pinhole with focal length f = (W / 2) / tan(field / 2) pixels and its center at (W / 2 - 0.5, H / 2 - 0.5).
  static View perspective(const cv::Size& size, double horizontalFieldDegrees);
  /// Longitude and latitude, each over the range alpha = rangeDegrees / 222 * pi around the axis: pixel (col, row) has
  /// a = pi / 2 + (col - W / 2) alpha / W and b = pi / 2 + (row - H / 2) alpha / H; its ray is
  /// (-cos a, -sin a cos b, sin a sin b).
  static View lonLat(const cv::Size& size, double rangeDegrees);

  /// Unit ray of a pixel, rectified frame. Both eyes' views share it.
  cv::Vec3d ray(double col, double row) const;
  /// Column and row of a point (any unit, frame of the view's own eye). Perspective: z must be above 0.
  cv::Point2d pixel(const cv::Vec3d& point) const;

  const cv::Size& size() const { return m_size; }
  /// Focal length in pixels (perspective), or pixels per radian along a row (longitude-latitude).
  double scale() const { return m_scaleX; }

private:
  View() = default;

  bool m_isLonLat = false;
  cv::Size m_size;
  double m_scaleX = 0.0;
  double m_scaleY = 0.0;
  double m_centerX = 0.0;
  double m_centerY = 0.0;
};

/// The exact values for each pixel of the left rectified view. All matrices have the view's size.
struct Truth {
  cv::Mat depth;      ///< CV_64FC1: z, meters
  cv::Mat distance;   ///< CV_64FC1: along the ray, meters
  cv::Mat disparity;  ///< CV_64FC1: column in the left view minus column in the right one, pixels
  cv::Mat surface;    ///< CV_32SC1: `Hit::surface`; neighbors that differ have an edge between them
  cv::Mat occluded;   ///< CV_8UC1: 255 where something hides the point from the right eye
  cv::Mat seen;       ///< CV_8UC1: 255 where the point is in the field and image of both eyes and nothing hides it
};

/// The exact values along given rays of the left eye. All matrices have the size of the rays.
struct RangeTruth {
  cv::Mat range;    ///< CV_32FC1: along the ray, meters
  cv::Mat surface;  ///< CV_32SC1: `Hit::surface`
  cv::Mat seen;     ///< CV_8UC1: 255 where the point is in the field and image of both eyes and nothing hides it
};

/// True depth of the scene for every pixel of a rectified left view. Immutable; any thread.
class GroundTruth {
public:
  GroundTruth(std::shared_ptr<const Scene> scene, const Rig& rig);

  /// The truth at `time`, seconds. Rows are spread over threads (`forEachRow`).
  Truth at(const View& view, double time) const;
  /// `rays`: CV_32FC3, of length 1, rectified left frame.
  RangeTruth along(const cv::Mat& rays, double time) const;

private:
  bool inBothImages(const cv::Vec3d& point) const;

  std::shared_ptr<const Scene> m_scene;
  Rig m_rig;
};

}  // namespace stereo::sim
