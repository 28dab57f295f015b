// SPDX-License-Identifier: Apache-2.0
#include "python/LimitedRead.hpp"

#include <algorithm>

#include "python/Camera.hpp"
#include "python/Members.hpp"

namespace stereo::python {

namespace {

// Practically forever; more would not fit the clock.
constexpr double mostSeconds = 1e9;

}  // namespace

LimitedRead::LimitedRead(StereoCamera& camera, Awaited awaited, const py::object& timeout)
    : m_camera(camera), m_awaited(awaited), m_stopsBefore(Companion::of(camera).stops) {
  if (timeout.is_none()) {
    return;
  }
  const double seconds = PyFloat_AsDouble(timeout.ptr());
  if (PyErr_Occurred() != nullptr) {
    throw py::error_already_set();
  }
  if (!(seconds >= 0)) {
    throw py::value_error("timeout must be a number of seconds from 0 on, or None");
  }
  m_end = Clock::now() +
          std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(std::min(seconds, mostSeconds)));
}

// On the reading thread, without the interpreter lock, while the read waits.
bool LimitedRead::mayGoOn(ReadLimit* outer) {
  if (m_isFirst && !m_end && outer == nullptr) {
    m_nobody = whyNobodyAnswers();
  }
  m_isFirst = false;
  if (!runSignalHandlers(m_error)) {
    return false;
  }
  m_isLate = m_end && Clock::now() >= *m_end;
  // A read inside an override has the time that the override's caller has.
  const bool outerMay = outer == nullptr || outer->mayGoOn();
  return m_nobody == nullptr && !m_isLate && outerMay;
}

// Why no result can ever come; null if one may.
const char* LimitedRead::whyNobodyAnswers() {
  const Companion& companion = Companion::of(m_camera);
  if (companion.isStartingOrStopping()) {
    return nullptr;  // a stop releases the read
  }
  if (m_awaited == Awaited::disparity) {
    const bool isComputed = m_camera.*(&Members::m_isComputing);
    return isComputed || companion.publishesDisparities
               ? nullptr
               : "nobody computes disparities: call startStereoCompute first, or give a timeout";
  }
  if (companion.publishesFrames) {
    return nullptr;
  }
  if (!(m_camera.*(&Members::m_isOpened))) {
    return "the camera is not open: no frame can come";
  }
  return m_camera.*(&Members::m_captureThread) == nullptr
             ? "nobody captures frames: call startCapture first, or give a timeout"
             : nullptr;
}

void LimitedRead::raiseWhatEndedIt(bool answer) {
  if (m_error.restore()) {
    throw py::error_already_set();
  }
  if (answer) {
    return;  // the result came after all
  }
  if (m_nobody != nullptr && Companion::of(m_camera).stops == m_stopsBefore) {
    throw std::runtime_error(m_nobody);
  }
  if (m_isLate) {
    PyErr_SetString(PyExc_TimeoutError,
                    m_awaited == Awaited::frame ? "no frame within the timeout" : "no disparity within the timeout");
    throw py::error_already_set();
  }
}

}  // namespace stereo::python
