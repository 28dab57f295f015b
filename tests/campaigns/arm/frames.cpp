// SPDX-License-Identifier: Apache-2.0
// Writes what `arm_results` works on, so that every processor works on the same: rendered frames with their
// calibrations, and calibrations drawn at random.
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <string>

#include <opencv2/imgcodecs.hpp>

#include "sim/Renderer.hpp"
#include "tests/support/TestCamera.hpp"

namespace {

constexpr int calibrations = 24;

void writeCalibrations(const std::string& path) {
  std::ofstream out(path, std::ios::binary);
  for (int number = 0; number < calibrations; ++number) {
    for (const cv::Mat& matrix : stereo::test::someCalibration(number)) {
      out.write(matrix.ptr<char>(), static_cast<std::streamsize>(matrix.total() * sizeof(double)));
    }
  }
  out.flush();
  if (!out) {
    throw std::runtime_error("cannot write " + path);
  }
}

void writeFrame(const std::string& name, cv::Size size, std::uint32_t seed) {
  const auto scene = std::make_shared<const stereo::sim::Scene>(stereo::sim::Scene::Options{seed, false, 2.0});
  const stereo::sim::Rig rig(seed);
  rig.saveCalibration(name + ".yml");
  if (!cv::imwrite(name + ".png", stereo::sim::Renderer(scene, rig, size).render(0.0))) {
    throw std::runtime_error("cannot write " + name + ".png");
  }
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 2) {
    std::cerr << "usage: arm_frames FOLDER\n";
    return 2;
  }
  const std::string folder = argv[1];
  std::filesystem::create_directories(folder);
  writeCalibrations(folder + "/calibrations.f64");
  writeFrame(folder + "/sim-full", {1856, 800}, 1);
  writeFrame(folder + "/sim-half", {928, 400}, 2);
  return 0;
} catch (const std::exception& error) {
  std::cerr << error.what() << "\n";
  return 1;
}
