// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

namespace stereo::soak {

/// What went wrong in a run. The first of each kind are told on standard error as they come, all are counted. Any
/// thread.
class Failures {
public:
  void add(const std::string& kind, const std::string& text);
  std::uint64_t count() const;
  /// A line for each kind: how often, and the first one's text.
  std::vector<std::string> lines() const;

private:
  struct Kind {
    std::string name;
    std::string first;
    std::uint64_t count;
  };
  mutable std::mutex m_mutex;  // guards what follows
  std::vector<Kind> m_kinds;
};

}  // namespace stereo::soak
