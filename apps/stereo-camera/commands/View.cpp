// SPDX-License-Identifier: Apache-2.0
// Commands view and serve: the live view, for a while or as a service.
#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "apps/stereo-camera/camera/DeviceName.hpp"
#include "apps/stereo-camera/commands/Commands.hpp"
#include "apps/stereo-camera/commands/Options.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/service/Service.hpp"

namespace stereo::app {

namespace {

// Options of the server: of both commands, and of the configuration's top level.
void addServerOptions(CLI::App& command, ServiceOptions& options) {
  command.add_option("--listen", options.listen, "address to serve on; any but this machine's own asks for the token")
      ->type_name("ADDRESS")
      ->capture_default_str();
  command.add_option("--port", options.port, "port to serve on; 0: any that is free")
      ->check(CLI::Range(0, 65535))
      ->capture_default_str();
  command
      .add_option("--token-file", options.tokenFile,
                  "file of the token, made if missing (default: a new token each time)")
      ->type_name("FILE");
  command.add_option("--allow-host", options.names, "further name by which browsers may call this machine")
      ->type_name("NAME")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  command.add_option("--snapshots", options.folders.snapshots, "folder for snapshots")
      ->type_name("FOLDER")
      ->capture_default_str();
  command.add_option("--recordings", options.folders.recordings, "folder for recordings")
      ->type_name("FOLDER")
      ->capture_default_str();
  command.add_option("--seconds", options.seconds, "time to run; 0: until Ctrl-C")
      ->check(CLI::Range(0.0, 1e9))
      ->capture_default_str();
}

// Options of one camera: of the command line, and of a section of the configuration.
void addCameraOptions(CLI::App& command, CameraPlan& plan) {
  addSourceOptions(command, plan.source,
                   {.rectified = true, .matcher = true, .position = true, .device = &plan.device});
  addWideOptions(command, plan.wide);
  addPatienceOption(command, plan.patience);
  command.add_flag("--share", plan.share, "offer the left eye in shared memory");
  command.add_option("--stream", plan.streamMode, "send pictures over the network, mode 0 to 4 (default: none)")
      ->check(CLI::Range(0, 4));
  command.add_option("--receiver", plan.receiver, "last octet of the stream's receiver")
      ->check(CLI::Range(0, 255))
      ->capture_default_str();
  command.add_option("--ring", plan.ring, "folder for a recording without end, of bounded size")->type_name("FOLDER");
  command.add_option("--ring-size", plan.ringMegabytes, "its size, megabytes")
      ->check(CLI::Range(10, 100'000'000))
      ->capture_default_str();
  command.add_option("--ring-part", plan.ringPart, "seconds in each of its parts")
      ->check(CLI::Range(1.0, 86400.0))
      ->capture_default_str();
  addRecorderOptions(command, plan.codec, plan.queue, plan.keepFree);
}

bool isCameraName(const std::string& name) {
  return !name.empty() && name.size() <= 64 && std::all_of(name.begin(), name.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '-' || c == '_';
  });
}

bool isTrue(const CLI::ConfigItem& entry, const std::string& where) {
  const std::string value = entry.inputs.empty() ? "true" : entry.inputs.front();
  if (value != "true" && value != "false") {
    throw Failure(ExitCode::usage, where + ": " + entry.name + " is true or false, not '" + value + "'");
  }
  return value == "true";
}

// Parses entries of the configuration as if they stood on a command line.
void parseEntries(CLI::App& options, const std::vector<CLI::ConfigItem>& entries, const std::string& where) {
  std::vector<std::string> arguments;
  for (const CLI::ConfigItem& entry : entries) {
    const CLI::Option* const option = options.get_option_no_throw("--" + entry.name);
    if (option == nullptr || entry.name == "help") {
      throw Failure(ExitCode::usage, where + ": there is no option '" + entry.name + "'");
    }
    if (option->get_items_expected_max() == 0) {
      if (isTrue(entry, where)) {
        arguments.push_back("--" + entry.name);
      }
      continue;
    }
    for (const std::string& value : entry.inputs) {
      arguments.push_back("--" + entry.name + "=" + value);
    }
  }
  std::reverse(arguments.begin(), arguments.end());  // as this form of the call takes them
  try {
    options.parse(arguments);
  } catch (const CLI::ParseError& error) {
    throw Failure(ExitCode::usage, where + ": " + error.what());
  }
}

// Reads the file into options and a plan for each of its sections.
std::vector<CameraPlan> readConfiguration(const std::string& file, ServiceOptions& options) {
  std::ifstream stream(file);
  if (!stream) {
    throw Failure(ExitCode::usage, "cannot read the configuration '" + file + "'");
  }
  std::vector<CLI::ConfigItem> entries;
  try {
    entries = CLI::ConfigTOML().from_config(stream);
  } catch (const CLI::ParseError& error) {
    throw Failure(ExitCode::usage, "the configuration '" + file + "': " + error.what());
  }
  std::vector<CLI::ConfigItem> top;
  std::vector<std::string> order;  // in the file's order
  std::map<std::string, std::vector<CLI::ConfigItem>> sections;
  for (const CLI::ConfigItem& entry : entries) {
    const bool isMark = entry.name == "++" || entry.name == "--";  // where a section begins and ends
    if (entry.parents.empty()) {
      if (!isMark) {
        top.push_back(entry);
      }
      continue;
    }
    if (entry.parents.size() > 1 || !isCameraName(entry.parents.front())) {
      throw Failure(ExitCode::usage, "the configuration '" + file +
                                         "': a section's name is that of a camera: letters, " +
                                         "digits, - and _, not '" + entry.parents.front() + "'");
    }
    if (std::find(order.begin(), order.end(), entry.parents.front()) == order.end()) {
      order.push_back(entry.parents.front());
    }
    if (!isMark) {
      sections[entry.parents.front()].push_back(entry);
    }
  }
  CLI::App server("", "");
  addServerOptions(server, options);
  const auto view = std::find_if(top.begin(), top.end(), [](const auto& entry) { return entry.name == "view"; });
  if (view != top.end()) {
    options.view = isTrue(*view, file);
    top.erase(view);
  }
  parseEntries(server, top, file);
  std::vector<CameraPlan> plans;
  for (const std::string& name : order) {
    auto plan = std::make_unique<CameraPlan>();
    plan->name = name;
    const auto section = std::make_shared<CLI::App>();
    addCameraOptions(*section, *plan);
    // The source asks it later which options were given.
    plan->source.given = [section, given = plan->source.given](const char* option) { return given(option); };
    parseEntries(*section, sections[name], file + ", [" + name + "]");
    if (!plan->source.named() && plan->device.empty()) {
      throw Failure(ExitCode::usage,
                    file + ", [" + name + "]: name a source: device, settings, replay or simulate = true");
    }
    plans.push_back(std::move(*plan));
  }
  return plans;
}

// Cameras must not be mistaken for each other.
void requireDistinct(const std::vector<CameraPlan>& plans) {
  const auto shares = [](const CameraPlan& plan) { return plan.share || plan.streamMode >= 0; };
  const bool haveSeveral = std::count_if(plans.begin(), plans.end(), shares) > 1;
  std::set<int> shared;
  std::set<std::string> rings;
  for (const CameraPlan& plan : plans) {
    if ((plan.share || plan.streamMode >= 0) && plan.source.position >= 0 &&
        !shared.insert(plan.source.position).second) {
      throw Failure(ExitCode::usage, "[" + plan.name + "]: another camera that shares or streams has position " +
                                         std::to_string(plan.source.position) + ", too");
    }
    if (shares(plan) && haveSeveral && plan.source.position < 0) {
      throw Failure(ExitCode::usage, "[" + plan.name + "]: several cameras share or stream: give each a position");
    }
    if (!plan.ring.empty() &&
        !rings.insert(std::filesystem::weakly_canonical(std::filesystem::path(plan.ring) / "").string()).second) {
      throw Failure(ExitCode::usage, "[" + plan.name + "]: another camera records to " + plan.ring + ", too");
    }
  }
}

}  // namespace

Action addView(CLI::App& program) {
  struct Options {
    ServiceOptions service;
    CameraPlan plan;
  };
  auto options = std::make_shared<Options>();
  CLI::App* const command = program.add_subcommand("view", "show the camera live, as a page for any browser");
  addCameraOptions(*command, options->plan);
  addServerOptions(*command, options->service);
  return [options] { runService(options->service, {options->plan}); };
}

Action addServe(CLI::App& program) {
  struct Options {
    ServiceOptions service;
    std::string file;
  };
  auto options = std::make_shared<Options>();
  options->service.isService = true;
  CLI::App* const command =
      program.add_subcommand("serve", "run cameras for long: view, share, stream and record as a file configures");
  command->add_option("--config", options->file, "configuration: options of the server, and a section for each camera")
      ->type_name("FILE")
      ->required();
  return [options] {
    const std::vector<CameraPlan> plans = readConfiguration(options->file, options->service);
    if (plans.empty()) {
      throw Failure(ExitCode::usage, "the configuration '" + options->file + "' has no section, so no camera");
    }
    requireDistinct(plans);
    runService(options->service, plans);
  };
}

}  // namespace stereo::app
