// SPDX-License-Identifier: Apache-2.0
// The simulated camera.
#pragma once

#include <cstdint>
#include <memory>

#include <opencv2/core.hpp>

#include "sim/Conditions.hpp"
#include "sim/FaultScript.hpp"
#include "sim/GroundTruth.hpp"
#include "sim/Rig.hpp"
#include "sim/Scene.hpp"
#include "sim/SimulatedCapture.hpp"
#include "sources/VirtualCamera.hpp"

namespace stereo::sim {

/// A calibrated camera in a room of known geometry, ready for `startCapture` once constructed.
///
/// Its calibration is already set, and exact unless `conditions` say otherwise; its serial number is the seed.
/// `setRawFrameSize` and `setRawFrameRate` work as with a real camera.
class SimulatedCamera : public sources::VirtualCamera {
public:
  struct Options {
    cv::Size frameSize{1856, 800};     ///< 1856 x 800 or 928 x 400
    double rate = 30.0;                ///< frames per second, 0: as fast as possible
    std::uint32_t seed = 1;            ///< of rig and scene
    bool moving = true;                ///< false: the scene does not move
    double period = 2.0;               ///< scene seconds after which the motion repeats
    int framesPerPeriod = 16;          ///< frames of one period
    bool ring = true;                  ///< keep the frames of a period: see `SimulatedCapture`
    bool background = false;           ///< render them on a thread of its own
    cv::Size rectFrameSize{464, 400};  ///< one rectified eye, pixels
    FaultScript faults = {};           ///< faults of the device; the first ten frames are warm-up
    Conditions conditions = {};        ///< what makes the pictures, the scene or the calibration harder
  };

  /// Throws std::invalid_argument for options out of range.
  explicit SimulatedCamera(const Options& options);
  ~SimulatedCamera() override;

  const std::shared_ptr<const Scene>& scene() const { return m_scene; }
  const Rig& rig() const { return m_rig; }
  /// The device without its faults; owned by the camera.
  SimulatedCapture& capture() const { return m_capture; }

  /// Renders the frames of a period, which takes a hundred times as long as playing them.
  void prepare(const Progress& progress) override { m_capture.fillRing(progress); }

  /// The rectified views as the camera makes them with its current settings.
  View perspectiveView() const;
  View lonLatView() const;
  /// True depth for either view at a scene time, seconds.
  Truth truth(const View& view, double time = 0.0) const;

private:
  struct Parts;
  SimulatedCamera(const Options& options, Parts parts);

  const std::shared_ptr<const Scene> m_scene;
  const Rig m_rig;
  SimulatedCapture& m_capture;
};

}  // namespace stereo::sim
