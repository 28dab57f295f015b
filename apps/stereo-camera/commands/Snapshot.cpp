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
#include "apps/stereo-camera/pictures/WideResults.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"

namespace stereo::app {

namespace {

struct SnapshotOptions {
  SourceOptions source;
  WideOptions wide;
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
                              "wide-range.png",
                              "wide-view.png",
                              "wide-state.png",
                              "wide-top.png",
                              "wide-cloud-left.png",
                              "wide-cloud-right.png",
                              "wide-range.tiff",
                              "wide-range-mm.png",
                              "wide-confidence.png",
                              "wide-cloud.ply",
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
  std::optional<WideReader> wide;
  if (opened.calibrated) {
    wide.emplace(opened, options.wide);
  }
  startCapture(opened);
  Watchdog watch(opened, options.patience);
  std::vector<Picture> pictures;
  std::vector<std::pair<std::string, std::string>> files;
  std::optional<DepthResults> depth;
  try {
    readPictures(opened, watch, pictures);
    if (wide) {
      for (int k = 0; k < (options.wide.fuse ? fusedFrames : 1); ++k) {
        watch.run([&] { return wide->read(*opened.camera) != 0; });
      }
      const std::vector<Picture> more = writeWide(*wide, folder.draft());
      pictures.insert(pictures.end(), more.begin(), more.end());
      files = wideFiles();
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
    const auto theirs = depthFiles();
    files.insert(files.end(), theirs.begin(), theirs.end());
  }
  writePictures(pictures, folder.draft());
  folder.commit();
  for (const Picture& picture : pictures) {
    results() << (std::filesystem::path(options.output) / picture.file).string() << std::endl;
  }
  for (const auto& [name, content] : files) {
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
  addWideOptions(*command, options->wide);
  command->add_option("-o,--output", options->output, "folder for the pictures")
      ->type_name("FOLDER")
      ->capture_default_str();
  command->add_flag("--replace", options->replace, "replace existing files");
  addPatienceOption(*command, options->patience);
  return [options] { snapshot(*options); };
}

}  // namespace stereo::app
