// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/commands/Options.hpp"

#include <functional>
#include <string>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/camera/DeviceName.hpp"
#include "apps/stereo-camera/output/JsonOption.hpp"
#include "apps/stereo-camera/pictures/WideResults.hpp"

namespace stereo::app {

namespace {

CLI::Option* addDeviceOption(CLI::App& command, const std::function<void(const std::string&)>& take) {
  return command
      .add_option_function<std::string>("--device", take, "video device: N or /dev/videoN, or a path below /dev/v4l")
      ->type_name("DEVICE");
}

}  // namespace

void addSourceOptions(CLI::App& command, SourceOptions& options, const SourceUse& use) {
  options.given = [&command](const char* option) {
    return command.get_option_no_throw(option) != nullptr && command.count(option) > 0;
  };
  auto* const simulated = command.add_flag("--simulate", options.simulate, "simulated camera in a room");
  auto* const played =
      command
          .add_option("--replay", options.replay, "image, folder of images, video of side-by-side frames, or recording")
          ->type_name("PATH");
  auto* const opened = addDeviceOption(command, [&options, late = use.device](const std::string& name) {
    if (late != nullptr) {
      *late = name;
    } else {
      options.device = deviceNode(name);
    }
  });
  auto* const configured =
      command
          .add_option("--settings", options.settings,
                      "settings file, naming the device; with --simulate or --replay, settings for that")
          ->type_name("FILE");
  played->excludes(simulated);
  opened->excludes(simulated)->excludes(played)->excludes(configured);
  if (use.calibration) {
    command.add_option("--calibration", options.calibration, "calibration file (the simulated camera brings its own)")
        ->type_name("FILE");
  }
  command.add_option("--size", options.frameSize, "side-by-side frame, pixels")
      ->type_name("WxH")
      ->capture_default_str();
  if (use.rectified) {
    command.add_option("--rectified", options.rectifiedSize, "one rectified eye, pixels")
        ->type_name("WxH")
        ->capture_default_str();
  }
  command.add_option("--rate", options.rate, "frames per second; 0: as fast as possible")
      ->check(CLI::Range(0.0, 1000.0))
      ->capture_default_str();
  if (use.depth) {
    command
        .add_option("--depth-mode", options.depthMode,
                    "depth from the longitude-latitude (1) or the perspective pair (2)")
        ->check(CLI::Range(1, 2))
        ->capture_default_str();
  }
  if (use.matcher) {
    command.add_option("--matcher", options.matcher, "semi-global (sgm) or block matching (bm)")
        ->check(CLI::IsMember({"sgm", "bm"}))
        ->capture_default_str();
  }
  if (use.position) {
    command
        .add_option("--position", options.position,
                    "position of the camera on its machine (default: the calibration's)")
        ->check(CLI::Range(0, 999));
  }
  command.add_option("--seed", options.seed, "seed of the simulated camera")->capture_default_str();
  if (use.scene) {
    command.add_flag("--still", options.still, "simulated scene without motion");
    command.add_option("--faults", options.faults, "faults of the simulated camera: a file, or seed:N for random ones")
        ->type_name("FILE")
        ->excludes(opened)
        ->excludes(played)
        ->each([&options](const std::string&) { options.simulate = true; });
    command
        .add_option("--conditions", options.conditions,
                    "what makes it hard for the simulated camera: rich, hard, plain, or values such as noise=3,poles=4")
        ->type_name("LIST")
        ->excludes(opened)
        ->excludes(played)
        ->each([&options](const std::string&) { options.simulate = true; });
  }
  if (use.plays) {
    command.add_flag("--once", options.once, "play the recording once instead of over and over");
  }
}

void addWideOptions(CLI::App& command, WideOptions& options) {
  command.add_option("--wide-size", options.size, "view of wide depth, pixels")
      ->type_name("WxH")
      ->capture_default_str();
  command.add_option("--wide-field", options.field, "its field, degrees of longitude and latitude, up to 180x180")
      ->type_name("WxH")
      ->capture_default_str();
  command.add_option("--nearest", options.nearest, "least range of wide depth, meters")
      ->check(CLI::Range(0.01, 1000.0))
      ->capture_default_str();
  command.add_option("--farthest", options.farthest, "greatest range of wide depth, meters")
      ->check(CLI::Range(0.01, 10000.0))
      ->capture_default_str();
  command.add_flag("--fuse", options.fuse, "combine successive frames: more range where nothing moves");
  command.add_flag_callback(
      "--no-self-calibration", [&options] { options.selfCalibrate = false; },
      "do not correct rows of the eyes that do not match");
}

CLI::Option* addDeviceOption(CLI::App& command, int& device) {
  return addDeviceOption(command, [&device](const std::string& name) { device = deviceNode(name); });
}

void addRecorderOptions(CLI::App& command, std::string& codec, std::size_t& queue, std::uint64_t& keepFree) {
  command.add_option("--codec", codec, "huffyuv (fast) or ffv1 (smaller files); both are lossless")
      ->check(CLI::IsMember({"huffyuv", "ffv1"}))
      ->capture_default_str();
  command.add_option("--queue", queue, "most frames that wait to be written; more are dropped")
      ->check(CLI::Range(1, 10000))
      ->capture_default_str();
  command.add_option("--keep-free", keepFree, "megabytes to leave free on the disk")
      ->check(CLI::Range(0, 1'000'000'000))
      ->capture_default_str();
}

void addPatienceOption(CLI::App& command, double& seconds) {
  command.add_option("--patience", seconds, "seconds without a frame after which to give up")
      ->check(CLI::Range(0.1, 3600.0))
      ->capture_default_str();
}

void addJsonOption(CLI::App& command, JsonOption& option) {
  command.add_option("--json", option.path, "file for the results as JSON; - for standard output instead of the text")
      ->type_name("FILE");
}

}  // namespace stereo::app
