// SPDX-License-Identifier: Apache-2.0
// Command record: writes raw frames to be replayed.
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <utility>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Options.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/Output.hpp"
#include "apps/stereo-camera/pictures/Pictures.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/RunTime.hpp"
#include "apps/stereo-camera/process/Signals.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"
#include "model/Text.hpp"
#include "sources/Recorder.hpp"
#include "sources/Recording.hpp"

namespace stereo::app {

namespace {

struct RecordOptions {
  SourceOptions source;
  std::string output = "recording";
  std::string codec = "huffyuv";
  double seconds = 0;
  std::uint64_t frames = 0;
  std::size_t queue = 32;
  std::uint64_t keepFree = 256;  // megabytes
  double patience = 10;
};

// Encoding a frame may take long; interval of checks for the end meanwhile.
constexpr std::chrono::milliseconds endCheckInterval{200};

// Makes the folder, and removes what a recording without frames would leave in it.
class Folder {
public:
  explicit Folder(std::filesystem::path path) : m_path(std::move(path)), m_made(m_path) {}
  // Runs last, after everything that writes into the folder.
  ~Folder() {
    std::error_code ignored;
    if (m_begun && (m_nothingCame || !sources::Recording::isAt(m_path))) {
      for (const char* name : sources::Recording::files) {
        std::filesystem::remove(m_path / name, ignored);
      }
    }
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  // From here on, a recording's files in the folder are ours.
  void begin() { m_begun = true; }
  // The video, if there is one, has no frame.
  void nothingCame() { m_nothingCame = true; }

private:
  const std::filesystem::path m_path;
  const MadeFolder m_made;
  bool m_begun = false;
  bool m_nothingCame = false;
};

void tellOfDrops(const sources::Recorder::Counts& counts, sources::Recorder::Counts& told) {
  if (counts.dropped > 0 && told.dropped == 0) {
    std::cerr
        << "stereo-camera: frames are dropped: they come faster than they can be written. A lower --rate, smaller "
           "frames (--size 928x400), --codec huffyuv or a faster disk helps; --queue bridges short delays"
        << std::endl;
  }
  if (counts.unfit > 0 && told.unfit == 0) {
    std::cerr << "stereo-camera: frames of another size or type than the first are skipped" << std::endl;
  }
  told = counts;
}

void recordUntilDone(const RecordOptions& options, OpenedCamera& opened, sources::Recorder& recorder) {
  Watchdog watch(opened, options.patience);
  RunTime runTime(options.seconds);
  sources::Recorder::Counts told;
  ProgressLine line;
  const char* const howToEnd = options.seconds > 0 || options.frames > 0 ? "" : "; Ctrl-C ends it";
  while (!runTime.over() && (options.frames == 0 || told.written < options.frames)) {
    const sources::Recorder::Counts before = told;
    const bool wrote = recorder.awaitFrame(before, endCheckInterval);
    if (wrote) {
      watch.run([] { return true; });
      runTime.begin();
    } else if (!opened.camera->isOpened()) {
      watch.run([] { return false; });  // throws the watchdog's reason for stopping the camera
      break;
    }
    tellOfDrops(recorder.counts(), told);
    if (told.written > 0) {
      line.show(model::formatted(
          "recording: %llu frames, %llu dropped, %.1f MB%s", static_cast<unsigned long long>(told.written),
          static_cast<unsigned long long>(told.dropped), static_cast<double>(recorder.bytes()) / 1e6, howToEnd));
    }
  }
  watch.finish();
}

void record(const RecordOptions& options) {
  options.source.requireNamed();  // so that nobody records the wrong camera for hours
  const std::filesystem::path folder(options.output);
  Folder made(folder);
  sources::Recorder recorder({.folder = folder,
                              .codec = options.codec,
                              .queue = options.queue,
                              .rate = options.source.rate > 0 ? options.source.rate : 30.0,
                              .most = options.frames,
                              .spare = options.keepFree * 1'000'000});
  made.begin();
  OpenedCamera opened = openCamera(options.source, {.tap = &recorder});
  const sources::CameraSettings settings = opened.camera->settings();
  sources::Recording::writeSettings(folder, settings);
  const auto tellAbout = [&](const sources::Recorder::Counts& counts) {
    sources::Recording::writeAbout(folder, opened.description, options.codec, settings.fisheyeRadius, counts);
  };
  tellAbout({});
  if (opened.calibrated) {
    // Before the start, which scales it.
    opened.camera->saveCalibParams((folder / sources::Recording::calibrationFile).string());
  }
  startCapture(opened);
  // Whatever ends it, the frames so far can be replayed.
  std::exception_ptr failure;
  try {
    recordUntilDone(options, opened, recorder);
  } catch (const Ended&) {
    // The frames so far are the recording.
  } catch (const Failure&) {
    failure = std::current_exception();
  } catch (const sources::RecordingError&) {
    failure = std::current_exception();
  }
  try {
    recorder.finish();
  } catch (const sources::RecordingError&) {
    failure = failure ? failure : std::current_exception();
  }
  const sources::Recorder::Counts counts = recorder.counts();
  if (counts.written == 0) {
    made.nothingCame();
  }
  tellAbout(counts);
  if (counts.written == 0 && !failure) {
    checkSignals();
    throw Failure(ExitCode::noFrames, "ended before a frame came; nothing was recorded");
  }
  const cv::Size size = recorder.frameSize();
  if (counts.written == 0) {
    std::rethrow_exception(failure);
  }
  results() << "recorded " << counts.written << " frames, " << model::sizeText(size) << ", to " << options.output
            << "; dropped " << counts.dropped << ", skipped " << counts.unfit << " of another size or type"
            << std::endl;
  if (failure) {
    std::rethrow_exception(failure);
  }
}

}  // namespace

Action addRecord(CLI::App& program) {
  auto options = std::make_shared<RecordOptions>();
  CLI::App* const command =
      program.add_subcommand("record", "write raw frames with their timestamps, lossless, for --replay");
  addSourceOptions(*command, options->source, {.rectified = true, .depth = true, .matcher = true, .position = true});
  command->add_option("-o,--output", options->output, "folder for the recording")
      ->type_name("FOLDER")
      ->capture_default_str();
  command->add_option("--seconds", options->seconds, "time to record; 0: until Ctrl-C")
      ->check(CLI::Range(0.0, 1e6))
      ->capture_default_str();
  command->add_option("--frames", options->frames, "frames to record; 0: no limit")->capture_default_str();
  addRecorderOptions(*command, options->codec, options->queue, options->keepFree);
  addPatienceOption(*command, options->patience);
  return [options] {
    try {
      record(*options);
    } catch (const sources::RecordingError& error) {
      throw Failure(ExitCode::output, error.what());
    }
  };
}

}  // namespace stereo::app
