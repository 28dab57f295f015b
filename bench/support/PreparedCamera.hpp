// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "StereoCamera.hpp"
#include "src/core/Cloud.hpp"
#include "src/core/Depth.hpp"

namespace stereo::bench {

/// A camera without device that gives from memory what others wait for.
class PreparedCamera : public StereoCamera {
public:
  PreparedCamera();

  /// Depth as `depthModel(size, mode)` has it.
  void setDepth(cv::Size size, int mode);
  /// The perspective maps of both eyes, [eye][map].
  void setMaps(const cv::Mat (&maps)[2][2]);
  /// What `getStereoFrame` hands over, as headers: no copy, no wait.
  void setEyes(const cv::Mat& left, const cv::Mat& right);

  bool getStereoFrame(cv::Mat& left, cv::Mat& right, std::chrono::microseconds& timestamp) override;

private:
  cv::Mat m_left;
  cv::Mat m_right;
};

/// What the capture worker does with the pixels of one frame.
class CapturePass {
public:
  void run(const cv::Mat& frame, int radius, cv::Mat& publishedFirst, cv::Mat& publishedSecond);

private:
  cv::Mat m_first;
  cv::Mat m_second;
};

/// What the coloured depth read does with the disparity once it has it.
class ColouredDepth {
public:
  void run(const cv::Mat& disparity, const core::DepthModel& model, cv::Mat& picture);

private:
  cv::Mat m_depths;
};

// What the two `getPointCloud` append once they have the images.
void plainCloud(const core::CloudImages& images, const core::CloudModel& model, std::vector<cv::Vec3f>& points);
void colouredCloud(const core::CloudImages& images, const core::CloudModel& model, std::vector<PCL>& points);

}  // namespace stereo::bench
