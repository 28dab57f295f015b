// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/CameraSource.hpp"

#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <stdexcept>

#include "apps/stereo-camera/camera/BoardCameraSource.hpp"
#include "apps/stereo-camera/camera/CalibrationCheck.hpp"
#include "apps/stereo-camera/camera/DeviceCamera.hpp"
#include "apps/stereo-camera/camera/DeviceName.hpp"
#include "apps/stereo-camera/camera/RequestedFormat.hpp"
#include "apps/stereo-camera/observe/MeasuredCamera.hpp"
#include "apps/stereo-camera/observe/TappedCamera.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/Signals.hpp"
#include "model/CameraFacts.hpp"
#include "sim/BoardCamera.hpp"
#include "sim/SimulatedCamera.hpp"
#include "sources/Recording.hpp"
#include "sources/ReplayCamera.hpp"

namespace stereo::app {

namespace {

void requireReadable(const std::string& path, const char* what, ExitCode code) {
  std::error_code failure;
  if (!std::filesystem::exists(path, failure) && !failure) {
    throw Failure(code, std::string("the ") + what + ": no such file '" + path + "'");
  }
  if (std::filesystem::is_directory(path) || !std::ifstream(path)) {
    throw Failure(code, std::string("cannot read the ") + what + " '" + path + "'");
  }
}

template <typename Camera, typename Argument>
std::unique_ptr<Camera> makeCamera(const Onlooker& onlooker, const Argument& argument) {
  if (onlooker.record != nullptr) {
    return std::make_unique<MeasuredCamera<Camera>>(*onlooker.record, argument);
  }
  if (onlooker.tap != nullptr) {
    return std::make_unique<TappedCamera<Camera>>(*onlooker.tap, argument);
  }
  return std::make_unique<Camera>(argument);
}

// Settings for a camera without a device: what they say about the device does not apply.
void applySettings(sources::VirtualCamera& camera, const std::string& path) {
  const cv::Size rawSize = camera.getRawFrameSize();
  const cv::Size rectifiedSize = camera.rectFrameSize();
  if (!camera.loadConfig(path)) {
    throw Failure(ExitCode::source, "the settings '" + path + "' cannot be used: see the line above");
  }
  if (model::isFrameSize(rawSize)) {
    camera.setRawFrameSize(rawSize);
  }
  if (camera.rectFrameSize().empty()) {
    camera.setRectFrameSize(rectifiedSize);
  }
}

OpenedCamera opened(std::unique_ptr<sources::HostCamera> camera, const SourceOptions& options,
                    const std::string& description) {
  camera->setDepthMode(options.depthMode);
  camera->setAlgorithm(options.matcher == "bm" ? 1 : 0);
  return {.camera = std::move(camera), .description = description, .calibrated = false, .askedSize = {}};
}

OpenedCamera openVirtual(std::unique_ptr<sources::VirtualCamera> camera, const SourceOptions& options,
                         const std::string& description) {
  if (!options.settings.empty()) {
    requireReadable(options.settings, "settings", ExitCode::source);
    applySettings(*camera, options.settings);
  }
  return opened(std::move(camera), options, description);
}

void loadCalibration(OpenedCamera& opened, const std::string& path) {
  requireReadable(path, "calibration", ExitCode::calibration);
  const bool complete = opened.camera->loadCalibParams(path);
  checkCalibration(*opened.camera, path, complete);
  opened.calibrated = true;
}

// Random faults last this many frames: half a minute at full rate, about a fault a second.
constexpr std::uint64_t randomFrames = 900;
constexpr int randomFaultCount = 30;

// A script's file, or "seed:N".
sim::FaultScript faultsFrom(const std::string& text, const cv::Size& frameSize) {
  const std::string head = "seed:";
  if (text.rfind(head, 0) == 0) {
    std::uint64_t seed = 0;
    const char* const end = text.data() + text.size();
    const auto [stopped, error] = std::from_chars(text.data() + head.size(), end, seed);
    if (error != std::errc() || stopped != end) {
      throw Failure(ExitCode::usage, "--faults: '" + text + "' is not a seed such as seed:7");
    }
    // No frames of other types: matching them ends the process.
    return sim::randomFaults(seed, {.frames = randomFrames, .faults = randomFaultCount, .frameSize = frameSize});
  }
  requireReadable(text, "faults", ExitCode::source);
  std::ifstream file(text);
  const std::string script{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  try {
    return sim::parseFaults(script);
  } catch (const std::invalid_argument& error) {
    throw Failure(ExitCode::usage, "--faults: '" + text + "', " + error.what());
  }
}

sim::Conditions conditionsFrom(const std::string& text) {
  try {
    return sim::parseConditions(text);
  } catch (const std::invalid_argument& error) {
    throw Failure(ExitCode::usage, std::string("--conditions: ") + error.what());
  }
}

bool isDevice(const SourceOptions& options) {
  return options.device >= 0 || (!options.settings.empty() && !options.simulate);
}

// The first line of every command with a camera, so that a forgotten option shows before any result.
void tellSource(const SourceOptions& options, const std::string& description) {
  progress() << "source: " << description << (options.named() ? "" : " (no --device, --settings or --replay was given)")
             << std::endl;
}

OpenedCamera openSimulated(const SourceOptions& options, const Onlooker& onlooker) {
  const std::string description = "simulated camera, seed " + std::to_string(options.seed);
  tellSource(options, description);
  sim::SimulatedCamera::Options simulation;
  simulation.frameSize = parseSize(options.frameSize, "--size");
  simulation.rectFrameSize = parseSize(options.rectifiedSize, "--rectified");
  simulation.rate = options.rate;
  simulation.seed = options.seed;
  simulation.moving = !options.still;
  simulation.background = options.atOnce;
  simulation.conditions = conditionsFrom(options.conditions);
  if (!model::isFrameSize(simulation.frameSize)) {
    throw Failure(ExitCode::usage, "--size: the simulated camera delivers 1856x800 or 928x400");
  }
  if (!options.faults.empty()) {
    simulation.faults = faultsFrom(options.faults, simulation.frameSize);
  }
  auto camera = makeCamera<sim::SimulatedCamera>(onlooker, simulation);
  OpenedCamera simulated = openVirtual(std::move(camera), options, description);
  simulated.calibrated = true;
  return simulated;
}

// A recording's settings apply where the command line sets nothing.
void takeRecordedSettings(sources::ReplayCamera& camera, const SourceOptions& options, const std::string& path) {
  applySettings(camera, path);
  if (options.given("--rectified")) {
    camera.setRectFrameSize(parseSize(options.rectifiedSize, "--rectified"));
  }
  if (options.given("--depth-mode")) {
    camera.setDepthMode(options.depthMode);
  }
  if (options.given("--matcher")) {
    camera.setAlgorithm(options.matcher == "bm" ? 1 : 0);
  }
}

OpenedCamera openReplay(SourceOptions options, const Onlooker& onlooker) {
  const std::string description = "recording " + options.replay;
  tellSource(options, description);
  sources::ReplayCamera::Options replay;
  replay.path = options.replay;
  replay.rate = options.rate;
  replay.loop = !options.once;
  replay.rectFrameSize = parseSize(options.rectifiedSize, "--rectified");
  replay.recordedTiming = !options.given("--rate");
  try {
    auto camera = makeCamera<sources::ReplayCamera>(onlooker, replay);
    const sources::Recording recording = camera->capture().recording().value_or(sources::Recording());
    if (options.settings.empty() && !recording.settings.empty()) {
      takeRecordedSettings(*camera, options, recording.settings.string());
      options.depthMode = camera->depthMode();
      options.matcher = camera->algorithm() == 1 ? "bm" : "sgm";
    }
    OpenedCamera replayed = openVirtual(std::move(camera), options, description);
    if (options.calibration.empty() && !recording.calibration.empty()) {
      loadCalibration(replayed, recording.calibration.string());
    }
    return replayed;
  } catch (const Failure&) {
    throw;
  } catch (const std::runtime_error& error) {
    throw Failure(ExitCode::source, error.what());
  }
}

OpenedCamera openDevice(const SourceOptions& options, const Onlooker& onlooker) {
  std::unique_ptr<DeviceCamera> camera;
  std::string description;
  RequestedFormat requested;
  if (options.settings.empty()) {
    requested = {parseSize(options.frameSize, "--size"), std::trunc(options.rate), false};
    description = "video device " + std::to_string(options.device);
    tellSource(options, description);
    camera = makeCamera<DeviceCamera>(onlooker, options.device);
    camera->setRawFrameRate(static_cast<int>(options.rate));
    camera->chooseFrameSize(requested.size);
    camera->setRectFrameSize(parseSize(options.rectifiedSize, "--rectified"));
  } else {
    requireReadable(options.settings, "settings", ExitCode::source);
    camera = makeCamera<DeviceCamera>(onlooker, options.settings);
    description = "video device " + std::to_string(camera->getDeviceNode()) + ", settings " + options.settings;
    tellSource(options, description);
    if (camera->getRawFrameSize().empty()) {
      throw Failure(ExitCode::source, "the settings '" + options.settings + "' cannot be used: see the line above");
    }
    requested = {camera->getRawFrameSize(), camera->getRawFrameRate(), true};
    camera->chooseFrameSize(requested.size);
    if (camera->rectFrameSize().empty()) {
      camera->setRectFrameSize(parseSize(options.rectifiedSize, "--rectified"));
    }
  }
  if (!camera->isOpened()) {
    const std::string reason = notSupported(supportedFormatsOfNode(camera->getDeviceNode(), requested.size), requested);
    if (!reason.empty()) {
      // The class sends its settings to the device before it checks whether that is open.
      throw Failure(ExitCode::source, "cannot use " + description + ": " + reason);
    }
    throw Failure(ExitCode::source, "cannot open " + description + " (/dev/video" +
                                        std::to_string(camera->getDeviceNode()) +
                                        "): does it exist, may you read it, and is no other program using it?");
  }
  bool isAboutSize = false;
  const std::string unmet = unmetRequest(*camera, requested, isAboutSize);
  if (!unmet.empty()) {
    std::cerr << "stereo-camera: " << unmet << std::endl;
  }
  OpenedCamera result = opened(std::move(camera), options, description);
  if (!isAboutSize) {
    result.askedSize = requested.size;
  }
  return result;
}

// Takes a number from 1 to 32767 without leading zeros off the front of the text; 0 if there is none.
int takeLength(std::string_view& text) {
  int length = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), length);
  if (error != std::errc() || text.front() == '0' || length < 1 || length > 32767) {
    return 0;
  }
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return length;
}

}  // namespace

