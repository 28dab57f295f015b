// SPDX-License-Identifier: Apache-2.0
// Binds the cameras without hardware.
#include <cmath>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include <pybind11/stl/filesystem.h>

#include "python/Arrays.hpp"
#include "python/Module.hpp"
#include "python/Overrides.hpp"
#include "python/Results.hpp"
#include "python/Source.hpp"
#include "sim/SimulatedCamera.hpp"
#include "sources/ReplayCamera.hpp"
#include "sources/VirtualCamera.hpp"

namespace stereo::python {

namespace {

using sim::SimulatedCamera;
using sources::ReplayCamera;
using sources::VirtualCamera;

// A virtual camera on a source in Python; tells the source which camera it belongs to.
template <template <typename> typename Kind>
Kind<VirtualCamera>* onSource(const py::object& source, double rate) {
  auto adapter = std::make_unique<SourceAdapter>(source);
  SourceAdapter& attached = *adapter;
  const Released released;
  auto* const camera = new Kind<VirtualCamera>(std::unique_ptr<cv::VideoCapture>(std::move(adapter)), rate);
  attached.attach(camera);
  return camera;
}

// Keyword arguments to options.
struct Keywords {
  static SimulatedCamera::Options simulated(const py::object& frameSize, double rate, std::uint32_t seed, bool moving,
                                            double period, int framesPerPeriod, bool ring,
                                            const py::object& rectFrameSize, const std::string& faults,
                                            const std::string& conditions) {
    SimulatedCamera::Options options;
    options.frameSize = toSize(frameSize, "frameSize");
    options.rate = rate;
    options.seed = seed;
    options.moving = moving;
    options.period = period;
    options.framesPerPeriod = framesPerPeriod;
    options.ring = ring;
    options.rectFrameSize = toSize(rectFrameSize, "rectFrameSize");
    options.faults = sim::parseFaults(faults);
    options.conditions = sim::parseConditions(conditions);
    return options;
  }

