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

/// Runs the handlers of signals that came for the interpreter, on its main thread; on any other there are none. From
/// inside a `Released`. False if one raised: the exception is set on this thread, for when the lock is taken again.
bool runSignalHandlers();

/// Whether the calling thread is a worker of any camera that has called Python.
bool isWorkerThread();
/// Whether it is a worker of this camera.
bool isWorkerOf(const StereoCamera* camera);

/// Reports an exception that has no caller to go to, by `sys.unraisablehook`; `where` is named in the report. To be
/// called in a handler of whatever Python and the conversions throw, with the interpreter lock held; rethrows what is
/// no exception of theirs.
void reportUnraisable(py::handle where);

}  // namespace stereo::python
