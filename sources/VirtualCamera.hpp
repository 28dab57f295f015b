// SPDX-License-Identifier: Apache-2.0
// A camera whose frames come from a source instead of a video device.
#pragma once

#include <memory>
#include <string>

#include <opencv2/videoio.hpp>

#include "sources/HostCamera.hpp"

namespace stereo::sources {

/// A camera on a source such as `FrameSource`.
///
/// Lifetime and threads are those of `StereoCamera`, except that destroying it stops the workers.
class VirtualCamera : public HostCamera {
public:
  /// As the base class, but also applies the file's level to the log, which was made before the settings.
  bool loadConfig(std::string path) override;

protected:
  /// Takes over the source as this camera's open device, at `rate` frames per second (0: as they come). Its `release`,
  /// called from another thread, must end a waiting read.
  VirtualCamera(std::unique_ptr<cv::VideoCapture> source, double rate);

  /// As the base class, but releases the source first, so that no worker keeps waiting.
  void stopWorkers();
};

}  // namespace stereo::sources
