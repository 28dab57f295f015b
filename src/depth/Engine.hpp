// SPDX-License-Identifier: Apache-2.0
// The chain from two eyes to range.
#pragma once

#include <memory>
#include <vector>

#include "WideDepth.hpp"
#include "src/depth/Filter.hpp"
#include "src/depth/Geometry.hpp"
#include "src/depth/Match.hpp"
#include "src/depth/Refine.hpp"

namespace stereo {

class WideDepth::Engine {
public:
  Engine(const WideDepthCalibration& calibration, cv::Size eye, const WideDepthOptions& options);

  void compute(const cv::Mat& leftEye, const cv::Mat& rightEye, WideDepthImage& out);
  void reset();

  const cv::Mat& rays() const { return m_rays; }
  double baseline() const { return m_eyes.baseline; }
  double rowCorrection() const { return 0.0; }
  const WideDepthOptions& options() const { return m_options; }

private:
  // What is kept of an eye.
  struct Eye {
    depth::SampleMap map;                ///< from the eye's image to `samples`
    std::vector<std::uint8_t> gray;      ///< the eye's image, followed by rows of zeros
    std::vector<std::uint16_t> samples;  ///< two columns for each of `halves`
    std::vector<std::uint16_t> halves;
    std::vector<std::uint8_t> census[3];
  };

  int threads() const;
  void prepare(const cv::Mat& leftEye, const cv::Mat& rightEye);
  void penalties();
  void match();
  void collect();
  void refine();
  void filter();
  void report(const cv::Mat& leftEye, WideDepthImage& out);

  WideDepthOptions m_options;
  cv::Size m_eyeSize;
  depth::EyePair m_eyes;
  depth::ViewGrid m_grid;  // that is matched
  depth::MatchSize m_size;
  std::ptrdiff_t m_grayStride = 0;
  Eye m_left;
  Eye m_right;
  depth::SampleMap m_viewMap;
  cv::Mat m_rays;
  float m_gain = 1.0F;  // of the right eye
  std::vector<std::uint8_t> m_leftSeen;
  std::vector<std::uint8_t> m_besidePenalty;
  std::vector<std::uint8_t> m_abovePenalty;
  std::vector<depth::MatchScratch> m_scratch;
  std::vector<std::int16_t> m_matched;
  std::vector<std::uint8_t> m_flags;
  depth::Plane m_disparity;
  depth::Plane m_evidence;  // as matched, for what may be nearer
  depth::RefineTerms m_terms;
  depth::RefineResult m_refined;
  depth::Plane m_fusedWeight;
  std::vector<std::uint8_t> m_hidden;
  std::vector<std::uint8_t> m_beside;
  std::vector<std::uint8_t> m_specks;
  std::vector<std::uint8_t> m_states;
  depth::SpeckFinder m_speckFinder;
};

}  // namespace stereo
