// SPDX-License-Identifier: Apache-2.0
// The simulated eyes and their calibration.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "model/CameraFacts.hpp"
#include "model/OmniModel.hpp"

namespace stereo::sim {

/// One eye of the rig.
struct Eye {
  model::OmniModel model;  ///< pixels of the eye in a full-size (1856 x 800) frame
  cv::Matx33d rotation;    ///< from the eye's frame to the rectified one
  cv::Vec3d position;      ///< meters, rectified left frame
};

/// By how much the calibration that is handed out is wrong. The eyes themselves stay as they are.
struct CalibrationError {
  double rows = 0.0;   ///< by how much the right eye's center is too far down, pixels of a full-size frame
  double yaw = 0.0;    ///< by how much the right eye is taken to be turned to the right, degrees
  double pitch = 0.0;  ///< by how much the right eye is taken to be turned up, degrees
};

/// Two fisheye eyes side by side, and their exact calibration.
///
/// Frame: rectified left camera, meters; x right, y down, z forward; left eye at the origin, right eye at
/// (baseline, 0, 0). The lenses see 222 degrees in a circle of 464 pixels (full size); the eyes differ a little in
/// focal length, center, distortion and direction, as real ones do.
class Rig {
public:
  /// What the eyes are built like, apart from small differences that the seed draws.
  struct Options {
    std::uint32_t seed = 1;
    double baseline = 0.060;  ///< meters; the seed varies it by half a millimeter
    double xi = 1.5;
    double focal = 1.0;           ///< factor of the focal length; at 1 the lens's field fills the image circle
    cv::Vec3d turn = {};          ///< degrees by which the right eye is turned further: pitch, yaw, roll
    CalibrationError error = {};  ///< of `calibParams` and `saveCalibration`
  };

  /// The same seed gives the same rig.
  explicit Rig(std::uint32_t seed = 1);
  explicit Rig(const Options& options);

  const Eye& eye(bool isRight) const { return m_eyes[isRight ? 1 : 0]; }
  /// Meters between the eyes.
  double baseline() const { return m_baseline; }
  /// The eye's model in pixels of a frame of this size.
  model::OmniModel modelFor(bool isRight, const cv::Size& frameSize) const;

  /// Pixel of a point (meters, rectified left frame) in one eye's image of a frame of this size; nothing if it is
  /// outside the lens's field, the eye's image or the image circle.
  std::optional<cv::Point2d> project(bool isRight, const cv::Vec3d& point, const cv::Size& frameSize) const;

  /// {intrinsic matrix for a frame 1856 wide, distortion 1x4, xi 1x1, rotation, translation 3x1 in millimeters}, all
  /// CV_64F and owned by the caller, as for `setCalibParams`. The translation t is that of x_right = Q x_left + t
  /// between the eyes' frames; its norm is the baseline.
  std::vector<cv::Mat> calibParams(bool isRight) const;

  /// Writes a calibration file as the camera reads it (YAML, XML or JSON by extension), replacing the file. Throws
  /// std::runtime_error if it cannot be written.
  void saveCalibration(const std::string& path, int serialNumber = 1, int posNumber = 0,
                       const cv::Size& rectFrameSize = {464, 400}) const;

private:
  Eye m_eyes[2];
  double m_baseline = 0.0;
  CalibrationError m_error;
};

}  // namespace stereo::sim
