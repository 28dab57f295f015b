// SPDX-License-Identifier: Apache-2.0
// Binds the camera's members and its log.
#include <string>
#include <utility>

#include "SystemLog.hpp"
#include "model/RelaxedAccess.hpp"
#include "python/Arrays.hpp"
#include "python/Members.hpp"
#include "python/Module.hpp"
#include "python/Results.hpp"
#include "python/Source.hpp"

namespace stereo::python {

namespace {

// The camera's log; keeps the camera alive.
struct Log {
  SystemLog& log;
};

template <typename T>
void defNumber(CameraClass& camera, const char* name, T StereoCamera::*member, const char* doc) {
  camera.def_property(
      name, [member](const StereoCamera& self) { return loadRelaxed(self.*member); },
      [member](StereoCamera& self, T value) { storeRelaxed(self.*member, value); }, doc);
}

template <typename T>
void defNumber(CameraClass& camera, const char* name, std::atomic<T> StereoCamera::*member, const char* doc) {
  camera.def_property(
      name, [member](const StereoCamera& self) { return (self.*member).load(); },
      [member](StereoCamera& self, T value) { self.*member = value; }, doc);
}

void defSize(CameraClass& camera, const char* name, cv::Size StereoCamera::*member, const char* doc) {
  camera.def_property(
      name, [member](const StereoCamera& self) { return fromSize(loadRelaxed(self.*member)); },
      [member, name](StereoCamera& self, const py::object& size) { storeRelaxed(self.*member, toSize(size, name)); },
      doc);
}

void refuseWhileRunning(const StereoCamera& camera, const char* name) {
  if (camera.*(&Members::m_captureThread) != nullptr || camera.*(&Members::m_computeThread) != nullptr) {
    throw std::runtime_error(std::string(name) + " is read by the workers without a lock: set it before they start");
  }
}

// A matrix of the calibration, `rows` x `columns` or more.
void defMatrix(CameraClass& camera, const char* name, cv::Mat StereoCamera::*member, int rows, int columns,
               const char* doc) {
  camera.def_property(
      name, [member](const StereoCamera& self) { return matrixToArray(self.*member); },
      [=](StereoCamera& self, const py::object& value) {
        refuseWhileRunning(self, name);
        self.*member = wrapMatrix(value, name, rows, columns).image.clone();
      },
      doc);
}

using Maps = cv::Mat[2][2];

void defMaps(CameraClass& camera, const char* name, Maps StereoCamera::*member, const char* doc) {
  camera.def_property_readonly(
      name,
      [member](const StereoCamera& self) -> py::object {
        const Maps& maps = self.*member;
        if (maps[0][0].empty()) {
          return py::none();
        }
        const auto eye = [&](int i) { return py::make_tuple(copyToArray(maps[i][0]), copyToArray(maps[i][1])); };
        return py::make_tuple(eye(0), eye(1));
      },
      doc);
}

StereoCamera::TimeFrame copyOf(const StereoCamera::TimeFrame& frame) {
  return {frame.first.clone(), frame.second.clone(), frame.timestamp};
}

void defRawFrame(CameraClass& camera) {
  camera.def_property(
      "m_rawFrame",
      [](StereoCamera& self) {
        StereoCamera::TimeFrame frame;
        {
          const Released released;
          const std::lock_guard lock(self.*(&Members::m_frameMutex));
          frame = copyOf(self.*(&Members::m_rawFrame));
        }
        return timeFrame(std::move(frame));
      },
      [](StereoCamera& self, const py::object& value) {
        const py::sequence parts = requireElements(value, "m_rawFrame", 3);
        StereoCamera::TimeFrame frame{wrapImage(parts[0], "the left eye").image.clone(),
                                      wrapImage(parts[1], "the right eye").image.clone(),
                                      toTimestamp(parts[2], "m_rawFrame")};
        Companion::of(self).publishesFrames = true;
        const Released released;
        const std::lock_guard lock(self.*(&Members::m_frameMutex));
        StereoCamera::TimeFrame& published = self.*(&Members::m_rawFrame);
        published.first = frame.first;
        published.second = frame.second;
        storeRelaxed(published.timestamp, frame.timestamp);
        (self.*(&Members::m_frameCond)).notify_all();
      },
      "Latest left and right eye, a copy: TimeFrame(first, second, timestamp), None while there is none. Setting it "
      "publishes the images to readers if the timestamp is a new one. Takes m_frameMutex.");
}

void defDisparityFrame(CameraClass& camera) {
  camera.def_property(
      "m_disparityFrame",
      [](StereoCamera& self) {
        StereoCamera::TimeFrame frame;
        {
          const Released released;
          const std::lock_guard lock(self.*(&Members::m_disparityMutex));
          frame = copyOf(self.*(&Members::m_disparityFrame));
        }
        return timeFrame(std::move(frame));
      },
      [](StereoCamera& self, const py::object& value) {
        const py::sequence parts = requireElements(value, "m_disparityFrame", 3);
        StereoCamera::TimeFrame frame{wrapImage(parts[0], "the view").image.clone(),
                                      wrapDisparity(parts[1], "the disparity").image.clone(),
                                      toTimestamp(parts[2], "m_disparityFrame")};
        Companion::of(self).publishesDisparities = true;
        const Released released;
        // Colored depth reads the disparity under the frames' mutex. The two are never locked in the other order.
        const std::lock_guard disparityLock(self.*(&Members::m_disparityMutex));
        const std::lock_guard frameLock(self.*(&Members::m_frameMutex));
        StereoCamera::TimeFrame& published = self.*(&Members::m_disparityFrame);
        published.first = frame.first;
        published.second = frame.second;
        storeRelaxed(published.timestamp, frame.timestamp);
        (self.*(&Members::m_disparityCond)).notify_all();
      },
      "Latest view (rows x columns x 3, uint8) and disparity (rows x columns, float32, pixels), a copy: "
      "TimeFrame(first, second, timestamp), None while there is none. Setting it publishes it to readers of clouds if "
      "the "
      "timestamp is a new one. Takes m_disparityMutex, so don't use it in an override of getDepthFrame(disparity), "
      "which "
      "is called with that held.");
}

void defNumbers(CameraClass& camera) {
  defNumber(camera, "m_fisheyeRadius", &Members::m_fisheyeRadius, "Radius of each eye's image circle in raw pixels.");
  defNumber(camera, "m_algorithm", &Members::m_algorithm, "Matcher: 0 semi-global, 1 block matching, other none.");
  defNumber(camera, "m_logLevel", &Members::m_logLevel, "Level that the next log is made with.");
  defNumber(camera, "m_deviceNode", &Members::m_deviceNode, "Index of the video device.");
  defNumber(camera, "m_posNumber", &Members::m_posNumber, "Position of this camera on its machine.");
  defNumber(camera, "m_serialNumber", &Members::m_serialNumber, "Serial number of the camera.");
  defNumber(camera, "m_threshold", &Members::m_threshold,
            "Largest distance from the principal point in the clouds, rectified pixels.");
  defNumber(camera, "m_frameRate", &Members::m_frameRate,
            "Frames per second: as set, then as measured by each pass of the capture worker.");
  defNumber(camera, "m_ipLastSegment", &Members::m_ipLastSegment, "Last octet of the stream receiver's address.");
  defNumber(camera, "m_useShareMemory", &Members::m_useShareMemory, "Offer the left eye in shared memory.");
  defNumber(camera, "m_useTransmit", &Members::m_useTransmit, "Feed the network stream.");
  defNumber(camera, "m_isOpened", &Members::m_isOpened, "Device open; the capture worker runs while True.");
  defNumber(camera, "m_isComputing", &Members::m_isComputing, "The disparity worker runs while True.");
  defNumber(camera, "m_maxDepth", &Members::m_maxDepth, "Far limit of depth, meters.");
  defNumber(camera, "m_minDepth", &Members::m_minDepth,
            "Near limit of depth, meters; its number also cuts off disparities, pixels.");
  defNumber(camera, "m_transmode", &Members::m_transmode, "Stream mode, -1 (none) to 4.");
  defNumber(camera, "m_transrate", &Members::m_transrate, "Frames per second announced to the encoder.");
  defNumber(camera, "m_hFov", &Members::m_hFov, "Horizontal field of the perspective view, degrees.");
  defNumber(camera, "m_defaultHFov", &Members::m_defaultHFov, "Default of m_hFov, degrees.");
  defNumber(camera, "m_fisheyeFov", &Members::m_fisheyeFov, "Field of the lenses, degrees; for information.");
  defNumber(camera, "m_lonLatFov", &Members::m_lonLatFov, "Angular range of the longitude-latitude view, degrees.");
  defNumber(camera, "m_depthmode", &Members::m_depthmode, "Depth from the 1 longitude-latitude, 2 perspective pair.");
  defSize(camera, "m_rawFrameSize", &Members::m_rawFrameSize, "(width, height) of the side-by-side frame, pixels.");
  defSize(camera, "m_rectFrameSize", &Members::m_rectFrameSize, "(width, height) of one rectified eye, pixels.");
}

void defMatrices(CameraClass& camera) {
  defMatrix(camera, "m_leftXi", &Members::m_leftXi, 1, 1, "Mirror parameter, (1, 1) float64; a copy.");
  defMatrix(camera, "m_leftRotation", &Members::m_leftRotation, 3, 3, "Rectifying rotation, (3, 3) float64; a copy.");
  defMatrix(camera, "m_leftIntrinsic", &Members::m_leftIntrinsic, 3, 3,
            "Intrinsic matrix, (3, 3) float64, pixels; a copy.");
  defMatrix(camera, "m_leftDistortion", &Members::m_leftDistortion, 1, 4,
            "Distortion k1, k2, p1, p2, (1, 4) float64; a copy.");
  defMatrix(camera, "m_rightXi", &Members::m_rightXi, 1, 1, "As the left eye's.");
  defMatrix(camera, "m_rightRotation", &Members::m_rightRotation, 3, 3, "As the left eye's.");
  defMatrix(camera, "m_rightIntrinsic", &Members::m_rightIntrinsic, 3, 3, "As the left eye's.");
  defMatrix(camera, "m_rightDistortion", &Members::m_rightDistortion, 1, 4, "As the left eye's.");
  defMatrix(camera, "m_translation", &Members::m_translation, 1, 1,
            "Between the eyes, float64, millimeters; its norm is the baseline. A copy.");
  defMatrix(camera, "m_rectCameraMatrix", &Members::m_rectCameraMatrix, 3, 3,
            "Camera matrix of the perspective view, (3, 3) float64, pixels; a copy, empty before startCapture.");
  defMaps(
      camera, "m_rectifyMaps", &Members::m_rectifyMaps,
      "Perspective maps ((left columns, left rows), (right columns, right rows)), float32, pixels of the eye; copies, "
      "None before startCapture. Not while another thread starts.");
  defMaps(camera, "m_lonLatMaps", &Members::m_lonLatMaps, "Longitude-latitude maps, as m_rectifyMaps.");
}

void bindLog(py::module_& module) {
  py::class_<Log>(module, "SystemLog", "The log of a camera: progress on standard output, errors on standard error.")
      .def(
          "runTimeInfo", [](Log& self, const std::string& text) { self.log.runTimeInfo("%s", text.c_str()); },
          py::arg("text"), py::call_guard<Released>(),
          "runTimeInfo(self, text)\n--\n\nWrites a progress record; `text` should end with a newline.")
      .def(
          "runTimeError", [](Log& self, const std::string& text) { self.log.runTimeError("%s", text.c_str()); },
          py::arg("text"), py::call_guard<Released>(),
          "runTimeError(self, text)\n--\n\nWrites an error record; `text` should end with a newline.");
}

}  // namespace

void bindMembers(py::module_& module, CameraClass& camera) {
  bindLog(module);
  defNumbers(camera);
  defMatrices(camera);
  defRawFrame(camera);
  defDisparityFrame(camera);
  camera.def_property_readonly("m_log",
                               py::cpp_function(
                                   [](StereoCamera& self) -> py::object {
                                     SystemLog* const log = self.*(&Members::m_log);
                                     if (log == nullptr) {
                                       return py::none();
                                     }
                                     return py::cast(Log{*log});
                                   },
                                   py::keep_alive<0, 1>()),
                               "The log; None if it could not be made or the settings failed to load.");
  camera.def_property_readonly(
      "m_logName", [](const StereoCamera& self) { return self.*(&Members::m_logName); },
      "Name at the head of the log's records.");
  camera.def_property(
      "m_videoCapture", &sourceOf, [](StereoCamera& self, const py::object& source) { installSource(self, source); },
      "The frame source in Python, None for any other device. Setting it calls setVideoCapture.");
  camera.def_property_readonly(
      "m_captureThread", [](const StereoCamera& self) { return self.*(&Members::m_captureThread) != nullptr; },
      "Whether the capture worker is started and not stopped.");
  camera.def_property_readonly(
      "m_computeThread", [](const StereoCamera& self) { return self.*(&Members::m_computeThread) != nullptr; },
      "Whether the disparity worker is started and not stopped.");
}

}  // namespace stereo::python
