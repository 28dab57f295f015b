// SPDX-License-Identifier: Apache-2.0
// The demo's HTML page and text table.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "apps/stereo-camera/pictures/Pictures.hpp"

namespace stereo::app {

/// How fast one kind of read was.
struct Timing {
  std::string name;
  int reads = 0;
  double perSecond = 0;
  double medianMs = 0;
  double p90Ms = 0;
};

/// What the demo reports besides its pictures.
struct DemoReport {
  std::string source;
  std::vector<std::pair<std::string, std::string>> facts;  ///< name and value
  std::vector<Timing> timings;
  std::vector<std::pair<std::string, std::string>> files;  ///< further files: name and what they hold
  std::string note;                                        ///< what is missing and why; may be empty
};

/// The page as HTML. It refers to the pictures, which are files beside it.
std::string page(const DemoReport& report, const std::vector<Section>& sections);

/// The page's style sheet, for other pages of the program.
extern const char* const pageStyle;
/// Text escaped for HTML.
std::string escaped(const std::string& text);

/// The timings as a table of text.
std::string table(const DemoReport& report);

}  // namespace stereo::app
