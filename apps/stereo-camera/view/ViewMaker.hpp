// SPDX-License-Identifier: Apache-2.0
// Makes the pictures of a running camera that somebody watches.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <opencv2/core.hpp>

#include "WideDepth.hpp"
#include "apps/stereo-camera/view/CameraFeed.hpp"
#include "apps/stereo-camera/view/LiveState.hpp"
#include "sources/HostCamera.hpp"

namespace stereo::app {

/// Reads a camera and passes pictures on, on a thread for each kind of picture: each read waits for the next frame,
/// so that one thread could not keep up with several. A thread whose views nobody watches sleeps.
class ViewMaker {
public:
  struct Parts {
    sources::HostCamera& camera;  ///< started; outlives the maker
    CameraFeed& feed;
    StageTimes& times;
    WideState& wide;
    /// Of the camera before it was started; without one there are only raw views.
    std::optional<WideDepthCalibration> calibration;
    /// Called with a line when a view cannot be made of a frame, for another reason than before; on a maker's thread.
    std::function<void(const std::string&)> problem;
  };
  explicit ViewMaker(Parts parts);
  /// Ends the threads, and their reads, and waits for that.
  ~ViewMaker();
  ViewMaker(const ViewMaker&) = delete;
  ViewMaker& operator=(const ViewMaker&) = delete;

  /// Asks the threads to end, without waiting.
  void requestStop();

private:
  void run(const std::function<bool()>& make, std::uint32_t views);
  void makeRaw();
  void makeRectified(const char* stage, View leftView, View rightView, bool isLonLat);
  void makeWide();
  bool readPair(cv::Mat& left, cv::Mat& right, std::chrono::microseconds& timestamp);

  class Publisher;
  const Parts m_parts;
  std::vector<std::jthread> m_threads;
};

/// The views that a camera can deliver, as bits.
std::uint32_t deliverableViews(bool calibrated);

}  // namespace stereo::app
