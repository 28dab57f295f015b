// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/DeviceName.hpp"

#include <filesystem>
#include <regex>

#include "apps/stereo-camera/process/Failure.hpp"

namespace stereo::app {

namespace {

namespace fs = std::filesystem;

// Target of symbolic links, whether it exists or not.
fs::path followed(fs::path path) {
  std::error_code failure;
  for (int links = 0; links < 16 && fs::is_symlink(path, failure); ++links) {
    path = (path.parent_path() / fs::read_symlink(path, failure)).lexically_normal();
  }
  return path;
}

}  // namespace

int deviceNode(const std::string& name) {
  static const std::regex number("[0-9]{1,2}");
  static const std::regex node("/dev/video([0-9]{1,2})");
  if (std::regex_match(name, number)) {
    return std::stoi(name);
  }
  const std::string path = followed(fs::path(name).lexically_normal()).string();
  std::smatch match;
  if (std::regex_match(path, match, node)) {
    return std::stoi(match[1]);
  }
  std::error_code failure;
  if (name.rfind('/', 0) == 0 && !fs::exists(name, failure)) {
    throw Failure(ExitCode::source, "--device: there is no '" + name + "': see ls -l /dev/video* /dev/v4l/by-id");
  }
  throw Failure(ExitCode::usage,
                "--device: '" + name + "' is neither N nor a path to /dev/videoN, such as one below /dev/v4l/by-id");
}

}  // namespace stereo::app
