// SPDX-License-Identifier: Apache-2.0
// Command bench: measures a sustained run.
#include <algorithm>
#include <memory>
#include <optional>
#include <thread>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/bench/BenchReaders.hpp"
#include "apps/stereo-camera/bench/BenchReport.hpp"
#include "apps/stereo-camera/bench/LatencyFigures.hpp"
#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Options.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/JsonOption.hpp"
#include "apps/stereo-camera/pictures/Pictures.hpp"
#include "apps/stereo-camera/pictures/WideResults.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/ResourceUsage.hpp"
#include "apps/stereo-camera/process/RunTime.hpp"
#include "apps/stereo-camera/process/Signals.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"
#include "model/Text.hpp"

namespace stereo::app {

using model::formatted;

namespace {

struct BenchOptions {
  SourceOptions source;
  bool wide = false;
  WideOptions wideOptions;
  double seconds = 60;
  double patience = 10;
  JsonOption json;
};

// A run ends when its record is almost full, so that the results cover all of it.
constexpr std::uint64_t mostFrames = 250'000;
static_assert(mostFrames < RunRecord::defaultCapacity);
constexpr std::chrono::milliseconds lookAround{20};  // interval of the host's checks for the run's end

/// Running counters at one moment.
struct Moment {
  std::int64_t time = systemMicroseconds();
  std::int64_t process = processMicroseconds();
  std::optional<std::int64_t> machine = machineMicroseconds();
  std::uint64_t missed = 0;

  explicit Moment(const RunRecord& record) : missed(record.framesMissed ? record.framesMissed() : 0) {}
};

/// Reports to the watchdog that frames come. Throws Failure (noFrames) when no more do.
class FrameArrivals {
public:
  FrameArrivals(StereoCamera& camera, Watchdog& watch, const RunRecord& record)
      : m_camera(camera), m_watch(watch), m_record(record) {}

  /// Whether a frame came since the last call. Throws Ended if the source is over.
  bool frameCame() {
    const std::uint64_t frames = m_record.framesRead;
    const bool beats = frames != m_frames;
    if (beats || !m_camera.isOpened()) {
      m_frames = frames;
      m_watch.run([&] { return beats; });
    }
    return beats;
  }

private:
  StereoCamera& m_camera;
  Watchdog& m_watch;
  const RunRecord& m_record;
  std::uint64_t m_frames = 0;
};

std::vector<std::pair<std::string, std::string>> factsOf(const OpenedCamera& opened, const BenchOptions& options) {
  const double rate = options.source.rate;
  std::vector<std::pair<std::string, std::string>> facts = {
      {"machine", processorName() + ", " + std::to_string(processorCount()) + " cores"},
      {"source", opened.description},
      {"asked rate", rate > 0 ? formatted("%.1f frames a second", rate) : "as fast as possible"},
      {"raw frame", model::sizeText(opened.camera->getRawFrameSize())},
      {"rectified eye", model::sizeText(opened.camera->rectFrameSize())}};
  if (options.wide) {
    facts.emplace_back("wide view", options.wideOptions.size + " over " + options.wideOptions.field + " degrees");
  } else {
    facts.emplace_back("matcher", opened.matcher() == "bm" ? "block matching" : "semi-global");
    facts.emplace_back("depth from",
                       opened.camera->depthMode() == 1 ? "the longitude-latitude pair" : "the perspective pair");
  }
  return facts;
}

void fillProducts(BenchReport& report, const RunRecord& record, const Readers& readers, const Window& window) {
  const std::vector<DeviceFrame>& frames = record.frames.kept();
  const std::vector<Product>& disparities = record.disparities.kept();
  const auto add = [&](const std::string& name, std::vector<double> times) {
    report.products.push_back(figures(name, std::move(times), report.seconds));
  };
  add("raw eyes", publicationTimes(frames, window));
  add(readers.pair.name(), productTimes(readers.pair.products().kept(), frames, window));
  if (readers.wide) {
    add(readers.wide->name(), productTimes(readers.wide->products().kept(), frames, window));
    return;
  }
  add("disparity", productTimes(disparities, frames, window));
  add(readers.depth->name(),
      productTimes(withDisparityTimestamps(readers.depth->products().kept(), disparities), frames, window));
  add(readers.cloud->name(), productTimes(readers.cloud->products().kept(), frames, window));
}

void fillProcessor(BenchReport& report, const RunRecord& record, const Readers& readers, const Moment& start,
                   const Moment& end) {
  const Window window{start.time, end.time};
  const auto percent = [&](std::int64_t used) {
    return 100.0 * static_cast<double>(used) / static_cast<double>(window.to - window.from);
  };
  const double process = percent(end.process - start.process);
  double rest = process;
  report.processor.emplace_back("this process", process);
  const auto add = [&](const std::string& name, double share) {
    report.processor.emplace_back(name, 100 * share);
    rest -= 100 * share;
  };
  add("- capture worker", threadShare(record.frames.kept(), window));
  if (!readers.wide) {
    add("- disparity worker", threadShare(record.disparities.kept(), window));
  }
  for (const Reader* const each : readers.all()) {
    add("- reader, " + each->name(), threadShare(each->products().kept(), window));
  }
  report.processor.emplace_back("- shared pool and the rest", std::max(rest, 0.0));
  if (start.machine && end.machine) {
    report.processor.emplace_back("other processes", std::max(percent(*end.machine - *start.machine) - process, 0.0));
  }
}

BenchReport reportOn(const OpenedCamera& opened, const BenchOptions& options, const RunRecord& record,
                     const Readers& readers, const Moment& start, const Moment& end, double deviceRate) {
  const Window window{start.time, end.time};
  const std::vector<DeviceFrame>& frames = record.frames.kept();
  BenchReport report;
  report.facts = factsOf(opened, options);
  report.seconds = window.seconds();
  report.framesRead = static_cast<std::uint64_t>(std::count_if(
      frames.begin(), frames.end(), [&](const DeviceFrame& frame) { return window.holds(frame.returned); }));
  if (record.framesMissed) {
    report.framesLost = end.missed - start.missed;
    report.lostHow = "counted by the source";
  } else {
    report.framesLost = missedByGaps(frames, window, deviceRate);
    report.lostHow = deviceRate > 0
                         ? formatted("estimated from gaps of more than 1.5 periods at %.1f a second", deviceRate)
                         : "unknown: neither the device nor --rate states a rate";
  }
  report.waiting = waitingShare(frames, window);
  fillProducts(report, record, readers, window);
  report.framesPublished = report.products.front().count;
  fillProcessor(report, record, readers, start, end);
  report.peakMegabytes = peakMegabytes();
  if (record.framesRead >= mostFrames) {
    report.note = "ended early: no more than " + std::to_string(mostFrames) + " frames are kept";
  }
  return report;
}

/// A run until its time or its source is over.
struct Run {
  RunTime& time;
  FrameArrivals arrivals;
  const Readers& readers;
  const RunRecord& record;
  Moment start;
  bool measuring = false;
  bool tooShort = false;  ///< the source was over before each product was read

