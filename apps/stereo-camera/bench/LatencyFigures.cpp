// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/bench/LatencyFigures.hpp"

#include <algorithm>
#include <cmath>

namespace stereo::app {

namespace {

constexpr std::int64_t hold = 1000;  // microseconds that a worker holds what it publishes

double milliseconds(std::int64_t from, std::int64_t to) { return static_cast<double>(to - from) / 1000.0; }

template <typename Note, typename Time>
double shareBetween(const std::vector<Note>& notes, const Window& window, Time time) {
  const auto inWindow = [&](const Note& note) { return window.holds(time(note)); };
  const auto first = std::find_if(notes.begin(), notes.end(), inWindow);
  const auto last = std::find_if(notes.rbegin(), notes.rend(), inWindow);
  if (first == notes.end() || time(*last) <= time(*first)) {
    return 0;
  }
  return static_cast<double>(last->cpu - first->cpu) / static_cast<double>(time(*last) - time(*first));
}

}  // namespace

double quantile(const std::vector<double>& sorted, double q) {
  const auto count = static_cast<double>(sorted.size());
  const double rank = std::clamp(std::ceil(q * count), 1.0, count);
  return sorted[static_cast<std::size_t>(rank) - 1];
}

Figures figures(const std::string& name, std::vector<double> milliseconds, double seconds) {
  Figures result;
  result.name = name;
  result.count = milliseconds.size();
  if (milliseconds.empty()) {
    return result;
  }
  result.perSecond = static_cast<double>(result.count) / seconds;
  std::sort(milliseconds.begin(), milliseconds.end());
  result.p50 = quantile(milliseconds, 0.5);
  result.p90 = quantile(milliseconds, 0.9);
  result.p99 = quantile(milliseconds, 0.99);
  result.max = milliseconds.back();
  return result;
}

std::vector<double> publicationTimes(const std::vector<DeviceFrame>& frames, const Window& window) {
  std::vector<double> times;
  for (const DeviceFrame& frame : frames) {
    if (window.holds(frame.returned) && frame.published != 0) {
      times.push_back(milliseconds(frame.returned, frame.published));
    }
  }
  return times;
}

std::vector<double> productTimes(const std::vector<Product>& products, const std::vector<DeviceFrame>& frames,
                                 const Window& window) {
  std::vector<double> times;
  for (const Product& product : products) {
    const auto after =
        std::upper_bound(frames.begin(), frames.end(), product.timestamp,
                         [](std::int64_t timestamp, const DeviceFrame& frame) { return timestamp < frame.returned; });
    if (window.holds(product.inHand) && after != frames.begin()) {
      times.push_back(milliseconds(std::prev(after)->returned, product.inHand));
    }
  }
  return times;
}

std::vector<Product> withDisparityTimestamps(const std::vector<Product>& products,
                                             const std::vector<Product>& disparities) {
  std::vector<Product> result;
  for (const Product& product : products) {
    const auto after =
        std::upper_bound(disparities.begin(), disparities.end(), product.timestamp + 2 * hold,
                         [](std::int64_t time, const Product& disparity) { return time < disparity.inHand; });
    if (after != disparities.begin()) {
      result.push_back({std::prev(after)->timestamp, product.inHand, product.cpu});
    }
  }
  return result;
}

std::uint64_t missedByGaps(const std::vector<DeviceFrame>& frames, const Window& window, double rate) {
  std::uint64_t missed = 0;
  for (std::size_t i = 1; rate > 0 && i < frames.size(); ++i) {
    const double periods = milliseconds(frames[i - 1].returned, frames[i].returned) * rate / 1000;
    if (window.holds(frames[i].returned) && periods > 1.5) {
      missed += static_cast<std::uint64_t>(std::lround(periods)) - 1;
    }
  }
  return missed;
}

double waitingShare(const std::vector<DeviceFrame>& frames, const Window& window) {
  std::int64_t waited = 0;
  for (const DeviceFrame& frame : frames) {
    const std::int64_t from = std::max(frame.called, window.from);
    const std::int64_t to = std::min(frame.returned, window.to);
    waited += std::max<std::int64_t>(to - from, 0);
  }
  return window.to > window.from ? static_cast<double>(waited) / static_cast<double>(window.to - window.from) : 0;
}

double threadShare(const std::vector<DeviceFrame>& notes, const Window& window) {
  return shareBetween(notes, window, [](const DeviceFrame& note) { return note.called; });
}

double threadShare(const std::vector<Product>& notes, const Window& window) {
  return shareBetween(notes, window, [](const Product& note) { return note.inHand; });
}

}  // namespace stereo::app
