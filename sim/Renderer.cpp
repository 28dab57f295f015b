// SPDX-License-Identifier: Apache-2.0
#include "sim/Renderer.hpp"

#include <stdexcept>
#include <utility>

#include "model/CameraFacts.hpp"
#include "sim/ParallelRows.hpp"
#include "sim/Texture.hpp"

namespace stereo::sim {

namespace {

/// A sensor's pixels without light: near black, with a little constant noise.
cv::Vec3b darkPixel(int row, int col) {
  const std::uint32_t bits = mixBits(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(col));
  const auto level = static_cast<unsigned char>(5 + bits % 4);
  return {static_cast<unsigned char>(level + 1), level, level};
}

}  // namespace

Renderer::Renderer(std::shared_ptr<const Scene> scene, const Rig& rig, const cv::Size& frameSize)
    : m_scene(std::move(scene)), m_frameSize(frameSize) {
  if (!model::isFrameSize(frameSize)) {
    throw std::invalid_argument("frames are 1856x800 or 928x400 pixels");
  }
  const int eyeWidth = frameSize.width / 2;
  m_pixelAngle = 2.0 * rig.eye(false).model.halfField / eyeWidth;
  m_viewer = 0.5 * (rig.eye(false).position + rig.eye(true).position);
  for (const bool isRight : {false, true}) {
    m_models[isRight ? 1 : 0] = rig.modelFor(isRight, frameSize);
    m_rotations[isRight ? 1 : 0] = rig.eye(isRight).rotation;
    m_positions[isRight ? 1 : 0] = rig.eye(isRight).position;
  }
}

std::vector<cv::Vec3f> Renderer::rays() const {
  std::vector<cv::Vec3f> rays(static_cast<std::size_t>(m_frameSize.area()), cv::Vec3f(0, 0, 0));
  const int eyeWidth = m_frameSize.width / 2;
  for (const int eye : {0, 1}) {
    forEachRow(m_frameSize.height, [&](int row) {
      cv::Vec3f* line = &rays[static_cast<std::size_t>(row) * m_frameSize.width + eye * eyeWidth];
      for (int col = 0; col < eyeWidth; ++col) {
        if (const auto ray = m_models[eye].unproject(cv::Point2d(col, row))) {
          line[col] = cv::Vec3f(m_rotations[eye] * *ray);
        }
      }
    });
  }
  return rays;
}

cv::Mat Renderer::render(double time) const {
  std::call_once(m_raysMade, [this] { m_rays = rays(); });
  const SceneSnapshot snapshot = m_scene->at(time);
  cv::Mat frame(m_frameSize, CV_8UC3);
  const int eyeWidth = m_frameSize.width / 2;
  forEachRow(m_frameSize.height, [&](int row) {
    const cv::Vec3f* rays = &m_rays[static_cast<std::size_t>(row) * m_frameSize.width];
    auto* pixels = frame.ptr<cv::Vec3b>(row);
    for (int col = 0; col < m_frameSize.width; ++col) {
      const cv::Vec3d ray = rays[col];
      const double length = cv::norm(ray);
      if (length == 0.0) {
        pixels[col] = darkPixel(row, col);
        continue;
      }
      const Hit hit = snapshot.trace(m_positions[col < eyeWidth ? 0 : 1], ray / length);
      pixels[col] = snapshot.color(hit, m_viewer, m_pixelAngle);
    }
  });
  return frame;
}

}  // namespace stereo::sim
