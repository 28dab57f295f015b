// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/core/persistence.hpp>

namespace stereo::test {

inline void writeFile(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file << bytes;
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

inline std::string readFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read " + path);
  }
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// A directory of its own, removed with all that is in it.
class TempDir {
public:
  TempDir() {
    std::string name = (std::filesystem::temp_directory_path() / "stereo-camera-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("cannot make a temporary directory");
    }
    m_path = name;
  }
  ~TempDir() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  std::string path() const { return m_path.string(); }
  std::string path(const std::string& name) const { return (m_path / name).string(); }
  std::string operator/(const std::string& name) const { return path(name); }

  /// Writes a file into the directory; returns its path.
  std::string write(const std::string& name, const std::string& bytes) const {
    writeFile(path(name), bytes);
    return path(name);
  }

private:
  std::filesystem::path m_path;
};

/// Keys and matrices of a settings or calibration file, in the file's order.
using Document = std::vector<std::pair<std::string, cv::Mat>>;

/// 1 x n matrix of doubles.
inline cv::Mat row(std::initializer_list<double> values) {
  cv::Mat matrix(1, static_cast<int>(values.size()), CV_64F);
  std::copy(values.begin(), values.end(), matrix.ptr<double>());
  return matrix;
}

/// Writes a document in the syntax that the name's extension stands for; returns the path.
inline std::string writeDocument(const std::string& path, const Document& document) {
  cv::FileStorage storage(path, cv::FileStorage::WRITE);
  for (const auto& [key, value] : document) {
    storage << key << value;
  }
  return path;
}

inline Document readDocument(const std::string& path) {
  const cv::FileStorage storage(path, cv::FileStorage::READ);
  Document document;
  for (const cv::FileNode& node : storage.root()) {
    document.emplace_back(node.name(), node.mat());
  }
  return document;
}

/// Puts a command named "sync" of its own first on the path while it lives. The command notes how long the watched
/// file is at that moment, then fails, which nobody is to mind.
class SyncProbe {
public:
  explicit SyncProbe(const std::string& watched) : m_path(searchPath()) {
    const std::string script = m_dir.write(
        "sync", "#!/bin/sh\nstat -c %s '" + watched + "' >> '" + m_dir.path("notes") + "' 2> /dev/null\nexit 3\n");
    std::filesystem::permissions(script, std::filesystem::perms::owner_all);
    m_dir.write("notes", "");
    setenv("PATH", (m_dir.path() + ":" + m_path).c_str(), 1);
  }
  ~SyncProbe() { setenv("PATH", m_path.c_str(), 1); }
  SyncProbe(const SyncProbe&) = delete;
  SyncProbe& operator=(const SyncProbe&) = delete;

  /// Length of the watched file at each run of the command.
  std::vector<std::size_t> lengths() const {
    std::ifstream notes(m_dir.path("notes"));
    return {std::istream_iterator<std::size_t>(notes), std::istream_iterator<std::size_t>()};
  }

private:
  static std::string searchPath() {
    const char* const path = std::getenv("PATH");
    return path != nullptr ? path : "";
  }
  TempDir m_dir;
  std::string m_path;
};

}  // namespace stereo::test
