// SPDX-License-Identifier: Apache-2.0
#include "calibration/Assessment.hpp"

#include <algorithm>
#include <cmath>

#include "calibration/Coverage.hpp"
#include "model/Text.hpp"

namespace stereo::calibration {

using model::formatted;

namespace {

constexpr double degree = CV_PI / 180.0;
constexpr double mostRms = 1.0;
constexpr double mostRowMean = 0.5;
constexpr double leastBaseline = 20.0;  // millimeters
constexpr double mostBaseline = 500.0;
constexpr std::size_t goodPictures = 15;
constexpr double goodCoverage = 0.5;
constexpr double goodReach = 70.0 * degree;

void addReprojection(const Calibration& calibration, std::vector<std::vector<double>>& byRing) {
  for (std::size_t view = 0; view < calibration.views.size(); ++view) {
    for (std::size_t eye = 0; eye < 2; ++eye) {
      const std::vector<char>& used = calibration.selection[view][eye];
      for (std::size_t k = 0; k < used.size(); ++k) {
        const auto ray = calibration.estimate.rig.eyes[eye].unproject(calibration.views[view].corners[eye][k]);
        if (used[k] != 0 && ray) {
          const int ring = ringOf(std::acos(std::clamp((*ray)[2], -1.0, 1.0)));
          byRing[static_cast<std::size_t>(ring)].push_back(calibration.errors.reprojection[view][eye][k]);
        }
      }
    }
  }
}

}  // namespace

Assessment assess(const Calibration& calibration, const cv::Size& eyeSize) {
  Assessment assessment;
  std::vector<std::vector<double>> reprojection(ringCount);
  std::vector<std::vector<double>> rows(ringCount);
  std::vector<std::vector<double>> latitudes(ringCount);
  std::vector<double> allRows;
  std::vector<double> allLatitudes;
  addReprojection(calibration, reprojection);
  for (const RowError& error : calibration.errors.rows) {
    const auto ring = static_cast<std::size_t>(ringOf(error.angle));
    latitudes[ring].push_back(error.latitude * viewFocal);
    allLatitudes.push_back(error.latitude * viewFocal);
    if (error.rows) {
      rows[ring].push_back(*error.rows);
      allRows.push_back(*error.rows);
    }
  }
  for (std::size_t ring = 0; ring < reprojection.size(); ++ring) {
    assessment.rings.push_back({spreadOf(reprojection[ring]), spreadOf(rows[ring]), spreadOf(latitudes[ring])});
  }
  assessment.rows = spreadOf(allRows);
  assessment.latitude = spreadOf(allLatitudes);

  Coverage coverage(eyeSize);
  for (std::size_t view = 0; view < calibration.views.size(); ++view) {
    if (calibration.kept[view] != 0) {
      coverage.add(calibration.views[view]);
    }
  }
  assessment.coverage = {coverage.share(0), coverage.share(1)};

  if (!(calibration.rmsUsed() <= mostRms)) {
    assessment.faults.push_back(
        formatted("corners are %.2f px off (at most %.0f): are the pictures sharp, both eyes taken at "
                  "the same moment, the board flat?",
                  calibration.rmsUsed(), mostRms));
  }
  const double rowMean = std::max(assessment.rows.mean, assessment.latitude.mean);
  if (rowMean > mostRowMean) {
    assessment.faults.push_back(
        formatted("rectified rows differ by %.2f px on average (at most %.1f): do both eyes take "
                  "their pictures at the same moment?",
                  rowMean, mostRowMean));
  }
  if (!(calibration.baseline() >= leastBaseline && calibration.baseline() <= mostBaseline)) {
    assessment.faults.push_back(
        formatted("the eyes are %.1f mm apart: is --square in millimeters?", calibration.baseline()));
  }
  const std::size_t thrownOut = calibration.views.size() - calibration.picturesKept();
  if (3 * thrownOut > calibration.views.size()) {
    assessment.faults.push_back(
        formatted("%zu of %zu pictures do not fit: were all taken with the same camera and board?", thrownOut,
                  calibration.views.size()));
  }
  if (!calibration.converged) {
    assessment.faults.emplace_back("the solver did not converge: take more pictures, evenly over the field");
  }
  if (calibration.picturesKept() < goodPictures) {
    assessment.advice.push_back(
        formatted("%zu pictures are few: 20 to 40 make the result more reliable", calibration.picturesKept()));
  }
  if (std::min(assessment.coverage[0], assessment.coverage[1]) < goodCoverage) {
    const std::string where = coverage.emptiest();
    assessment.advice.push_back(formatted("corners cover %.0f %% of the left and %.0f %% of the right eye%s%s",
                                          100 * assessment.coverage[0], 100 * assessment.coverage[1],
                                          where.empty() ? "" : "; most is missing at the ", where.c_str()));
  }
  const double reach = std::min(calibration.reach(0), calibration.reach(1));
  if (reach < goodReach) {
    assessment.advice.push_back(
        formatted("no corners beyond %.0f degrees off the axis: farther out the model is a guess; hold "
                  "the board nearer to the edge",
                  reach / degree));
  }
  return assessment;
}

}  // namespace stereo::calibration
