// SPDX-License-Identifier: Apache-2.0
// How results are written: as a table or as JSON.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "bench/compare/Measure.hpp"

namespace stereo::compare {

/// Where and with what the figures were measured.
struct Environment {
  std::string processor;
  unsigned cores = 0;
  int threads = 0;  ///< Used by OpenCV's parallel loops.
  std::string instructions;
  std::string compiler;
  std::string openCv;
};

/// `instructions`: the instruction set of the library's kernels.
Environment currentEnvironment(const std::string& instructions);

/// Writes a table, aligned for a terminal or in Markdown.
void writeTable(std::ostream& out, const Environment& environment, const std::vector<Result>& results, bool markdown);

void writeJson(std::ostream& out, const Environment& environment, const std::vector<Result>& results);

}  // namespace stereo::compare
