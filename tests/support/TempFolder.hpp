// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <stdexcept>
#include <string>

namespace stereo::sim::test {

/// A fresh folder of its own, removed with all that is in it at the end of its life.
class TempFolder {
public:
  TempFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "sim-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr) {
      throw std::runtime_error("cannot make a folder like " + name);
    }
    m_path = name;
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  ~TempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }

  std::string operator/(const std::string& name) const { return (m_path / name).string(); }
  std::string path() const { return m_path.string(); }

private:
  std::filesystem::path m_path;
};

}  // namespace stereo::sim::test
