// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/CameraFeed.hpp"

#include <utility>

namespace stereo::app {

void CameraFeed::setNotify(Notify notify) {
  const std::lock_guard lock(m_notifyMutex);
  m_notify = std::move(notify);
}

void CameraFeed::want(View view, int change, bool full) {
  const std::lock_guard lock(m_mutex);
  (full ? m_fullWanted : m_wanted).at(static_cast<std::size_t>(view)) += change;
  if (change > 0) {
    // Viewers are ready anew after each picture. It would cost to wake the makers of other views each time.
    for (Waiter* waiter : m_waiters) {
      if ((waiter->views & bitOf(view)) != 0) {
        waiter->changed.notify_one();
      }
    }
  }
}

std::uint32_t CameraFeed::awaitWanted(std::uint32_t views, const std::stop_token& stop) {
  std::unique_lock lock(m_mutex);
  std::uint32_t wanted = wantedOf(views);
  if (wanted == 0) {
    Waiter waiter{views, {}};
    m_waiters.push_back(&waiter);
    waiter.changed.wait(lock, stop, [&] { return (wanted = wantedOf(views)) != 0; });
    std::erase(m_waiters, &waiter);
  }
  return stop.stop_requested() ? 0 : wanted;
}

// Holds `m_mutex`.
std::uint32_t CameraFeed::wantedOf(std::uint32_t views) const {
  std::uint32_t wanted = 0;
  for (std::size_t view = 0; view < viewCount; ++view) {
    wanted |= m_wanted.at(view) + m_fullWanted.at(view) > 0 ? 1U << view : 0U;
  }
  return wanted & views;
}

bool CameraFeed::isWanted(View view) const {
  const std::lock_guard lock(m_mutex);
  return wantedOf(bitOf(view)) != 0;
}

bool CameraFeed::isSmallWanted(View view) const {
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
