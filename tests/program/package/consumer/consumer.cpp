// SPDX-License-Identifier: Apache-2.0
// A program of someone who installed the library: the public headers alone, in C++17.
#include <StereoCamera.hpp>
#include <SystemLog.hpp>

#include <iostream>

#if __cplusplus != 201703L
#error "the public headers are to be tried in C++17"
#endif

namespace {

class Camera : public StereoCamera {
public:
  Camera() : StereoCamera(9900) {}  // an index that no back end knows
  void report() { m_log->runTimeInfo("consumer %d\n", getDeviceNode()); }
};

}  // namespace

int main() {
  Camera camera;
  camera.report();
  cv::Mat first(4, 4, CV_8UC3, cv::Scalar(1, 2, 3));
  cv::Mat second = first.clone();
  convertRawFisheyeImage(0, first, second);
  const bool works = !camera.isOpened() && camera.setRectFrameSize(cv::Size(8, 8)) && camera.stopCapture() &&
                     first.at<cv::Vec3b>(0, 0) == cv::Vec3b(0, 0, 0) && getBlueSegVal(0.0F, 1.0F, 0.0F) == 255;
  std::cout << (works ? "works" : "does not work") << std::endl;
  return works ? 0 : 1;
}
