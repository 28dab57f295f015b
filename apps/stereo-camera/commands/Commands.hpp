// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>

// The parser is included by those who use it: it takes long to compile.
namespace CLI {
class App;
}  // namespace CLI

namespace stereo::app {

/// What a subcommand does once the command line is read.
using Action = std::function<void()>;

// Each adds its subcommand and returns what to do if it was chosen.
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
// The last: it tells of all that were added before it.
Action addCompletion(CLI::App& program);

}  // namespace stereo::app
