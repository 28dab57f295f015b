// SPDX-License-Identifier: Apache-2.0
// Command check: whether the calibration still fits, by the epipolar check.
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/calibrate/FitCheck.hpp"
#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Options.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/JsonOption.hpp"
#include "apps/stereo-camera/pictures/Pictures.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"
#include "calibration/EpipolarCheck.hpp"
#include "calibration/FitErrors.hpp"
#include "model/Text.hpp"

namespace stereo::app {

using model::formatted;

namespace {

struct CheckOptions {
  SourceOptions source;
  int frames = 5;
  double patience = 10;
  JsonOption json;
};

std::string table(const calibration::EpipolarCheckResult& result) {
  std::string text = formatted("%-16s %8s %12s %14s\n", "off the axis", "matches", "median, px", "90 of 100, px");
  for (std::size_t ring = 0; ring < result.rings.size(); ++ring) {
    const calibration::EpipolarCheckRing& each = result.rings[ring];
    if (each.matches == 0) {
      continue;
    }
    const double from = static_cast<double>(ring) * calibration::ringDegrees;
    text += formatted("%3.0f to %3.0f deg   %8zu %12.2f %14.2f\n", from, from + calibration::ringDegrees, each.matches,
                      each.median, each.p90);
  }
  text += formatted("%-16s %8zu %12.2f %14.2f\n", "all", result.matches, result.median, result.p90);
  if (result.enough) {
    text += formatted("right eye against the left: pitch %+.2f, yaw %+.2f, roll %+.2f degrees (+- %.2f, %.2f, %.2f)\n",
                      result.turn[0], result.turn[1], result.turn[2], result.turnDeviation[0], result.turnDeviation[1],
                      result.turnDeviation[2]);
  }
  return text;
}

Json figures(const calibration::EpipolarCheckResult& result, const std::string& source) {
  Json json;
  const auto rows = [&](const auto& part) {
    json.add("matches", std::uint64_t{part.matches}).add("median_px", part.median).add("p90_px", part.p90);
  };
  json.add("source", source).add("enough", result.enough).add("fits", result.enough && result.faults.empty());
  rows(result);
  json.list("rings");
  for (std::size_t ring = 0; ring < result.rings.size(); ++ring) {
    const double from = static_cast<double>(ring) * calibration::ringDegrees;
    if (result.rings[ring].matches > 0) {
      json.object().add("from_degrees", from).add("to_degrees", from + calibration::ringDegrees);
      rows(result.rings[ring]);
      json.end();
    }
  }
  json.end();
  if (result.enough) {
    const char* const names[] = {"pitch", "yaw", "roll"};
    json.object("turn_degrees");
    for (int axis = 0; axis < 3; ++axis) {
      json.object(names[axis]).add("value", result.turn[axis]).add("deviation", result.turnDeviation[axis]).end();
    }
    json.end();
  }
  json.list("problems");
  for (const std::string& fault : result.faults) {
    json.add("", fault);
  }
  return json;
}

void check(const CheckOptions& options) {
  options.json.check();
  OpenedCamera opened = openCamera(options.source);
  if (!opened.calibrated) {
    throw Failure(ExitCode::calibration, "there is nothing to check: give the calibration (--calibration FILE)");
  }
  StereoCamera& camera = *opened.camera;
  startCapture(opened);
  Watchdog watch(opened, options.patience);
  std::unique_ptr<FitCheck> fit;
  for (int frame = 0; frame < options.frames; ++frame) {
    cv::Mat left;
    cv::Mat right;
    try {
      readEyes(camera, watch, left, right);
    } catch (const Ended& ended) {
      if (ended.signal() != 0 || fit == nullptr) {
        throw;
      }
      break;
    }
    if (fit == nullptr) {
      fit = std::make_unique<FitCheck>(camera, left.size());
    }
    const std::optional<std::size_t> found = fit->add(left, right);
    watch.alive();
    progress() << "frame " << frame + 1 << " of " << options.frames << ": "
               << (found ? std::to_string(*found) + " points seen by both eyes" : "same as before, counted once")
               << std::endl;
  }
  watch.finish();
  const FitCheck::Result checked = fit->result();
  const calibration::EpipolarCheckResult& result = checked.rows;
  std::string text = table(result);
  for (const std::string& fault : result.faults) {
    text += "PROBLEM  " + fault + "\n";
  }
  if (result.enough && result.faults.empty()) {
    text += formatted("ok       the calibration fits: rows differ by %.2f px in the middle of the matches\n",
                      result.median);
  }
  if (!options.json.replacesText()) {
    results() << text << std::flush;
  }
  options.json.write(figures(result, opened.description));
  if (const std::string unknown = checked.whyUnknown(); !unknown.empty()) {
    throw Failure(ExitCode::problems, unknown);
  }
  if (!result.faults.empty()) {
    throw Failure(ExitCode::problems,
                  "the calibration no longer fits this camera: calibrate again "
                  "(stereo-camera calibrate, docs/calibration.md)");
  }
}

}  // namespace

Action addCheck(CLI::App& program) {
  auto options = std::make_shared<CheckOptions>();
  CLI::App* const command =
      program.add_subcommand("check", "check with any scene whether the calibration still fits the camera");
  addSourceOptions(*command, options->source, {});
  command->add_option("--frames", options->frames, "frames to use")->check(CLI::Range(1, 1000))->capture_default_str();
  addPatienceOption(*command, options->patience);
  addJsonOption(*command, options->json);
  return [options] { check(*options); };
}

}  // namespace stereo::app
