// SPDX-License-Identifier: Apache-2.0
// Command doctor: finds problems of device, files, shared memory and stream.
#include <memory>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Options.hpp"
#include "apps/stereo-camera/doctor/DeviceChecks.hpp"
#include "apps/stereo-camera/doctor/FileChecks.hpp"
#include "apps/stereo-camera/doctor/SystemChecks.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/JsonOption.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/Signals.hpp"

namespace stereo::app {

namespace {

struct DoctorOptions {
  int device = 0;
  std::string settings;
  std::string calibration;
  std::string size = "1856x800";
  double rate = 30;
  int position = 0;
  int receiver = 15;
  bool stream = false;
  bool noDevice = false;
  JsonOption json;
  std::string probe;  // a back end that this process is to try
};

// Prints findings as they come, as text or JSON.
class DoctorReport {
public:
  explicit DoctorReport(const JsonOption& json) : m_option(json) {
    m_option.check();
    m_json.list("findings");
  }

  void add(const Findings& findings) {
    checkSignals();
    for (const Finding& finding : findings) {
      m_json.object().add("ok", finding.isWell()).add("what", finding.what).add("remedy", finding.remedy).end();
      m_wrong += finding.isWell() ? 0 : 1;
      if (!m_option.replacesText()) {
        results() << (finding.isWell() ? "ok       " : "PROBLEM  ") << finding.what
                  << (finding.isWell() ? "" : ": " + finding.remedy) << std::endl;
      }
    }
  }

  // Throws Failure (problems) if there are any.
  void finish() {
    m_option.write(m_json.end().add("problems", m_wrong));
    if (m_wrong > 0) {
      throw Failure(ExitCode::problems, std::to_string(m_wrong) + (m_wrong == 1 ? " problem" : " problems"));
    }
  }

private:
  const JsonOption& m_option;
  Json m_json;
  int m_wrong = 0;
};

void doctor(const DoctorOptions& options) {
  const cv::Size size = parseSize(options.size, "--size");
  if (!options.probe.empty()) {
    probeBackEnd(options.device, options.probe, size, options.rate);
    return;
  }
  DoctorReport report(options.json);
  if (!options.noDevice) {
    report.add(checkDevice(options.device, size, options.rate));
  }
  if (!options.settings.empty()) {
    report.add(checkSettingsFile(options.settings));
  }
  if (!options.calibration.empty()) {
    report.add(checkCalibrationFile(options.calibration));
  }
  report.add(checkSharedMemory(options.position));
  if (options.stream) {
    report.add(checkStream(options.receiver, options.position));
  }
  report.finish();
}

}  // namespace

Action addDoctor(CLI::App& program) {
  auto options = std::make_shared<DoctorOptions>();
  CLI::App* const command =
      program.add_subcommand("doctor", "find problems of device, files, shared memory and stream");
  auto* const device = addDeviceOption(*command, options->device)->default_str("0");
  command->add_flag("--no-device", options->noDevice, "do not check the device")->excludes(device);
  command->add_option("--settings", options->settings, "settings file to check")->type_name("FILE");
  command->add_option("--calibration", options->calibration, "calibration file to check")->type_name("FILE");
  command->add_option("--size", options->size, "side-by-side frame, pixels")->type_name("WxH")->capture_default_str();
  command->add_option("--rate", options->rate, "frames per second")
      ->check(CLI::Range(1.0, 1000.0))
      ->capture_default_str();
  command->add_option("--position", options->position, "position of the camera on its machine")
      ->check(CLI::Range(0, 999))
      ->capture_default_str();
  command->add_flag("--stream", options->stream, "also check what the network stream needs");
  command
      ->add_option("--receiver", options->receiver,
                   "last octet of the stream's receiver's address " STEREO_CAMERA_STREAM_NETWORK "N")
      ->check(CLI::Range(1, 254))
      ->capture_default_str();
  addJsonOption(*command, options->json);
  command->add_option("--probe", options->probe)->check(CLI::IsMember({"gstreamer", "v4l2"}))->group("");
  return [options] { doctor(*options); };
}

}  // namespace stereo::app
