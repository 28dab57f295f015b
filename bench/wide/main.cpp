// SPDX-License-Identifier: Apache-2.0
// Measures wide depth, and OpenCV's matchers in the same geometry, against what is true of simulated scenes.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "bench/wide/Cases.hpp"
#include "bench/wide/Engine.hpp"
#include "bench/wide/RealFrames.hpp"
#include "bench/wide/Report.hpp"
#include "bench/wide/Sample.hpp"
#include "bench/wide/Simulated.hpp"

namespace {

using namespace stereo::wide;

struct Options {
  bool peers = false;
  bool engine = false;
  bool final = false;
  bool quick = false;
  bool rows = false;
  int width = 464;
  std::string cache;
  std::string data;
  std::string json;
  std::vector<std::string> cases;
};

void addOptions(CLI::App& program, Options& options) {
  program.add_flag("--engine", options.engine, "Only the engine");
  program.add_flag("--peers", options.peers, "Only the peers")->excludes("--engine");
  program.add_flag("--final", options.final, "Scenes and rigs that no engine was tuned on");
  program.add_flag("--quick", options.quick, "Four scenes of each case");
  program.add_option("--case", options.cases, "Only these cases: rich, hard, plain, poles, near-poles, repeats, none")
      ->delimiter(',')
      ->check(CLI::IsMember({"rich", "hard", "plain", "poles", "near-poles", "repeats", "none"}));
  program.add_flag("--rows", options.rows, "Also calibrations that are off by rows, without and with self-calibration");
  program.add_option("--data", options.data, "Also recorded frames: a folder with boards/ and robot/")
      ->type_name("DIR")
      ->check(CLI::ExistingDirectory);
  program.add_option("--width", options.width, "Width of the view, pixels; its height keeps the ratio 464 : 400")
      ->check(CLI::Range(116, 1856))
      ->capture_default_str();
  program.add_option("--cache", options.cache, "Folder where rendered frames and truth stay for the next run")
      ->type_name("DIR");
  program.add_option("--json", options.json, "Write all figures to this file")->type_name("FILE");
}

std::vector<EngineKind> enginesOf(const Options& options) {
  std::vector<EngineKind> engines;
  if (!options.peers) {
    engines.push_back(wideDepthEngine());
  }
  if (!options.engine) {
    for (EngineKind& peer : peerEngines()) {
      engines.push_back(std::move(peer));
    }
  }
  return engines;
}

std::vector<SceneOfRig> scenesOf(const Options& options) {
  std::vector<SceneOfRig> scenes = options.final ? finalScenes() : tuningScenes();
  if (options.quick) {
    // Two of the first rig, two of the last.
    scenes.erase(scenes.begin() + 2, scenes.end() - 2);
  }
  return scenes;
}

std::vector<Case> casesOf(const Options& options) {
  std::vector<Case> cases = allCases();
  if (!options.cases.empty()) {
    cases.erase(std::remove_if(cases.begin(), cases.end(),
                               [&options](const Case& one) {
                                 return std::find(options.cases.begin(), options.cases.end(), one.name) ==
                                        options.cases.end();
                               }),
                cases.end());
  }
  return cases;
}

void append(std::vector<Entry>& entries, const std::vector<Entry>& more) {
  entries.insert(entries.end(), more.begin(), more.end());
}

std::vector<Entry> judge(const Options& options, const Task& task) {
  const SampleCache cache(options.cache);
  const std::vector<EngineKind> engines = enginesOf(options);
  const std::vector<SceneOfRig> scenes = scenesOf(options);
  std::vector<Entry> entries = judgeCases(casesOf(options), scenes, engines, task, cache);
  if (options.rows) {
    append(entries, judgeRowErrors(allCases()[0], scenes, engines, task, cache));
  }
  if (!options.data.empty()) {
    append(entries, judgeBoards(std::filesystem::path(options.data) / "boards", engines, task));
    // The whole field, and that of the engine's defaults.
    Task narrower = task;
    narrower.view.horizontalField = 170.0;
    narrower.view.verticalField = 150.0;
    for (const Task& field : {task, narrower}) {
      append(entries, judgeScenes(std::filesystem::path(options.data) / "robot", engines, field));
    }
  }
  return entries;
}

int run(const Options& options) {
  Task task;
  task.view.size = {options.width, cvRound(options.width * 400.0 / 464.0)};
  const std::vector<Entry> entries = judge(options, task);
  writeTables(std::cout, entries);
  if (!options.json.empty()) {
    std::ofstream file(options.json);
    writeJson(file, task.view, options.final ? "final" : "tuning", entries);
    file.close();
    if (!file) {
      throw std::runtime_error("cannot write " + options.json);
    }
  }
  return 0;
}

}  // namespace

// Only the setup of the options is outside the try block; it fails only if there is no memory.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
  CLI::App program("Measures wide depth against the truth of simulated scenes.", "wide_depth_accuracy");
  Options options;
  addOptions(program, options);
  try {
    program.parse(argc, argv);
    return run(options);
  } catch (const CLI::ParseError& error) {
    return program.exit(error);
  } catch (const std::exception& error) {
    std::cerr << "wide_depth_accuracy: " << error.what() << '\n';
    return 1;
  }
}
