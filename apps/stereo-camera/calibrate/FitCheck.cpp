// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/calibrate/FitCheck.hpp"

#include <functional>
#include <string_view>

#include "apps/stereo-camera/process/Failure.hpp"
#include "calibration/BoardFinder.hpp"

namespace stereo::app {

namespace {

constexpr std::size_t mostPictures = 5;

calibration::EyeCalibration eyeOf(StereoCamera& camera, bool isRight) {
  std::vector<cv::Mat> params;
  camera.getCalibParams(params, isRight);
  // Copies, since the matrices share the camera's memory. The capture worker has scaled K to the raw frame.
  return {params[0].clone(), params[1].clone(), params[2].at<double>(0, 0), params[3].clone()};
}

// A hash of the pixels, to recognize repeated frames.
std::size_t fingerprint(const cv::Mat& image) {
  const cv::Mat pixels = image.isContinuous() ? image : image.clone();
  return std::hash<std::string_view>()(
      {reinterpret_cast<const char*>(pixels.data), pixels.total() * pixels.elemSize()});
}

}  // namespace

FitCheck::FitCheck(StereoCamera& camera, const cv::Size& eye)
    : m_eye(eye), m_rows(eyeOf(camera, false), eyeOf(camera, true), eye) {}

std::optional<std::size_t> FitCheck::add(const cv::Mat& left, const cv::Mat& right) {
  if (left.size() != m_eye) {
    throw Failure(ExitCode::noFrames, "the frame size changed; check one size at a time");
  }
  if (!m_seen.insert(fingerprint(left)).second) {
    return std::nullopt;
  }
  const std::size_t found = m_rows.add(left, right);
  if (m_pictures.size() < mostPictures) {
    m_pictures.emplace_back();
    cv::hconcat(left, right, m_pictures.back());
  }
  return found;
}

FitCheck::Result FitCheck::result() const {
  Result result{m_rows.result(), {}};
  // A chessboard's corners all look alike, so they are mismatched.
  if (!result.rows.faults.empty()) {
    result.board = calibration::boardSizeIn(m_pictures, static_cast<int>(m_pictures.size()));
  }
  if (!result.board.empty()) {
    result.rows.faults.clear();
    result.rows.enough = false;
  }
  return result;
}

std::string FitCheck::Result::whyUnknown() const {
  if (!board.empty()) {
    return "cannot tell: the pictures show a chessboard (" + std::to_string(board.width) + "x" +
           std::to_string(board.height) + " corners), whose repeating pattern misleads this check; show another scene";
  }
  if (!rows.enough) {
    return "cannot tell: only " + std::to_string(rows.matches) +
           " points were seen by both eyes; show a brighter scene with more detail, at least one meter away";
  }
  return {};
}

}  // namespace stereo::app