  static ReplayCamera::Options replay(const std::filesystem::path& path, double rate, bool loop, int fisheyeRadius,
                                      const py::object& rectFrameSize, bool recordedTiming) {
    ReplayCamera::Options options;
    options.path = path.string();
    options.rate = rate;
    options.loop = loop;
    options.fisheyeRadius = fisheyeRadius;
    options.rectFrameSize = toSize(rectFrameSize, "rectFrameSize");
    options.recordedTiming = recordedTiming;
    return options;
  }
};

// The two forms of a camera with options: plain, and with overrides. `toOptions` makes the options from the arguments.
template <typename Camera, typename... Arguments, typename Options>
auto madeFrom(Options (*toOptions)(Arguments...)) {
  return py::init(
      [toOptions](Arguments... arguments) -> Camera* {
        const Options options = toOptions(arguments...);
        const Released released;
        return new Handle<Camera>(options);
      },
      [toOptions](Arguments... arguments) {
        const Options options = toOptions(arguments...);
        const Released released;
        return new Overrides<Camera>(options);
      });
}

void require(bool isFine, const char* what) {
  if (!isFine) {
    throw py::value_error(what);
  }
}

py::object truthOf(const SimulatedCamera& camera, const std::string& view, double time) {
  if (view != "perspective" && view != "lonLat") {
    throw py::value_error("the view must be 'perspective' or 'lonLat', not '" + view + "'");
  }
  sim::Truth made;
  {
    const Released released;
    made = camera.truth(view == "lonLat" ? camera.lonLatView() : camera.perspectiveView(), time);
  }
  return truth({made.depth, made.distance, made.disparity, made.surface, made.occluded, made.seen});
}

}  // namespace

void bindVirtualCamera(py::module_& module) {
  py::class_<VirtualCamera, StereoCamera, Overrides<VirtualCamera>, Owner<VirtualCamera>>(
      module, "VirtualCamera",
      "A camera whose frames come from a `VideoCapture` in Python, with setters for the settings.")
      .def(py::init(
               [](const py::object& source, double rate) -> VirtualCamera* { return onSource<Handle>(source, rate); },
               [](const py::object& source, double rate) { return onSource<Overrides>(source, rate); }),
           py::arg("source"), py::arg("rate") = 0.0, R"(__init__(self, source, rate=0.0)
--

Opens the camera on that source and keeps a reference to it. `rate`: frames per second, 0: as they come. Raises
TypeError unless the source is derived from `VideoCapture`.)")
      .def(
          "setDepthMode",
          [](VirtualCamera& self, int mode) {
            require(mode == 1 || mode == 2, "the depth mode must be 1 or 2");
            self.setDepthMode(mode);
          },
          py::arg("mode"), R"(setDepthMode(self, mode)
--

1: depth from the longitude-latitude pair, 2: from the perspective pair. Call all setters before `startCapture`.)")
      .def("setAlgorithm", &VirtualCamera::setAlgorithm, py::arg("algorithm"),
           "setAlgorithm(self, algorithm)\n--\n\n0: semi-global matching, 1: block matching, any other: none.")
      .def(
          "setHorizontalField",
          [](VirtualCamera& self, double degrees) {
            require(degrees > 0 && degrees < 180, "the horizontal field must be above 0 and below 180 degrees");
            self.setHorizontalField(degrees);
          },
          py::arg("degrees"),
          "setHorizontalField(self, degrees)\n--\n\nHorizontal field of the perspective view, above 0, below 180 "
          "degrees.")
      .def(
          "setLonLatField",
          [](VirtualCamera& self, double degrees) {
            require(degrees > 0 && degrees <= 360,
                    "the longitude-latitude range must be above 0 and at most 360 degrees");
            self.setLonLatField(degrees);
          },
          py::arg("degrees"), "setLonLatField(self, degrees)\n--\n\nRange of the longitude-latitude view, degrees.")
      .def(
          "setDepthLimits",
          [](VirtualCamera& self, float nearest, float farthest) {
            require(nearest >= 0 && nearest < farthest && std::isfinite(farthest),
                    "depth limits must be numbers of meters, 0 <= nearest < farthest");
            self.setDepthLimits(nearest, farthest);
          },
          py::arg("nearest"), py::arg("farthest"),
          "setDepthLimits(self, nearest, farthest)\n--\n\nLimits of depth, meters.")
      .def(
          "setCloudRadius",
          [](VirtualCamera& self, int pixels) {
            require(pixels >= 0, "the cloud's radius must be a number of pixels, 0 or above");
            self.setCloudRadius(pixels);
          },
          py::arg("pixels"),
          "setCloudRadius(self, pixels)\n--\n\nLargest distance from the principal point in the clouds, rectified "
          "pixels.")
      .def(
          "setStream",
          [](VirtualCamera& self, int mode, double rate, int lastOctet) {
            require(mode >= -1 && mode <= 4, "the stream mode must be from -1 to 4");
            require(rate >= 0 && std::isfinite(rate), "the stream's rate must be a number, 0 or above");
            require(lastOctet >= 0 && lastOctet <= 255, "the last octet must be from 0 to 255");
            self.setStream(mode, rate, lastOctet);
          },
          py::arg("mode"), py::arg("rate"), py::arg("lastOctet"),
          R"(setStream(self, mode, rate, lastOctet)
--

What the network stream shows (-1 nothing, 0 to 4), the encoder's frames per second, the receiver's last octet. The
stream is opened only if `startCapture` requests it.)")
      .def(
          "latestDisparity",
          [](VirtualCamera& self) {
            StereoCamera::TimeFrame frame;
            {
              const Released released;
              frame = self.latestDisparity();
            }
            return timeFrame(std::move(frame));
          },
          R"(latestDisparity(self)
--

Copies of the view (rows x columns x 3, uint8) and the latest disparity (rows x columns, float32, pixels):
TimeFrame(first, second, timestamp). None before the first. Does not wait.)")
      .def("depthMode", &VirtualCamera::depthMode, "depthMode(self)\n--\n\nAs set.")
      .def("algorithm", &VirtualCamera::algorithm, "algorithm(self)\n--\n\nAs set.")
      .def("horizontalField", &VirtualCamera::horizontalField, "horizontalField(self)\n--\n\nDegrees.")
      .def("lonLatField", &VirtualCamera::lonLatField, "lonLatField(self)\n--\n\nDegrees.")
      .def("nearLimit", &VirtualCamera::nearLimit, "nearLimit(self)\n--\n\nNear limit of depth, meters.")
      .def("farLimit", &VirtualCamera::farLimit, "farLimit(self)\n--\n\nFar limit of depth, meters.")
      .def("cloudRadius", &VirtualCamera::cloudRadius, "cloudRadius(self)\n--\n\nRectified pixels.")
      .def(
          "rectFrameSize", [](const VirtualCamera& self) { return fromSize(self.rectFrameSize()); },
          "rectFrameSize(self)\n--\n\n(width, height) of one rectified eye, pixels.")
      .def("fisheyeRadius", &VirtualCamera::fisheyeRadius,
           "fisheyeRadius(self)\n--\n\nRadius of each eye's image circle, raw pixels.");
}

void bindSimulation(py::module_& module) {
  const SimulatedCamera::Options simulated;
  py::class_<SimulatedCamera, VirtualCamera, Overrides<SimulatedCamera>, Owner<SimulatedCamera>>(
      module, "SimulatedCamera",
      "A calibrated camera in a room of known geometry, ready for `startCapture` once constructed.")
      .def(madeFrom<SimulatedCamera>(&Keywords::simulated), py::kw_only(),
           py::arg("frameSize") = fromSize(simulated.frameSize), py::arg("rate") = simulated.rate,
           py::arg("seed") = simulated.seed, py::arg("moving") = simulated.moving, py::arg("period") = simulated.period,
           py::arg("framesPerPeriod") = simulated.framesPerPeriod, py::arg("ring") = simulated.ring,
           py::arg("rectFrameSize") = fromSize(simulated.rectFrameSize), py::arg("faults") = "",
           py::arg("conditions") = "",
           R"(__init__(self, *, frameSize=(1856, 800), rate=30.0, seed=1, moving=True, period=2.0, )"
           R"(framesPerPeriod=16, ring=True, rectFrameSize=(464, 400), faults='', conditions='')
--

`frameSize`: (1856, 800) or (928, 400) pixels; `rate`: frames per second, 0 as fast as possible; `seed`: of rig and
scene; `moving`: False for a scene without motion; its motion repeats after `period` seconds, shown in
`framesPerPeriod` frames; `ring`: keep these frames (4.5 MB each); `rectFrameSize`: one rectified eye, pixels;
`faults`: a fault script; `conditions`: what makes it hard, such as 'rich' or 'noise=3,poles=4'. Raises ValueError for
options out of range.)")
      .def("truth", &truthOf, py::arg("view") = "perspective", py::arg("time") = 0.0,
           R"(truth(self, view='perspective', time=0.0)
--

True depth for each pixel of the left eye's 'perspective' or 'lonLat' view at a scene time in seconds: Truth(depth,
distance, disparity, surface, occluded, seen).)")
      .def(
          "fillRing", [](const SimulatedCamera& self) { self.capture().fillRing(); }, py::call_guard<Released>(),
          "fillRing(self)\n--\n\nRenders the frames of a period in advance.")
      .def(
          "framesDelivered", [](const SimulatedCamera& self) { return self.capture().framesDelivered(); },
          "framesDelivered(self)\n--\n\nFrames delivered by the device so far.")
      .def(
          "framesMissed", [](const SimulatedCamera& self) { return self.capture().framesMissed(); },
          "framesMissed(self)\n--\n\nFrames that were due but not read in time.");

