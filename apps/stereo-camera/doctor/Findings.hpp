// SPDX-License-Identifier: Apache-2.0
// What doctor found, and the remedies.
#pragma once

#include <string>
#include <vector>

namespace stereo::app {

/// One thing that was checked. Has a remedy exactly if something is wrong.
struct Finding {
  std::string what;    ///< "calibration: baseline 60.5 mm"
  std::string remedy;  ///< empty: all is well

  bool isWell() const { return remedy.empty(); }
};

using Findings = std::vector<Finding>;

inline void add(Findings& findings, const std::string& what, const std::string& remedy = "") {
  findings.push_back({what, remedy});
}

}  // namespace stereo::app
