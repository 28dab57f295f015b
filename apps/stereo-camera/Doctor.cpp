// SPDX-License-Identifier: Apache-2.0
#include <cstdio>
#include <memory>

#include <CLI/CLI.hpp>

#include "Commands.hpp"
#include "DeviceChecks.hpp"
#include "Failure.hpp"
#include "FileChecks.hpp"
#include "Signals.hpp"
#include "Source.hpp"
#include "SystemChecks.hpp"

namespace stereo::app {

namespace {

struct DoctorOptions {
  int device = 0;
  std::string settings;
  std::string calibration;
  std::string size = "1856x800";
  double rate = 30;
  int position = 0;
  int lastOctet = 15;
  bool stream = false;
  bool noDevice = false;
  std::string probe;  // a back end: this process is the one that tries it
};

// Returns how many things are wrong.
int print(const Findings& findings) {
  checkSignals();
  int wrong = 0;
  for (const Finding& finding : findings) {
    std::printf("%s  %s%s%s\n", finding.isWell() ? "ok     " : "PROBLEM", finding.what.c_str(),
                finding.isWell() ? "" : ": ", finding.remedy.c_str());
    wrong += finding.isWell() ? 0 : 1;
  }
  std::fflush(stdout);
  return wrong;
}

void doctor(const DoctorOptions& options) {
  const cv::Size size = parseSize(options.size, "--size");
  if (!options.probe.empty()) {
    probeBackEnd(options.device, options.probe, size, options.rate);
    return;
  }
  int wrong = 0;
  if (!options.noDevice) {
    wrong += print(checkDevice(options.device, size, options.rate));
  }
  if (!options.settings.empty()) {
    wrong += print(checkSettingsFile(options.settings));
  }
  if (!options.calibration.empty()) {
    wrong += print(checkCalibrationFile(options.calibration));
  }
  wrong += print(checkSharedMemory(options.position));
  if (options.stream) {
    wrong += print(checkStream(options.lastOctet, options.position));
  }
  if (wrong > 0) {
    throw Failure(ExitCode::problems, std::to_string(wrong) + (wrong == 1 ? " problem" : " problems"));
  }
}

}  // namespace

Action addDoctor(CLI::App& program) {
  auto options = std::make_shared<DoctorOptions>();
  CLI::App* const command =
      program.add_subcommand("doctor", "look for what is wrong with device, files, shared memory and stream");
  auto* const device = command->add_option("--device", options->device, "video device N (/dev/videoN)");
  device->check(CLI::Range(0, 99))->capture_default_str();
  command->add_flag("--no-device", options->noDevice, "leave the device out")->excludes(device);
  command->add_option("--settings", options->settings, "settings file to look at");
  command->add_option("--calibration", options->calibration, "calibration file to look at");
  command->add_option("--size", options->size, "side-by-side frame, WxH pixels")->capture_default_str();
  command->add_option("--rate", options->rate, "frames per second")
      ->check(CLI::Range(1.0, 1000.0))
      ->capture_default_str();
  command->add_option("--position", options->position, "position of the camera on its machine")
      ->check(CLI::Range(0, 999))
      ->capture_default_str();
  command->add_flag("--stream", options->stream, "look at what the network stream needs, too");
  command->add_option("--last-octet", options->lastOctet, "last octet of the stream's receiver")
      ->check(CLI::Range(1, 254))
      ->capture_default_str();
  command->add_option("--probe", options->probe)->check(CLI::IsMember({"gstreamer", "v4l2"}))->group("");
  return [options] { doctor(*options); };
}

}  // namespace stereo::app
