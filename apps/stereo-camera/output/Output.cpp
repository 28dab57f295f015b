// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/output/Output.hpp"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <opencv2/imgcodecs.hpp>

#include "apps/stereo-camera/process/Descriptor.hpp"
#include "apps/stereo-camera/process/Failure.hpp"

namespace stereo::app {

namespace fs = std::filesystem;

namespace {

Failure cannotWrite(const fs::path& path, const std::string& reason) {
  return {ExitCode::output, "cannot write '" + path.string() + "': " + reason};
}

// The topmost folder on the way to this one that does not exist.
fs::path missingPart(fs::path folder) {
  std::error_code failure;
  fs::path missing;
  for (; !folder.empty() && !fs::exists(folder, failure); folder = folder.parent_path()) {
    missing = folder;
  }
  return missing;
}

}  // namespace

void writeFile(const fs::path& path, std::string_view bytes) {
  const Descriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
  if (file < 0) {
    throw cannotWrite(path, std::strerror(errno));
  }
  while (!bytes.empty()) {
    const ssize_t written = write(file, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) {
      throw cannotWrite(path, std::strerror(errno));
    }
    bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(written, 0)));
  }
}

void writeImage(const fs::path& path, const cv::Mat& image, const std::vector<int>& parameters) {
  // Not with cv::imwrite, which does not notice a full disk at the last bytes.
  std::vector<unsigned char> bytes;
  bool encoded = false;
  try {
    encoded = cv::imencode(path.extension().string(), image, bytes, parameters);
  } catch (const cv::Exception&) {
    // Reported below.
  }
  if (!encoded) {
    throw cannotWrite(path, "the image cannot be encoded in this format");
  }
  writeFile(path, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void makeFolder(const fs::path& folder) {
  std::error_code failure;
  fs::create_directories(folder, failure);
  if (!fs::is_directory(folder)) {
    throw Failure(ExitCode::output, "cannot make the folder '" + folder.string() + "'");
  }
}

MadeFolder::MadeFolder(const fs::path& folder)
    : m_folder(fs::absolute(folder).lexically_normal()), m_topmost(missingPart(m_folder)) {
  makeFolder(folder);
}

MadeFolder::~MadeFolder() {
  std::error_code ignored;
  if (!m_topmost.empty()) {
    for (fs::path folder = m_folder;
         folder.native().size() >= m_topmost.native().size() && fs::remove(folder, ignored);  // only if it is empty
         folder = folder.parent_path()) {
    }
  }
}

OutputFolder::OutputFolder(fs::path folder, bool replace, const std::vector<std::string>& names)
    : m_folder(folder.empty() ? "." : std::move(folder)), m_replace(replace) {
  for (const std::string& name : names) {
    requireFree(m_folder / name);
  }
  m_made = std::make_unique<MadeFolder>(m_folder);
  std::string draft = (m_folder / ".unfinished-XXXXXX").string();
  if (mkdtemp(draft.data()) == nullptr) {
    throw cannotWrite(m_folder, std::strerror(errno));
  }
  m_draft = draft;
}

OutputFolder::~OutputFolder() {
  std::error_code ignored;
  fs::remove_all(m_draft, ignored);
}

void OutputFolder::requireFree(const fs::path& path) const {
  std::error_code ignored;
  if (!m_replace && fs::exists(fs::symlink_status(path, ignored))) {
    throw Failure(ExitCode::output, "'" + path.string() + "' exists: use another -o, or --replace");
  }
}

void OutputFolder::commit() {
  std::error_code failure;
  for (const fs::directory_entry& file : fs::directory_iterator(m_draft, failure)) {
    const fs::path place = m_folder / file.path().filename();
    requireFree(place);
    fs::rename(file.path(), place, failure);
    if (failure) {
      throw cannotWrite(place, failure.message());
    }
  }
}

}  // namespace stereo::app
