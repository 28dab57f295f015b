// SPDX-License-Identifier: Apache-2.0
#include "bench/wide/Sample.hpp"

#include <array>
#include <cstdint>
#include <fstream>
#include <memory>
#include <stdexcept>

#include <unistd.h>
#include <opencv2/imgproc.hpp>

#include "model/CameraFacts.hpp"
#include "model/Text.hpp"
#include "sim/Degradation.hpp"
#include "sim/Renderer.hpp"

namespace stereo::wide {

namespace {

/// 64-bit FNV-1a over what decides about a rendered frame and its truth.
class Fingerprint {
public:
  void add(const void* data, std::size_t bytes) {
    const auto* const first = static_cast<const unsigned char*>(data);
    for (std::size_t n = 0; n < bytes; ++n) {
      m_hash = (m_hash ^ first[n]) * 0x100000001B3U;
    }
  }
  void add(double value) { add(&value, sizeof(value)); }
  void add(const cv::Mat& continuous) { add(continuous.data, continuous.total() * continuous.elemSize()); }
  template <typename T, int Rows, int Cols>
  void add(const cv::Matx<T, Rows, Cols>& values) {
    add(values.val, sizeof(values.val));
  }
  std::uint64_t value() const { return m_hash; }

private:
  std::uint64_t m_hash = 0xCBF29CE484222325U;
};

// To be raised where the renderer or its textures draw something else, so that what is kept is not used any longer.
constexpr double drawing = 1;

std::uint64_t fingerprint(const sim::Scene& scene, const sim::Rig& rig, const cv::Mat& rays) {
  Fingerprint print;
  print.add(drawing);
  print.add(scene.options().seed);
  const sim::SceneSnapshot snapshot = scene.at(0.0);
  for (const sim::Solid& solid : snapshot.solids()) {
    print.add(static_cast<double>(solid.shape));
    print.add(solid.center);
    print.add(solid.halfExtent);
    print.add(solid.rotation);
    print.add(solid.color);
    print.add(solid.plain);
  }
  for (const bool isRight : {false, true}) {
    for (const cv::Mat& matrix : rig.calibParams(isRight)) {
      print.add(matrix);
    }
  }
  print.add(rays);
  return print.value();
}

struct Rendered {
  cv::Mat frame;  // both eyes, without degradation
  sim::RangeTruth truth;

  std::array<cv::Mat*, 4> matrices() { return {&frame, &truth.range, &truth.surface, &truth.seen}; }
};

bool readKept(const std::filesystem::path& path, Rendered& rendered) {
  std::ifstream file(path, std::ios::binary);
  for (cv::Mat* const matrix : rendered.matrices()) {
    std::array<int, 3> shape{};
    file.read(reinterpret_cast<char*>(shape.data()), sizeof(shape));
    if (!file || shape[0] < 1 || shape[1] < 1 || shape[0] > 10000 || shape[1] > 10000) {
      return false;
    }
    matrix->create(shape[0], shape[1], shape[2]);
    file.read(reinterpret_cast<char*>(matrix->data),
              static_cast<std::streamsize>(matrix->total() * matrix->elemSize()));
  }
  return static_cast<bool>(file);
}

// Complete or not there: another judge may read the same folder.
void keep(const std::filesystem::path& path, Rendered& rendered) {
  std::filesystem::create_directories(path.parent_path());
  const std::filesystem::path part = path.string() + "." + std::to_string(::getpid());
  std::ofstream file(part, std::ios::binary);
  for (const cv::Mat* const matrix : rendered.matrices()) {
    const std::array<int, 3> shape{matrix->rows, matrix->cols, matrix->type()};
    file.write(reinterpret_cast<const char*>(shape.data()), sizeof(shape));
    file.write(reinterpret_cast<const char*>(matrix->data),
               static_cast<std::streamsize>(matrix->total() * matrix->elemSize()));
  }
  file.close();
  if (!file) {
    throw std::runtime_error("cannot write " + part.string());
  }
  std::filesystem::rename(part, path);
}

}  // namespace

Sample SampleCache::sample(const SceneOfRig& scene, const Case& conditions, const View& view) const {
  sim::Scenery scenery = conditions.conditions.scenery;
  scenery.nearThings += scene.nearThings;
  const auto room = std::make_shared<const sim::Scene>(sim::Scene::Options{scene.seed, false, 2.0, scenery});
  sim::Rig::Options exact = scene.rig;
  exact.error = {};
  const sim::Rig rig(exact);
  const cv::Mat rays = view.rays();
  const std::filesystem::path path =
      m_folder / model::formatted("sample-%016llx", static_cast<unsigned long long>(fingerprint(*room, rig, rays)));
  Rendered rendered;
  if (m_folder.empty() || !readKept(path, rendered)) {
    rendered.frame = sim::Renderer(room, rig, model::fullFrameSize()).render(0.0);
    rendered.truth = sim::GroundTruth(room, rig).along(rays, 0.0);
    if (!m_folder.empty()) {
      keep(path, rendered);
    }
  }
  const cv::Mat frame = sim::Degrader(conditions.conditions.picture, scene.seed).apply(rendered.frame, 0);
  Sample sample;
  const int eyeWidth = frame.cols / 2;
  sample.left = frame.colRange(0, eyeWidth).clone();
  sample.right = frame.colRange(eyeWidth, frame.cols).clone();
  sample.truth = rendered.truth;
  const sim::SceneSnapshot snapshot = room->at(0.0);
  sample.plain.create(view.size, CV_8UC1);
  for (int row = 0; row < view.size.height; ++row) {
    for (int col = 0; col < view.size.width; ++col) {
      const auto solid = static_cast<std::size_t>(sample.truth.surface.at<int>(row, col)) / 6;
      sample.plain.at<unsigned char>(row, col) = snapshot.solids()[solid].plain > 0.0 ? 255 : 0;
    }
  }
  sample.inside = insideOf(sample.truth.surface);
  return sample;
}

cv::Mat insideOf(const cv::Mat& surface) {
  cv::Mat solid(surface.size(), CV_32FC1);  // whole numbers far below 2^24
  for (int row = 0; row < surface.rows; ++row) {
    for (int col = 0; col < surface.cols; ++col) {
      const int index = surface.at<int>(row, col) / 6;
      solid.at<float>(row, col) = static_cast<float>(index);
    }
  }
  const cv::Mat around = cv::Mat::ones(5, 5, CV_8UC1);
  cv::Mat least;
  cv::Mat most;
  cv::erode(solid, least, around);
  cv::dilate(solid, most, around);
  return least == most;
}

}  // namespace stereo::wide
