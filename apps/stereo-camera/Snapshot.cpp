// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <memory>

#include "Commands.hpp"
#include "Products.hpp"
#include "Source.hpp"
#include "Watch.hpp"

namespace stereo::app {

namespace {

struct SnapshotOptions {
  SourceOptions source;
  std::string output = ".";
  double patience = 10;
};

void snapshot(const SnapshotOptions& options) {
  makeFolder(options.output);
  OpenedCamera opened = openCamera(options.source);
  startCapture(opened);
  Watch watch(*opened.camera, std::chrono::milliseconds(static_cast<long>(1000 * options.patience)));
  const std::vector<Picture> pictures = readPictures(opened, watch);
  watch.finish();
  writePictures(pictures, options.output);
  for (const Picture& picture : pictures) {
    std::cout << (std::filesystem::path(options.output) / picture.file).string() << std::endl;
  }
  if (!opened.calibrated) {
    std::cout << "no rectified pictures: they need a calibration (--calibration FILE)" << std::endl;
  }
}

}  // namespace

Action addSnapshot(CLI::App& program) {
  auto options = std::make_shared<SnapshotOptions>();
  CLI::App* const command = program.add_subcommand("snapshot", "read one of each picture to files");
  options->source.addTo(*command);
  command->add_option("-o,--output", options->output, "folder for the pictures")->capture_default_str();
  command->add_option("--patience", options->patience, "seconds without a frame after which to give up")
      ->check(CLI::Range(0.1, 3600.0))
      ->capture_default_str();
  return [options] { snapshot(*options); };
}

}  // namespace stereo::app
