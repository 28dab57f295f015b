// SPDX-License-Identifier: Apache-2.0
// Options that several commands take.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace stereo::app {

class JsonOption;
struct SourceOptions;
struct WideOptions;

/// Which options a command takes besides those that name the source. The others keep their defaults.
struct SourceUse {
  bool plays = true;        ///< frames are read: --once
  bool scene = true;        ///< for the simulated camera: --still, --faults, --conditions
  bool calibration = true;  ///< --calibration
  bool rectified = false;   ///< --rectified
  bool depth = false;       ///< --depth-mode
  bool matcher = false;     ///< --matcher
  bool position = false;    ///< --position
  /// Stores what the user wrote for --device here, instead of looking the device up at once: it may come and go.
  std::string* device = nullptr;
};

/// Adds the options of a source that the subcommand takes. `options` outlives the parsing, `command` the options.
void addSourceOptions(CLI::App& command, SourceOptions& options, const SourceUse& use);

/// Adds the options of wide depth.
void addWideOptions(CLI::App& command, WideOptions& options);

/// Adds --device, which stores the node number in `device`.
CLI::Option* addDeviceOption(CLI::App& command, int& device);

/// Adds --codec, --queue and --keep-free, of recordings.
void addRecorderOptions(CLI::App& command, std::string& codec, std::size_t& queue, std::uint64_t& keepFree);

/// Adds --patience: seconds without a frame after which to give up.
void addPatienceOption(CLI::App& command, double& seconds);

/// Adds --json: the file for the results.
void addJsonOption(CLI::App& command, JsonOption& option);

}  // namespace stereo::app
