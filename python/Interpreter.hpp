// SPDX-License-Identifier: Apache-2.0
// The interpreter lock, exceptions and signals.
#pragma once

#include <pybind11/pybind11.h>

class StereoCamera;

namespace stereo::python {

namespace py = pybind11;

/// Leaves Python: releases the interpreter lock while it lives. All of the camera's operations run inside one, since
/// each waits, takes one of the camera's mutexes or may call an override, and the workers need the lock meanwhile.
class Released {
public:
  Released();
  ~Released();
  Released(const Released&) = delete;
  Released& operator=(const Released&) = delete;

private:
  PyThreadState* m_state;
};

/// Enters Python from the camera's code: holds the interpreter lock while it lives. Only if `isPossible`.
class Entered {
public:
  /// False once the interpreter is ending: its lock is then never granted.
  static bool isPossible();

  /// `camera`: the one whose code this is; null if unknown.
  explicit Entered(const StereoCamera* camera);
  ~Entered();
  Entered(const Entered&) = delete;
  Entered& operator=(const Entered&) = delete;

  /// Whether the camera's code was itself called from Python on this thread. Then exceptions go to that caller;
  /// otherwise this is a worker, and nobody catches them.
  bool isCalledFromPython() const { return m_outerCalls > 0; }

private:
  // Restored after the lock is released, since dropping the thread's state may run destructors, still on a worker.
  struct Place {
    ~Place();
    int calls;
    const StereoCamera* worker;
    bool isWorker;
  };
  const int m_outerCalls;
  Place m_place;
  py::gil_scoped_acquire m_acquire;
};

/// An exception kept until its thread is back in Python; if it stayed set, it would disturb whatever enters Python
/// first. Destroyed with the interpreter lock held.
class PendingError {
public:
  PendingError() = default;
  ~PendingError();
  PendingError(const PendingError&) = delete;
  PendingError& operator=(const PendingError&) = delete;

  /// Takes the current exception, unless it already has one. Interpreter lock held.
  void take();
  /// Sets it again; false if there is none. Interpreter lock held.
  bool restore();

private:
  PyObject* m_type = nullptr;
  PyObject* m_value = nullptr;
  PyObject* m_trace = nullptr;
};

/// Runs the interpreter's pending signal handlers if this is its main thread. Called inside a `Released`. False if a
/// handler raised, now or before; `error` has the exception.
bool runSignalHandlers(PendingError& error);

/// Whether the calling thread is a camera's worker that has called Python.
bool isWorkerThread();
/// Whether it is a worker of this camera.
bool isWorkerOf(const StereoCamera* camera);

/// Reports an exception that has no caller through `sys.unraisablehook`; the report names `where`. Call it in a
/// catch-all handler with the interpreter lock held; rethrows what neither Python nor the conversions throw.
void reportUnraisable(py::handle where);

}  // namespace stereo::python
