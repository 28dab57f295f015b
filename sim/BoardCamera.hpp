// SPDX-License-Identifier: Apache-2.0
// A simulated camera that sees a calibration board.
#pragma once

#include "sim/BoardCapture.hpp"
#include "sources/VirtualCamera.hpp"

namespace stereo::sim {

/// A camera that sees a chessboard held at one place after another (`BoardCapture`), for calibrations with a known
/// result. The rig is that of a `SimulatedCamera` with the same seed; no calibration is set.
class BoardCamera : public sources::VirtualCamera {
public:
  /// Throws std::invalid_argument for options out of range.
  explicit BoardCamera(const BoardCapture::Options& options);
  ~BoardCamera() override;
};

}  // namespace stereo::sim
