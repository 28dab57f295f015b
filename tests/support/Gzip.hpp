// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdexcept>
#include <string>

#include <zlib.h>

namespace stereo::test {

/// Writes a compressed file; one of no bytes, if there are none, has its header and its end.
inline void writeCompressed(const std::string& path, const std::string& bytes) {
  const gzFile file = gzopen(path.c_str(), "wbe1");
  const bool good = file != nullptr && gzwrite(file, bytes.data(), static_cast<unsigned int>(bytes.size())) ==
                                           static_cast<int>(bytes.size());
  if (gzclose(file) != Z_OK || !good) {
    throw std::runtime_error("cannot write " + path);
  }
}

}  // namespace stereo::test
