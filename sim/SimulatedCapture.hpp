// SPDX-License-Identifier: Apache-2.0
// The simulated camera's device.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <stop_token>
#include <thread>
#include <vector>

#include <opencv2/core.hpp>

#include "sim/Degradation.hpp"
#include "sim/Renderer.hpp"
#include "sources/FrameSource.hpp"

namespace stereo::sim {

/// Device that shows a scene: frame n is the scene at time (n mod N) / N of its period, with N frames per period (1 if
/// the scene does not move).
///
/// With the ring, each of the N frames is rendered when it is first due and kept (4.5 MB each at full size), so that
/// from the second period on it delivers hundreds of frames a second. Without it, every frame is rendered again: less
/// memory, but only a few frames a second at full size. Both give the same frames.
///
/// Rendered in the background, a frame that is due before it is rendered shows the last one that is, so that frames
/// come at full rate from the start. Until the first one is rendered, frames are black, but only among the ten that
/// cameras discard to warm up. Only once all are rendered are the frames the same as without.
///
/// CAP_PROP_FRAME_WIDTH and _HEIGHT accept the sides of the camera's two formats; once both name the same format, the
/// next frame has it. Changing the format clears the ring.
class SimulatedCapture final : public sources::FrameSource {
public:
  struct Options {
    cv::Size frameSize{1856, 800};  ///< one of the camera's formats
    double rate = 30.0;             ///< frames per second, 0: as fast as possible
    int framesPerPeriod = 16;       ///< N, 1 to 1024
    bool ring = true;               ///< keep rendered frames
    bool background = false;        ///< with the ring: render on threads of its own
    Degradation picture = {};       ///< of the frames as they are delivered, with the scene's seed
  };

  /// Throws std::invalid_argument for options out of range.
  SimulatedCapture(std::shared_ptr<const Scene> scene, const Rig& rig, const Options& options);

  /// Scene time of frame `index`, seconds.
  double sceneTime(std::uint64_t index) const;

  /// Renders the frames that the ring lacks, so that the first period runs at full rate too; none in the background.
  /// `tell` is called after each frame with the number rendered and the total; an exception from it ends the rendering.
  /// Any thread; others wait.
  void fillRing(const std::function<void(std::size_t done, std::size_t all)>& tell = {});

protected:
  cv::Mat next() override;
  cv::Size frameSize() const override;
  bool resize(int propId, double value) override;

private:
  cv::Mat frame(std::uint64_t index);
  void renderInBackground(const std::stop_token& stop);

  const std::shared_ptr<const Scene> m_scene;
  const Rig m_rig;
  const int m_framesPerPeriod;
  const bool m_keep;
  const Degrader m_degrader;
  // The rest is guarded by the source's lock.
  std::shared_ptr<const Renderer> m_renderer;
  cv::Size m_asked;                     // what the two properties were last set to
  std::uint64_t m_index = 0;            // of the next frame
  std::vector<cv::Mat> m_ring;          // empty if not rendered yet; pixels in here never change
  std::shared_future<cv::Mat> m_first;  // rendered in the background: frame 0 of the first format
  cv::Mat m_shown;                      // rendered in the background: the frame shown last
  std::condition_variable_any m_emptied;
  std::jthread m_background;  // last, so that it ends first
};

}  // namespace stereo::sim
