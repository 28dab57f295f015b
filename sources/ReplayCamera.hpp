// SPDX-License-Identifier: Apache-2.0
// A camera that plays recordings.
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "sources/ReplayCapture.hpp"
#include "sources/VirtualCamera.hpp"

namespace stereo::sources {

/// A camera that plays recordings. The host loads the calibration (`loadCalibParams`), for a frame 1856 pixels wide as
/// always; it is scaled to the recording's width when capture starts.
///
/// The capture worker discards a device's first frames (warm-up). So that a recording played once does not lose them,
/// its first frame is delivered that many times more, ahead of the recording.
class ReplayCamera : public VirtualCamera {
public:
  struct Options {
    std::string path;                  ///< image, folder of images, video or recording, frames side by side
    double rate = 30.0;                ///< frames per second, 0: as fast as possible
    bool loop = true;                  ///< start over after the last frame
    int fisheyeRadius = -1;            ///< of the image circle, raw pixels; negative: the recording's, else a quarter
                                       ///< of the width for the camera's own formats, else large enough to keep every
                                       ///< pixel
    cv::Size rectFrameSize{464, 400};  ///< one rectified eye, pixels
    bool recordedTiming = false;       ///< play a `Recording` with its own timing, ignoring `rate`
  };

  /// Throws std::runtime_error with a message of one line if the path has no readable frame, and std::invalid_argument
  /// for a rate below 0.
  explicit ReplayCamera(const Options& options);
  ~ReplayCamera() override;

  /// The device; owned by the camera.
  ReplayCapture& capture() const { return m_capture; }

  bool isOver() const override { return m_capture.finished(); }
  std::uint64_t skippedFrames() const override { return m_capture.skipped(); }

private:
  struct Parts;
  ReplayCamera(const Options& options, Parts parts);

  ReplayCapture& m_capture;
};

}  // namespace stereo::sources
