// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core/persistence.hpp>

namespace stereo::test {

enum class Fate {
  read,
  refused,  // cv::Exception
  lost      // crashed, went on for ever, or threw anything else
};

/// What came of a document, and the names, types and values of all its nodes if it was read.
struct Reading {
  Fate fate = Fate::lost;
  std::string values;

  bool operator==(const Reading&) const = default;
};

using Open = std::function<std::unique_ptr<cv::FileStorage>(const std::string& path)>;

/// Has each document read from a file of that name by `open`, in child processes that may crash or hang. Call without
/// other threads.
std::vector<Reading> readInChildren(const std::vector<std::string>& documents, const std::string& fileName,
                                    const Open& open);

/// As OpenCV reads it by itself.
std::unique_ptr<cv::FileStorage> openBare(const std::string& path);

}  // namespace stereo::test
