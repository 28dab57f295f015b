// SPDX-License-Identifier: Apache-2.0
#include <filesystem>
#include <string>

#include <pybind11/stl/filesystem.h>

#include "python/Arrays.hpp"
#include "python/Members.hpp"
#include "python/Module.hpp"
#include "python/Overrides.hpp"
#include "python/Source.hpp"

namespace stereo::python {

namespace {

using Path = std::filesystem::path;

// Calls of Python come to the camera's own form: what a derived class in Python overrides, Python has found before, and
// `super()` means this form. What it calls through the virtual table reaches overrides again.

template <typename Setter>
auto setsNumber(Setter setter) {
  return [setter](StereoCamera& camera, int value) {
    const Released released;
    return setter(camera, value);
  };
}

template <typename Setter>
auto setsSize(Setter setter) {
  return [setter](StereoCamera& camera, const py::object& size) {
    const cv::Size pixels = toSize(size, "size");
    const Released released;
    return setter(camera, pixels);
  };
}

template <typename Use>
auto usesFile(Use use) {
  return [use](StereoCamera& camera, const Path& path) {
    const Released released;
    return use(camera, path.string());
  };
}

template <typename... Arguments>
auto makesCamera() {
  return py::init(
      [](Arguments... arguments) -> StereoCamera* {
        const Released released;
        return new Handle<StereoCamera>(arguments...);
      },
      [](Arguments... arguments) {
        const Released released;
        return new Overrides<StereoCamera>(arguments...);
      });
}

// Whether a class derived in Python has a rectified read of its own, which then feeds the disparity worker.
bool feedsItself(const py::object& self) {
  return !py::type::of(self).attr("getRectStereoFrame").is(py::type::of<StereoCamera>().attr("getRectStereoFrame"));
}

// Why there are no maps, and `startCapture` would build none; empty if it would. Without them the disparity worker's
// first frame ends the process.
std::string missingForMaps(const StereoCamera& camera) {
  using Matrix = cv::Mat StereoCamera::*;
  for (const Matrix matrix :
       {Matrix(&Members::m_translation), Matrix(&Members::m_leftXi), Matrix(&Members::m_leftRotation),
        Matrix(&Members::m_leftDistortion), Matrix(&Members::m_leftIntrinsic), Matrix(&Members::m_rightXi),
        Matrix(&Members::m_rightRotation), Matrix(&Members::m_rightIntrinsic), Matrix(&Members::m_rightDistortion)}) {
    if ((camera.*matrix).empty()) {
      return "there is no calibration: call loadCalibParams or setCalibParams before startCapture";
    }
  }
  const cv::Size size = camera.*(&Members::m_rectFrameSize);
  return size.empty() ? "there is no rectified size: call setRectFrameSize before startCapture" : "";
}

bool hasMaps(const StereoCamera& camera) { return !(camera.*(&Members::m_rectifyMaps))[0][0].empty(); }

// Raises RuntimeError where the disparity worker would end the process for want of maps. Within a start, so that no
// other changes them.
void requireMaps(const StereoCamera& camera, bool captureIsToStart) {
  if (hasMaps(camera)) {
    return;
  }
  std::string missing = missingForMaps(camera);
  if (missing.empty() && !captureIsToStart && camera.*(&Members::m_captureThread) != nullptr) {
    missing = "startCapture ran without calibration and rectified size: call it again";
  }
  if (!missing.empty()) {
    throw std::runtime_error(missing);
  }
}

void bindLife(CameraClass& camera) {
  camera
      .def(
          "startCapture",
          [](const py::object& self, bool useTransmit, bool useShareMemory) {
            auto& it = self.cast<StereoCamera&>();
            const bool needsMaps = !feedsItself(self);
            return oneAtATime(it, "startCapture", [&] {
              if (needsMaps && it.*(&Members::m_isComputing)) {
                requireMaps(it, true);
              }
              return it.StereoCamera::startCapture(useTransmit, useShareMemory);
            });
          },
          py::arg("useTransmit") = false, py::arg("useShareMemory") = false,
          R"(startCapture(self, useTransmit=False, useShareMemory=False)
--

Scales the intrinsic matrices to the raw frame, builds the maps (if there is a rectified size and a calibration) and
starts the capture worker. `useTransmit` asks for the network stream, `useShareMemory` for the shared-memory segment.
True. Raises Error for a malformed calibration, RuntimeError for a missing one while the disparity worker runs. Where the
segment cannot be had, the worker ends the process.)")
      .def(
          "startStereoCompute",
          [](const py::object& self) {
            auto& it = self.cast<StereoCamera&>();
            const bool needsMaps = !feedsItself(self);
            return oneAtATime(it, "startStereoCompute", [&] {
              if (needsMaps) {
                requireMaps(it, false);
              }
              return it.StereoCamera::startStereoCompute();
            });
          },
          R"(startStereoCompute(self)
--

Starts the disparity worker. True; False while one is running already. It wants maps, which `startCapture` builds from
calibration and rectified size. RuntimeError where these are missing, unless `getRectStereoFrame` is overridden.)")
      .def(
          "stopStereoCompute",
          [](StereoCamera& self) {
            return oneAtATime(self, "stopStereoCompute", [&] { return self.StereoCamera::stopStereoCompute(); });
          },
          R"(stopStereoCompute(self)
--

Ends the disparity worker and waits for it; reads that wait for a cloud return None. True. Any thread.)")
      .def(
          "stopCapture",
          [](StereoCamera& self) {
            return oneAtATime(self, "stopCapture", [&] { return self.StereoCamera::stopCapture(); });
          },
          R"(stopCapture(self)
--

Ends the capture worker and waits for it; reads that wait return None. True. Any thread but a worker, so a timer may
call it to end a read. A device read that goes on for two seconds is made to fail; a source in Python is told by its
`release`. Raises RuntimeError on one of the camera's workers.)")
      .def(
          "setVideoCapture", [](StereoCamera& self, const py::object& source) { installSource(self, source); },
          py::arg("source"), R"(setVideoCapture(self, source)
--

Makes a `VideoCapture` of one's own the camera's device, in place of the one that it has, and opens the camera. The
camera keeps a reference to it. Before `startCapture`; RuntimeError while the capture worker runs, TypeError for any
other object.)")
      .def(
          "__enter__", [](const py::object& self) { return self; }, "__enter__(self)\n--\n\nThe camera.")
      .def(
          "__exit__",
          [](const py::object& self, const py::args&) {
            self.attr("stopStereoCompute")();
            self.attr("stopCapture")();
          },
          "__exit__(self, *args)\n--\n\nStops both workers.");
}

void bindFiles(CameraClass& camera) {
  camera
      .def("loadConfig",
           usesFile([](StereoCamera& c, const std::string& path) { return c.StereoCamera::loadConfig(path); }),
           py::arg("path"), R"(loadConfig(self, path)
--

Reads the settings file (YAML, XML or JSON, told by its content; compressed, if it is named ".gz"). Values out of range
are replaced with a message on standard error. False, with a message, if the file cannot be read or names no device.)")
      .def("loadCalibParams",
           usesFile([](StereoCamera& c, const std::string& path) { return c.StereoCamera::loadCalibParams(path); }),
           py::arg("fileName"), R"(loadCalibParams(self, fileName)
--

Reads the calibration file, of the same kinds. False if a value is missing or, with a message on standard error, if the
file is malformed. Before `startCapture`.)")
      .def("saveConfig",
           usesFile([](StereoCamera& c, const std::string& path) { return c.StereoCamera::saveConfig(path); }),
           py::arg("path"), R"(saveConfig(self, path)
--

Writes the settings, replacing the file. The "FrameRate" key gets the serial number; field of view, stream rate, stream
mode and depth mode are not written. Whether the file could be opened is not told.)")
      .def("saveCalibParams",
           usesFile([](StereoCamera& c, const std::string& path) { return c.StereoCamera::saveCalibParams(path); }),
           py::arg("fileName"), R"(saveCalibParams(self, fileName)
--

Writes the calibration as it stands (scaled by each `startCapture` that built maps), replacing the file. Whether the
file could be opened is not told.)")
      .def(
          "setCalibParams",
          [](StereoCamera& self, const py::object& params, bool isRight) {
            std::vector<cv::Mat> matrices = toCalibration(params);
            const Released released;
            return self.StereoCamera::setCalibParams(std::move(matrices), isRight);
          },
          py::arg("params"), py::arg("isRight"), R"(setCalibParams(self, params, isRight)
--

Sets one eye's calibration and the translation from five float64 arrays: intrinsic matrix (3, 3) for a raw frame 1856
pixels wide, distortion (4,) or (1, 4): k1, k2, p1, p2, xi (1, 1), rectifying rotation (3, 3), translation (3,) or (3,
1) in millimetres. They are copied; further ones are ignored. False, with a report and nothing changed, for fewer than
five. TypeError or ValueError for other types and shapes. Before `startCapture`.)")
      .def(
          "getCalibParams",
          [](StereoCamera& self, bool isRight) {
            std::vector<cv::Mat> matrices;
            self.StereoCamera::getCalibParams(matrices, isRight);
            py::list arrays;
            for (const cv::Mat& matrix : matrices) {
              arrays.append(matrixToArray(matrix));
            }
            return arrays;
          },
          py::arg("isRight"), R"(getCalibParams(self, isRight)
--

Copies of the six matrices (float64): intrinsic matrix (3, 3) in pixels, distortion (1, 4), xi (1, 1), rotation (3, 3),
translation in millimetres, camera matrix of the perspective view (3, 3; empty before the first `startCapture`). The
intrinsic matrix is scaled to the raw frame by each `startCapture` that builds maps.)");
}

void bindNumbers(CameraClass& camera) {
  camera
      .def(
          "isOpened", [](StereoCamera& self) { return self.StereoCamera::isOpened(); },
          "isOpened(self)\n--\n\nWhether the device is open and the camera not yet stopped.")
      .def("setLogLevel", setsNumber([](StereoCamera& c, int level) { return c.StereoCamera::setLogLevel(level); }),
           py::arg("level"), R"(setLogLevel(self, level)
--

Stores the level, which `getLogLevel` and `saveConfig` report; the live log keeps its own. False for a negative
level.)")
      .def("setPosNumber", setsNumber([](StereoCamera& c, int n) { return c.StereoCamera::setPosNumber(n); }),
           py::arg("posNumber"), R"(setPosNumber(self, posNumber)
--

Position n of this camera on its machine: shared-memory key 9000 + n, stream port 9200 + n. True.)")
      .def("setSerialNumber", setsNumber([](StereoCamera& c, int n) { return c.StereoCamera::setSerialNumber(n); }),
           py::arg("serialNumber"), "setSerialNumber(self, serialNumber)\n--\n\nSerial number of the camera. True.")
      .def("setRawFrameRate",
           setsNumber([](StereoCamera& c, int rate) { return c.StereoCamera::setRawFrameRate(rate); }),
           py::arg("framesPerSecond"), R"(setRawFrameRate(self, framesPerSecond)
--

Raw frames per second, told to the device. False if there is none (the rate is stored all the same).)")
      .def("setRawFrameSize", setsSize([](StereoCamera& c, cv::Size s) { return c.StereoCamera::setRawFrameSize(s); }),
           py::arg("size"), R"(setRawFrameSize(self, size)
--

(width, height) of the side-by-side frame, (1856, 800) or (928, 400) pixels; any other is refused with a report. Sets
device and radius of the image circle: without it all but one pixel of each eye is black. False if refused or without
a device. Before `startCapture`.)")
      .def("setRectFrameSize",
           setsSize([](StereoCamera& c, cv::Size s) { return c.StereoCamera::setRectFrameSize(s); }), py::arg("size"),
           R"(setRectFrameSize(self, size)
--

(width, height) of one rectified eye in pixels; the maps follow at the next `startCapture`. False for a width of 0.)")
      .def(
          "getLogLevel", [](const StereoCamera& self) { return self.StereoCamera::getLogLevel(); },
          "getLogLevel(self)\n--\n\nLevel of the log as stored.")
      .def(
          "getDeviceNode", [](const StereoCamera& self) { return self.StereoCamera::getDeviceNode(); },
          "getDeviceNode(self)\n--\n\nIndex of the video device.")
      .def(
          "getPosNumber", [](const StereoCamera& self) { return self.StereoCamera::getPosNumber(); },
          "getPosNumber(self)\n--\n\nPosition of this camera on its machine.")
      .def(
          "getSerialNumber", [](const StereoCamera& self) { return self.StereoCamera::getSerialNumber(); },
          "getSerialNumber(self)\n--\n\nSerial number of the camera.")
      .def(
          "getRawFrameRate", [](const StereoCamera& self) { return self.StereoCamera::getRawFrameRate(); },
          R"(getRawFrameRate(self)
--

Frames per second: as set, and once the capture worker runs the rate that its last pass took.)")
      .def(
          "getRawFrameSize", [](const StereoCamera& self) { return fromSize(self.StereoCamera::getRawFrameSize()); },
          R"(getRawFrameSize(self)
--

(width, height) in pixels; once the capture worker has warmed up, the size that the device really delivers.)");
}

}  // namespace

CameraClass bindCamera(py::module_& module) {
  // pybind11 makes an `Overrides` where the class was derived in Python.
  py::class_<StereoCamera, Overrides<StereoCamera>, Owner<StereoCamera>> camera(module, "StereoCamera",
                                                                                R"(A stereo fisheye camera.

Life of a camera: construct, check `isOpened`, `loadCalibParams`, `setRawFrameSize`, `setRectFrameSize`, `startCapture`,
`startStereoCompute` for depth, then read; `stopStereoCompute`, `stopCapture`. As a context manager it stops its workers
at the end; one that is dropped while they run stops them too, which waits for them. A camera that was stopped cannot be
started again.

One thread configures and starts. Reads may come from any number of threads at once; each waits for the next result
and returns None once the camera is stopped. Ctrl-C and other signals end a read, and
`timeout` limits it.

Classes derived in Python may override every operation; the workers call `getPosNumber`, `getStereoFrame`,
`getRectStereoFrame` and `getDepthFrame`. The members `m_...` are for them.)");
  camera.def(makesCamera<>(), R"(__init__(self, *args, **kwargs)
--

(deviceNode=0): opens that video device as it stands. `NO_DEVICE` opens none.

(settingsPath), str or os.PathLike: loads the settings file and opens the device that it names; where the file cannot be
loaded, the camera stays closed.)");
  camera.def(makesCamera<int>(), py::arg("deviceNode"));
  camera.def(py::init(
                 [](const Path& path) -> StereoCamera* {
                   const Released released;
                   return new Handle<StereoCamera>(path.string());
                 },
                 [](const Path& path) {
                   const Released released;
                   return new Overrides<StereoCamera>(path.string());
                 }),
             py::arg("settingsPath"));
  CameraClass asClass = py::reinterpret_borrow<CameraClass>(camera);
  bindNumbers(asClass);
  bindFiles(asClass);
  bindLife(asClass);
  return asClass;
}

}  // namespace stereo::python
