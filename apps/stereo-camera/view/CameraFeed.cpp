// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/CameraFeed.hpp"

#include <utility>

namespace stereo::app {

void CameraFeed::setNotify(Notify notify) {
  const std::lock_guard lock(m_notifyMutex);
  m_notify = std::move(notify);
}

void CameraFeed::want(View view, int change, bool full) {
  {
    const std::lock_guard lock(m_mutex);
    m_wanted.at(static_cast<std::size_t>(view)) += change;
    if (full) {
      m_fullWanted.at(static_cast<std::size_t>(view)) += change;
    }
  }
  if (change > 0) {
    m_changed.notify_all();
  }
}

std::uint32_t CameraFeed::awaitWanted(std::uint32_t views, const std::stop_token& stop) {
  std::uint32_t wanted = 0;
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, stop, [&] {
    wanted = 0;
    for (std::size_t view = 0; view < viewCount; ++view) {
      wanted |= m_wanted.at(view) > 0 ? 1U << view : 0U;
    }
    wanted &= views;
    return wanted != 0;
  });
  return stop.stop_requested() ? 0 : wanted;
}

bool CameraFeed::isWanted(View view) const {
  const std::lock_guard lock(m_mutex);
  return m_wanted.at(static_cast<std::size_t>(view)) > 0;
}

bool CameraFeed::isFullWanted(View view) const {
  const std::lock_guard lock(m_mutex);
  return m_fullWanted.at(static_cast<std::size_t>(view)) > 0;
}

void CameraFeed::publish(ViewMessage message) {
  const auto shared = std::make_shared<const ViewMessage>(std::move(message));
  const std::lock_guard lock(m_notifyMutex);
  if (m_notify) {
    m_notify(shared);
  }
}

}  // namespace stereo::app
