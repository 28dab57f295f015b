// SPDX-License-Identifier: Apache-2.0
// A simulated device that shows a calibration board at many places.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "sim/Rig.hpp"
#include "sources/FrameSource.hpp"

namespace stereo::sim {

/// Pose of the board: rotation and translation of its own axes (x along a row, y down a column, z away from the viewer;
/// origin at the first inner corner) into the rectified left frame, meters.
struct BoardPlace {
  cv::Matx33d rotation;
  cv::Vec3d position;
};

/// Device that shows a chessboard held before the rig at one place after another, over the common field of both eyes.
/// Each place is shown for a few frames; after the last one it starts over. Deterministic for a seed. The size cannot
/// be set.
class BoardCapture final : public sources::FrameSource {
public:
  struct Options {
    cv::Size frameSize{1856, 800};  ///< one of the camera's formats
    double rate = 30.0;             ///< frames per second, 0: as fast as possible
    cv::Size corners{8, 6};         ///< inner corners in a row and in a column
    double square = 0.039;          ///< meters
    int places = 40;                ///< at least 1
    int framesPerPlace = 2;         ///< at least 1
    std::uint32_t seed = 1;
  };

  /// Throws std::invalid_argument for options out of range.
  BoardCapture(const Rig& rig, const Options& options);

  const std::vector<BoardPlace>& places() const { return m_places; }
  /// The frame with the board at a place, CV_8UC3; the caller owns its pixels. Any thread.
  cv::Mat render(const BoardPlace& place) const;

protected:
  cv::Mat next() override;
  cv::Size frameSize() const override { return m_options.frameSize; }
  bool resize(int propId, double value) override;

private:
  const Options m_options;
  cv::Vec3d m_positions[2];       // of the eyes, meters
  std::vector<cv::Vec3f> m_rays;  // one for each pixel of the frame, rectified left frame; zero: none
  std::vector<BoardPlace> m_places;
  // Guarded by the source's lock.
  std::uint64_t m_index = 0;  // of the next frame
  cv::Mat m_picture;          // of the current place
};

}  // namespace stereo::sim
