// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <vector>

namespace stereo::test {

/// Takes everything that the process writes to a descriptor (1 or 2), from construction to destruction.
class OutputCapture {
public:
  explicit OutputCapture(int descriptor);
  ~OutputCapture();
  OutputCapture(const OutputCapture&) = delete;
  OutputCapture& operator=(const OutputCapture&) = delete;

  /// What came so far.
  std::string text() const;

  /// What came so far without the lines that OpenCV itself logs (they begin with "[ WARN:" or "[ERROR:" and the like).
  std::string ownText() const;

private:
  int m_descriptor;
  int m_saved;
  int m_file;
};

/// The texts of the log's records in `output`, each with its line end if it has one, timestamp and name removed.
std::vector<std::string> recordTexts(const std::string& output);

}  // namespace stereo::test
