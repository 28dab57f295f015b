// SPDX-License-Identifier: Apache-2.0
// Between those who make a camera's pictures and the server that sends them.
#pragma once

#include <array>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <stop_token>
#include <vector>

#include "apps/stereo-camera/view/Views.hpp"

namespace stereo::app {

/// Bit of a view in a set of views.
constexpr std::uint32_t bitOf(View view) { return 1U << static_cast<unsigned>(view); }
constexpr std::uint32_t allViews = (1U << viewCount) - 1;

/// One camera's pictures on their way to viewers. Pictures are made only while somebody is ready for one: a viewer that
/// still has to acknowledge is not, so a slow one costs nothing. Outlives the cameras that come and go behind it. Any
/// thread, unless stated otherwise.
class CameraFeed {
public:
  using Notify = std::function<void(std::shared_ptr<const ViewMessage>)>;

  /// Called with each picture, on the thread that made it; must not block. Null: nobody. Returns once no call is under
  /// way.
  void setNotify(Notify notify);

  // The server's.

  /// One more (1) or one fewer (-1) is ready for pictures of the view; for one in full size (`full`), too.
  void want(View view, int change, bool full = false);

  // The makers'.

  /// The views of the set that somebody is ready for. Blocks until there is one; 0 once the stop is requested.
  std::uint32_t awaitWanted(std::uint32_t views, const std::stop_token& stop);
  /// Whether somebody is ready for the view in any size, for one in the size to watch, for one in full size.
  bool isWanted(View view) const;
  bool isSmallWanted(View view) const;
  bool isFullWanted(View view) const;
  /// Passes a picture on.
  void publish(ViewMessage message);

private:
  struct Waiter {
    std::uint32_t views;
    std::condition_variable_any changed;
  };
  std::uint32_t wantedOf(std::uint32_t views) const;

  mutable std::mutex m_mutex;      // guards the counts and the list
  std::vector<Waiter*> m_waiters;  // each on the stack of the thread that waits
  std::array<int, viewCount> m_wanted{};
  std::array<int, viewCount> m_fullWanted{};
  std::mutex m_notifyMutex;  // guards, and is held during, the call
  Notify m_notify;
};

}  // namespace stereo::app
