// SPDX-License-Identifier: Apache-2.0
// Command snapshot: writes one of each picture.
#include <array>
#include <iostream>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Options.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/Output.hpp"
#include "apps/stereo-camera/pictures/DepthResults.hpp"
#include "apps/stereo-camera/pictures/Pictures.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"

namespace stereo::app {

namespace {

struct SnapshotOptions {
  SourceOptions source;
  std::string output = "snapshot";
  bool replace = false;
  double patience = 10;
};

// All files that it may write. It checks for existing ones before it opens the camera.
constexpr std::array names = {"raw.png",
                              "left.png",
                              "right.png",
                              "perspective-left.png",
                              "perspective-right.png",
                              "lonlat-left.png",
                              "lonlat-right.png",
                              "disparity.tiff",
                              "disparity.png",
                              "depth.tiff",
                              "depth.png",
                              "depth-colour.png",
                              "depth-metric.png",
                              "cloud.ply",
                              "cloud-coloured.ply",
                              "cloud-left.png",
                              "cloud-right.png"};

void snapshot(const SnapshotOptions& options) {
  OutputFolder folder(options.output, options.replace, {names.begin(), names.end()});
  OpenedCamera opened = openCamera(options.source);
  startCapture(opened);
  Watchdog watch(opened, options.patience);
  std::vector<Picture> pictures;
  std::optional<DepthResults> depth;
  try {
    readPictures(opened, watch, pictures);
    if (opened.calibrated) {
      depth = readDepth(opened, watch);
    }
  } catch (const Ended& ended) {
    if (ended.signal() != 0 || pictures.empty()) {
      throw;
    }
    std::cerr << "stereo-camera: the recording ended before all pictures were read; without --once it starts over"
              << std::endl;
  }
  watch.finish();
  if (depth) {
    const std::vector<Picture> more = writeDepth(*depth, folder.draft());
    pictures.insert(pictures.end(), more.begin(), more.end());
  }
  writePictures(pictures, folder.draft());
  folder.commit();
  for (const Picture& picture : pictures) {
    results() << (std::filesystem::path(options.output) / picture.file).string() << std::endl;
  }
  for (const auto& [name, content] : depth ? depthFiles() : decltype(depthFiles()){}) {
    results() << (std::filesystem::path(options.output) / name).string() << std::endl;
  }
  if (!opened.calibrated) {
    progress() << "no rectified pictures and no depth without a calibration (--calibration FILE)" << std::endl;
  }
}

}  // namespace

Action addSnapshot(CLI::App& program) {
  auto options = std::make_shared<SnapshotOptions>();
  CLI::App* const command = program.add_subcommand("snapshot", "read one of each picture to files");
  addSourceOptions(*command, options->source, {.rectified = true, .depth = true, .matcher = true});
  command->add_option("-o,--output", options->output, "folder for the pictures")
      ->type_name("FOLDER")
      ->capture_default_str();
  command->add_flag("--replace", options->replace, "replace existing files");
  addPatienceOption(*command, options->patience);
  return [options] { snapshot(*options); };
}

}  // namespace stereo::app
