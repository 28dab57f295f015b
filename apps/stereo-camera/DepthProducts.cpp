// SPDX-License-Identifier: Apache-2.0
#include "DepthProducts.hpp"

#include <opencv2/imgproc.hpp>

#include "CloudFiles.hpp"
#include "Failure.hpp"
#include "Output.hpp"

namespace stereo::app {

namespace {

constexpr int disparityRange = 32;  // pixels that the matchers search

// Millimetres in 16 bits; 0 where there is no depth.
cv::Mat millimetres(const cv::Mat& metric) {
  cv::Mat result;
  metric.convertTo(result, CV_16UC1, 1000.0);  // what is negative becomes 0
  return result;
}

cv::Mat greyDisparity(const cv::Mat& disparity) {
  cv::Mat grey;
  disparity.convertTo(grey, CV_8UC1, 255.0 / disparityRange);
  return grey;
}

}  // namespace

DepthProducts readDepth(OpenedCamera& opened, Watch& watch) {
  StereoCamera& camera = *opened.camera;
  watch.startStereoCompute();
  DepthProducts products;
  std::chrono::microseconds stamp{0};
  // Frames may come while no disparity is published yet; reads then say so at once.
  const auto end = Watch::Clock::now() + watch.patience();
  while (!watch.run([&] { return camera.getDepthFrame(products.colour, true, stamp); })) {
    if (Watch::Clock::now() > end) {
      throw Failure(ExitCode::noFrames, "frames come, but no disparity within " +
                                            std::to_string(watch.patience().count()) +
                                            " ms; a smaller --rectified size is faster");
    }
  }
  watch.run([&] { return camera.getPointCloud(products.plain, stamp); });
  watch.run([&] { return camera.getPointCloud(products.coloured, stamp); });
  products.disparity = opened.latestDisparity().second;
  camera.getDepthFrame(products.disparity, products.metric);
  return products;
}

std::vector<Picture> writeDepth(const DepthProducts& products, const std::filesystem::path& folder) {
  writeImage(folder / "disparity.tiff", products.disparity);
  writeImage(folder / "depth.tiff", products.metric);
  writePly(folder / "cloud.ply", products.plain);
  writePly(folder / "cloud-coloured.ply", products.coloured);
  const cv::Size cloudSize(480, 400);
  return {{"disparity.png", "Disparity", "Bright is near, black has no match.", greyDisparity(products.disparity)},
          {"depth-colour.png", "Coloured depth",
           "Near blue, far red, black out of limits; turned by 180 degrees, as the camera gives it.", products.colour},
          {"depth.png", "Metric depth", "16 bits, millimetres; looks dark in a browser.", millimetres(products.metric)},
          {"cloud-left.png", "Cloud, from the left", "Coloured points, eye swung by 20 degrees.",
           renderCloud(products.coloured, -20, cloudSize)},
          {"cloud-right.png", "Cloud, from the right", "Coloured points, eye swung by 20 degrees.",
           renderCloud(products.coloured, 20, cloudSize)}};
}

std::vector<std::pair<std::string, std::string>> depthFiles() {
  return {{"disparity.tiff", "disparity, float, pixels"},
          {"depth.tiff", "depth, float, metres (0 out of limits, -1 without a match)"},
          {"cloud.ply", "plain point cloud, metres"},
          {"cloud-coloured.ply", "coloured point cloud, metres"}};
}

}  // namespace stereo::app
