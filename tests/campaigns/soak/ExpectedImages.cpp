// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/ExpectedImages.hpp"

#include <cmath>
#include <memory>
#include <stdexcept>

#include <opencv2/calib3d.hpp>
#include <opencv2/imgproc.hpp>

#include "bench/baseline/PlainCloud.hpp"
#include "bench/baseline/PlainDepth.hpp"
#include "bench/baseline/PlainFisheyeMask.hpp"
#include "bench/baseline/PlainRectifyMap.hpp"
#include "model/CameraFacts.hpp"
#include "sim/Renderer.hpp"
#include "sim/Scene.hpp"
#include "src/core/RectifyMap.hpp"
#include "tests/campaigns/soak/Numbering.hpp"

namespace stereo::soak {

namespace {

struct Maps {
  cv::Mat columns;
  cv::Mat rows;
};

cv::Mat remapped(const cv::Mat& eye, const Maps& maps) {
  cv::Mat view;
  cv::remap(eye, view, maps.columns, maps.rows, cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar());
  return view;
}

// Pixels next to a number count as well: interpolation reaches that far.
void requireNumbersUnseen(const Maps& maps, cv::Size eye) {
  for (int row = 0; row < maps.rows.rows; ++row) {
    for (int column = 0; column < maps.rows.cols; ++column) {
      const double x = maps.columns.at<float>(row, column);
      const double y = maps.rows.at<float>(row, column);
      if (!(y >= 1 && y < eye.height - 2)) {
        continue;
      }
      const int begin = numberColumn(eye, static_cast<int>(y));
      const int next = numberColumn(eye, static_cast<int>(y) + 1);
      if (x > std::min(begin, next) - 1 && x < std::max(begin, next) + numberWidth) {
        throw std::logic_error("a rectified view looks at the frame's number");
      }
    }
  }
}

// As the disparity worker sets its matchers.
cv::Mat disparityOf(const cv::Mat& left, const cv::Mat& right, int algorithm) {
  cv::Mat sixteenths;
  if (algorithm == 0) {
    cv::StereoSGBM::create(0, 32, 9, 8 * 3 * 9 * 9, 32 * 3 * 9 * 9, 0, 0, 0, 0, 0, cv::StereoSGBM::MODE_SGBM)
        ->compute(left, right, sixteenths);
  } else {
    const auto matcher = cv::StereoBM::create(32, 9);
    matcher->setPreFilterCap(31);
    matcher->setTextureThreshold(10);
    matcher->setUniquenessRatio(15);
    matcher->setSpeckleWindowSize(100);
    matcher->setSpeckleRange(32);
    matcher->setDisp12MaxDiff(1);
    cv::Mat gray[2];
    cv::cvtColor(left, gray[0], cv::COLOR_BGR2GRAY);
    cv::cvtColor(right, gray[1], cv::COLOR_BGR2GRAY);
    matcher->compute(gray[0], gray[1], sixteenths);
  }
  cv::Mat disparity;
  sixteenths.convertTo(disparity, CV_32F, 1.0 / 16.0);
  return disparity;
}

class Maker {
public:
  Maker(cv::Size frameSize, const Setting& setting) : m_setting(setting) {
    const sim::Rig rig(setting.seed);
    const cv::Size eyeSize(frameSize.width / 2, frameSize.height);
    m_camera = core::perspectiveCameraMatrix(setting.rectSize, setting.hFov);
    const cv::Mat angular = core::lonLatCameraMatrix(setting.rectSize, setting.lonLatFov);
    for (int eye = 0; eye < 2; ++eye) {
      const std::vector<cv::Mat> params = rig.calibParams(eye == 1);
      cv::Mat K = params[0].clone();
      K.rowRange(0, 2) *= static_cast<double>(frameSize.width) / model::fullFrameWidth;  // 1 or 0.5
      const double xi = params[2].at<double>(0, 0);
      baseline::initRectifyMap(K, params[1], params[3], m_camera, xi, xi, setting.rectSize, core::perspective,
                               m_perspective[eye].columns, m_perspective[eye].rows);
      baseline::initRectifyMap(K, params[1], params[3], angular, xi, 0, setting.rectSize, core::longitudeLatitude,
                               m_lonLat[eye].columns, m_lonLat[eye].rows);
      requireNumbersUnseen(m_perspective[eye], eyeSize);
      requireNumbersUnseen(m_lonLat[eye], eyeSize);
      m_translation = params[4];
      m_xi[eye] = xi;
    }
  }

  Picture make(const cv::Mat& frame) const {
    Picture picture;
    picture.frame = frame;
    const int width = frame.cols / 2;
    for (int eye = 0; eye < 2; ++eye) {
      picture.eye[eye] = frame.colRange(eye * width, (eye + 1) * width).clone();
    }
    baseline::convertRawFisheyeImage(frame.cols / 4, picture.eye[0], picture.eye[1]);
    for (int eye = 0; eye < 2; ++eye) {
      picture.perspective[eye] = remapped(picture.eye[eye], m_perspective[eye]);
      picture.lonLat[eye] = remapped(picture.eye[eye], m_lonLat[eye]);
    }
    for (const int mode : {1, 2}) {
      const cv::Mat(&pair)[2] = mode == 1 ? picture.lonLat : picture.perspective;
      for (const int algorithm : {0, 1}) {
        picture.depth[mode - 1][algorithm] =
            depthOf(disparityOf(pair[0], pair[1], algorithm), picture.perspective[0], mode);
      }
    }
    return picture;
  }

private:
  ExpectedDepth depthOf(const cv::Mat& disparity, const cv::Mat& view, int mode) const {
    core::DepthModel depth;
    depth.mode = mode;
    depth.b = core::baselineMeters(m_translation);
    depth.f = m_camera.at<double>(0, 0);
    depth.W = m_setting.rectSize.width;
    depth.lonLatFov = m_setting.lonLatFov;
    depth.minDepth = m_setting.nearest;
    depth.maxDepth = m_setting.farthest;
    core::CloudModel cloud;
    cloud.mode = mode;
    cloud.fx = m_camera.at<double>(0, 0);
    cloud.fy = m_camera.at<double>(1, 1);
    cloud.cx = m_camera.at<double>(0, 2);
    cloud.cy = m_camera.at<double>(1, 2);
    cloud.baselineMillimeters = cv::norm(m_translation, cv::NORM_L2);
    cloud.xi = m_xi[0];
    cloud.threshold = m_setting.cloudRadius;
    ExpectedDepth products;
    products.disparity = disparity;
    baseline::metricDepth(disparity, depth, products.metric);
    baseline::coloredDepth(disparity, depth, products.colored);
    const core::CloudImages images{view, disparity, products.metric};
    baseline::plainCloud(images, cloud, products.plainCloud);
    baseline::coloredCloud(images, cloud, products.coloredCloud);
    return products;
  }

  Setting m_setting;
  cv::Mat m_camera;
  cv::Mat m_translation;
  double m_xi[2] = {};
  Maps m_perspective[2];
  Maps m_lonLat[2];
};

}  // namespace

ExpectedImages::ExpectedImages(cv::Size frameSize, const Setting& setting) : m_frameSize(frameSize) {
  const Maker maker(frameSize, setting);
  sim::Scene::Options look;
  look.seed = setting.seed;
  const auto scene = std::make_shared<const sim::Scene>(look);
  const sim::Renderer renderer(scene, sim::Rig(setting.seed), frameSize);
  for (int i = 0; i < setting.pictures; ++i) {
    m_pictures.push_back(maker.make(renderer.render(look.period * i / setting.pictures)));
  }
}

}  // namespace stereo::soak
