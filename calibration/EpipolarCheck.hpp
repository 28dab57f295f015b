// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::calibration {

/// One eye's calibration, as `StereoCamera::getCalibParams` hands it out, in pixels of the eye's image as it is.
struct EyeCalibration {
  cv::Mat K;  ///< 3x3 CV_64F
  cv::Mat D;  ///< 1x4 CV_64F: k1, k2, p1, p2
  double xi = 0;
  cv::Mat R;  ///< 3x3 CV_64F, turns the eye's rays into the common frame
};

/// A thing of the scene seen by both eyes: its rays in the common frame, unit length.
struct RayPair {
  cv::Vec3d left;
  cv::Vec3d right;
};

/// Row differences are angles about the baseline, told in pixels of the default perspective view in its middle (232
/// pixels a radian, one is a quarter of a degree): the same unit over the whole field.
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
  /// How the right eye has turned against its calibration, as the rows tell it, and how sure that is (one standard
  /// deviation): about x (pitch), y (yaw) and z (roll), degrees. Rows tell little of the yaw.
  cv::Vec3d turn;
  cv::Vec3d turnDeviation;
  std::vector<std::string> faults;  ///< why the calibration does not fit; empty: it fits
  bool enough = false;              ///< false: too few matches to say anything, and no faults told
};

/// Tells from what happens to be in the pictures whether rectified rows still agree.
class EpipolarCheck {
public:
  /// Throws cv::Exception for a calibration of the wrong shape.
  EpipolarCheck(const EyeCalibration& left, const EyeCalibration& right, const cv::Size& eyeSize);

  /// Looks for the same things in both eyes (CV_8UC3, of the size given): corners followed from the left rectified
  /// picture into the right one and back. Returns how many were found.
  std::size_t add(const cv::Mat& left, const cv::Mat& right);
  EpipolarCheckResult result() const;

private:
  cv::Size m_eyeSize;
  std::array<std::array<cv::Mat, 2>, 2> m_maps;  // [eye][column, row]
  cv::Mat m_mask;                                // CV_8UC1: where both eyes have a picture
  std::vector<RayPair> m_pairs;
};

/// The verdict on such pairs. Pairs whose rows stay more than 4 pixels apart once the turn is made good are taken for
/// mistaken matches and left out.
EpipolarCheckResult judgeRows(const std::vector<RayPair>& all);

}  // namespace stereo::calibration
