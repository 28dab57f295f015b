// SPDX-License-Identifier: Apache-2.0
// Reads settings and calibration files as OpenCV would.
#pragma once

#include <cstddef>
#include <string>

namespace stereo::sys {

/// The unpacked content of a settings or calibration file.
struct DocumentFile {
  enum class State {
    missing,  ///< Or impossible to open.
    damaged,  ///< Impossible to read to the end: a folder, a compressed file that is truncated or too large.
    whole
  };

  State state = State::missing;
  std::string text;  ///< Empty unless whole.
};

/// Limit in bytes of what a compressed file may unpack to, and of what is read from a pipe or a device. A regular file
/// may have any size.
constexpr std::size_t maxUnpacked = 64U << 20;

/// Reads the file that OpenCV's storage layer would open under this path: text after the last question mark is not part
/// of the name. Files whose names end in ".gz", or in ".gz" and a digit, which is not part of the name either, may be
/// compressed. A compressed file of any other name counts as damaged. Bytes after the end of the compressed data are
/// ignored. Blocks until everything is read.
DocumentFile readDocumentFile(const std::string& path);

}  // namespace stereo::sys
