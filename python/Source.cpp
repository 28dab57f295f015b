// SPDX-License-Identifier: Apache-2.0
#include "python/Source.hpp"

#include <chrono>
#include <utility>

#include "python/Camera.hpp"
#include "python/Members.hpp"

namespace stereo::python {

namespace {

constexpr std::chrono::milliseconds restAfterFailure{10};

// Calls the object on behalf of the camera. Exceptions go to Python if it called the camera; otherwise they go to
// `sys.unraisablehook` and the result is `failure`.
template <typename Result, typename Call>
Result ask(const StereoCamera* camera, const py::object& source, Result failure, const Call& call) {
  if (!Entered::isPossible()) {
    return failure;
  }
  const Entered entered(camera);
  try {
    return call();
  } catch (...) {
    if (entered.isCalledFromPython()) {
      throw;
    }
    reportUnraisable(source);
  }
  return failure;
}

}  // namespace

SourceAdapter::SourceAdapter(py::object source) : m_source(std::move(source)) {
  if (!py::isinstance<PythonSource>(m_source)) {
    throw py::type_error(std::string("a frame source must be derived from stereo_camera.VideoCapture; this is ") +
                         Py_TYPE(m_source.ptr())->tp_name);
  }
}

SourceAdapter::~SourceAdapter() {
  if (Entered::isPossible()) {
    const Entered entered(m_camera);
    m_source = py::object();
  } else {
    m_source.release();  // leaked, since the interpreter is ending
  }
}

bool SourceAdapter::readFrame(cv::OutputArray image) {
  const Entered entered(m_camera);
  try {
    const py::object frame = m_source.attr("read")();
    if (frame.is_none()) {
      return false;
    }
    const Wrapped wrapped = wrapImage(frame, "the frame");
    const py::gil_scoped_release released;
    wrapped.image.copyTo(image);
    return true;
  } catch (...) {
    reportUnraisable(m_source);
  }
  return false;
}

bool SourceAdapter::read(cv::OutputArray image) {
  if (Entered::isPossible() && readFrame(image)) {
    return true;
  }
  image.release();
  std::unique_lock lock(m_mutex);
  m_released.wait_for(lock, restAfterFailure, [this] { return m_isReleased; });
  return false;
}

bool SourceAdapter::set(int propId, double value) {
  return ask(m_camera, m_source, false, [&] { return m_source.attr("set")(propId, value).cast<bool>(); });
}

double SourceAdapter::get(int propId) const {
  return ask(m_camera, m_source, 0.0, [&] { return m_source.attr("get")(propId).cast<double>(); });
}

bool SourceAdapter::isOpened() const {
  return ask(m_camera, m_source, false, [&] { return m_source.attr("isOpened")().cast<bool>(); });
}

void SourceAdapter::release() {
  {
    const std::lock_guard lock(m_mutex);
    m_isReleased = true;
  }
  m_released.notify_all();
  if (!Entered::isPossible()) {
    return;
  }
  const Entered entered(m_camera);
  try {
    m_source.attr("release")();
  } catch (...) {
    reportUnraisable(m_source);  // not to the caller, so that a stop continues
  }
}

void installSource(StereoCamera& camera, const py::object& source) {
  auto adapter = std::make_unique<SourceAdapter>(source);
  adapter->attach(&camera);
  oneAtATime(camera, "setVideoCapture", [&] {
    if (camera.*(&Members::m_captureThread) != nullptr) {
      throw std::runtime_error("the capture worker runs: set the frame source before startCapture");
    }
    cv::VideoCapture*& device = camera.*(&Members::m_videoCapture);
    delete device;
    device = adapter.release();
    camera.*(&Members::m_isOpened) = true;
  });
}

py::object sourceOf(StereoCamera& camera) {
  const auto* const adapter = dynamic_cast<const SourceAdapter*>(camera.*(&Members::m_videoCapture));
  return adapter != nullptr ? adapter->source() : py::none();
}

void bindSource(py::module_& module) {
  py::class_<PythonSource>(module, "VideoCapture",
                           R"(Base class of frame sources, for `StereoCamera.setVideoCapture`.

Override `read`, and the rest as needed. The camera holds a reference to the source and calls it from its capture worker
(`read`), from a stop (`release`) and from the thread that sets size and rate (`set`).)")
      .def(py::init<>(), "__init__(self)\n--\n\nAn open source.")
      .def(
          "read",
          [](const py::object& self) -> py::object {
            PyErr_SetString(PyExc_NotImplementedError,
                            (std::string(Py_TYPE(self.ptr())->tp_name) + " has no read()").c_str());
            throw py::error_already_set();
          },
          R"(read(self)
--

Returns the next frame: rows x columns x 3, uint8, BGR, both eyes side by side; it is copied. None if there is none now.

Must be overridden. The capture worker calls it repeatedly, pausing only for 10 ms after None or an exception, so it
sets the pace: wait for the frame in here. Exceptions are reported by `sys.unraisablehook` and count as None. It must
return once `release` was called, otherwise a stop waits forever.)")
      .def(
          "set", [](PythonSource&, int, double) { return false; }, py::arg("propId"), py::arg("value"),
          R"(set(self, propId, value)
--

Requests a property by OpenCV's number (3: width, 4: height of the whole frame in pixels, 5: frames per second). Returns
whether it was accepted, which the camera ignores; by default False.)")
      .def(
          "get", [](PythonSource&, int) { return 0.0; }, py::arg("propId"),
          "get(self, propId)\n--\n\nA property by OpenCV's number; 0 by default.")
      .def("isOpened", &PythonSource::isOpened, "isOpened(self)\n--\n\nWhether `release` was not called.")
      .def("release", &PythonSource::release, R"(release(self)
--

Called when no more frames are needed, from the thread that stops the camera, while another may be inside `read`. An
override must make that return.)");
}

}  // namespace stereo::python
