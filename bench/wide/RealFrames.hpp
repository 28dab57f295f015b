// SPDX-License-Identifier: Apache-2.0
// Engines on recorded frames, where there are any on this machine.
#pragma once

#include <filesystem>
#include <vector>

#include "bench/wide/Engine.hpp"
#include "bench/wide/Report.hpp"

namespace stereo::wide {

/// Chessboards of known size. The truth of a corner is its distance in the pose of the whole board, from the left eye's
/// corners alone. An entry for each board with its distance, "corners" (percent of them with a range), "error" (median
/// of the ranges' relative errors, percent) and "side" (median distance of neighboring corners in space, percent off);
/// then one with how many boards there are, how many were measured (half of their corners) and how many within 1.5 %.
///
/// `folder`: recorded frames with 8 x 6 corners of 39 mm, and calibration.yml.
std::vector<Entry> judgeBoards(const std::filesystem::path& folder, const std::vector<EngineKind>& engines,
                               const Task& task);

/// Scenes without a truth: the share of all pixels that is measured, and how much of it agrees within 10 % with the
/// depth of the camera class (depth mode 2, semi-global matching, 464 x 400 over 90 degrees) where that has one and can
/// reach. `folder`: frames and calibration.yml.
std::vector<Entry> judgeScenes(const std::filesystem::path& folder, const std::vector<EngineKind>& engines,
                               const Task& task);

}  // namespace stereo::wide