  const ReplayCamera::Options replay;
  py::class_<ReplayCamera, VirtualCamera, Overrides<ReplayCamera>, Owner<ReplayCamera>>(
      module, "ReplayCamera",
      "A camera that plays a recording of side-by-side frames. Load its calibration with `loadCalibParams`.")
      .def(
          madeFrom<ReplayCamera>(&Keywords::replay), py::arg("path"), py::kw_only(), py::arg("rate") = replay.rate,
          py::arg("loop") = replay.loop, py::arg("fisheyeRadius") = replay.fisheyeRadius,
          py::arg("rectFrameSize") = fromSize(replay.rectFrameSize), py::arg("recordedTiming") = replay.recordedTiming,
          R"(__init__(self, path, *, rate=30.0, loop=True, fisheyeRadius=-1, rectFrameSize=(464, 400), recordedTiming=False)
--

`path`: image, folder of images, video or recording; `rate`: frames per second, 0 as fast as possible; `loop`: start
over after the last frame; `fisheyeRadius`: of the image circle, raw pixels, negative to choose by the frame's size;
`rectFrameSize`: one rectified eye, pixels; `recordedTiming`: play a recording with its own timing, ignoring `rate`.
Raises RuntimeError if the path has no readable frame, ValueError for a negative rate.)")
      .def(
          "recordedStamp",
          [](const ReplayCamera& self) -> py::object {
            const std::int64_t timestamp = self.capture().recordedTimestamp();
            return timestamp < 0 ? py::object(py::none()) : py::int_(timestamp);
          },
          R"(recordedStamp(self)
--

Recorded timestamp of the frame delivered last, microseconds since 1970-01-01 UTC; None before the first frame, and
without recorded timestamps.)")
      .def(
          "finished", [](const ReplayCamera& self) { return self.capture().finished(); },
          "finished(self)\n--\n\nWhether a recording that isn't looped was played to its end.")
      .def(
          "framesDelivered", [](const ReplayCamera& self) { return self.capture().framesDelivered(); },
          "framesDelivered(self)\n--\n\nFrames delivered by the device so far.")
      .def(
          "framesMissed", [](const ReplayCamera& self) { return self.capture().framesMissed(); },
          "framesMissed(self)\n--\n\nFrames that were due but not read in time.");
}

}  // namespace stereo::python
