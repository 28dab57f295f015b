// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "StereoCamera.hpp"
#include "sim/Rig.hpp"

namespace stereo::soak {

/// How every camera of the run is set, and the pictures that its device shows in turn.
struct Setting {
  std::uint32_t seed = 1;  ///< of rig and scene
  int pictures = 6;        ///< different ones, at least 2
  cv::Size rectSize{464, 400};
  double hFov = 90;        ///< degrees
  double lonLatFov = 180;  ///< degrees
  float nearest = 0.05F;   ///< meters
  float farthest = 20;     ///< meters
  int cloudRadius = 180;   ///< rectified pixels
};

/// What comes of one picture's disparity.
struct ExpectedDepth {
  cv::Mat disparity;  ///< CV_32FC1, pixels
  cv::Mat metric;     ///< CV_32FC1, meters
  cv::Mat colored;    ///< CV_8UC3
  std::vector<cv::Vec3f> plainCloud;
  std::vector<PCL> coloredCloud;
};

/// One picture and everything that the camera has to make of it. The frame's number is not drawn in yet.
struct Picture {
  cv::Mat frame;           ///< as the device delivers it, both eyes side by side
  cv::Mat eye[2];          ///< masked; left, right
  cv::Mat perspective[2];  ///< rectified; left, right
  cv::Mat lonLat[2];
  ExpectedDepth depth[2][2];  ///< [depth mode - 1][algorithm]
};

/// The pictures of one frame size, worked out by the plain forms of the algorithms. Never changed once made.
class ExpectedImages {
public:
  /// Throws std::logic_error if a rectified view looks at where the numbers are drawn.
  ExpectedImages(cv::Size frameSize, const Setting& setting);

  /// The picture that the frame of this number shows.
  const Picture& of(std::uint32_t number) const { return m_pictures[number % m_pictures.size()]; }
  std::size_t size() const { return m_pictures.size(); }
  cv::Size frameSize() const { return m_frameSize; }

private:
  cv::Size m_frameSize;
  std::vector<Picture> m_pictures;
};

}  // namespace stereo::soak
