// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/DeviceName.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <string_view>

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

// Number from one or two digits; -1 for any other text.
int nodeNumber(std::string_view digits) {
  const bool isNumber = !digits.empty() && digits.size() <= 2 &&
                        std::all_of(digits.begin(), digits.end(), [](unsigned char c) { return std::isdigit(c) != 0; });
  return isNumber ? std::stoi(std::string(digits)) : -1;
}

}  // namespace

int deviceNode(const std::string& name) {
  if (const int node = nodeNumber(name); node >= 0) {
    return node;
  }
  constexpr std::string_view prefix = "/dev/video";
  const std::string path = followed(fs::path(name).lexically_normal()).string();
  if (path.rfind(prefix, 0) == 0) {
    if (const int node = nodeNumber(std::string_view(path).substr(prefix.size())); node >= 0) {
      return node;
    }
  }
  std::error_code failure;
  if (name.rfind('/', 0) == 0 && !fs::exists(name, failure)) {
    throw Failure(ExitCode::source, "--device: there is no '" + name + "': see ls -l /dev/video* /dev/v4l/by-id");
  }
  throw Failure(ExitCode::usage,
                "--device: '" + name + "' is neither N nor a path to /dev/videoN, such as one below /dev/v4l/by-id");
}

}  // namespace stereo::app
