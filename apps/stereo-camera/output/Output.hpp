// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::app {

// Files that commands leave. All throw Failure (output) with the file's name and the reason.

/// Writes the bytes, in place of what is there.
void writeFile(const std::filesystem::path& path, std::string_view bytes);

/// Encodes the image as its file's name says, with OpenCV's parameters (`cv::imwrite`), and writes it.
void writeImage(const std::filesystem::path& path, const cv::Mat& image, const std::vector<int>& parameters = {});

/// Makes the folder, if it is not there.
void makeFolder(const std::filesystem::path& folder);

/// A folder that is there while this lives: made where it was not, with those that it lies in, and taken away at the
/// end if nothing is in it.
class MadeFolder {
public:
  explicit MadeFolder(const std::filesystem::path& folder);
  ~MadeFolder();
  MadeFolder(const MadeFolder&) = delete;
  MadeFolder& operator=(const MadeFolder&) = delete;

private:
  const std::filesystem::path m_folder;   // absolute
  const std::filesystem::path m_topmost;  // of those that were made; empty: all were there
};

/// Files of one folder that are there once all of them are complete: they are written beside their places and moved
/// there at the end. Whatever ends the program in order before leaves nothing behind, not even a folder that was made.
class OutputFolder {
public:
  /// Makes the folder if it is not there. Unless files may be replaced, none of these `names` may be in it.
  OutputFolder(std::filesystem::path folder, bool replace, const std::vector<std::string>& names);
  ~OutputFolder();
  OutputFolder(const OutputFolder&) = delete;
  OutputFolder& operator=(const OutputFolder&) = delete;

  /// Where the files are to be written.
  const std::filesystem::path& draft() const { return m_draft; }
  /// Moves them to their places. Nothing is replaced that must not be.
  void commit();

private:
  void requireFree(const std::filesystem::path& path) const;

  const std::filesystem::path m_folder;
  const bool m_replace;
  std::unique_ptr<MadeFolder> m_made;
  std::filesystem::path m_draft;
};

}  // namespace stereo::app
