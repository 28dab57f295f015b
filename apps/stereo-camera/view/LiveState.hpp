// SPDX-License-Identifier: Apache-2.0
// What the makers of a camera's pictures and its status share.
#pragma once

#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "WideDepth.hpp"

namespace stereo::app {

/// How long each stage takes: a mean in which the last ten or so count. Any thread.
class StageTimes {
public:
  void add(const std::string& stage, double milliseconds) {
    const std::lock_guard lock(m_mutex);
    const auto [place, isNew] = m_means.try_emplace(stage, Mean{milliseconds, {}});
    place->second.mean += isNew ? 0.0 : 0.1 * (milliseconds - place->second.mean);
    place->second.last = std::chrono::steady_clock::now();
  }

  /// Milliseconds by stage, of stages that ran in the last five seconds.
  std::map<std::string, double> recent() const {
    const std::lock_guard lock(m_mutex);
    std::map<std::string, double> result;
    const auto since = std::chrono::steady_clock::now() - std::chrono::seconds(5);
    for (const auto& [stage, mean] : m_means) {
      if (mean.last > since) {
        result[stage] = mean.mean;
      }
    }
    return result;
  }

private:
  struct Mean {
    double mean;
    std::chrono::steady_clock::time_point last;
  };
  mutable std::mutex m_mutex;
  std::map<std::string, Mean> m_means;
};

/// Options of wide depth that viewers may change, and what it last found. Any thread.
class WideState {
public:
  explicit WideState(const WideDepthOptions& options) : m_options(options) {}

  WideDepthOptions options() const {
    const std::lock_guard lock(m_mutex);
    return m_options;
  }
  void setOptions(const WideDepthOptions& options) {
    const std::lock_guard lock(m_mutex);
    m_options = options;
    ++m_generation;
  }
  /// Changes with each `setOptions`.
  unsigned generation() const {
    const std::lock_guard lock(m_mutex);
    return m_generation;
  }

  struct Findings {
    double measuredPercent = 0;  ///< of the view
    double rowCorrection = 0;    ///< rows of the view
  };
  void setFindings(std::optional<Findings> findings) {
    const std::lock_guard lock(m_mutex);
    m_findings = findings;
  }
  /// Of the last frame that was measured; nothing before the camera's first.
  std::optional<Findings> findings() const {
    const std::lock_guard lock(m_mutex);
    return m_findings;
  }

private:
  mutable std::mutex m_mutex;
  WideDepthOptions m_options;
  unsigned m_generation = 0;
  std::optional<Findings> m_findings;
};

}  // namespace stereo::app
