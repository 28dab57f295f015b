// SPDX-License-Identifier: Apache-2.0
// Writes the library's results for what `arm_frames` wrote, and for recorded frames next to it.
#include <algorithm>
#include <filesystem>
#include <iostream>
#include <string>
#include <vector>

#include "tests/campaigns/arm/Results.hpp"

int main(int argc, char** argv) try {
  if (argc != 3) {
    std::cerr << "usage: arm_results FRAMES OUT\n";
    return 2;
  }
  using namespace stereo::arm;
  const std::filesystem::path frames = argv[1];
  const Writer out(argv[2]);
  const auto calibrations = readCalibrations((frames / "calibrations.f64").string());
  writeIngredients(calibrations, out);
  writeMaps(calibrations, out);
  writeMasks(out);
  writeDepths(out);
  writeWideDepths(out);
  std::vector<std::filesystem::path> pictures;
  for (const auto& entry : std::filesystem::directory_iterator(frames)) {
    if (entry.path().extension() == ".png") {
      pictures.push_back(entry.path());
    }
  }
  std::sort(pictures.begin(), pictures.end());
  for (const auto& picture : pictures) {
    // The usual size for one, a quarter of its pixels for the rest: emulated matchers take their time.
    const bool usual = picture.stem() == "sim-full";
    writeCamera(picture.string(), usual ? cv::Size(464, 400) : cv::Size(232, 200), out);
  }
  return 0;
} catch (const std::exception& error) {
  std::cerr << error.what() << "\n";
  return 1;
}
