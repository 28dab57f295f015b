// SPDX-License-Identifier: Apache-2.0
// The program of the README, with a device that is not there.
#include <iostream>

#include <StereoCamera.hpp>
#include <opencv2/imgcodecs.hpp>

int main() {
  StereoCamera camera(9900);  // an index that no back end knows
  const bool works = !camera.isOpened() && camera.setRectFrameSize({464, 400}) && !camera.loadCalibParams("none.yml") &&
                     cv::haveImageWriter("left.png");
  std::cout << (works ? "works" : "does not work") << std::endl;
  return works ? 0 : 1;
}
