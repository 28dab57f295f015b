// SPDX-License-Identifier: Apache-2.0
#include <chrono>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "tests/campaigns/arm/Results.hpp"
#include "tests/support/TestCamera.hpp"

namespace stereo::arm {

namespace {

std::vector<float> numbers(const std::vector<cv::Vec3f>& points) {
  std::vector<float> all;
  for (const cv::Vec3f& point : points) {
    all.insert(all.end(), point.val, point.val + 3);
  }
  return all;
}

std::vector<float> numbers(const std::vector<PCL>& points) {
  std::vector<float> all;
  for (const PCL& each : points) {
    all.insert(all.end(), each.point.val, each.point.val + 3);
    all.insert(all.end(), each.color.val, each.color.val + 3);
  }
  return all;
}

void require(bool done, const std::string& what) {
  if (!done) {
    throw std::runtime_error("no " + what);
  }
}

// A device that shows one picture forever, so that every read at any time is made of the same frame.
std::unique_ptr<test::TestCamera> cameraOn(const cv::Mat& frame, const std::string& calibration, cv::Size rectified) {
  auto camera = std::make_unique<test::TestCamera>([frame](int) {
    // A camera's pace, which leaves the processor to the matcher.
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    return frame;
  });
  require(camera->loadCalibParams(calibration), "calibration in " + calibration);
  // As setRawFrameSize does for the camera's own sizes.
  camera->m_rawFrameSize = frame.size();
  camera->m_fisheyeRadius = frame.cols / 4;
  camera->setRectFrameSize(rectified);
  return camera;
}

}  // namespace

void writeCamera(const std::string& picture, cv::Size rectified, const Writer& out) {
  const std::filesystem::path path = picture;
  const std::string name = "camera-" + path.stem().string();
  const cv::Mat frame = cv::imread(picture, cv::IMREAD_COLOR);
  require(!frame.empty(), "picture in " + picture);
  const std::string calibration = std::filesystem::path(path).replace_extension(".yml").string();
  std::chrono::microseconds timestamp{0};
  for (const int mode : {1, 2}) {
    for (const int matcher : {0, 1}) {
      const std::string life = name + "-mode" + std::to_string(mode) + (matcher == 0 ? "-semiglobal" : "-block");
      const auto camera = cameraOn(frame, calibration, rectified);
      camera->m_depthmode = mode;
      camera->m_algorithm = matcher;
      require(camera->startCapture(false, false), "capture of " + life);
      cv::Mat left;
      cv::Mat right;
      cv::Mat view;
      if (matcher == 0) {
        if (mode == 1) {
          require(camera->getRawFrame(view, timestamp), "raw frame of " + life);
          out.write(name + "-raw", view);
        }
        require(camera->getRectStereoFrame(left, right, view, timestamp), "rectified pair of " + life);
        out.write(life + "-left", left);
        out.write(life + "-right", right);
        out.write(life + "-view", view);
        for (const int eye : {0, 1}) {
          const auto& maps = mode == 1 ? camera->m_lonLatMaps : camera->m_rectifyMaps;
          out.write(life + "-columns" + std::to_string(eye), maps[eye][0]);
          out.write(life + "-rows" + std::to_string(eye), maps[eye][1]);
        }
        out.write(life + "-matrix", camera->m_rectCameraMatrix);
      }
      require(camera->startStereoCompute(), "disparity worker of " + life);
      std::vector<cv::Vec3f> plain;
      std::vector<PCL> colored;
      // A cloud comes with a disparity, so there is one afterwards.
      static_cast<void>(camera->getPointCloud(plain, timestamp));
      static_cast<void>(camera->getPointCloud(colored, timestamp));
      cv::Mat colors;
      require(camera->getDepthFrame(colors, true, timestamp), "depth of " + life);
      camera->stopStereoCompute();
      camera->stopCapture();
      cv::Mat disparity = camera->m_disparityFrame.second.clone();
      cv::Mat depth;
      camera->getDepthFrame(disparity, depth);
      out.write(life + "-disparity", disparity);
      out.write(life + "-depth", depth);
      out.write(life + "-colours", colors);
      out.write(life + "-cloud", numbers(plain));
      out.write(life + "-coloured-cloud", numbers(colored));
    }
  }
}

}  // namespace stereo::arm
