// SPDX-License-Identifier: Apache-2.0
// Epipolar check: whether rectified rows agree, from any scene.
#pragma once

#include <array>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::calibration {

/// One eye's calibration, as from `StereoCamera::getCalibParams`, in pixels of the eye's image.
struct EyeCalibration {
  cv::Mat K;  ///< 3x3 CV_64F
  cv::Mat D;  ///< 1x4 CV_64F: k1, k2, p1, p2
  double xi = 0;
  cv::Mat R;  ///< 3x3 CV_64F, rotates the eye's rays into the common frame
};

/// A point of the scene seen by both eyes: its unit rays in the common frame.
struct RayPair {
  cv::Vec3d left;
  cv::Vec3d right;
};

/// Row differences are angles about the baseline in pixels of the middle of the default perspective view (232 per
/// radian, a quarter of a degree each): the same unit over the whole field.
struct EpipolarCheckRing {
  std::size_t matches = 0;
  double median = 0;  ///< of the absolute differences, pixels
  double p90 = 0;     ///< 90 of 100 are not greater
};

struct EpipolarCheckResult {
  std::size_t matches = 0;
  double median = 0;  ///< pixels
  double p90 = 0;
  std::vector<EpipolarCheckRing> rings;  ///< by angle off the axis, `ringDegrees` wide each
  /// Rotation of the right eye against its calibration, from the rows, and its standard deviation: about x (pitch),
  /// y (yaw) and z (roll), degrees. Rows depend little on the yaw.
  cv::Vec3d turn;
  cv::Vec3d turnDeviation;
  std::vector<std::string> faults;  ///< why the calibration does not fit; empty: it fits
  bool enough = false;              ///< false: too few matches to judge, so no faults
};

/// Checks from pictures of any scene whether rectified rows still agree.
class EpipolarCheck {
public:
  /// Throws cv::Exception for a calibration of the wrong shape.
  EpipolarCheck(const EyeCalibration& left, const EyeCalibration& right, const cv::Size& eyeSize);

  /// Finds points seen by both eyes (CV_8UC3, of the given size): corners tracked from the left rectified picture to
  /// the right one and back. Returns how many.
  std::size_t add(const cv::Mat& left, const cv::Mat& right);
  EpipolarCheckResult result() const;

private:
  cv::Size m_eyeSize;
  std::array<std::array<cv::Mat, 2>, 2> m_maps;  // [eye][column, row]
  cv::Mat m_mask;                                // CV_8UC1: where both eyes have a picture
  std::vector<RayPair> m_pairs;
};

/// The result for such pairs. Pairs whose rows stay more than 4 pixels apart after compensating the rotation count as
/// wrong matches and are ignored.
EpipolarCheckResult judgeRows(const std::vector<RayPair>& all);

}  // namespace stereo::calibration
