// SPDX-License-Identifier: Apache-2.0
// Files that commands write, complete or not at all.
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::app {

// All throw Failure (output) with the file's name and the reason.

/// Writes the bytes, replacing the file.
void writeFile(const std::filesystem::path& path, std::string_view bytes);

/// Encodes the image in the format of the file's name, with OpenCV's parameters (`cv::imwrite`), and writes it.
void writeImage(const std::filesystem::path& path, const cv::Mat& image, const std::vector<int>& parameters = {});

/// Makes the folder if it does not exist.
void makeFolder(const std::filesystem::path& folder);

/// Makes a folder with its parents if it does not exist, and removes what it made on destruction if it is empty.
class MadeFolder {
public:
  explicit MadeFolder(const std::filesystem::path& folder);
  ~MadeFolder();
  MadeFolder(const MadeFolder&) = delete;
  MadeFolder& operator=(const MadeFolder&) = delete;

private:
  const std::filesystem::path m_folder;   // absolute
  const std::filesystem::path m_topmost;  // of those that it made; empty: none
};

/// Writes files of one folder so that they appear once all of them are complete: they are written beside their places
/// and moved at the end. If an exception ends the program before, nothing stays behind, not even a folder that was
/// made.
class OutputFolder {
public:
  /// Makes the folder if it does not exist. Unless files may be replaced, none of these `names` may exist in it.
  OutputFolder(std::filesystem::path folder, bool replace, const std::vector<std::string>& names);
  ~OutputFolder();
  OutputFolder(const OutputFolder&) = delete;
  OutputFolder& operator=(const OutputFolder&) = delete;

  /// Folder to write the files to.
  const std::filesystem::path& draft() const { return m_draft; }
  /// Moves them to their places. Replaces existing files only if allowed.
  void commit();

private:
  void requireFree(const std::filesystem::path& path) const;

  const std::filesystem::path m_folder;
  const bool m_replace;
  std::unique_ptr<MadeFolder> m_made;
  std::filesystem::path m_draft;
};

}  // namespace stereo::app
