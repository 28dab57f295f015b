// SPDX-License-Identifier: Apache-2.0
// Command stream: sends pictures over the network.
#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Options.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/pictures/Pictures.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/RunTime.hpp"
#include "apps/stereo-camera/process/Signals.hpp"
#include "apps/stereo-camera/session/Streaming.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"
#include "model/CameraFacts.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

struct StreamOptions {
  SourceOptions source;
  int mode = 0;
  int receiver = 15;
  double seconds = 0;
  double patience = 10;
};

void tellReceiver(const StreamOptions& options, int port) {
  results() << "streaming mode " << options.mode << " to " << STEREO_CAMERA_STREAM_NETWORK << options.receiver
            << ", port " << port << "; there, either of these receives it:\n"
            << "  stereo-camera receive --port " << port << " --show\n"
            << "  gst-launch-1.0 udpsrc port=" << port
            << " caps=\"application/x-rtp,media=video,encoding-name=H264,clock-rate=90000,payload=96\" ! rtph264depay"
            << " ! avdec_h264 ! videoconvert ! autovideosink" << std::endl;
}

void stream(const StreamOptions& options) {
  OpenedCamera opened = openCamera(options.source);
  prepareStream(opened, options.mode, options.source.rate, options.receiver);
  StereoCamera& camera = *opened.camera;
  tellReceiver(options, camera.getPosNumber() + model::firstStreamPort);

  RunTime time(options.seconds);
  startCapture(opened, true);
  Watchdog watch(opened, options.patience);
  if (options.mode == depthStream) {
    watch.startStereoCompute();
  }
  cv::Mat a;
  cv::Mat b;
  int images = 0;
  auto last = Watchdog::Clock::now();
  try {
    while (!time.over()) {
      // Frames may come before there is anything to stream, for instance before the first disparity.
      if (watch.run([&] { return readForStream(camera, options.mode, a, b); })) {
        if (images++ == 0 && !opened.camera->streamOpened()) {
          throw Failure(ExitCode::output,
                        "nothing is sent: the stream does not open (--verbose shows GStreamer's messages)");
        }
        time.begin();
        last = Watchdog::Clock::now();
      } else if (Watchdog::Clock::now() - last > watch.patience()) {
        throw Failure(ExitCode::noFrames, "frames come, but no picture for the stream within " +
                                              std::to_string(watch.patience().count()) + " ms");
      }
    }
  } catch (const Ended&) {
    if (images == 0) {
      throw;
    }
  }
  if (images == 0) {
    checkSignals();
  }
  const double seconds = time.elapsed();
  watch.finish();
  // Time starts at the first image, so there is one interval less than images.
  results() << model::formatted("streamed %d images in %.1f s, %.1f a second\n", images, seconds,
                                images > 1 ? (images - 1) / seconds : 0.0);
}

}  // namespace

Action addStream(CLI::App& program) {
  auto options = std::make_shared<StreamOptions>();
  CLI::App* const command = program.add_subcommand("stream", "send pictures over the network as H.264");
  addSourceOptions(*command, options->source, {.rectified = true, .matcher = true, .position = true});
  command
      ->add_option("--mode", options->mode,
                   "0 right eye, 1 both eyes, 2 rectified right eye, 3 both rectified eyes, 4 view and depth")
      ->required()
      ->check(CLI::Range(0, 4));
  command
      ->add_option("--receiver", options->receiver,
                   "last octet of the receiver's address " STEREO_CAMERA_STREAM_NETWORK "N")
      ->check(CLI::Range(1, 254))
      ->capture_default_str();
  command->add_option("--seconds", options->seconds, "time to stream; 0: until Ctrl-C")
      ->check(CLI::Range(0.0, 1e6))
      ->capture_default_str();
  addPatienceOption(*command, options->patience);
  return [options] { stream(*options); };
}

}  // namespace stereo::app
