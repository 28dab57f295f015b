// SPDX-License-Identifier: Apache-2.0
// Binds wide depth.
#include <filesystem>
#include <mutex>
#include <string>
#include <utility>

#include <pybind11/stl/filesystem.h>

#include "WideDepth.hpp"
#include "python/Arrays.hpp"
#include "python/Interpreter.hpp"
#include "python/Members.hpp"
#include "python/Module.hpp"
#include "python/Results.hpp"

namespace stereo::python {

namespace {

// The engine is for one thread at a time, but Python's threads may share an object.
class GuardedWideDepth {
public:
  GuardedWideDepth(const WideDepthCalibration& calibration, cv::Size eye, const WideDepthOptions& options)
      : m_engine(calibration, eye, options) {}

  // Calls `use` with the engine, outside Python and alone.
  template <typename Use>
  auto with(Use use) {
    const Released released;
    const std::lock_guard lock(m_mutex);
    return use(m_engine);
  }

private:
  std::mutex m_mutex;
  WideDepth m_engine;
};

WideDepthCalibration calibrationOf(StereoCamera& camera) {
  std::vector<cv::Mat> left;
  std::vector<cv::Mat> right;
  camera.StereoCamera::getCalibParams(left, false);
  camera.StereoCamera::getCalibParams(right, true);
  return WideDepthCalibration::from(left, right);
}

std::unique_ptr<GuardedWideDepth> make(const py::object& calibration, const py::object& eye, const py::object& size,
                                       double horizontalField, double verticalField, double nearest, double farthest,
                                       int threads, bool selfCalibrate, bool fuse) {
  WideDepthOptions options;
  options.size = toSize(size, "size");
  options.horizontalField = horizontalField;
  options.verticalField = verticalField;
  options.nearest = nearest;
  options.farthest = farthest;
  options.threads = threads;
  options.selfCalibrate = selfCalibrate;
  options.fuse = fuse;
  const cv::Size pixels = toSize(eye, "eye");
  if (py::isinstance<StereoCamera>(calibration)) {
    auto& camera = py::cast<StereoCamera&>(calibration);
    // The start makes the maps, and scales the calibration.
    if (!(camera.*(&Members::m_rectifyMaps))[0][0].empty()) {
      throw py::value_error("calibration: the camera was started, which scales its calibration; pass the file");
    }
    const Released released;
    return std::make_unique<GuardedWideDepth>(calibrationOf(camera), pixels, options);
  }
  const auto path = py::cast<std::filesystem::path>(calibration);
  const Released released;
  return std::make_unique<GuardedWideDepth>(WideDepthCalibration::load(path.string()), pixels, options);
}

py::object compute(GuardedWideDepth& self, const py::object& left, const py::object& right) {
  const Wrapped eyes[] = {wrapImage(left, "left"), wrapImage(right, "right")};
  return wideDepthImage(self.with([&](WideDepth& engine) {
    WideDepthImage image;
    engine.compute(eyes[0].image, eyes[1].image, image);
    return image;
  }));
}

// A result that was handed out before. The arrays live as long as this.
struct Taken {
  explicit Taken(const py::object& object)
      : elements(requireElements(object, "image", 4)),
        arrays{wrapDisparity(elements[0], "range"), wrapMask(elements[1], "state"), wrapMask(elements[2], "confidence"),
               wrapImage(elements[3], "view")},
        image{arrays[0].image, arrays[1].image, arrays[2].image, arrays[3].image} {}

