// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <string>

namespace stereo::sys {

/// What a settings or calibration file holds, unpacked.
struct DocumentFile {
  enum class State {
    missing,  // or not to be opened
    damaged,  // not to be read to its end: a folder, a compressed file that is cut off or holds too much
    whole
  };

  State state = State::missing;
  std::string text;  // empty unless whole
};

/// The most that a compressed file may unpack to, and that is taken from a pipe or a device; bytes. An ordinary file
/// may be of any size.
constexpr std::size_t maxUnpacked = 64U << 20;

/// Reads the file that OpenCV's storage layer would open under this path: what is behind the last question mark is no
/// part of the name, and files named ".gz", or ".gz" and a digit which is no part of the name either, may be
/// compressed. A compressed file of any other name counts as damaged. Bytes that follow a compressed file's end are
/// left out. Blocks until everything is read.
DocumentFile readDocumentFile(const std::string& path);

}  // namespace stereo::sys
