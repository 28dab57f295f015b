// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/process/RunTime.hpp"

#include "apps/stereo-camera/process/Signals.hpp"

namespace stereo::app {

void RunTime::begin() {
  if (!m_begun) {
    m_begun = true;
    m_start = Clock::now();
  }
}

bool RunTime::over() const { return signalReceived() != 0 || (m_seconds > 0 && m_begun && elapsed() >= m_seconds); }

double RunTime::elapsed() const {
  return m_begun ? std::chrono::duration<double>(Clock::now() - m_start).count() : 0.0;
}

}  // namespace stereo::app
