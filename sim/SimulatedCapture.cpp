// SPDX-License-Identifier: Apache-2.0
#include "sim/SimulatedCapture.hpp"

#include <algorithm>
#include <chrono>
#include <stdexcept>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

#include "model/CameraFacts.hpp"

namespace stereo::sim {

namespace {

int checkedFrames(const Scene& scene, int framesPerPeriod) {
  if (framesPerPeriod < 1 || framesPerPeriod > 1024) {
    throw std::invalid_argument("a period has 1 to 1024 frames");
  }
  return scene.options().moving ? framesPerPeriod : 1;
}

}  // namespace

SimulatedCapture::SimulatedCapture(std::shared_ptr<const Scene> scene, const Rig& rig, const Options& options)
    : sources::FrameSource(options.rate),
      m_scene(std::move(scene)),
      m_rig(rig),
      m_framesPerPeriod(checkedFrames(*m_scene, options.framesPerPeriod)),
      // A single frame is always kept.
      m_keep(options.ring || m_framesPerPeriod == 1),
      m_degrader(options.picture, m_scene->options().seed),
      m_renderer(std::make_shared<const Renderer>(m_scene, m_rig, options.frameSize)),
      m_asked(options.frameSize),
      m_ring(m_keep ? static_cast<std::size_t>(m_framesPerPeriod) : 0) {
  if (options.background && m_ring.size() > 1) {
    m_first = std::async(std::launch::async, [renderer = m_renderer, time = sceneTime(0)] {
                return renderer->render(time);
              }).share();
    m_background = std::jthread([this](const std::stop_token& stop) { renderInBackground(stop); });
  }
}

// Goes on once the first frame is there.
void SimulatedCapture::renderInBackground(const std::stop_token& stop) {
  // Gives way to whatever plays the frames; threads that it starts do, too.
  static_cast<void>(setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 10));
  auto lock = lockSource();
  auto gap = m_ring.end();
  const auto hasGap = [&] {
    gap = std::find_if(m_ring.begin(), m_ring.end(), [](const cv::Mat& each) { return each.empty(); });
    return gap != m_ring.begin() && gap != m_ring.end();
  };
  while (m_emptied.wait(lock, stop, hasGap) && !stop.stop_requested()) {
    const auto index = static_cast<std::uint64_t>(gap - m_ring.begin());
    const std::shared_ptr<const Renderer> renderer = m_renderer;
    lock.unlock();
    const cv::Mat rendered = renderer->render(sceneTime(index));
    lock.lock();
    if (renderer == m_renderer) {  // otherwise the format has changed
      m_ring[index] = rendered;
    }
  }
}

double SimulatedCapture::sceneTime(std::uint64_t index) const {
  const auto frames = static_cast<std::uint64_t>(m_framesPerPeriod);
  return static_cast<double>(index % frames) / static_cast<double>(frames) * m_scene->options().period;
}

void SimulatedCapture::fillRing(const std::function<void(std::size_t done, std::size_t all)>& tell) {
  const std::size_t ahead = m_background.joinable() ? 0 : m_ring.size();
  for (std::size_t i = 0; i < ahead; ++i) {
    {
      const auto lock = lockSource();
      frame(i);
    }
    if (tell) {
      tell(i + 1, ahead);
    }
  }
}

cv::Mat SimulatedCapture::next() {
  const std::uint64_t index = m_index++;
  return m_degrader.apply(frame(index), index);
}

cv::Size SimulatedCapture::frameSize() const { return m_renderer->frameSize(); }

bool SimulatedCapture::resize(int propId, double value) {
  const bool isWidth = propId == cv::CAP_PROP_FRAME_WIDTH;
  const int full = isWidth ? model::fullFrameWidth : model::fullFrameHeight;
  const int half = full / 2;
  if (value != full && value != half) {
    return false;
  }
  (isWidth ? m_asked.width : m_asked.height) = static_cast<int>(value);
  if (model::isFrameSize(m_asked) && m_asked != m_renderer->frameSize()) {
    m_renderer = std::make_shared<const Renderer>(m_scene, m_rig, m_asked);
    m_ring.assign(m_ring.size(), cv::Mat());
    m_first = {};
    m_shown.release();
  }
  return true;
}

cv::Mat SimulatedCapture::frame(std::uint64_t index) {
  if (!m_keep) {
    return m_renderer->render(sceneTime(index));
  }
  cv::Mat& kept = m_ring[index % m_ring.size()];
  if (m_background.joinable()) {
    if (m_ring.front().empty()) {
      if (m_first.valid() && index < model::warmUpReads &&
          m_first.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
        return cv::Mat::zeros(m_renderer->frameSize(), CV_8UC3);
      }
      m_ring.front() = m_first.valid() ? m_first.get() : m_renderer->render(sceneTime(0));
      m_emptied.notify_all();
    }
    if (kept.empty()) {
      return m_shown.empty() ? m_ring.front() : m_shown;
    }
    m_shown = kept;
  }
  if (kept.empty()) {
    kept = m_renderer->render(sceneTime(index));
  }
  return kept;
}

}  // namespace stereo::sim
