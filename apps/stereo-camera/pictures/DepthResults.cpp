// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/pictures/DepthResults.hpp"

#include <opencv2/imgproc.hpp>

#include "apps/stereo-camera/output/Output.hpp"
#include "apps/stereo-camera/pictures/CloudFiles.hpp"
#include "apps/stereo-camera/process/Failure.hpp"

namespace stereo::app {

namespace {

constexpr int disparityRange = 32;  // pixels, of the matchers

// CV_16UC1, millimeters; 0 where there is no depth.
cv::Mat millimeters(const cv::Mat& metric) {
  cv::Mat result;
  metric.convertTo(result, CV_16UC1, 1000.0);  // negative values become 0
  return result;
}

// Blue, green, red at equal steps from `least` to `most`, as the camera colors depth.
ColorScale cameraScale(float least, float most) {
  constexpr int steps = 32;
  ColorScale scale{least, most, {}};
  for (int k = 0; k <= steps; ++k) {
    scale.colors.push_back(getclolor(least, most, least + (most - least) * static_cast<float>(k) / steps));
  }
  return scale;
}

// The scale of a colored depth picture. It runs from the nearest to the farthest depth, or to the limit that some depth
// exceeds; only the right choice reproduces every pixel's color. None if no choice does.
std::optional<ColorScale> scaleOf(const cv::Mat& color, const cv::Mat& metric, const cv::Vec2f& limits) {
  if (color.size() != metric.size() || cv::countNonZero(metric > 0) == 0) {
    return std::nullopt;
  }
  cv::Mat upright;
  cv::flip(color, upright, -1);
  double least = 0;
  double most = 0;
  cv::minMaxLoc(metric, &least, &most, nullptr, nullptr, metric > 0);
  for (const float lo : {static_cast<float>(least), limits[0]}) {
    for (const float hi : {static_cast<float>(most), limits[1]}) {
      bool fits = true;
      for (int row = 0; fits && row < metric.rows; ++row) {
        for (int col = 0; fits && col < metric.cols; ++col) {
          const float depth = metric.at<float>(row, col);
          fits = !(depth > 0) || upright.at<cv::Vec3b>(row, col) == getclolor(lo, hi, depth);
        }
      }
      if (fits) {
        return cameraScale(lo, hi);
      }
    }
  }
  return std::nullopt;
}

// The program's own picture of metric depth, with an even color scale.
Picture metricPicture(const cv::Mat& metric) {
  Picture picture{"depth-metric.png", "Metric depth", "Near blue, far red, black where there is none.", {}};
  const cv::Mat valid = metric > 0;
  double least = 0;
  double most = 0;
  cv::minMaxLoc(metric, &least, &most, nullptr, nullptr, valid);
  cv::Mat levels = cv::Mat::zeros(metric.size(), CV_8UC1);
  if (most > least) {
    metric.convertTo(levels, CV_8UC1, 255 / (most - least), -255 * least / (most - least));
  }
  cv::Mat painted;
  cv::applyColorMap(levels, painted, cv::COLORMAP_TURBO);
  picture.image = cv::Mat::zeros(metric.size(), CV_8UC3);
  painted.copyTo(picture.image, valid);
  if (most > 0) {
    cv::Mat steps(1, 256, CV_8UC1);
    for (int level = 0; level < steps.cols; ++level) {
      steps.at<uchar>(level) = static_cast<uchar>(level);
    }
    cv::applyColorMap(steps, painted, cv::COLORMAP_TURBO);
    picture.scale = ColorScale{least, most, {}};
    for (int level = 0; level < steps.cols; level += 15) {
      picture.scale->colors.push_back(painted.at<cv::Vec3b>(level));
    }
  }
  return picture;
}

cv::Mat grayDisparity(const cv::Mat& disparity) {
  cv::Mat gray;
  disparity.convertTo(gray, CV_8UC1, 255.0 / disparityRange);
  return gray;
}

}  // namespace

DepthResults readDepth(OpenedCamera& opened, Watchdog& watch) {
  sources::HostCamera& camera = *opened.camera;
  watch.startStereoCompute();
  DepthResults products;
  std::chrono::microseconds timestamp{0};
  // Frames may come before the first disparity; reads then return false at once.
  const auto end = Watchdog::Clock::now() + watch.patience();
  while (!watch.run([&] { return camera.getDepthFrame(products.color, true, timestamp); })) {
    if (Watchdog::Clock::now() > end) {
      throw Failure(ExitCode::noFrames, "frames come, but no disparity within " +
                                            std::to_string(watch.patience().count()) +
                                            " ms; a smaller --rectified size is faster");
    }
  }
  // Colored depth is made from the latest disparity. Which one that was is known only if none came meanwhile, which is
  // likely right after a cloud, since that waits for a new one.
  constexpr int tries = 20;
  for (int k = 0; k < tries; ++k) {
    products.plain.clear();
    watch.run([&] { return camera.getPointCloud(products.plain, timestamp); });
    const StereoCamera::TimeFrame latest = camera.latestDisparity();
    watch.run([&] { return camera.getDepthFrame(products.color, true, timestamp); });
    products.disparity = latest.second;
    if (camera.latestDisparity().timestamp == latest.timestamp) {
      break;
    }
  }
  watch.run([&] { return camera.getPointCloud(products.colored, timestamp); });
  camera.getDepthFrame(products.disparity, products.metric);
  products.colorScale = scaleOf(products.color, products.metric, {camera.nearLimit(), camera.farLimit()});
  return products;
}

std::vector<Picture> writeDepth(const DepthResults& products, const std::filesystem::path& folder) {
  writeImage(folder / "disparity.tiff", products.disparity);
  writeImage(folder / "depth.tiff", products.metric);
  writeImage(folder / "depth.png", millimeters(products.metric));
  writePly(folder / "cloud.ply", products.plain);
  writePly(folder / "cloud-coloured.ply", products.colored);
  const cv::Size cloudSize(480, 400);
  return {{"disparity.png", "Disparity", "Bright is near, black has no match.", grayDisparity(products.disparity)},
          {"depth-colour.png", "Colored depth",
           "Near blue, far red, black out of limits; rotated by 180 degrees, as the camera returns it.", products.color,
           products.colorScale},
          metricPicture(products.metric),
          {"cloud-left.png", "Cloud, from the left", "Colored points, viewpoint swung by 20 degrees.",
           renderCloud(products.colored, -20, cloudSize)},
          {"cloud-right.png", "Cloud, from the right", "Colored points, viewpoint swung by 20 degrees.",
           renderCloud(products.colored, 20, cloudSize)}};
}

std::vector<std::pair<std::string, std::string>> depthFiles() {
  return {{"depth.png", "depth, 16 bits, millimeters (0 without depth)"},
          {"disparity.tiff", "disparity, float, pixels"},
          {"depth.tiff", "depth, float, meters (0 out of limits, -1 without a match)"},
          {"cloud.ply", "plain point cloud, meters"},
          {"cloud-coloured.ply", "colored point cloud, meters"}};
}

}  // namespace stereo::app