bool SourceOptions::named() const { return simulate || !replay.empty() || device >= 0 || !settings.empty(); }

void SourceOptions::requireNamed(const std::string& others) const {
  if (!named()) {
    throw Failure(ExitCode::usage,
                  "name a source: " + others + "--device N, --settings FILE, --replay PATH or --simulate");
  }
}

OpenedCamera openCamera(const SourceOptions& options, const Onlooker& onlooker) {
  OpenedCamera opened = !options.replay.empty() ? openReplay(options, onlooker)
                        : isDevice(options)     ? openDevice(options, onlooker)
                                                : openSimulated(options, onlooker);
  if (!options.calibration.empty()) {
    loadCalibration(opened, options.calibration);
  }
  if (options.position >= 0) {
    opened.camera->setPosNumber(options.position);
  }
  return opened;
}

OpenedCamera openBoardCamera(const SourceOptions& options, const calibration::Board& board) {
  if (!options.replay.empty() || isDevice(options)) {
    return openCamera(options);
  }
  const std::string description = "simulated camera and board, seed " + std::to_string(options.seed);
  tellSource(options, description);
  sim::BoardCapture::Options boards;
  boards.frameSize = parseSize(options.frameSize, "--size");
  boards.rate = options.rate;
  boards.corners = board.corners;
  boards.square = board.square / 1000.0;
  boards.seed = options.seed;
  if (!model::isFrameSize(boards.frameSize)) {
    throw Failure(ExitCode::usage, "--size: the simulated camera delivers 1856x800 or 928x400");
  }
  return openVirtual(std::make_unique<sim::BoardCamera>(boards), options, description);
}

cv::Size parseSize(const std::string& text, const std::string& option) {
  std::string_view rest = text;
  const int width = takeLength(rest);
  if (width > 0 && !rest.empty() && (rest.front() == 'x' || rest.front() == 'X')) {
    rest.remove_prefix(1);
    const int height = takeLength(rest);
    if (height > 0 && rest.empty()) {
      return {width, height};
    }
  }
  throw Failure(ExitCode::usage, option + ": '" + text + "' is not a size such as 464x400");
}

}  // namespace stereo::app
