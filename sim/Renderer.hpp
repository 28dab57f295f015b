// SPDX-License-Identifier: Apache-2.0
// Renders what both eyes see of the scene.
#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include <opencv2/core.hpp>

#include "sim/Rig.hpp"
#include "sim/Scene.hpp"

namespace stereo::sim {

/// Renders what the rig sees of the scene: both eyes side by side, left eye on the left, CV_8UC3 BGR.
///
/// The ray of every pixel is computed once, for the first frame (some tenths of a second and 18 MB at full size). Rows
/// are spread over threads (`forEachRow`), which does not affect the picture. Any number of threads may call `render`.
class Renderer {
public:
  /// `frameSize` is one of the camera's formats: 1856 x 800 or 928 x 400; any other throws std::invalid_argument.
  Renderer(std::shared_ptr<const Scene> scene, const Rig& rig, const cv::Size& frameSize);

  /// The frame at `time`, seconds; the caller owns its pixels. Dark, but not black, outside the lenses' field.
  cv::Mat render(double time) const;

  const cv::Size& frameSize() const { return m_frameSize; }
  /// Width of a pixel in the middle of the field, radians.
  double pixelAngle() const { return m_pixelAngle; }
  /// Viewpoint for colors, so that both eyes see the same ones: midway between the eyes, meters.
  const cv::Vec3d& viewer() const { return m_viewer; }

private:
  std::vector<cv::Vec3f> rays() const;

  std::shared_ptr<const Scene> m_scene;
  cv::Size m_frameSize;
  double m_pixelAngle = 0.0;
  cv::Vec3d m_viewer;
  model::OmniModel m_models[2];  // of the eyes, for this format
  cv::Matx33d m_rotations[2];    // from an eye's frame to the rectified left frame
  cv::Vec3d m_positions[2];      // of the eyes, meters
  mutable std::once_flag m_raysMade;
  mutable std::vector<cv::Vec3f> m_rays;  // one for each pixel of the frame, rectified left frame; zero: none
};

}  // namespace stereo::sim
