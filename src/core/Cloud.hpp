// SPDX-License-Identifier: Apache-2.0
// Samples point clouds.
#pragma once

#include <cstddef>
#include <memory>

#include <opencv2/core.hpp>

namespace stereo::core {

/// The images that a cloud is sampled from. Sizes may differ: a lookup outside an image skips the pixel.
struct CloudImages {
  cv::Mat view;       ///< CV_8UC3, perspective view of the left eye; defines the grid and the colors.
  cv::Mat disparity;  ///< CV_32FC1, pixels.
  cv::Mat depth;      ///< CV_32FC1, meters.
};

/// Geometry of the views. With a camera matrix of zeros there are no points.
struct CloudModel {
  int mode = 1;                           ///< 1: longitude-latitude pair, 2: perspective pair, other: no points.
  double fx = 0, fy = 0, cx = 0, cy = 0;  ///< Camera matrix of the perspective view, pixels.
  double baselineMillimeters = 0;
  double xi = 0;      ///< Mirror parameter of the left eye.
  int threshold = 0;  ///< Largest distance of a pixel from (cx, cy), pixels.
};

/// A point in meters (left rectified frame: x right, y down, z forward) and the pixel of the view it was seen at.
struct CloudPoint {
  cv::Vec3f point;
  int row;
  int col;
};

/// Sampled points in order. Movable, not copyable.
class SampledCloud {
public:
  /// Reserves memory for `capacity` points.
  explicit SampledCloud(std::size_t capacity);

  const CloudPoint* begin() const { return m_points.get(); }
  const CloudPoint* end() const { return begin() + m_size; }
  std::size_t size() const { return m_size; }
  bool empty() const { return m_size == 0; }
  const CloudPoint& operator[](std::size_t index) const { return begin()[index]; }

private:
  friend class CloudWriter;
  struct Free {
    void operator()(CloudPoint* points) const;
  };
  std::unique_ptr<CloudPoint[], Free> m_points;  // uninitialized at first
  std::size_t m_size = 0;
};

/// The two ways of sampling. They differ in border, radius test and source of the depth; see CloudSamplers.hpp.
enum class CloudForm { plain, colored };

/// Samples a cloud, block by block in row-major order: in each 4 x 4 block of the view the pixels of odd row and column
/// are sampled. If more than two of them have a depth, all but the nearest and the farthest become points. Throws
/// cv::Exception for non-empty images of other types than stated, as far as the form and the mode read them.
SampledCloud sampleCloud(const CloudImages& images, const CloudModel& model, CloudForm form);

}  // namespace stereo::core
