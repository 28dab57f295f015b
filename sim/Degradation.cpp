// SPDX-License-Identifier: Apache-2.0
#include "sim/Degradation.hpp"

#include <array>
#include <stdexcept>

#include <opencv2/imgproc.hpp>

#include "sim/ParallelRows.hpp"
#include "sim/Texture.hpp"

namespace stereo::sim {

namespace {

// A power of two. Values appear again hundreds of rows away, never in the same rows of the other eye.
constexpr std::uint32_t noiseValues = 1U << 22U;

/// Nearly Gaussian, of unit standard deviation: the sum of eight random bytes, whose variances are (256^2 - 1) / 12
/// each. Needs no function of the C library, whose last bits differ between processors.
float noiseValue(std::uint32_t seed, std::uint32_t index) {
  int sum = 0;
  for (const std::uint32_t part : {0U, 1U}) {
    for (std::uint32_t bits = mixBits(seed + part, index), n = 0; n < 4; ++n, bits >>= 8U) {
      sum += static_cast<int>(bits & 255U);
    }
  }
  return static_cast<float>(sum - 1020) / 209.0239F;
}

}  // namespace

Degrader::Degrader(const Degradation& degradation, std::uint32_t seed)
    : m_degradation(degradation), m_seed(mixBits(seed, 0xDE64ADEU)) {
  const auto within = [](double value, double least, double most) { return value >= least && value <= most; };
  if (!within(degradation.blur, 0, 20) || !within(degradation.noise, 0, 100) || !within(degradation.gain, -90, 500) ||
      !within(degradation.contrast, 0, 4)) {
    throw std::invalid_argument("blur is 0 to 20, noise 0 to 100, gain -90 to 500, contrast 0 to 4");
  }
  if (degradation.noise > 0.0) {
    m_noise.resize(noiseValues);
    for (std::uint32_t n = 0; n < noiseValues; ++n) {
      m_noise[n] = noiseValue(m_seed, n);
    }
  }
}

cv::Mat Degrader::apply(const cv::Mat& frame, std::uint64_t index) const {
  if (m_degradation.changesNothing()) {
    return frame;
  }
  const int eyeWidth = frame.cols / 2;
  cv::Mat result = frame.clone();
  std::array<std::array<float, 256>, 2> tones{};
  for (const bool isRight : {false, true}) {
    if (m_degradation.blur > 0.0) {
      const cv::Rect eye(isRight ? eyeWidth : 0, 0, eyeWidth, frame.rows);
      cv::GaussianBlur(frame(eye), result(eye), {}, m_degradation.blur, m_degradation.blur,
                       cv::BORDER_REFLECT_101 | cv::BORDER_ISOLATED);
    }
    const double gain = isRight ? 1.0 + 0.01 * m_degradation.gain : 1.0;
    for (int level = 0; level < 256; ++level) {
      tones[isRight ? 1 : 0][static_cast<std::size_t>(level)] =
          static_cast<float>(gain * (128.0 + m_degradation.contrast * (level - 128)));
    }
  }
  const auto sigma = static_cast<float>(m_degradation.noise);
  const std::uint32_t first = mixBits(m_seed, static_cast<std::uint32_t>(index));
  forEachRow(frame.rows, [&](int row) {
    auto* const pixels = result.ptr<cv::Vec3b>(row);
    const std::uint32_t start = first + 3U * static_cast<std::uint32_t>(row) * static_cast<std::uint32_t>(frame.cols);
    for (int col = 0; col < frame.cols; ++col) {
      const std::array<float, 256>& tone = tones[col < eyeWidth ? 0 : 1];
      for (std::uint32_t c = 0; c < 3; ++c) {
        const std::uint32_t at = start + 3U * static_cast<std::uint32_t>(col) + c;
        const float noise = m_noise.empty() ? 0.0F : sigma * m_noise[at % noiseValues];
        unsigned char& level = pixels[col][static_cast<int>(c)];
        level = cv::saturate_cast<unsigned char>(tone[level] + noise);
      }
    }
  });
  return result;
}

}  // namespace stereo::sim
