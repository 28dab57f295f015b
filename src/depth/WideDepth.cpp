// SPDX-License-Identifier: Apache-2.0
// The public interface of wide depth.
#include "WideDepth.hpp"

#include "src/depth/Engine.hpp"

namespace stereo {

WideDepth::WideDepth(const std::string& calibrationFile, cv::Size eye, const WideDepthOptions& options)
    : WideDepth(WideDepthCalibration::load(calibrationFile), eye, options) {}

WideDepth::WideDepth(const WideDepthCalibration& calibration, cv::Size eye, const WideDepthOptions& options)
    : m_engine(std::make_unique<Engine>(calibration, eye, options)) {}

WideDepth::~WideDepth() = default;
WideDepth::WideDepth(WideDepth&& other) noexcept = default;
WideDepth& WideDepth::operator=(WideDepth&& other) noexcept = default;

void WideDepth::compute(const cv::Mat& leftEye, const cv::Mat& rightEye, WideDepthImage& out) {
  m_engine->compute(leftEye, rightEye, out);
}

const cv::Mat& WideDepth::rays() const { return m_engine->rays(); }

double WideDepth::baseline() const { return m_engine->baseline(); }

double WideDepth::rowCorrection() const { return m_engine->rowCorrection(); }

void WideDepth::reset() { m_engine->reset(); }

}  // namespace stereo
