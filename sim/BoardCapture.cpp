// SPDX-License-Identifier: Apache-2.0
#include "sim/BoardCapture.hpp"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "model/CameraFacts.hpp"
#include "sim/ParallelRows.hpp"
#include "sim/Texture.hpp"

namespace stereo::sim {

namespace {

constexpr double radiansPerDegree = CV_PI / 180.0;
constexpr int samplesPerSide = 4;  // per side of a pixel
constexpr double blackGray = 35.0;
constexpr double whiteGray = 205.0;
constexpr double wallGray = 105.0;

cv::Matx33d turnX(double a) { return {1, 0, 0, 0, std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a)}; }
cv::Matx33d turnY(double a) { return {std::cos(a), 0, std::sin(a), 0, 1, 0, -std::sin(a), 0, std::cos(a)}; }
cv::Matx33d turnZ(double a) { return {std::cos(a), -std::sin(a), 0, std::sin(a), std::cos(a), 0, 0, 0, 1}; }

// Places as a patient person would choose them: from the middle outward, all around, near and far, always tilted.
std::vector<BoardPlace> placesOf(const BoardCapture::Options& options) {
  std::vector<BoardPlace> places;
  const cv::Vec3d middle(0.5 * (options.corners.width - 1) * options.square,
                         0.5 * (options.corners.height - 1) * options.square, 0.0);
  const double size = std::max(options.corners.width, options.corners.height) * options.square;
  for (int n = 0; n < options.places; ++n) {
    std::uint32_t drawn = 0;
    const auto between = [&](double least, double most) {
      return least + (most - least) * unitNumber(mixBits(options.seed, 900U + static_cast<std::uint32_t>(n)), drawn++);
    };
    // The golden angle spreads the directions evenly; the share of the sphere's cap within 80 degrees grows evenly too.
    const double share = (n + 0.5) / options.places;
    const double off = std::acos(1.0 - share * (1.0 - std::cos(80.0 * radiansPerDegree)));
    const double about = n * 137.508 * radiansPerDegree;
    const cv::Matx33d facing = turnZ(about) * turnY(off) * turnZ(-about);
    const cv::Matx33d held = turnX(between(-30, 30) * radiansPerDegree) * turnY(between(-30, 30) * radiansPerDegree) *
                             turnZ(between(-12, 12) * radiansPerDegree);
    BoardPlace place;
    place.rotation = facing * held;
    const double distance = between(1.1, 1.9) * size;
    place.position = facing * cv::Vec3d(0, 0, distance) - place.rotation * middle;
    places.push_back(place);
  }
  return places;
}

double shade(const cv::Vec3d& onBoard, const BoardCapture::Options& options) {
  const double x = onBoard[0] / options.square + 1.0;
  const double y = onBoard[1] / options.square + 1.0;
  if (x < -0.7 || y < -0.7 || x > options.corners.width + 1.7 || y > options.corners.height + 1.7) {
    return wallGray;
  }
  if (x < 0.0 || y < 0.0 || x > options.corners.width + 1.0 || y > options.corners.height + 1.0) {
    return whiteGray;
  }
  return (static_cast<int>(x) + static_cast<int>(y)) % 2 == 0 ? blackGray : whiteGray;
}

// Mean of `sample` over the pixel, at (x, y) from -0.5 to 0.5 each. If middle and corners agree, there is no edge in
// between.
template <typename Sample>
double pixelShade(const Sample& sample) {
  const double middle = sample(0.0, 0.0);
  if (sample(-0.5, -0.5) == middle && sample(0.5, -0.5) == middle && sample(-0.5, 0.5) == middle &&
      sample(0.5, 0.5) == middle) {
    return middle;
  }
  double sum = 0.0;
  for (int n = 0; n < samplesPerSide * samplesPerSide; ++n) {
    const int row = n / samplesPerSide;
    const int column = n % samplesPerSide;
    sum += sample((column + 0.5) / samplesPerSide - 0.5, (row + 0.5) / samplesPerSide - 0.5);
  }
  return sum / (samplesPerSide * samplesPerSide);
}

}  // namespace

