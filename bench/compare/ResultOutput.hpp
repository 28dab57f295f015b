// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "bench/compare/Measure.hpp"

namespace stereo::compare {

/// Where and with what the figures were taken.
struct Environment {
  std::string processor;
  unsigned cores = 0;
  int threads = 0;  ///< That OpenCV's parallel loops may use.
  std::string instructions;
  std::string compiler;
  std::string openCv;
};

/// `instructions` names the instruction set that the library's kernels were told to use.
Environment currentEnvironment(const std::string& instructions);

/// A table in columns for a terminal, or in Markdown.
void writeTable(std::ostream& out, const Environment& environment, const std::vector<Result>& results, bool markdown);

void writeJson(std::ostream& out, const Environment& environment, const std::vector<Result>& results);

}  // namespace stereo::compare
