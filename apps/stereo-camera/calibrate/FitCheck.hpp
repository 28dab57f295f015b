// SPDX-License-Identifier: Apache-2.0
// Whether a running camera's calibration still fits, frame by frame.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "StereoCamera.hpp"
#include "calibration/EpipolarCheck.hpp"

namespace stereo::app {

/// Checks the calibration with frames of any scene.
class FitCheck {
public:
  /// The camera is started, since that scales its calibration, and not used afterward. `eye`: size of its eyes.
  FitCheck(StereoCamera& camera, const cv::Size& eye);

  /// Adds a frame: both eyes, CV_8UC3. Returns how many points both eyes see, or nothing for a repeated frame, which
  /// counts once. Throws Failure (noFrames) if it has another size.
  std::optional<std::size_t> add(const cv::Mat& left, const cv::Mat& right);

  struct Result {
    calibration::EpipolarCheckResult rows;  ///< no faults, and not enough, if a chessboard was found
    cv::Size board;                         ///< corners of a chessboard that misleads the check; empty: none

    bool fits() const { return rows.enough && rows.faults.empty(); }
    /// Why nothing can be said, in a line; empty if something can.
    std::string whyUnknown() const;
  };
  Result result() const;

private:
  const cv::Size m_eye;
  calibration::EpipolarCheck m_rows;
  std::set<std::size_t> m_seen;     // hashes of frames
  std::vector<cv::Mat> m_pictures;  // the first few, both eyes
};

}  // namespace stereo::app
