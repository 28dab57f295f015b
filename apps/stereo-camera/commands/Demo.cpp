// SPDX-License-Identifier: Apache-2.0
// Command demo: a page of everything that the camera delivers.
#include <algorithm>
#include <memory>
#include <optional>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Options.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/Output.hpp"
#include "apps/stereo-camera/pictures/DemoPage.hpp"
#include "apps/stereo-camera/pictures/DepthResults.hpp"
#include "apps/stereo-camera/pictures/Pictures.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

struct DemoOptions {
  SourceOptions source;
  std::string output = "stereo-camera-demo";
  double seconds = 4;
  double patience = 10;
};

double since(Watchdog::Clock::time_point start) {
  return std::chrono::duration<double>(Watchdog::Clock::now() - start).count();
}

// Reads repeatedly for a time and measures how fast.
template <typename Read>
Timing measure(const std::string& name, double seconds, Watchdog& watch, Read read) {
  progress() << "measuring " << name << " ..." << std::endl;
  std::vector<double> durations;
  const auto start = Watchdog::Clock::now();
  do {
    const auto begin = Watchdog::Clock::now();
    watch.run(read);
    durations.push_back(1000 * since(begin));
  } while (since(start) < seconds);
  Timing timing{name, static_cast<int>(durations.size()), static_cast<double>(durations.size()) / since(start), 0, 0};
  std::sort(durations.begin(), durations.end());
  timing.medianMs = durations[durations.size() / 2];
  timing.p90Ms = durations[durations.size() * 9 / 10];
  return timing;
}

std::string text(double value, const char* unit) {
  char line[64];
  std::snprintf(line, sizeof line, "%.1f %s", value, unit);
  return line;
}

// Appends to the timings as it goes.
void measureReads(OpenedCamera& opened, Watchdog& watch, double seconds, std::vector<Timing>& timings) {
  StereoCamera& camera = *opened.camera;
  const double share = seconds / (opened.calibrated ? 7 : 2);
  cv::Mat a;
  cv::Mat b;
  cv::Mat c;
  std::chrono::microseconds timestamp{0};
  const auto add = [&](const char* name, const auto& read) { timings.push_back(measure(name, share, watch, read)); };
  add("getRawFrame", [&] { return camera.getRawFrame(a, timestamp); });
  add("getStereoFrame", [&] { return camera.getStereoFrame(a, b, timestamp); });
  if (!opened.calibrated) {
    return;
  }
  add("getRectStereoFrame (perspective)", [&] { return camera.getRectStereoFrame(a, b); });
  add("getRectStereoFrame (depth pair, view)", [&] { return camera.getRectStereoFrame(a, b, c, timestamp); });
  add("getDepthFrame (color)", [&] { return camera.getDepthFrame(a, true, timestamp); });
  add("getPointCloud (plain)", [&] {
    std::vector<cv::Vec3f> cloud;
    return camera.getPointCloud(cloud, timestamp);
  });
  add("getPointCloud (colored)", [&] {
    std::vector<PCL> cloud;
    return camera.getPointCloud(cloud, timestamp);
  });
}

void demo(const DemoOptions& options) {
  OutputFolder folder(options.output, true, {});
  OpenedCamera opened = openCamera(options.source);
  startCapture(opened);
  Watchdog watch(opened, options.patience);
  progress() << "waiting for the first frame ..." << std::endl;
  std::vector<Picture> pictures;
  std::optional<DepthResults> depth;
  DemoReport report;
  report.source = opened.description;
  try {
    readPictures(opened, watch, pictures);
    if (opened.calibrated) {
      progress() << "waiting for depth ..." << std::endl;
      depth = readDepth(opened, watch);
    }
    measureReads(opened, watch, options.seconds, report.timings);
  } catch (const Ended& ended) {
    if (ended.signal() != 0 || pictures.empty()) {
      throw;
    }
    report.note = "The recording ended before everything was read; without --once it starts over. ";
  }
  watch.finish();
  const double rate = opened.camera->getRawFrameRate();
  report.facts = {{"raw frame", model::sizeText(opened.camera->getRawFrameSize())},
                  {"worker's pass time", text(1000 / rate, "ms")},
                  {"worker's rate", text(rate, "a second")}};
  if (opened.calibrated) {
    report.facts.emplace_back("rectified eye", model::sizeText(opened.camera->rectFrameSize()));
    report.facts.emplace_back("perspective field", text(opened.camera->horizontalField(), "degrees"));
    report.facts.emplace_back("depth from", opened.camera->depthMode() == 1
                                                ? "the longitude-latitude pair (relative meters)"
                                                : "the perspective pair");
  } else {
    report.note += "No rectified pictures and no depth without a calibration (--calibration FILE).";
  }
  if (!report.note.empty()) {
    progress() << report.note << std::endl;
  }
  if (depth) {
    report.facts.emplace_back("points", std::to_string(depth->plain.size()) + " plain, " +
                                            std::to_string(depth->colored.size()) + " colored");
    report.files = depthFiles();
    const std::vector<Picture> more = writeDepth(*depth, folder.draft());
    pictures.insert(pictures.end(), more.begin(), more.end());
  }
  writePictures(pictures, folder.draft());
  writeFile(folder.draft() / "index.html", page(report, pictures));
  folder.commit();
  const std::filesystem::path index = std::filesystem::path(options.output) / "index.html";
  results() << table(report) << "wrote " << pictures.size() << " pictures; open "
            << std::filesystem::absolute(index).lexically_normal().string() << std::endl;
}

}  // namespace

Action addDemo(CLI::App& program) {
  auto options = std::make_shared<DemoOptions>();
  CLI::App* const command =
      program.add_subcommand("demo", "run the camera briefly and make a page of everything it delivers");
  addSourceOptions(*command, options->source, {.rectified = true, .depth = true, .matcher = true});
  command->add_option("-o,--output", options->output, "folder for pictures and page")
      ->type_name("FOLDER")
      ->capture_default_str();
  command->add_option("--seconds", options->seconds, "time to measure")
      ->check(CLI::Range(0.1, 3600.0))
      ->capture_default_str();
  addPatienceOption(*command, options->patience);
  return [options] { demo(*options); };
}

}  // namespace stereo::app
