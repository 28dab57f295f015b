// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <pybind11/pybind11.h>

class StereoCamera;

namespace stereo::python {

namespace py = pybind11;

/// Out of Python: releases the interpreter lock while it lives. All of the camera's operations run inside one, for each
/// of them waits, takes one of the camera's mutexes or may call an override, and the workers want the lock meanwhile.
class Released {
public:
  Released();
  ~Released();
  Released(const Released&) = delete;
  Released& operator=(const Released&) = delete;

private:
  PyThreadState* m_state;
};

/// Into Python, from the camera's code: holds the interpreter lock while it lives. To be entered only if `isPossible`.
class Entered {
public:
  /// False once the interpreter is going away: who then asks for its lock never gets it.
  static bool isPossible();

  /// `camera` is the one whose code this is; null where that isn't known.
  explicit Entered(const StereoCamera* camera);
  ~Entered();
  Entered(const Entered&) = delete;
  Entered& operator=(const Entered&) = delete;

  /// Whether the camera's code was itself called from Python, on this thread. Exceptions go to that caller then;
  /// otherwise this is a worker, and there is nobody to catch them.
  bool isCalledFromPython() const { return m_outerCalls > 0; }

private:
  // Restored after the lock is given back: dropping the thread's state may run destructors, on a worker as ever.
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

/// An exception that waits for its thread to be back in Python: set meanwhile, it would be in the way of whatever
/// enters Python first. Given up with the interpreter lock held.
class PendingError {
public:
  PendingError() = default;
  ~PendingError();
  PendingError(const PendingError&) = delete;
  PendingError& operator=(const PendingError&) = delete;

  /// Takes the exception that is set, if there is none yet. Interpreter lock held.
  void take();
  /// Sets it again; false if there is none. Interpreter lock held.
  bool restore();

private:
  PyObject* m_type = nullptr;
  PyObject* m_value = nullptr;
  PyObject* m_trace = nullptr;
};

/// Runs the handlers of signals that came for the interpreter, on its main thread; on any other there are none. From
/// inside a `Released`. False if one raised, now or before: `error` has the exception.
bool runSignalHandlers(PendingError& error);

/// Whether the calling thread is a worker of any camera that has called Python.
bool isWorkerThread();
/// Whether it is a worker of this camera.
bool isWorkerOf(const StereoCamera* camera);

/// Reports an exception that has no caller to go to, by `sys.unraisablehook`; `where` is named in the report. To be
/// called in a handler of whatever Python and the conversions throw, with the interpreter lock held; rethrows what is
/// no exception of theirs.
void reportUnraisable(py::handle where);

}  // namespace stereo::python
