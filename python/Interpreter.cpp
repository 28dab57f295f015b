// SPDX-License-Identifier: Apache-2.0
#include "python/Interpreter.hpp"

#include <cxxabi.h>
#include <unistd.h>

#include <utility>

namespace stereo::python {

namespace {

// State of this thread between Python and the cameras' code.
thread_local int callsFromPython = 0;  // live `Released` since Python was last entered
thread_local bool onWorker = false;    // Python was entered, but did not call the camera on this thread
thread_local const StereoCamera* cameraOfThread = nullptr;  // whose worker, if known

// Takes the interpreter lock. If the interpreter is gone, Python ends a daemon thread right there by unwinding our
// stack frames, whose objects cannot be destroyed without the lock. So the thread stays here until the process ends.
template <typename Take>
void orStay(const Take& take) {
  try {
    take();
  } catch (const abi::__forced_unwind&) {
    while (true) {
      pause();
    }
  }
}

}  // namespace

Released::Released() : m_state(PyEval_SaveThread()) { ++callsFromPython; }

Released::~Released() {
  orStay([this] { PyEval_RestoreThread(m_state); });
  --callsFromPython;
}

PendingError::~PendingError() {
  Py_XDECREF(m_type);
  Py_XDECREF(m_value);
  Py_XDECREF(m_trace);
}

void PendingError::take() {
  if (m_type == nullptr) {
    PyErr_Fetch(&m_type, &m_value, &m_trace);
  } else {
    PyErr_Clear();
  }
}

bool PendingError::restore() {
  if (m_type == nullptr) {
    return false;
  }
  PyErr_Restore(std::exchange(m_type, nullptr), std::exchange(m_value, nullptr), std::exchange(m_trace, nullptr));
  return true;
}

bool runSignalHandlers(PendingError& error) {
  if (!Entered::isPossible()) {
    return true;
  }
  bool isFine = true;
  orStay([&] {
    const PyGILState_STATE state = PyGILState_Ensure();
    isFine = PyErr_CheckSignals() == 0;
    if (!isFine) {
      error.take();
    }
    PyGILState_Release(state);
  });
  return isFine;
}

bool Entered::isPossible() { return Py_IsInitialized() != 0 && _Py_IsFinalizing() == 0; }

Entered::Entered(const StereoCamera* camera)
    : m_outerCalls(callsFromPython), m_place{callsFromPython, cameraOfThread, onWorker} {
  if (m_outerCalls == 0) {
    onWorker = true;
    cameraOfThread = camera;
  }
  callsFromPython = 0;
}

Entered::~Entered() = default;

Entered::Place::~Place() {
  callsFromPython = calls;
  cameraOfThread = worker;
  onWorker = isWorker;
}

bool isWorkerThread() { return onWorker; }

bool isWorkerOf(const StereoCamera* camera) { return onWorker && cameraOfThread == camera; }

void reportUnraisable(py::handle where) {
  try {
    throw;
  } catch (py::error_already_set& error) {
    error.restore();
  } catch (const py::builtin_exception& error) {
    error.set_error();
  }
  PyErr_WriteUnraisable(where.ptr());
}

}  // namespace stereo::python
