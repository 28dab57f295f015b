// SPDX-License-Identifier: Apache-2.0
// Binds the camera class: construction, files, setters, starts and stops.
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

// Calls from Python reach the camera's own form: Python itself has already found an override, and `super()` means this
// form. Calls that it makes through the virtual table reach overrides again.

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

// Whether a class derived in Python overrides the rectified read, which then feeds the disparity worker.
bool feedsItself(const py::object& self) {
  return !py::type::of(self).attr("getRectStereoFrame").is(py::type::of<StereoCamera>().attr("getRectStereoFrame"));
}

// Why `startCapture` would build no maps; empty if it would. Without maps the disparity worker's first frame ends the
// process.
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

// Raises RuntimeError if the disparity worker would end the process for lack of maps. Called within a start, so that no
// other start changes them.
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
starts the capture worker. `useTransmit` requests the network stream, `useShareMemory` the shared-memory segment.
Returns True. Raises Error for a malformed calibration, RuntimeError for a missing one while the disparity worker
runs. If the segment cannot be made, the worker ends the process.)")
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

Starts the disparity worker. Returns True, or False if one is running already. It needs maps, which `startCapture`
builds from calibration and rectified size. Raises RuntimeError if these are missing, unless `getRectStereoFrame` is
overridden.)")
      .def(
          "stopStereoCompute",
          [](StereoCamera& self) {
            return oneAtATime(self, "stopStereoCompute", [&] { return self.StereoCamera::stopStereoCompute(); });
          },
          R"(stopStereoCompute(self)
--

Ends the disparity worker and waits for it; waiting reads of clouds return None. Returns True. Any thread.)")
      .def(
          "stopCapture",
          [](StereoCamera& self) {
            return oneAtATime(self, "stopCapture", [&] { return self.StereoCamera::stopCapture(); });
          },
          R"(stopCapture(self)
--

Ends the capture worker and waits for it; waiting reads return None. Returns True. Any thread but a worker, so a timer
may call it to end a read. A device read that goes on for two seconds is made to fail; for a source in Python, its
`release` is called. Raises RuntimeError on one of the camera's workers.)")
      .def(
          "setVideoCapture", [](StereoCamera& self, const py::object& source) { installSource(self, source); },
          py::arg("source"), R"(setVideoCapture(self, source)
--

Replaces the camera's device by an object derived from `VideoCapture` and opens the camera, which keeps a reference to
it. Call it before `startCapture`; raises RuntimeError while the capture worker runs, TypeError for any other object.)")
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

Reads the settings file (YAML, XML or JSON, recognized by content; compressed if the name ends in ".gz"). Values out of
range are replaced, with a message on standard error. Returns False, with a message, if the file cannot be read or names
no device.)")
      .def("loadCalibParams",
           usesFile([](StereoCamera& c, const std::string& path) { return c.StereoCamera::loadCalibParams(path); }),
           py::arg("fileName"), R"(loadCalibParams(self, fileName)
--

Reads the calibration file, in the same formats. Returns False if a value is missing or, with a message on standard
error, if the file is malformed. Call it before `startCapture`.)")
      .def("saveConfig",
           usesFile([](StereoCamera& c, const std::string& path) { return c.StereoCamera::saveConfig(path); }),
           py::arg("path"), R"(saveConfig(self, path)
--

Writes the settings, replacing the file. The "FrameRate" key gets the serial number; field of view, stream rate, stream
mode and depth mode are not written. Does not report whether the file could be opened.)")
      .def("saveCalibParams",
           usesFile([](StereoCamera& c, const std::string& path) { return c.StereoCamera::saveCalibParams(path); }),
           py::arg("fileName"), R"(saveCalibParams(self, fileName)
--

Writes the current calibration (scaled by each `startCapture` that built maps), replacing the file. Does not report
whether the file could be opened.)")
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
1) in millimeters. They are copied; further ones are ignored. With fewer than five, returns False with a message and
changes nothing. Raises TypeError or ValueError for other types and shapes. Call it before `startCapture`.)")
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
translation in millimeters, camera matrix of the perspective view (3, 3; empty before the first `startCapture`). The
intrinsic matrix is scaled to the raw frame by each `startCapture` that builds maps.)");
}

