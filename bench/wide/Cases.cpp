// SPDX-License-Identifier: Apache-2.0
#include "bench/wide/Cases.hpp"

#include <utility>

namespace stereo::wide {

namespace {

constexpr int thingsOfRoom = 45;

// Every other room has things nearer than anything measurable.
void addScenes(std::vector<SceneOfRig>& scenes, const sim::Rig::Options& rig, std::uint32_t firstSeed, int count) {
  for (int n = 0; n < count; ++n) {
    scenes.push_back({rig, firstSeed + static_cast<std::uint32_t>(n), n % 2 == 0 ? 0 : 3});
  }
}

}  // namespace

std::vector<Case> allCases() {
  std::vector<Case> cases;
  for (const auto& [name, conditions] :
       {std::pair("rich", "rich"), std::pair("hard", "hard"), std::pair("plain", "plain"),
        std::pair("poles", "rich,poles=10"), std::pair("near-poles", "rich,near-poles=6"),
        std::pair("repeats", "rich,plates=5")}) {
    cases.push_back({name, sim::parseConditions(conditions)});
    cases.back().conditions.scenery.things = thingsOfRoom;
  }
  return cases;
}

std::vector<SceneOfRig> tuningScenes() {
  std::vector<SceneOfRig> scenes;
  addScenes(scenes, {.seed = 1}, 101, 6);
  addScenes(scenes, {.seed = 21, .baseline = 0.066, .xi = 1.3, .focal = 0.97, .turn = {0.8, -1.2, 0.6}, .error = {}},
            151, 4);
  return scenes;
}

std::vector<SceneOfRig> finalScenes() {
  std::vector<SceneOfRig> scenes;
  addScenes(scenes, {.seed = 7}, 701, 4);
  addScenes(scenes, {.seed = 31, .baseline = 0.054, .xi = 1.7, .focal = 1.03, .turn = {-0.9, 1.0, -1.1}, .error = {}},
            751, 4);
  addScenes(scenes, {.seed = 41, .baseline = 0.070, .xi = 1.15, .focal = 0.95, .turn = {1.2, 0.7, 0.9}, .error = {}},
            781, 4);
  return scenes;
}

}  // namespace stereo::wide
