// SPDX-License-Identifier: Apache-2.0
#include "sim/Rig.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "model/FileKeys.hpp"
#include "sim/Texture.hpp"

namespace stereo::sim {

namespace {

constexpr double lensHalfField = 111.0 / 180.0 * CV_PI;
constexpr double circleRadius = 464.0;  // pixels, full size

/// Rotation by the vector's length, radians, about the vector.
cv::Matx33d turnAbout(const cv::Vec3d& axisAngle) {
  const double angle = cv::norm(axisAngle);
  if (angle == 0.0) {
    return cv::Matx33d::eye();
  }
  const cv::Vec3d a = axisAngle / angle;
  const cv::Matx33d across(0, -a[2], a[1], a[2], 0, -a[0], -a[1], a[0], 0);
  return cv::Matx33d::eye() + std::sin(angle) * across + (1.0 - std::cos(angle)) * (across * across);
}

Eye drawEye(bool isRight, double baseline, const Rig::Options& options) {
  const std::uint32_t seed = options.seed;
  std::uint32_t drawn = 0;
  const auto around = [&](double middle, double spread) {
    return middle + spread * (2.0 * unitNumber(mixBits(seed, isRight ? 77U : 33U), drawn++) - 1.0);
  };
  Eye eye;
  model::OmniModel& m = eye.model;
  m.halfField = lensHalfField;
  m.xi = around(options.xi, 0.04);
  m.k1 = around(-0.06, 0.02);
  m.k2 = around(0.010, 0.006);
  m.p1 = around(0.0, 4e-4);
  m.p2 = around(0.0, 4e-4);
  // At factor 1 the focal length puts the rim of the field on the rim of the image circle.
  const double r = std::sin(lensHalfField) / (std::cos(lensHalfField) + m.xi);
  const double rim = r * (1.0 + m.k1 * r * r + m.k2 * r * r * r * r);
  m.fx = around(options.focal * circleRadius / rim, 2.5);
  m.fy = m.fx * around(1.0, 0.0015);
  m.skew = around(0.0, 0.15);
  m.cx = around(464.0, 3.0);
  m.cy = around(400.0, 3.0);
  const double degree = CV_PI / 180.0;
  // The eyes diverge by about a degree in all, and tilt and roll less.
  eye.rotation = turnAbout(cv::Vec3d{around(0.0, 0.4) * degree, around(isRight ? -0.6 : 0.6, 0.4) * degree,
                                     around(isRight ? 0.4 : -0.4, 0.4) * degree} +
                           (isRight ? options.turn * degree : cv::Vec3d()));
  eye.position = isRight ? cv::Vec3d(baseline, 0, 0) : cv::Vec3d(0, 0, 0);
  return eye;
}

}  // namespace

Rig::Rig(std::uint32_t seed) : Rig(Options{.seed = seed}) {}

Rig::Rig(const Options& options) : m_error(options.error) {
  m_baseline = options.baseline + 0.001 * (unitNumber(options.seed, 5) - 0.5);
  for (const bool isRight : {false, true}) {
    m_eyes[isRight ? 1 : 0] = drawEye(isRight, m_baseline, options);
  }
}

model::OmniModel Rig::modelFor(bool isRight, const cv::Size& frameSize) const {
  return eye(isRight).model.scaled(static_cast<double>(frameSize.width) / model::fullFrameWidth);
}

std::optional<cv::Point2d> Rig::project(bool isRight, const cv::Vec3d& point, const cv::Size& frameSize) const {
  const Eye& e = eye(isRight);
  const auto pixel = modelFor(isRight, frameSize).project(e.rotation.t() * (point - e.position));
  const int width = frameSize.width / 2;
  const int height = frameSize.height;
  if (!pixel || pixel->x < 0.0 || pixel->y < 0.0 || pixel->x > width - 1.0 || pixel->y > height - 1.0) {
    return std::nullopt;
  }
  // The camera's mask has its center and radius in whole pixels.
  const cv::Point center(width / 2, height / 2);
  const int circle = frameSize.width / 4;
  return std::hypot(pixel->x - center.x, pixel->y - center.y) <= circle ? pixel : std::nullopt;
}

std::vector<cv::Mat> Rig::calibParams(bool isRight) const {
  Eye e = eye(isRight);
  Eye right = eye(true);
  // A wrong direction turns the handed-out rectified frame against the eye, and the translation with it.
  if (m_error.yaw != 0.0 || m_error.pitch != 0.0) {
    right.rotation = turnAbout(cv::Vec3d(m_error.pitch, m_error.yaw, 0.0) * (CV_PI / 180.0)) * right.rotation;
  }
  if (isRight) {
    e.rotation = right.rotation;
    e.model.cy += m_error.rows;
  }
  const cv::Vec4d d = e.model.distortion();
  const cv::Vec3d translation = -1000.0 * (right.rotation.t() * right.position);
  return {cv::Mat(e.model.intrinsic(), true), (cv::Mat_<double>(1, 4) << d[0], d[1], d[2], d[3]),
          (cv::Mat_<double>(1, 1) << e.model.xi), cv::Mat(e.rotation, true), cv::Mat(translation, true)};
}

void Rig::saveCalibration(const std::string& path, int serialNumber, int posNumber,
                          const cv::Size& rectFrameSize) const {
  cv::FileStorage file(path, cv::FileStorage::WRITE);
  if (!file.isOpened()) {
    throw std::runtime_error("cannot write the calibration to " + path);
  }
  file << model::keys::serialNumber << (cv::Mat_<double>(1, 1) << serialNumber);
  file << model::keys::posNumber << (cv::Mat_<double>(1, 1) << posNumber);
  file << model::keys::rectifyFrameSize << (cv::Mat_<double>(1, 2) << rectFrameSize.width, rectFrameSize.height);
  for (const bool isRight : {false, true}) {
    const std::string side = isRight ? "Right" : "Left";
    const std::vector<cv::Mat> params = calibParams(isRight);
    file << side + "Xi" << params[2];
    file << side + "IntrinsicMatrix" << params[0];
    file << side + "DistortionCoefficients" << params[1];
    file << side + "Rotation" << params[3];
  }
  file << model::keys::translation << calibParams(false)[4];
  file << model::keys::reserved << cv::Mat::eye(3, 3, CV_64F);
}

}  // namespace stereo::sim
