// SPDX-License-Identifier: Apache-2.0
#include "bench/wide/Simulated.hpp"

#include <iostream>
#include <map>
#include <memory>

#include "sim/Rig.hpp"

namespace stereo::wide {

namespace {

// Times that a self-calibrating engine sees all scenes of its rig before it is judged.
constexpr int lapsToLearn = 10;

/// Engines of one kind, one for each rig.
class EnginesOfKind {
public:
  EnginesOfKind(const EngineKind& kind, const Task& task) : m_kind(&kind), m_task(task) {}

  Engine& of(const sim::Rig::Options& options) {
    std::unique_ptr<Engine>& engine = m_engines[options.seed];
    if (!engine) {
      engine = m_kind->make(cameraOf(sim::Rig(options)), m_task);
    }
    return *engine;
  }

private:
  const EngineKind* m_kind;
  Task m_task;
  std::map<std::uint32_t, std::unique_ptr<Engine>> m_engines;
};

Limits limitsOf(const Task& task) { return {.nearest = task.nearest, .farthest = task.farthest}; }

/// Frame pixels in a row of the view, in the middle of the field.
double pixelsOfRow(const sim::Rig& rig, const View& view) {
  const model::OmniModel& model = rig.eye(true).model;
  return model.fy / (1.0 + model.xi) * (view.latitude(1) - view.latitude(0));
}

}  // namespace

std::vector<Entry> judgeCases(const std::vector<Case>& cases, const std::vector<SceneOfRig>& scenes,
                              const std::vector<EngineKind>& engines, const Task& task, const SampleCache& cache) {
  std::vector<Entry> entries;
  for (const Case& conditions : cases) {
    std::vector<EnginesOfKind> kinds;
    std::vector<Score> scores;
    for (const EngineKind& kind : engines) {
      kinds.emplace_back(kind, task);
      scores.emplace_back(limitsOf(task));
    }
    for (const SceneOfRig& scene : scenes) {
      const Sample sample = cache.sample(scene, conditions, task.view);
      for (std::size_t n = 0; n < kinds.size(); ++n) {
        scores[n].add(sample, kinds[n].of(scene.rig).measure(sample.left, sample.right), task.view);
      }
    }
    for (std::size_t n = 0; n < engines.size(); ++n) {
      entries.push_back({conditions.name, engines[n].name, scores[n].figures()});
    }
    std::cerr << conditions.name << ": done" << std::endl;
  }
  return entries;
}

std::vector<Entry> judgeRowErrors(const Case& conditions, const std::vector<SceneOfRig>& scenes,
                                  const std::vector<EngineKind>& engines, Task task, const SampleCache& cache) {
  struct RowError {
    const char* name;
    double pitch;   // rows of the view
    double center;  // rows of the view
    double pixels;  // of the frame, also of the center
  };
  // A wrong pitch moves whole rows. A wrong center moves columns as well, off the axis.
  constexpr RowError errors[] = {{"no row error", 0.0, 0.0, 0.0},
                                 {"pitch off by 0.5 rows", 0.5, 0.0, 0.0},
                                 {"pitch off by 1 row", 1.0, 0.0, 0.0},
                                 {"center off by 0.5 pixels", 0.0, 0.0, 0.5},
                                 {"center off by 0.5 rows", 0.0, 0.5, 0.0}};
  std::vector<Sample> samples;
  for (const SceneOfRig& scene : scenes) {
    samples.push_back(cache.sample(scene, conditions, task.view));
  }
  std::vector<Entry> entries;
  for (const RowError& error : errors) {
    for (const bool selfCalibrate : {false, true}) {
      task.selfCalibrate = selfCalibrate;
      for (const EngineKind& kind : engines) {
        EnginesOfKind ofRigs(kind, task);
        const auto measured = [&](std::size_t n) {
          sim::Rig::Options rig = scenes[n].rig;
          rig.error.pitch = error.pitch * task.view.verticalField / task.view.size.height;
          rig.error.rows = error.center * pixelsOfRow(sim::Rig(scenes[n].rig), task.view) + error.pixels;
          return ofRigs.of(rig).measure(samples[n].left, samples[n].right);
        };
        for (int lap = 0; selfCalibrate && lap < lapsToLearn; ++lap) {
          for (std::size_t n = 0; n < scenes.size(); ++n) {
            measured(n);
          }
        }
        Score score(limitsOf(task));
        for (std::size_t n = 0; n < scenes.size(); ++n) {
          score.add(samples[n], measured(n), task.view);
        }
        entries.push_back({std::string(error.name) + (selfCalibrate ? ", self-cal." : ""), kind.name, score.figures()});
      }
    }
    std::cerr << error.name << ": done" << std::endl;
  }
  return entries;
}

}  // namespace stereo::wide
