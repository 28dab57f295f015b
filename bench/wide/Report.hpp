// SPDX-License-Identifier: Apache-2.0
// The judge's figures as tables and JSON.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "bench/wide/Score.hpp"

namespace stereo::wide {

/// Figures of one engine in one part of the run: a case, a misaligned calibration, a recorded frame.
struct Entry {
  std::string part;
  std::string engine;
  Figures figures;
};

/// Figures of each kind in a table of their own, a line for each entry that has them.
void writeTables(std::ostream& out, const std::vector<Entry>& entries);

/// {"view": "464 x 400", "set": ..., "entries": [{"part": ..., "engine": ..., "figures": {name: value or null}}]}
void writeJson(std::ostream& out, const View& view, const std::string& set, const std::vector<Entry>& entries);

}  // namespace stereo::wide