void bindNumbers(CameraClass& camera) {
  camera
      .def(
          "isOpened", [](StereoCamera& self) { return self.StereoCamera::isOpened(); },
          "isOpened(self)\n--\n\nWhether the device is open and the camera not stopped.")
      .def("setLogLevel", setsNumber([](StereoCamera& c, int level) { return c.StereoCamera::setLogLevel(level); }),
           py::arg("level"), R"(setLogLevel(self, level)
--

Stores the level for `getLogLevel` and `saveConfig`; the live log keeps its own. Returns False for a negative level.)")
      .def("setPosNumber", setsNumber([](StereoCamera& c, int n) { return c.StereoCamera::setPosNumber(n); }),
           py::arg("posNumber"), R"(setPosNumber(self, posNumber)
--

Position n of this camera on its machine: shared-memory key 9000 + n, stream port 9200 + n. Returns True.)")
      .def("setSerialNumber", setsNumber([](StereoCamera& c, int n) { return c.StereoCamera::setSerialNumber(n); }),
           py::arg("serialNumber"),
           "setSerialNumber(self, serialNumber)\n--\n\nSerial number of the camera. Returns True.")
      .def("setRawFrameRate",
           setsNumber([](StereoCamera& c, int rate) { return c.StereoCamera::setRawFrameRate(rate); }),
           py::arg("framesPerSecond"), R"(setRawFrameRate(self, framesPerSecond)
--

Raw frames per second, stored and sent to the device. Returns False without a device.)")
      .def("setRawFrameSize", setsSize([](StereoCamera& c, cv::Size s) { return c.StereoCamera::setRawFrameSize(s); }),
           py::arg("size"), R"(setRawFrameSize(self, size)
--

(width, height) of the side-by-side frame, (1856, 800) or (928, 400) pixels; any other is refused with a message. Sets
the device and the radius of the image circle; without it, all but one pixel of each eye is black. Returns False if
refused or without a device. Call it before `startCapture`.)")
      .def("setRectFrameSize",
           setsSize([](StereoCamera& c, cv::Size s) { return c.StereoCamera::setRectFrameSize(s); }), py::arg("size"),
           R"(setRectFrameSize(self, size)
--

(width, height) of one rectified eye in pixels; used by the next `startCapture`. Returns False for a width of 0.)")
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

Frames per second: as set, and once the capture worker runs, the rate of its latest pass.)")
      .def(
          "getRawFrameSize", [](const StereoCamera& self) { return fromSize(self.StereoCamera::getRawFrameSize()); },
          R"(getRawFrameSize(self)
--

(width, height) in pixels; after the capture worker's warm-up, the size that the device really delivers.)");
}

}  // namespace

CameraClass bindCamera(py::module_& module) {
  // pybind11 makes an `Overrides` if the class was derived in Python.
  py::class_<StereoCamera, Overrides<StereoCamera>, Owner<StereoCamera>> camera(module, "StereoCamera",
                                                                                R"(A stereo fisheye camera.

In order: construct, check `isOpened`, `loadCalibParams`, `setRawFrameSize`, `setRectFrameSize`, `startCapture`,
`startStereoCompute` for depth, read, `stopStereoCompute`, `stopCapture`. As a context manager it stops its workers at
the end; when the last reference goes, it stops them too and waits for them. A stopped camera cannot be started again.

One thread configures and starts. Any number of threads may read at once; each read waits for the next result and
returns None once the camera is stopped. Ctrl-C and other signals end a read, and `timeout` limits it.

Classes derived in Python may override every operation; the workers call `getPosNumber`, `getStereoFrame`,
`getRectStereoFrame` and `getDepthFrame`. The members `m_...` are for them.)");
  camera.def(makesCamera<>(), R"(__init__(self, *args, **kwargs)
--

(deviceNode=0): opens that video device with its current settings. `NO_DEVICE` opens none.

(settingsPath), str or os.PathLike: loads the settings file and opens the device that it names; if the file cannot be
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
