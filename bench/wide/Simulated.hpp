// SPDX-License-Identifier: Apache-2.0
// Engines on simulated scenes.
#pragma once

#include <vector>

#include "bench/wide/Cases.hpp"
#include "bench/wide/Engine.hpp"
#include "bench/wide/Report.hpp"
#include "bench/wide/Sample.hpp"

namespace stereo::wide {

/// An entry for each case and engine, over all scenes.
std::vector<Entry> judgeCases(const std::vector<Case>& cases, const std::vector<SceneOfRig>& scenes,
                              const std::vector<EngineKind>& engines, const Task& task, const SampleCache& cache);

/// The first case with calibrations that are off by rows: an entry for each error and engine, without and with
/// self-calibration. With it, an engine sees each rig's scenes some times before it is judged.
std::vector<Entry> judgeRowErrors(const Case& conditions, const std::vector<SceneOfRig>& scenes,
                                  const std::vector<EngineKind>& engines, Task task, const SampleCache& cache);

}  // namespace stereo::wide
