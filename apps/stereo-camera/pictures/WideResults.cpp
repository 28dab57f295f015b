// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/pictures/WideResults.hpp"

#include <algorithm>
#include <array>
#include <cmath>

#include <opencv2/imgproc.hpp>

#include "apps/stereo-camera/output/Output.hpp"
#include "apps/stereo-camera/pictures/CloudFiles.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "model/CameraFacts.hpp"
#include "model/Text.hpp"

namespace stereo::app {

using model::formatted;

namespace {

// Colors at equal steps of the range's logarithm, near blue and far red: near things matter most.
constexpr int levels = 256;

cv::Mat palette() {
  cv::Mat steps(1, levels, CV_8UC1);
  for (int level = 0; level < levels; ++level) {
    steps.at<uchar>(level) = static_cast<uchar>(level);
  }
  cv::Mat colors;
  cv::applyColorMap(steps, colors, cv::COLORMAP_TURBO);
  return colors;
}

Picture rangePicture(const WideReader& reader) {
  const double nearest = reader.options().nearest;
  const double farthest = reader.options().farthest;
  const cv::Mat colors = palette();
  Picture picture{"wide-range.png", "Range",
                  "Meters along each pixel's ray, near blue, far red; black where nothing could be measured.",
                  rangeColors(reader.image().range, nearest, farthest)};
  picture.scale = ColorScale{nearest, farthest, {}, true};
  for (int level = 0; level < levels; level += 15) {
    picture.scale->colors.push_back(colors.at<cv::Vec3b>(level));
  }
  return picture;
}

struct StateColor {
  RangeState state;
  const char* text;
  unsigned char color[3];  // blue, green, red
};

constexpr std::array stateColors = {
    StateColor{RangeState::tooNear, "too near", {60, 60, 230}},
    StateColor{RangeState::tooFar, "too far", {230, 150, 60}},
    StateColor{RangeState::textureless, "too plain", {150, 150, 150}},
    StateColor{RangeState::inconsistent, "eyes disagree", {40, 190, 240}},
    StateColor{RangeState::unseen, "not seen by both eyes", {40, 40, 40}},
};

double share(const cv::Mat& state, RangeState which) {
  return 100.0 * cv::countNonZero(state == static_cast<int>(which)) / static_cast<double>(state.total());
}

Picture statePicture(const WideDepthImage& image) {
  Picture picture{
      "wide-state.png",
      "Why there is no range",
      formatted("Measured: %.0f %% of the view, as the eye sees it.", share(image.state, RangeState::measured)),
      {}};
  picture.image = image.view / 2 + cv::Scalar::all(60);
  for (const StateColor& each : stateColors) {
    const cv::Vec3b color(each.color);
    picture.image.setTo(cv::Scalar(color), image.state == static_cast<int>(each.state));
    picture.legend.emplace_back(color, formatted("%s: %.0f %%", each.text, share(image.state, each.state)));
  }
  return picture;
}

// The points from above, forward up, with rings around the camera. Without what is far above or below it, such as
// ceiling and floor, which would cover the rest.
Picture topPicture(std::vector<WidePoint> points) {
  constexpr int size = 480;  // pixels across
  constexpr int height = 260;
  constexpr double steepest = 0.5;  // sine of the angle up or down
  points.erase(
      std::remove_if(points.begin(), points.end(),
                     [](const WidePoint& each) { return std::abs(each.point[1]) > steepest * cv::norm(each.point); }),
      points.end());
  std::vector<double> ranges;
  for (const WidePoint& each : points) {
    ranges.push_back(cv::norm(each.point));
  }
  double across = 1;  // meters
  if (!ranges.empty()) {
    const auto most = ranges.begin() + static_cast<std::ptrdiff_t>(ranges.size() * 19 / 20);
    std::nth_element(ranges.begin(), most, ranges.end());
    across = 2 * std::max(*most, 0.1);
  }
  const double step = across > 8 ? 2 : across > 4 ? 1 : across > 1.6 ? 0.5 : 0.1;
  Picture picture{"wide-top.png", "Points from above",
                  formatted("Up to 30 degrees above and below the camera, which looks up from the middle of the lower "
                            "edge; a ring every %.1f m.",
                            step),
                  cv::Mat::zeros(height, size, CV_8UC3)};
  const double scale = size / across;
  const cv::Point camera(size / 2, height - 1);
  for (int ring = 1; ring * step < across; ++ring) {
    cv::circle(picture.image, camera, cvRound(scale * ring * step), {70, 70, 70}, 1, cv::LINE_AA);
  }
  // From the lowest point up, so that the higher ones cover those below.
  std::vector<const WidePoint*> sorted;
  for (const WidePoint& each : points) {
    sorted.push_back(&each);
  }
  std::sort(sorted.begin(), sorted.end(),
            [](const WidePoint* a, const WidePoint* b) { return a->point[1] > b->point[1]; });
  for (const WidePoint* const each : sorted) {
    const cv::Point place(cvRound(camera.x + scale * each->point[0]), cvRound(camera.y - scale * each->point[2]));
    if (place.inside({0, 0, size, height})) {
      picture.image.at<cv::Vec3b>(place) = each->color;
    }
  }
  return picture;
}

std::vector<WidePoint> pointsOf(const WideReader& reader) {
  std::vector<WidePoint> points;
  reader.engine()->points(reader.image(), points);
  return points;
}

}  // namespace

WideDepthCalibration wideCalibration(StereoCamera& camera) {
  std::vector<cv::Mat> left;
  std::vector<cv::Mat> right;
  camera.getCalibParams(left, false);
  camera.getCalibParams(right, true);
  return WideDepthCalibration::from(left, right);
}

WideDepthOptions wideOptions(const WideOptions& options) {
  const cv::Size size = parseSize(options.size, "--wide-size");
  const cv::Size field = parseSize(options.field, "--wide-field");
  if (size.width < 32 || size.height < 32 || size.width > 4096 || size.height > 4096) {
    throw Failure(ExitCode::usage, "--wide-size: from 32x32 to 4096x4096");
  }
  if (field.width > 180 || field.height > 180) {
    throw Failure(ExitCode::usage, "--wide-field: up to 180x180 degrees");
  }
  if (!(options.nearest < options.farthest)) {
    throw Failure(ExitCode::usage, "--nearest must be less than --farthest");
  }
  WideDepthOptions result;
  result.size = size;
  result.horizontalField = field.width;
  result.verticalField = field.height;
  result.nearest = options.nearest;
  result.farthest = options.farthest;
  result.fuse = options.fuse;
  result.selfCalibrate = options.selfCalibrate;
  return result;
}

cv::Mat rangeColors(const cv::Mat& range, double nearest, double farthest) {
  const cv::Mat colors = palette();
  cv::Mat picture = cv::Mat::zeros(range.size(), CV_8UC3);
  const double perLevel = (levels - 1) / std::log(farthest / nearest);
  for (int row = 0; row < range.rows; ++row) {
    for (int col = 0; col < range.cols; ++col) {
      if (const float each = range.at<float>(row, col); each > 0) {
        const int level = cvRound(perLevel * std::log(each / nearest));
        picture.at<cv::Vec3b>(row, col) = colors.at<cv::Vec3b>(std::clamp(level, 0, levels - 1));
      }
    }
  }
  return picture;
}

double measuredPercent(const WideDepthImage& image) { return share(image.state, RangeState::measured); }

WideReader::WideReader(const OpenedCamera& opened, const WideOptions& options)
    : WideReader(wideCalibration(*opened.camera), wideOptions(options)) {}

WideReader::WideReader(WideDepthCalibration calibration, const WideDepthOptions& options)
    : m_calibration(std::move(calibration)), m_options(options) {}

std::int64_t WideReader::read(StereoCamera& camera) {
  std::chrono::microseconds timestamp{0};
  if (!camera.getStereoFrame(m_left, m_right, timestamp)) {
    return 0;
  }
  if (m_left.size() != m_right.size() || m_left.type() != CV_8UC3 || m_right.type() != CV_8UC3) {
    throw Failure(ExitCode::noFrames, "the camera does not deliver two color pictures of one size side by side");
  }
  if (!m_engine) {
    try {
      m_engine.emplace(m_calibration, m_left.size(), m_options);
    } catch (const cv::Exception& error) {
      throw Failure(ExitCode::calibration, "wide depth: " + error.err);
    }
  }
  m_engine->compute(m_left, m_right, m_image);
  return timestamp.count();
}

std::vector<Picture> writeWide(const WideReader& reader, const std::filesystem::path& folder) {
  const WideDepthImage& image = reader.image();
  const std::vector<WidePoint> points = pointsOf(reader);
  writeImage(folder / "wide-range.tiff", image.range);
  cv::Mat millimeters;
  image.range.convertTo(millimeters, CV_16UC1, 1000.0);
  millimeters.setTo(0, image.range > 65.535);  // more than 16 bits hold
  writeImage(folder / "wide-range-mm.png", millimeters);
  writeImage(folder / "wide-confidence.png", image.confidence);
  try {
    stereo::writePly((folder / "wide-cloud.ply").string(), points);
  } catch (const cv::Exception& error) {
    throw Failure(ExitCode::output, error.err);
  }
  std::vector<PCL> colored;
  for (const WidePoint& each : points) {
    colored.push_back({each.point, each.color});
  }
  const cv::Size cloudSize(480, 400);
  return {rangePicture(reader),
          {"wide-view.png", "Left eye", "What the range belongs to: equal angles are equal distances.", image.view},
          statePicture(image),
          topPicture(points),
          {"wide-cloud-left.png", "Cloud, from the left", "Viewpoint swung by 20 degrees.",
           renderCloud(colored, -20, cloudSize)},
          {"wide-cloud-right.png", "Cloud, from the right", "Viewpoint swung by 20 degrees.",
           renderCloud(colored, 20, cloudSize)}};
}

std::vector<std::pair<std::string, std::string>> wideFiles() {
  return {{"wide-range.tiff", "range, float, meters (0 where not measured)"},
          {"wide-range-mm.png", "range, 16 bits, millimeters (0 where not measured, or beyond 65 m)"},
          {"wide-confidence.png", "confidence, 255 is best (0 where not measured)"},
          {"wide-cloud.ply", "colored point cloud with confidence, meters"}};
}

std::vector<std::pair<std::string, std::string>> wideFacts(const WideReader& reader) {
  const WideDepthOptions& options = reader.options();
  return {{"wide view",
           model::sizeText(options.size) + formatted(", %.0f x %.0f degrees, %.2f to %.1f m", options.horizontalField,
                                                     options.verticalField, options.nearest, options.farthest)},
          {"measured", formatted("%.1f %% of the view", share(reader.image().state, RangeState::measured))},
          {"row correction", formatted("%.2f rows", reader.engine()->rowCorrection())}};
}

}  // namespace stereo::app
