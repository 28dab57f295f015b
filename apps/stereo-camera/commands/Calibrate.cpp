// SPDX-License-Identifier: Apache-2.0
// Command calibrate: makes a calibration file.
#include "calibration/Calibrate.hpp"

#include <filesystem>
#include <memory>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/calibrate/CalibrationReport.hpp"
#include "apps/stereo-camera/calibrate/CalibrationViews.hpp"
#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Options.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/JsonOption.hpp"
#include "apps/stereo-camera/output/Output.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/Signals.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"
#include "calibration/CalibrationFile.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

struct CalibrateOptions {
  LiveOptions live;
  std::string folder;
  std::string board = "8x6";
  double square = 0;
  std::string output = "calibration.yml";
  std::string report;
  bool replace = false;
  int serialNumber = 0;
  int posNumber = 0;
  JsonOption json;
};

calibration::Board boardOf(const CalibrateOptions& options) {
  calibration::Board board;
  board.corners = parseSize(options.board, "--board");
  board.square = options.square;
  if (board.corners.width < 3 || board.corners.height < 3 || board.corners.width > 50 || board.corners.height > 50) {
    throw Failure(ExitCode::usage, "--board: 3 to 50 inner corners each way, such as 8x6");
  }
  if (board.corners.width == board.corners.height) {
    throw Failure(ExitCode::usage, "--board: a square board looks the same rotated by 90 degrees; use one such as 8x6");
  }
  return board;
}

// The file's folder, prepared before any picture is taken, so that nobody holds a board for hours only to find it
// missing or not writable.
std::unique_ptr<OutputFolder> placeFor(const std::filesystem::path& file, bool replace) {
  return std::make_unique<OutputFolder>(file.parent_path(), replace, std::vector{file.filename().string()});
}

void calibrate(CalibrateOptions options) {
  if (options.folder.empty()) {
    options.live.source.requireNamed("a FOLDER of pictures, ");
  }
  const calibration::Board board = boardOf(options);
  const std::filesystem::path output(options.output);
  const std::string syntax = output.extension().string();
  if (syntax != ".yml" && syntax != ".yaml" && syntax != ".xml" && syntax != ".json") {
    throw Failure(ExitCode::usage, "-o: '" + options.output + "' ends neither in .yml nor in .xml or .json");
  }
  if (options.report.empty()) {
    options.report = std::filesystem::path(output).replace_extension(".html").string();
  }
  if (options.report == options.output) {
    throw Failure(ExitCode::usage, "--report: the page would replace the calibration");
  }
  const std::filesystem::path report(options.report);
  const auto outputPlace = placeFor(output, options.replace);
  const auto reportPlace = placeFor(report, options.replace);
  options.json.check();
  if (options.live.keep.empty()) {
    options.live.keep = std::filesystem::path(output).replace_extension("").string() + "-pictures";
  }

  const BoardPictures pictures =
      options.folder.empty() ? takeBoards(options.live, board) : readBoards(options.folder, board);
  calibration::Calibration result;
  try {
    result = calibration::calibrate(pictures.views, board, pictures.eyeSize, [](const std::string& line) {
      checkSignals();
      progress() << line << std::endl;
    });
  } catch (const calibration::CannotCalibrate& reason) {
    throw Failure(ExitCode::problems, reason.what());
  }
  std::string text;
  for (std::size_t view = 0; view < result.views.size(); ++view) {
    if (result.kept[view] == 0) {
      text += "rejected: " + result.views[view].name + " does not fit the others\n";
    }
  }
  const calibration::Assessment assessment = calibration::assess(result, pictures.eyeSize);
  const CalibrationStory story{result, assessment, board, pictures.eyeSize, pictures.source, pictures.picture};
  for (const auto& [name, value] : calibrationFacts(story)) {
    text += model::formatted("%-24s ", name.c_str()) + value + "\n";
  }
  try {
    calibration::saveCalibration((outputPlace->draft() / output.filename()).string(), result.estimate.rig,
                                 2 * pictures.eyeSize.width, {options.serialNumber, options.posNumber, {464, 400}});
  } catch (const std::runtime_error& error) {
    throw Failure(ExitCode::output, error.what());
  }
  writeFile(reportPlace->draft() / report.filename(), calibrationPage(story));
  outputPlace->commit();
  reportPlace->commit();
  text += "written: " + options.output + ", report: " + options.report + "\n";
  for (const std::string& advice : assessment.advice) {
    text += "advice   " + advice + "\n";
  }
  for (const std::string& fault : assessment.faults) {
    text += "PROBLEM  " + fault + "\n";
  }
  if (!options.json.replacesText()) {
    results() << text << std::flush;
  }
  options.json.write(calibrationFigures(story).add("calibration", options.output).add("report", options.report));
  if (!assessment.faults.empty()) {
    throw Failure(ExitCode::problems, "the calibration was written, but is not reliable: see the lines above");
  }
}

}  // namespace

Action addCalibrate(CLI::App& program) {
  auto options = std::make_shared<CalibrateOptions>();
  CLI::App* const command =
      program.add_subcommand("calibrate", "make a calibration file from pictures of a chessboard");
  SourceOptions& source = options->live.source;
  addSourceOptions(*command, source, {.scene = false, .calibration = false});
  auto* const folder = command
                           ->add_option("folder", options->folder,
                                        "folder of side-by-side pictures of the board; "
                                        "without it, pictures are taken from the source")
                           ->check(CLI::ExistingDirectory);
  for (const char* live : {"--simulate", "--replay", "--device", "--settings"}) {
    folder->excludes(command->get_option(live));
  }
  command->add_option("--board", options->board, "inner corners of the board, along and across")
      ->type_name("WxH")
      ->capture_default_str();
  command->add_option("--square", options->square, "side of a square, millimeters")
      ->required()
      ->check(CLI::Range(0.5, 1000.0));
  command->add_option("-o,--output", options->output, "calibration file to write (.yml, .xml or .json)")
      ->type_name("FILE")
      ->capture_default_str();
  command->add_option("--report", options->report, "page with errors and coverage (default: beside the output, .html)")
      ->type_name("FILE");
  command->add_flag("--replace", options->replace, "replace existing files");
  command->add_option("--serial", options->serialNumber, "serial number for the file")->capture_default_str();
  command->add_option("--position", options->posNumber, "position of the camera on its machine, for the file")
      ->check(CLI::Range(0, 999))
      ->capture_default_str();
  command->add_option("--pictures", options->live.pictures, "pictures to take from a source")
      ->check(CLI::Range(5, 500))
      ->capture_default_str();
  command->add_option("--keep", options->live.keep, "folder for the pictures taken (default: OUTPUT-pictures)")
      ->type_name("FOLDER");
  command->add_option("--idle", options->live.idle, "seconds without a new picture after which to continue")
      ->check(CLI::Range(1.0, 36000.0))
      ->capture_default_str();
  addPatienceOption(*command, options->live.patience);
  addJsonOption(*command, options->json);
  return [options] { calibrate(*options); };
}

}  // namespace stereo::app
