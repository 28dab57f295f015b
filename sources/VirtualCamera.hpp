// SPDX-License-Identifier: Apache-2.0
// A camera on a source of frames in place of a video device.
#pragma once

#include <memory>
#include <string>

#include <opencv2/videoio.hpp>

#include "sources/HostCamera.hpp"

namespace stereo::sources {

/// A camera whose frames come from a source such as `FrameSource` instead of a video device.
///
/// Life and threads are those of `StereoCamera`, but for one relief: destroying it stops the workers.
class VirtualCamera : public HostCamera {
public:
  /// As the base class, but the log takes the file's level at once: it was made before there were settings.
  bool loadConfig(std::string path) override;

protected:
  /// Takes over the source as this camera's device, opened, at `rate` frames per second (0: whatever comes). Its
  /// `release`, called from another thread, has to end a read that waits.
  VirtualCamera(std::unique_ptr<cv::VideoCapture> source, double rate);

  /// As the base class, whatever the workers wait for: the source is released first.
  void stopWorkers();
};

}  // namespace stereo::sources
