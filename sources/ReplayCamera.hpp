// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "sources/ReplayCapture.hpp"
#include "sources/VirtualCamera.hpp"

namespace stereo::sources {

/// A camera that plays recordings. The calibration is the host's to load (`loadCalibParams`), for a frame 1856 pixels
/// wide as ever: it is scaled to the recording's width when capture starts.
///
/// The capture worker throws away the first frames that a device delivers. A recording that is played once would lose
/// them, so its first frame is delivered that often ahead of the recording.
class ReplayCamera : public VirtualCamera {
public:
  struct Options {
    std::string path;                  ///< image, folder of images, video or recording, frames side by side
    double rate = 30.0;                ///< frames per second, 0: as fast as possible
    bool loop = true;                  ///< start over after the last frame
    int fisheyeRadius = -1;            ///< of the image circle, raw pixels; negative: the recording's, else a quarter
                                       ///< of the width for the camera's own formats, else so large that every pixel
                                       ///< stays
    cv::Size rectFrameSize{464, 400};  ///< one rectified eye, pixels
    bool recordedTiming = false;       ///< play a `Recording` as it came, whatever the rate; nothing to other paths
  };

  /// Throws std::runtime_error, with a message of one line, if there is no frame to be had at the path, and
  /// std::invalid_argument for a rate below 0.
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
