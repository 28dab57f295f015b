// SPDX-License-Identifier: Apache-2.0
// Reads settings and calibration files as OpenCV would.
#include "src/system/DocumentFile.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <utility>

#include <zlib.h>

namespace stereo::sys {

namespace {

struct Close {
  void operator()(gzFile file) const { gzclose_r(file); }
};

bool isCompressedName(std::string& name) {
  const std::string ending = name.substr(std::min(name.rfind('.'), name.size()));
  const bool hasLevel = ending.size() == 4 && ending[3] >= '0' && ending[3] <= '9';
  if (ending.compare(0, 3, ".gz") != 0 || !(hasLevel || ending.size() == 3)) {
    return false;
  }
  name.resize(name.size() - (hasLevel ? 1 : 0));
  return true;
}

}  // namespace

DocumentFile readDocumentFile(const std::string& path) {
  std::string name = path.substr(0, path.rfind('?'));
  const bool mayBeCompressed = isCompressedName(name);
  const std::unique_ptr<gzFile_s, Close> file(gzopen(name.c_str(), "rbe"));
  if (file == nullptr) {
    return {};
  }
  // zlib reads files that are not compressed as they are.
  const bool isCompressed = gzdirect(file.get()) == 0;
  std::error_code failure;
  const bool isBounded = isCompressed || !std::filesystem::is_regular_file(name, failure);
  std::string text;
  std::array<char, 1 << 16> piece{};
  int count = 0;
  while ((count = gzread(file.get(), piece.data(), piece.size())) > 0) {
    text.append(piece.data(), static_cast<std::size_t>(count));
    if (isBounded && text.size() > maxUnpacked) {
      return {DocumentFile::State::damaged, {}};
    }
  }
  int error = Z_OK;
  gzerror(file.get(), &error);
  if (count < 0 || error != Z_OK || (isCompressed && !mayBeCompressed)) {
    return {DocumentFile::State::damaged, {}};
  }
  return {DocumentFile::State::whole, std::move(text)};
}

}  // namespace stereo::sys