BoardCapture::BoardCapture(const Rig& rig, const Options& options)
    : sources::FrameSource(options.rate), m_options(options) {
  if (!model::isFrameSize(options.frameSize) || options.corners.width < 2 || options.corners.height < 2 ||
      !(options.square > 0.0) || options.places < 1 || options.framesPerPlace < 1) {
    throw std::invalid_argument("a board needs at least 2 x 2 corners, and frames are 1856x800 or 928x400 pixels");
  }
  m_places = placesOf(options);
  const cv::Size& size = options.frameSize;
  const int eyeWidth = size.width / 2;
  m_rays.assign(static_cast<std::size_t>(size.area()), cv::Vec3f(0, 0, 0));
  for (const bool isRight : {false, true}) {
    const model::OmniModel model = rig.modelFor(isRight, size);
    const cv::Matx33d rotation = rig.eye(isRight).rotation;
    m_positions[isRight ? 1 : 0] = rig.eye(isRight).position;
    forEachRow(size.height, [&](int row) {
      cv::Vec3f* line = &m_rays[static_cast<std::size_t>(row) * size.width + (isRight ? eyeWidth : 0)];
      for (int col = 0; col < eyeWidth; ++col) {
        if (const auto ray = model.unproject(cv::Point2d(col, row))) {
          line[col] = cv::Vec3f(rotation * *ray);
        }
      }
    });
  }
}

cv::Mat BoardCapture::render(const BoardPlace& place) const {
  const cv::Size& size = m_options.frameSize;
  const int eyeWidth = size.width / 2;
  const cv::Matx33d toBoard = place.rotation.t();
  cv::Mat frame(size, CV_8UC3);
  forEachRow(size.height, [&](int row) {
    auto* pixels = frame.ptr<cv::Vec3b>(row);
    const std::size_t first = static_cast<std::size_t>(row) * size.width;
    const int below = row + 1 < size.height ? size.width : -size.width;
    for (int col = 0; col < size.width; ++col) {
      const std::size_t here = first + col;
      const cv::Vec3d ray = m_rays[here];
      const int beside = (col + 1) % eyeWidth != 0 ? 1 : -1;
      const cv::Vec3d across = (cv::Vec3d(m_rays[here + beside]) - ray) * beside;
      const cv::Vec3d down = (cv::Vec3d(m_rays[here + below]) - ray) * (below > 0 ? 1 : -1);
      const cv::Vec3d from = toBoard * (m_positions[col < eyeWidth ? 0 : 1] - place.position);
      const auto sample = [&](double x, double y) {
        const cv::Vec3d direction = toBoard * (ray + x * across + y * down);
        const double length = direction[2] > 1e-9 ? -from[2] / direction[2] : -1.0;
        return length > 0.0 ? shade(from + length * direction, m_options) : wallGray;
      };
      const double noise =
          4.0 * (unitNumber(mixBits(static_cast<std::uint32_t>(row), static_cast<std::uint32_t>(col)), 3U) - 0.5);
      const bool dark = cv::norm(ray) < 0.5;
      const double level = dark ? 6.0 + 0.5 * noise : pixelShade(sample) + noise;
      pixels[col] = cv::Vec3b::all(cv::saturate_cast<unsigned char>(level));
    }
  });
  return frame;
}

cv::Mat BoardCapture::next() {
  const auto frames = static_cast<std::uint64_t>(m_options.framesPerPlace);
  if (m_picture.empty() || m_index % frames == 0) {
    m_picture = render(m_places[m_index / frames % m_places.size()]);
  }
  ++m_index;
  return m_picture;
}

bool BoardCapture::resize(int, double) { return false; }

}  // namespace stereo::sim
