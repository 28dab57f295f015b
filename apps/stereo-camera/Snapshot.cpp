// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <memory>

#include <CLI/CLI.hpp>

#include "Commands.hpp"
#include "DepthProducts.hpp"
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
  const std::chrono::milliseconds patience(static_cast<long>(1000 * options.patience));
  Watch watch(*opened.camera, patience, opened.askedSize);
  std::vector<Picture> pictures = readPictures(opened, watch);
  if (opened.calibrated) {
    const DepthProducts depth = readDepth(opened, watch, patience);
    watch.finish();
    const std::vector<Picture> more = writeDepth(depth, options.output);
    pictures.insert(pictures.end(), more.begin(), more.end());
  }
  watch.finish();
  writePictures(pictures, options.output);
  for (const Picture& picture : pictures) {
    std::cout << (std::filesystem::path(options.output) / picture.file).string() << std::endl;
  }
  for (const auto& [name, content] : opened.calibrated ? depthFiles() : decltype(depthFiles()){}) {
    std::cout << (std::filesystem::path(options.output) / name).string() << std::endl;
  }
  if (!opened.calibrated) {
    std::cout << "no rectified pictures and no depth: they need a calibration (--calibration FILE)" << std::endl;
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
