// SPDX-License-Identifier: Apache-2.0
// The page of the live view, part of the program.
#pragma once

#include <string_view>

namespace stereo::app {

struct PageFile {
  std::string_view type;  ///< "text/html; charset=utf-8"
  std::string_view content;
};

/// The page's file at this path ("/", "/app.js"); null if there is none.
const PageFile* pageFile(std::string_view path);

}  // namespace stereo::app
