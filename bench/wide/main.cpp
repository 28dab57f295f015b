// SPDX-License-Identifier: Apache-2.0
// Measures wide depth, and OpenCV's matchers in the same geometry, against what is true of simulated scenes.
#include <algorithm>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>

#include <CLI/CLI.hpp>

#include "bench/wide/Cases.hpp"
#include "bench/wide/Engine.hpp"
#include "bench/wide/Report.hpp"
#include "bench/wide/Sample.hpp"
#include "bench/wide/Score.hpp"
#include "model/CameraFacts.hpp"

namespace {

using namespace stereo::wide;
namespace model = stereo::model;

struct Options {
  bool peers = false;
  bool engine = false;
  bool final = false;
  bool quick = false;
  int width = 464;
  std::string cache;
  std::string json;
  std::vector<std::string> cases;
};

void addOptions(CLI::App& program, Options& options) {
  program.add_flag("--engine", options.engine, "Only the engine");
  program.add_flag("--peers", options.peers, "Only the peers")->excludes("--engine");
  program.add_flag("--final", options.final, "Scenes and rigs that no engine was tuned on");
  program.add_flag("--quick", options.quick, "Four scenes of each case, nothing else");
  program.add_option("--case", options.cases, "Only these cases: rich, hard, plain, poles")->delimiter(',');
  program.add_option("--width", options.width, "Width of the view, pixels; its height keeps the ratio 464 : 400")
      ->check(CLI::Range(116, 1856))
      ->capture_default_str();
  program.add_option("--cache", options.cache, "Folder where rendered frames and truth stay for the next run")
      ->type_name("DIR");
  program.add_option("--json", options.json, "Write all figures to this file")->type_name("FILE");
}

Camera cameraOf(const stereo::sim::Rig& rig) {
  return {{rig.calibParams(false), rig.calibParams(true)}, {model::fullFrameWidth / 2, model::fullFrameHeight}};
}

std::vector<EngineKind> enginesOf(const Options& options) {
  std::vector<EngineKind> engines;
#ifdef STEREO_CAMERA_WIDE_DEPTH
  if (!options.peers) {
    engines.push_back(wideDepthEngine());
  }
#endif
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

// Engines of one kind, one for each rig.
class EnginesOfKind {
public:
  EnginesOfKind(const EngineKind& kind, const Task& task) : m_kind(kind), m_task(task) {}

  Engine& of(const stereo::sim::Rig::Options& rig) {
    std::unique_ptr<Engine>& engine = m_engines[rig.seed];
    if (!engine) {
      engine = m_kind.make(cameraOf(stereo::sim::Rig(rig)), m_task);
    }
    return *engine;
  }

private:
  const EngineKind& m_kind;
  Task m_task;
  std::map<std::uint32_t, std::unique_ptr<Engine>> m_engines;
};

std::vector<Entry> judgeCases(const Options& options, const Task& task, const SampleCache& cache) {
  std::vector<Entry> entries;
  const std::vector<EngineKind> kinds = enginesOf(options);
  for (const Case& conditions : allCases()) {
    if (!options.cases.empty() &&
        std::find(options.cases.begin(), options.cases.end(), conditions.name) == options.cases.end()) {
      continue;
    }
    std::vector<EnginesOfKind> engines;
    std::vector<Score> scores;
    for (const EngineKind& kind : kinds) {
      engines.emplace_back(kind, task);
      scores.emplace_back(Limits{.nearest = task.nearest, .farthest = task.farthest});
    }
    for (const SceneOfRig& scene : scenesOf(options)) {
      const Sample sample = cache.sample(scene, conditions, task.view);
      for (std::size_t n = 0; n < kinds.size(); ++n) {
        scores[n].add(sample, engines[n].of(scene.rig).measure(sample.left, sample.right), task.view);
      }
    }
    for (std::size_t n = 0; n < kinds.size(); ++n) {
      entries.push_back({conditions.name, kinds[n].name, scores[n].figures()});
    }
    std::cerr << conditions.name << ": done" << std::endl;
  }
  return entries;
}

int run(const Options& options) {
  Task task;
  task.view.size = {options.width, cvRound(options.width * 400.0 / 464.0)};
  const std::vector<Entry> entries = judgeCases(options, task, SampleCache(options.cache));
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
