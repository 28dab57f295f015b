// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/CameraSource.hpp"

#include <charconv>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/camera/BoardCameraSource.hpp"
#include "apps/stereo-camera/camera/CalibrationCheck.hpp"
#include "apps/stereo-camera/camera/DeviceCamera.hpp"
#include "apps/stereo-camera/camera/DeviceName.hpp"
#include "apps/stereo-camera/camera/RequestedFormat.hpp"
#include "apps/stereo-camera/observe/MeasuredCamera.hpp"
#include "apps/stereo-camera/observe/RecordingCamera.hpp"
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
  if (onlooker.recorder != nullptr) {
    return std::make_unique<RecordingCamera<Camera>>(*onlooker.recorder, argument);
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

}  // namespace

bool SourceOptions::given(const char* option) const {
  return command == nullptr || (command->get_option_no_throw(option) != nullptr && command->count(option) > 0);
}

bool SourceOptions::named() const { return simulate || !replay.empty() || device >= 0 || !settings.empty(); }

void SourceOptions::requireNamed(const std::string& others) const {
  if (!named()) {
    throw Failure(ExitCode::usage,
                  "name a source: " + others + "--device N, --settings FILE, --replay PATH or --simulate");
  }
}

void SourceOptions::addTo(CLI::App& added, const SourceUse& use) {
  command = &added;
  auto* const simulated = added.add_flag("--simulate", simulate, "simulated camera in a room");
  auto* const played =
      added.add_option("--replay", replay, "image, folder of images, video of side-by-side frames, or recording")
          ->type_name("PATH");
  auto* const opened = addDeviceOption(added, device);
  auto* const configured =
      added
          .add_option("--settings", settings,
                      "settings file, naming the device; with --simulate or --replay, settings for that")
          ->type_name("FILE");
  played->excludes(simulated);
  opened->excludes(simulated)->excludes(played)->excludes(configured);
  if (use.calibration) {
    added.add_option("--calibration", calibration, "calibration file (the simulated camera brings its own)")
        ->type_name("FILE");
  }
  added.add_option("--size", frameSize, "side-by-side frame, pixels")->type_name("WxH")->capture_default_str();
  if (use.rectified) {
    added.add_option("--rectified", rectifiedSize, "one rectified eye, pixels")
        ->type_name("WxH")
        ->capture_default_str();
  }
  added.add_option("--rate", rate, "frames per second; 0: as fast as possible")
      ->check(CLI::Range(0.0, 1000.0))
      ->capture_default_str();
  if (use.depth) {
    added.add_option("--depth-mode", depthMode, "depth from the longitude-latitude (1) or the perspective pair (2)")
        ->check(CLI::Range(1, 2))
        ->capture_default_str();
  }
  if (use.matcher) {
    added.add_option("--matcher", matcher, "semi-global (sgm) or block matching (bm)")
        ->check(CLI::IsMember({"sgm", "bm"}))
        ->capture_default_str();
  }
  if (use.position) {
    added.add_option("--position", position, "position of the camera on its machine (default: the calibration's)")
        ->check(CLI::Range(0, 999));
  }
  added.add_option("--seed", seed, "seed of the simulated camera")->capture_default_str();
  if (use.scene) {
    added.add_flag("--still", still, "simulated scene without motion");
    added.add_option("--faults", faults, "faults of the simulated camera: a file, or seed:N for random ones")
        ->type_name("FILE")
        ->excludes(opened)
        ->excludes(played)
        ->each([this](const std::string&) { simulate = true; });
    added
        .add_option("--conditions", conditions,
                    "what makes it hard for the simulated camera: rich, hard, plain, or values such as noise=3,poles=4")
        ->type_name("LIST")
        ->excludes(opened)
        ->excludes(played)
        ->each([this](const std::string&) { simulate = true; });
  }
  if (use.plays) {
    added.add_flag("--once", once, "play the recording once instead of over and over");
  }
}

CLI::Option* addDeviceOption(CLI::App& added, int& device) {
  return added
      .add_option_function<std::string>(
          "--device", [&device](const std::string& name) { device = deviceNode(name); },
          "video device: N or /dev/videoN, or a path below /dev/v4l")
      ->type_name("DEVICE");
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
  static const std::regex pattern("([1-9][0-9]{0,4})[xX]([1-9][0-9]{0,4})");
  std::smatch match;
  if (std::regex_match(text, match, pattern)) {
    const cv::Size size(std::stoi(match[1]), std::stoi(match[2]));
    if (size.width <= 32767 && size.height <= 32767) {
      return size;
    }
  }
  throw Failure(ExitCode::usage, option + ": '" + text + "' is not a size such as 464x400");
}

}  // namespace stereo::app
