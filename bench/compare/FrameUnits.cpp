// SPDX-License-Identifier: Apache-2.0
// Units of comparison: the capture pass and the rectified read.
#include <memory>
#include <string>

#include <opencv2/imgproc.hpp>

#include "bench/baseline/Difference.hpp"
#include "bench/baseline/PlainCapturePass.hpp"
#include "bench/baseline/PlainRectifyMap.hpp"
#include "bench/compare/Unit.hpp"
#include "bench/support/Inputs.hpp"
#include "bench/support/PreparedCamera.hpp"
#include "src/core/CapturePass.hpp"

namespace stereo::compare {

namespace {

struct Published {
  cv::Mat first;
  cv::Mat second;
};

std::string difference(const Published& expected, const Published& actual) {
  const std::string first = baseline::difference(expected.first, actual.first);
  return first.empty() ? baseline::difference(expected.second, actual.second) : first;
}

struct CaptureCase {
  cv::Mat frame = bench::picture({1856, 800}, 1);
  int radius = frame.cols / 4;
  baseline::CapturePass scalarPass;
  core::CapturePass libraryPass;
  Published scalar, library, halves, copies;

  void copyOnly() {
    const int h = frame.cols / 2;
    frame(cv::Rect(0, 0, h, frame.rows)).copyTo(halves.first);
    frame(cv::Rect(h, 0, h, frame.rows)).copyTo(halves.second);
    halves.first.copyTo(copies.first);
    halves.second.copyTo(copies.second);
  }
};

Unit captureUnit() {
  const auto kept = std::make_shared<CaptureCase>();
  Unit unit;
  unit.name = "capture pass 1856x800";
  unit.scalar = [kept] { kept->scalarPass.run(kept->frame, kept->radius, kept->scalar.first, kept->scalar.second); };
  unit.library = [kept] {
    kept->libraryPass.process(kept->frame, kept->radius);
    kept->libraryPass.publish(kept->library.first, kept->library.second);
  };
  unit.floor = [kept] { kept->copyOnly(); };
  unit.floorName = "four copies into kept buffers";
  unit.difference = [kept, scalar = unit.scalar, library = unit.library] {
    scalar();
    library();
    return difference(kept->scalar, kept->library);
  };
  unit.targets = {1.5, 0, 1.2};
  return unit;
}

// The rectified read with the eyes in memory. In a real camera it waits for the next frame, which says nothing about
// the speed of the read.
struct ReadCase {
  explicit ReadCase(cv::Size size) {
    const bench::Eye eyes[2] = {bench::leftEye(), bench::rightEye()};
    const cv::Mat P = bench::viewMatrix(size, bench::perspectiveMode);
    for (int eye = 0; eye < 2; ++eye) {
      baseline::initRectifyMap(eyes[eye].K, eyes[eye].D, eyes[eye].R, P, eyes[eye].mirror(), eyes[eye].mirror(), size,
                               bench::perspectiveMode, maps[eye][0], maps[eye][1]);
    }
    camera.setMaps(maps);
    camera.setEyes(raw.first, raw.second);
  }

  void remapOnly() {
    cv::remap(raw.first, remapped.first, maps[0][0], maps[0][1], cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar());
    cv::remap(raw.second, remapped.second, maps[1][0], maps[1][1], cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar());
  }

  bench::PreparedCamera camera;
  Published raw{bench::picture({928, 800}, 1), bench::picture({928, 800}, 2)};
  cv::Mat maps[2][2];
  Published remapped, read;
};

Unit readUnit(cv::Size size) {
  const auto kept = std::make_shared<ReadCase>(size);
  Unit unit;
  unit.name = "rectified read " + std::to_string(size.width) + "x" + std::to_string(size.height);
  unit.library = [kept] { kept->camera.getRectStereoFrame(kept->read.first, kept->read.second); };
  unit.floor = [kept] { kept->remapOnly(); };
  unit.floorName = "two remaps into kept buffers";
  unit.difference = [kept, library = unit.library] {
    kept->remapOnly();
    library();
    return difference(kept->remapped, kept->read);
  };
  unit.targets = {0, 0, 1.05};
  return unit;
}

}  // namespace

void addFrameUnits(std::vector<Unit>& units) {
  units.push_back(captureUnit());
  units.push_back(readUnit({464, 400}));
  units.push_back(readUnit({928, 800}));
}

}  // namespace stereo::compare
