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
#include "apps/stereo-camera/pictures/WideResults.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

struct DemoOptions {
  SourceOptions source;
  WideOptions wide;
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
void measureReads(OpenedCamera& opened, Watchdog& watch, WideReader* wide, double seconds,
                  std::vector<Timing>& timings) {
  StereoCamera& camera = *opened.camera;
  const double share = seconds / (wide != nullptr ? 8 : 2);
  cv::Mat a;
  cv::Mat b;
  cv::Mat c;
  std::chrono::microseconds timestamp{0};
  const auto add = [&](const char* name, const auto& read) { timings.push_back(measure(name, share, watch, read)); };
  add("getRawFrame", [&] { return camera.getRawFrame(a, timestamp); });
  add("getStereoFrame", [&] { return camera.getStereoFrame(a, b, timestamp); });
  if (wide == nullptr) {
    return;
  }
  add("getStereoFrame, WideDepth::compute", [&] { return wide->read(camera) != 0; });
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

std::string reachNote(const OpenedCamera& opened) {
  std::string note = "It compares 32 pixels of disparity and keeps ranges of " +
                     model::formatted("%.2f to %.2f m.", opened.camera->nearLimit(), opened.camera->farLimit());
  if (opened.camera->depthMode() == 2) {
    std::vector<cv::Mat> params;
    opened.camera->getCalibParams(params, false);
    const double focalLength = params[5].at<double>(0, 0);
    const double baseline = cv::norm(params[4]) / 1000;
    note += model::formatted(" What is nearer than %.2f m has no depth or a wrong one.", focalLength * baseline / 31);
  } else {
    note += " Its meters are relative.";
  }
  return note;
}

void addFacts(DemoReport& report, const OpenedCamera& opened, const WideReader* wide) {
  const double rate = opened.camera->getRawFrameRate();
  report.facts = {{"raw frame", model::sizeText(opened.camera->getRawFrameSize())},
                  {"worker's pass time", text(1000 / rate, "ms")},
                  {"worker's rate", text(rate, "a second")}};
  if (wide == nullptr) {
    report.note += "No rectified pictures and no depth without a calibration (--calibration FILE).";
    return;
  }
  if (wide->engine() != nullptr) {
    const auto facts = wideFacts(*wide);
    report.facts.insert(report.facts.end(), facts.begin(), facts.end());
  }
  report.facts.emplace_back("rectified eye", model::sizeText(opened.camera->rectFrameSize()));
  report.facts.emplace_back("perspective field", text(opened.camera->horizontalField(), "degrees"));
  report.facts.emplace_back("depth from", opened.camera->depthMode() == 1
                                              ? "the longitude-latitude pair (relative meters)"
                                              : "the perspective pair");
}

void demo(const DemoOptions& options) {
  OutputFolder folder(options.output, true, {});
  OpenedCamera opened = openCamera(options.source);
  std::optional<WideReader> wide;
  if (opened.calibrated) {
    wide.emplace(opened, options.wide);
  }
  startCapture(opened);
  Watchdog watch(opened, options.patience);
  progress() << "waiting for the first frame ..." << std::endl;
  Section wideSection{"Range over the whole field", "", {}};
  Section frames{"Frames and rectified eyes", "", {}};
  Section classic{"Depth of the camera class", "", {}};
  std::optional<DepthResults> depth;
  DemoReport report;
  report.source = opened.description;
  try {
    readPictures(opened, watch, frames.pictures);
    if (wide) {
      for (int k = 0; k < (options.wide.fuse ? fusedFrames : 1); ++k) {
        watch.run([&] { return wide->read(*opened.camera) != 0; });
      }
      wideSection.pictures = writeWide(*wide, folder.draft());
      report.files = wideFiles();
      progress() << "waiting for depth ..." << std::endl;
      depth = readDepth(opened, watch);
    }
    measureReads(opened, watch, wide ? &*wide : nullptr, options.seconds, report.timings);
  } catch (const Ended& ended) {
    if (ended.signal() != 0 || frames.pictures.empty()) {
      throw;
    }
    report.note = "The recording ended before everything was read; without --once it starts over. ";
  }
  watch.finish();
  addFacts(report, opened, wide ? &*wide : nullptr);
  if (!report.note.empty()) {
    progress() << report.note << std::endl;
  }
  if (depth) {
    report.facts.emplace_back("points", std::to_string(depth->plain.size()) + " plain, " +
                                            std::to_string(depth->colored.size()) + " colored");
    const auto files = depthFiles();
    report.files.insert(report.files.end(), files.begin(), files.end());
    classic.note = reachNote(opened);
    classic.pictures = writeDepth(*depth, folder.draft());
  }
  const std::vector<Section> sections = {wideSection, frames, classic};
  std::size_t count = 0;
  for (const Section& section : sections) {
    writePictures(section.pictures, folder.draft());
    count += section.pictures.size();
  }
  writeFile(folder.draft() / "index.html", page(report, sections));
  folder.commit();
  const std::filesystem::path index = std::filesystem::path(options.output) / "index.html";
  results() << table(report) << "wrote " << count << " pictures; open "
            << std::filesystem::absolute(index).lexically_normal().string() << std::endl;
}

}  // namespace

Action addDemo(CLI::App& program) {
  auto options = std::make_shared<DemoOptions>();
  CLI::App* const command =
      program.add_subcommand("demo", "run the camera briefly and make a page of everything it delivers");
  addSourceOptions(*command, options->source, {.rectified = true, .depth = true, .matcher = true});
  addWideOptions(*command, options->wide);
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
