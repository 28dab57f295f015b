// SPDX-License-Identifier: Apache-2.0
// The command line of the whole program.
#include <map>
#include <memory>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Help.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/process/Failure.hpp"

namespace stereo::app {

namespace {

struct OutputOptions {
  bool quiet = false;
  bool verbose = false;

  void addTo(CLI::App& command) {
    auto* const silence = command.add_flag("--quiet", quiet, "no log and no progress; errors stay");
    command.add_flag("--verbose", verbose, "also warnings of OpenCV, GStreamer and FFmpeg")->excludes(silence);
  }
};

}  // namespace

int runCommand(int argc, char** argv) {
  CLI::App program("Host program of the stereo fisheye camera", "stereo-camera");
  program.require_subcommand(1);
  program.set_version_flag("--version", "stereo-camera " STEREO_CAMERA_VERSION, "Print the version and exit");
  program.formatter(std::make_shared<HelpFormatter>(terminalWidth()));
  program.footer(
      "Exit codes: 0 success, 1 unexpected error, 2 wrong arguments, 3 source cannot be opened, "
      "4 calibration unusable, 5 no frames, 6 output cannot be written, 7 problems found, "
      "128 + N ended by signal N before there was a result.");
  std::map<std::string, Action> actions;
  actions["demo"] = addDemo(program);
  actions["view"] = addView(program);
  actions["serve"] = addServe(program);
  actions["snapshot"] = addSnapshot(program);
  actions["info"] = addInfo(program);
  actions["stream"] = addStream(program);
  actions["receive"] = addReceive(program);
  actions["share"] = addShare(program);
  actions["record"] = addRecord(program);
  actions["bench"] = addBench(program);
  actions["doctor"] = addDoctor(program);
  actions["calibrate"] = addCalibrate(program);
  actions["check"] = addCheck(program);
  actions["completion"] = addCompletion(program);
  OutputOptions output;
  for (CLI::App* const command : program.get_subcommands({})) {
    output.addTo(*command);
  }
  try {
    program.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) {
      throw Failure(ExitCode::usage, usageMessage(program, argc, argv, error));
    }
    program.exit(error, results());  // help, or the version
    results().flush();
    return 0;
  }
  if (output.quiet) {
    beQuiet();
  }
  if (!output.verbose) {
    silenceLibraries();
  }
  actions.at(program.get_subcommands().front()->get_name())();
  results().flush();
  return 0;
}

}  // namespace stereo::app
