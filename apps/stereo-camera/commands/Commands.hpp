// SPDX-License-Identifier: Apache-2.0
// The subcommands, a source file each, and the program made of them.
#pragma once

#include <functional>

// Forward declaration, since the parser takes long to compile.
namespace CLI {
class App;
}  // namespace CLI

namespace stereo::app {

/// What a subcommand does once the command line is parsed.
using Action = std::function<void()>;

// Each adds its subcommand and returns its action.
Action addDemo(CLI::App& program);
Action addSnapshot(CLI::App& program);
Action addInfo(CLI::App& program);
Action addStream(CLI::App& program);
Action addReceive(CLI::App& program);
Action addShare(CLI::App& program);
Action addBench(CLI::App& program);
Action addRecord(CLI::App& program);
Action addDoctor(CLI::App& program);
Action addCalibrate(CLI::App& program);
Action addCheck(CLI::App& program);
Action addView(CLI::App& program);
Action addServe(CLI::App& program);
// Last: it completes all that were added before it.
Action addCompletion(CLI::App& program);

/// Parses the command line, and runs its command or prints what it asks for. Returns the exit code. Throws Failure,
/// and whatever the command throws.
int runCommand(int argc, char** argv);

}  // namespace stereo::app