  py::sequence elements;
  Wrapped arrays[4];
  WideDepthImage image;
};

py::array organizedCloud(GuardedWideDepth& self, const py::object& image) {
  const Taken taken(image);
  return toArray(self.with([&](WideDepth& engine) {
    cv::Mat cloud;
    engine.organizedCloud(taken.image, cloud);
    return cloud;
  }));
}

py::object points(GuardedWideDepth& self, const py::object& image, int leastConfidence) {
  const Taken taken(image);
  return widePoints(self.with([&](WideDepth& engine) {
    std::vector<WidePoint> found;
    engine.points(taken.image, found, leastConfidence);
    return found;
  }));
}

void writePoints(const std::filesystem::path& path, const py::object& points) {
  const std::vector<WidePoint> list = toWidePoints(points);
  const Released released;
  writePly(path.string(), list);
}

}  // namespace

void bindWideDepth(py::module_& module) {
  py::class_<GuardedWideDepth> wide(module, "WideDepth",
                                    R"(Metric range with both fisheye eyes, over a field of up to 180 by 180 degrees.

The view has equal angles: longitude over its columns, latitude over its rows, the axis forward in the middle. A range
counts along the pixel's ray from the left eye. States: MEASURED exactly where there is a range; UNSEEN outside the
field of one eye or hidden from the right one; TOO_NEAR, TOO_FAR: outside the limits; TEXTURELESS: too plain;
INCONSISTENT: the eyes disagree. Threads may share an object; they take turns.)");
  wide.def(
      py::init(&make), py::arg("calibration"), py::arg("eye"), py::kw_only(),
      py::arg("size") = py::make_tuple(464, 400), py::arg("horizontalField") = 170.0, py::arg("verticalField") = 150.0,
      py::arg("nearest") = 0.15, py::arg("farthest") = 10.0, py::arg("threads") = 0, py::arg("selfCalibrate") = true,
      py::arg("fuse") = false,
      R"(__init__(self, calibration, eye, *, size=(464, 400), horizontalField=170.0, verticalField=150.0, nearest=0.15, farthest=10.0, threads=0, selfCalibrate=True, fuse=False)
--

`calibration`: a file, or a camera that has one and was never started (the start scales it). `eye`: (width, height) of
one eye of the raw frames, pixels. `size`: of the view, pixels. Fields in degrees, limits in meters. `threads`: 0 for
as many as OpenCV has. `selfCalibrate` corrects rows of the eyes that do not match; `fuse` combines successive frames.
Raises Error for what cannot be.)");
  wide.def("compute", &compute, py::arg("left"), py::arg("right"), R"(compute(self, left, right)
--

Measures a pair of eyes, (rows, columns, 3; uint8, BGR) of the size given to the constructor. Returns a WideDepthImage
of the caller's own. Raises TypeError, ValueError or Error for other images.)");
  wide.def(
      "rays",
      [](GuardedWideDepth& self) {
        return toArray(self.with([](WideDepth& engine) { return engine.rays().clone(); }));
      },
      R"(rays(self)
--

Unit ray of each pixel (rows, columns, 3; float32): x right, y down, z forward, left rectified frame.)");
  wide.def(
      "baseline", [](GuardedWideDepth& self) { return self.with([](WideDepth& engine) { return engine.baseline(); }); },
      R"(baseline(self)
--

Meters between the eyes.)");
  wide.def(
      "rowCorrection",
      [](GuardedWideDepth& self) { return self.with([](WideDepth& engine) { return engine.rowCorrection(); }); },
      R"(rowCorrection(self)
--

Root mean square over the view of the row correction in use, rows of the view; 0 while there is none.)");
  wide.def(
      "reset", [](GuardedWideDepth& self) { self.with([](WideDepth& engine) { engine.reset(); }); }, R"(reset(self)
--

Forgets the row correction and the frames that were combined.)");
  wide.def("organizedCloud", &organizedCloud, py::arg("image"), R"(organizedCloud(self, image)
--

Point of each pixel (rows, columns, 3; float32): X, Y, Z in meters, left rectified frame; NaN where not measured.
`image` is a result of `compute`.)");
  wide.def("points", &points, py::arg("image"), py::arg("leastConfidence") = 0,
           R"(points(self, image, leastConfidence=0)
--

The measured points of a result whose confidence is at least `leastConfidence`: WidePoints.)");
  const std::pair<const char*, RangeState> states[] = {
      {"MEASURED", RangeState::measured},         {"UNSEEN", RangeState::unseen},
      {"TOO_NEAR", RangeState::tooNear},          {"TEXTURELESS", RangeState::textureless},
      {"INCONSISTENT", RangeState::inconsistent}, {"TOO_FAR", RangeState::tooFar}};
  for (const auto& [name, state] : states) {
    wide.attr(name) = static_cast<int>(state);
  }
  module.def("writePly", &writePoints, py::arg("path"), py::arg("points"), R"(writePly(path, points)
--

Writes WidePoints as a binary PLY file: x, y, z in meters, red, green, blue, confidence. Raises Error if it cannot.)");
}

}  // namespace stereo::python
