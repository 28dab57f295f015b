// SPDX-License-Identifier: Apache-2.0
#include <iostream>
#include <map>

#include <CLI/CLI.hpp>

#include "Commands.hpp"
#include "Failure.hpp"
#include "Signals.hpp"

// Outside of what is caught there is only the making of the options, which fails where there is no memory.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
  using namespace stereo::app;
  CLI::App program("Host program of the stereo fisheye camera", "stereo-camera");
  program.require_subcommand(1);
  program.set_version_flag("--version", "stereo-camera " STEREO_CAMERA_VERSION, "Print the version and exit");
  program.footer(
      "Exit codes: 0 success, 1 unexpected error, 2 wrong arguments, 3 source cannot be opened,\n"
      "4 calibration unusable, 5 no frames, 6 output cannot be written, 7 problems found,\n"
      "128 + N ended by signal N before there was a result.");
  std::map<std::string, Action> actions;
  actions["demo"] = addDemo(program);
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
  try {
    program.parse(argc, argv);
    takeOverSignals();
    actions.at(program.get_subcommands().front()->get_name())();
    return 0;
  } catch (const CLI::ParseError& error) {
    return program.exit(error) == 0 ? 0 : static_cast<int>(ExitCode::usage);
  } catch (const Failure& failure) {
    std::cerr << "stereo-camera: " << failure.what() << std::endl;
    return static_cast<int>(failure.code());
  } catch (const std::exception& error) {
    std::cerr << "stereo-camera: unexpected error: " << error.what() << std::endl;
    return static_cast<int>(ExitCode::unexpected);
  }
}
