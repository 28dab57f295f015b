// SPDX-License-Identifier: Apache-2.0
// The chain from two eyes to range.
#pragma once

#include <memory>
#include <vector>

#include "WideDepth.hpp"
#include "src/depth/Filter.hpp"
#include "src/depth/Geometry.hpp"
#include "src/depth/Match.hpp"
#include "src/depth/NearGuard.hpp"
#include "src/depth/Range.hpp"
#include "src/depth/Refine.hpp"
#include "src/depth/Repeats.hpp"
#include "src/depth/RowFit.hpp"

namespace stereo {

/// Both eyes are sampled on a grid of equal angles and matched there; what is left is reported in the view's pixels,
/// which may be finer.
class WideDepth::Engine {
public:
  Engine(const WideDepthCalibration& calibration, cv::Size eye, const WideDepthOptions& options);

  void compute(const cv::Mat& leftEye, const cv::Mat& rightEye, WideDepthImage& out);
  void reset();

  const cv::Mat& rays() const { return m_rays; }
  double baseline() const { return m_eyes.baseline; }
  double rowCorrection() const { return m_rowFit.correction(); }

private:
  struct Eye {
    depth::SampleMap map;                ///< from the eye's image to `samples`
    std::vector<std::uint8_t> gray;      ///< the eye's image, followed by rows of zeros
    std::vector<std::uint16_t> samples;  ///< two columns for each of `halves`
    std::vector<std::uint16_t> halves;
    std::vector<std::uint8_t> census[3];
  };

  int threads() const;
  std::size_t at(int row) const { return static_cast<std::size_t>(row) * static_cast<std::size_t>(m_size.width); }
  void buildRightMap();
  void checkEyes(const cv::Mat& leftEye, const cv::Mat& rightEye) const;
  void prepare(const cv::Mat& leftEye, const cv::Mat& rightEye);
  void penalties();
  void match();
  void collect();
  void refine();
  void fuse();
  void provide(WideDepthImage& out) const;
  void filter(const cv::Mat& leftEye, cv::Mat& view);
  void namePlain(int from, int to);
  void withholdImpossible(const cv::Mat& leftEye, const cv::Mat& rightEye);
  void rejectDoubtful(int from, int to);
  void rejectBeside(int from, int to);
  void drop(int from, int to, const std::vector<std::uint8_t>& marks, RangeState why);
  void calibrateRows();
  void report(WideDepthImage& out) const;
  void enlargeRow(int row, float* disparity, float* sigma, std::uint8_t* state) const;

  WideDepthOptions m_options;
  cv::Size m_eyeSize;
  depth::EyePair m_eyes;
  depth::ViewGrid m_view;
  int m_factor;            // pixels of the view for one of the grid, in each direction
  depth::ViewGrid m_grid;  // that is matched
  depth::MatchSize m_size;
  depth::RangeModel m_ranges;
  Eye m_left;
  Eye m_right;
  depth::SampleMap m_viewMap;
  cv::Mat m_rays;
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
  depth::Plane m_spareWeight;
  depth::Plane m_pastDisparity;  // of earlier frames, where they are combined
  depth::Plane m_pastWeight;
  std::vector<std::uint8_t> m_marks;
  std::vector<std::uint8_t> m_wideMarks;
  std::vector<std::uint8_t> m_repeatMarks;
  std::vector<std::uint8_t> m_states;
  depth::SpeckFinder m_speckFinder;
  depth::RepeatFinder m_repeats;
  depth::NearGuard m_nearGuard;
  depth::RowFit m_rowFit;
};

}  // namespace stereo
