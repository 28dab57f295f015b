// SPDX-License-Identifier: Apache-2.0
#include "sim/SimulatedCamera.hpp"

#include <utility>

#include "sim/FaultyCapture.hpp"

namespace stereo::sim {

namespace {

std::unique_ptr<cv::VideoCapture> withFaults(std::unique_ptr<SimulatedCapture> device, const FaultScript& faults) {
  if (faults.empty()) {
    return device;
  }
  return std::make_unique<FaultyCapture>(std::move(device), faults);
}

}  // namespace

/// Made before the camera: the base class takes over the device, which is still referred to afterward.
struct SimulatedCamera::Parts {
  explicit Parts(const Options& options)
      : scene(std::make_shared<const Scene>(
            Scene::Options{options.seed, options.moving, options.period, options.conditions.scenery})),
        rig(Rig::Options{.seed = options.seed, .error = options.conditions.calibration}),
        source(std::make_unique<SimulatedCapture>(
            scene, rig,
            SimulatedCapture::Options{options.frameSize, options.rate, options.framesPerPeriod, options.ring,
                                      options.background, options.conditions.picture})),
        capture(*source) {}

  std::shared_ptr<const Scene> scene;
  Rig rig;
  std::unique_ptr<SimulatedCapture> source;
  SimulatedCapture& capture;
};

SimulatedCamera::SimulatedCamera(const Options& options) : SimulatedCamera(options, Parts(options)) {}

SimulatedCamera::SimulatedCamera(const Options& options, Parts parts)
    : sources::VirtualCamera(withFaults(std::move(parts.source), options.faults), options.rate),
      m_scene(std::move(parts.scene)),
      m_rig(parts.rig),
      m_capture(parts.capture) {
  setSerialNumber(static_cast<int>(options.seed));
  for (const bool isRight : {false, true}) {
    setCalibParams(m_rig.calibParams(isRight), isRight);
  }
  setRawFrameSize(options.frameSize);
  setRectFrameSize(options.rectFrameSize);
}

SimulatedCamera::~SimulatedCamera() { stopWorkers(); }

View SimulatedCamera::perspectiveView() const { return View::perspective(rectFrameSize(), horizontalField()); }

View SimulatedCamera::lonLatView() const { return View::lonLat(rectFrameSize(), lonLatField()); }

Truth SimulatedCamera::truth(const View& view, double time) const { return GroundTruth(m_scene, m_rig).at(view, time); }

}  // namespace stereo::sim
