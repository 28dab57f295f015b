// SPDX-License-Identifier: Apache-2.0
// The option --json: where results go as JSON.
#pragma once

#include <string>

#include "apps/stereo-camera/output/Json.hpp"

namespace stereo::app {

/// The option --json: results as JSON besides, or instead of, the text.
class JsonOption {
public:
  std::string path;  ///< empty: no results as JSON; "-": standard output

  bool wanted() const { return !path.empty(); }
  /// JSON replaces the text on standard output.
  bool replacesText() const { return path == "-"; }
  /// Throws Failure (output) if the file cannot be written. Call it ahead, since the results may take long.
  void check() const;
  /// Writes the results if requested, to standard output or to the file, which is then complete or unchanged. Throws
  /// Failure (output).
  void write(const Json& figures) const;
};

}  // namespace stereo::app