  /// Waits until each reader has read something. Throws Failure (noFrames) if that takes longer than the patience.
  void awaitProducts(std::chrono::milliseconds patience) {
    auto begun = Watchdog::Clock::now();
    const Reader* waiting = nullptr;
    while ((waiting = readers.waiting()) != nullptr && !time.over() && !readers.failed()) {
      const bool framesCome = arrivals.frameCame();
      if (!readers.pair.hasRead()) {
        begun = Watchdog::Clock::now();  // the warm-up takes a slow source a while
        start = Moment(record);
      } else if (framesCome && Watchdog::Clock::now() - begun > patience) {
        throw Failure(ExitCode::noFrames,
                      "frames come, but no " + waiting->name() + " within " + std::to_string(patience.count()) + " ms");
      }
      std::this_thread::sleep_for(lookAround);
    }
    measuring = waiting == nullptr;
  }

  void measure(double seconds) {
    if (measuring) {
      start = Moment(record);
      time.begin();
      progress() << "measuring for " << seconds << " s, Ctrl-C ends earlier ..." << std::endl;
    }
    while (!time.over() && !readers.failed() && record.framesRead < mostFrames) {
      arrivals.frameCame();
      std::this_thread::sleep_for(lookAround);
    }
  }
};

void bench(const BenchOptions& options) {
  options.json.check();
  RunRecord record;
  OpenedCamera opened = openCamera(options.source, {.record = &record});
  if (!opened.calibrated) {
    throw Failure(ExitCode::calibration, "bench also measures depth, so it needs a calibration (--calibration FILE)");
  }
  StereoCamera& camera = *opened.camera;
  std::optional<WideReader> wide;
  if (options.wide) {
    wide.emplace(opened, options.wideOptions);
  }
  const double announced = record.deviceRate ? record.deviceRate() : 0;
  const double deviceRate = announced > 0 ? announced : options.source.rate;

  RunTime time(options.seconds);
  startCapture(opened);
  Watchdog watch(opened, options.patience);
  if (!wide) {
    watch.startStereoCompute();
  }
  Readers readers(camera, watch, wide ? &*wide : nullptr);
  Run run{time, FrameArrivals(camera, watch, record), readers, record, Moment(record)};
  progress() << "waiting for one of each product from " << opened.description << " ..." << std::endl;
  try {
    run.awaitProducts(watch.patience());
    run.measure(options.seconds);
  } catch (const Ended& ended) {
    if (!readers.pair.hasRead() || (ended.signal() != 0 && !run.measuring)) {
      throw;
    }
    run.tooShort = !run.measuring;
  }
  const Moment end(record);
  readers.end();
  readers.check();
  if (!run.measuring && !run.tooShort) {
    checkSignals();
  }
  BenchReport report = reportOn(opened, options, record, readers, run.start, end, deviceRate);
  if (run.tooShort) {
    report.note = "the recording was over before there was one of each product: measured from its first frame";
  }
  if (!options.json.replacesText()) {
    results() << benchTable(report) << std::flush;
  }
  options.json.write(benchJson(report));
  // A run that the user ended early need not have everything.
  const bool complete = report.seconds >= options.seconds;
  for (const Figures& each : report.products) {
    if (complete && each.count == 0) {
      throw Failure(ExitCode::noFrames, "no " + each.name + " came within the " + formatted("%.1f s", report.seconds));
    }
  }
}

}  // namespace

Action addBench(CLI::App& program) {
  auto options = std::make_shared<BenchOptions>();
  // The matcher that boards keep up with.
  options->source.matcher = "bm";
  CLI::App* const command = program.add_subcommand("bench", "measure a sustained run: all workers and readers at once");
  addSourceOptions(*command, options->source, {.rectified = true, .depth = true, .matcher = true});
  command->add_flag("--wide", options->wide, "measure wide depth instead of the camera class's depth and cloud");
  addWideOptions(*command, options->wideOptions);
  command->add_option("--seconds", options->seconds, "time to measure")
      ->check(CLI::Range(0.1, 1e6))
      ->capture_default_str();
  addJsonOption(*command, options->json);
  addPatienceOption(*command, options->patience);
  return [options] { bench(*options); };
}

}  // namespace stereo::app
