// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "sim/BoardCapture.hpp"
#include "sources/VirtualCamera.hpp"

namespace stereo::sim {

/// A camera before which a chessboard is held at one place after the other (`BoardCapture`): what a calibration is made
/// from, with a known answer. The rig is that of a `SimulatedCamera` of the same seed; no calibration is set.
class BoardCamera : public sources::VirtualCamera {
public:
  /// Throws std::invalid_argument for options out of range.
  explicit BoardCamera(const BoardCapture::Options& options);
  ~BoardCamera() override;
};

}  // namespace stereo::sim
