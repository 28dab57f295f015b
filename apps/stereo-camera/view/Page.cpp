// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/Page.hpp"

#include <array>
#include <utility>

// The assembler puts the files into the program: a compiler takes seconds for half a megabyte of numbers.
// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): the assembler's text needs the names as text
#define STEREO_CAMERA_EMBED(name, file)                                                           \
  asm(".section .rodata\n.global stereo_camera_page_" #name "\n.global stereo_camera_page_" #name \
      "_end\nstereo_camera_page_" #name ":\n.incbin \"" STEREO_CAMERA_PAGE_FOLDER "/" file        \
      "\"\nstereo_camera_page_" #name "_end:\n.byte 0\n.previous\n");                             \
  extern "C" const char stereo_camera_page_##name[];                                              \
  extern "C" const char stereo_camera_page_##name##_end[]

STEREO_CAMERA_EMBED(html, "index.html");
STEREO_CAMERA_EMBED(style, "style.css");
STEREO_CAMERA_EMBED(script, "bundle/app.js");
STEREO_CAMERA_EMBED(icon, "icon.svg");

namespace stereo::app {

namespace {

std::string_view between(const char* begin, const char* end) { return {begin, static_cast<std::size_t>(end - begin)}; }

}  // namespace

const PageFile* pageFile(std::string_view path) {
  static const std::array<std::pair<std::string_view, PageFile>, 4> files{{
      {"/", {"text/html; charset=utf-8", between(stereo_camera_page_html, stereo_camera_page_html_end)}},
      {"/style.css", {"text/css; charset=utf-8", between(stereo_camera_page_style, stereo_camera_page_style_end)}},
      {"/app.js",
       {"text/javascript; charset=utf-8", between(stereo_camera_page_script, stereo_camera_page_script_end)}},
      {"/icon.svg", {"image/svg+xml", between(stereo_camera_page_icon, stereo_camera_page_icon_end)}},
  }};
  for (const auto& [name, file] : files) {
    if (name == path) {
      return &file;
    }
  }
  return nullptr;
}

}  // namespace stereo::app
