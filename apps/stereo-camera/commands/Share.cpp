// SPDX-License-Identifier: Apache-2.0
// Command share: offers the left eye in shared memory.
#include <memory>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Options.hpp"
#include "apps/stereo-camera/doctor/SystemChecks.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/pictures/Pictures.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/RunTime.hpp"
#include "apps/stereo-camera/process/Signals.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"
#include "model/CameraFacts.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

struct ShareOptions {
  SourceOptions source;
  double seconds = 0;
  double patience = 10;
};

void share(const ShareOptions& options) {
  OpenedCamera opened = openCamera(options.source);
  StereoCamera& camera = *opened.camera;
  const cv::Size frame = camera.getRawFrameSize();
  const int key = camera.getPosNumber() + model::firstSegmentKey;
  requireSegment(frame, camera.getPosNumber());

  RunTime time(options.seconds);
  startCapture(opened, false, true);
  Watchdog watch(opened, options.patience);
  cv::Mat left;
  cv::Mat right;
  std::chrono::microseconds timestamp{0};
  int frames = 0;
  // The camera shares images by itself; these reads notice when no more frames come.
  try {
    while (!time.over()) {
      if (!watch.run([&] { return camera.getStereoFrame(left, right, timestamp); }) || frames++ > 0) {
        continue;
      }
      time.begin();
      const cv::Size delivered = camera.getRawFrameSize();
      if (delivered != frame) {
        throw Failure(ExitCode::source, "the device delivers frames of " + model::sizeText(delivered) +
                                            " pixels instead of " + model::sizeText(frame) +
                                            ", for which the shared memory was made");
      }
      results() << "sharing the left eye of " << opened.description << ": key " << key << ", images of "
                << model::sizeText(left.size()) << " pixels, segment of " << model::segmentBytes(frame) << " bytes"
                << std::endl;
    }
  } catch (const Ended&) {
    if (frames == 0) {
      throw;
    }
  }
  if (frames == 0) {
    checkSignals();
  }
  watch.finish();
  results() << "shared for " << frames << " frames" << std::endl;
}

}  // namespace

Action addShare(CLI::App& program) {
  auto options = std::make_shared<ShareOptions>();
  CLI::App* const command = program.add_subcommand("share", "offer the left eye to another process in shared memory");
  addSourceOptions(*command, options->source, {.position = true});
  command->add_option("--seconds", options->seconds, "time to share; 0: until Ctrl-C")
      ->check(CLI::Range(0.0, 1e6))
      ->capture_default_str();
  addPatienceOption(*command, options->patience);
  return [options] { share(*options); };
}

}  // namespace stereo::app
