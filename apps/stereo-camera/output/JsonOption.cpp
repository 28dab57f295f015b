// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/output/JsonOption.hpp"

#include <filesystem>

#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/Output.hpp"

namespace stereo::app {

namespace {

// Neither a device nor a pipe, so written beside its place first.
bool isPlain(const std::filesystem::path& path) {
  std::error_code failure;
  return !std::filesystem::exists(path, failure) || std::filesystem::is_regular_file(path, failure);
}

std::filesystem::path draftOf(const std::string& path) { return path + ".unfinished"; }

}  // namespace

void JsonOption::check() const {
  if (wanted() && !replacesText() && isPlain(path)) {
    writeFile(draftOf(path), "");
    std::filesystem::remove(draftOf(path));
  }
}

void JsonOption::write(const Json& figures) const {
  if (replacesText()) {
    results() << figures.text() << std::flush;
  } else if (wanted() && isPlain(path)) {
    const std::filesystem::path place(path);
    OutputFolder folder(place.parent_path(), true, {});
    writeFile(folder.draft() / place.filename(), figures.text());
    folder.commit();
  } else if (wanted()) {
    writeFile(path, figures.text());
  }
}

}  // namespace stereo::app
