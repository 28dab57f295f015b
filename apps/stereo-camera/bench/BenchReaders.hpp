// SPDX-License-Identifier: Apache-2.0
// The three readers of a measured run, a thread each.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <string>
#include <thread>

#include "StereoCamera.hpp"
#include "apps/stereo-camera/observe/RunRecord.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"

namespace stereo::app {

/// Reads one kind of product repeatedly on a thread of its own, from construction until the camera is stopped.
class Reader {
public:
  /// Reads once; returns the timestamp of the result, system microseconds, or 0 if there was none.
  using Read = std::function<std::int64_t()>;

  Reader(std::string name, StereoCamera& camera, Read read);
  /// The camera must have released the reader: it was stopped.
  ~Reader() { end(); }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  const std::string& name() const { return m_name; }
  bool hasRead() const { return m_hasRead; }
  /// A read threw, which ended the thread.
  bool failed() const { return m_failed; }
  void askToEnd() { m_ending = true; }
  void end();
  /// Once ended: rethrows what a read threw.
  void check() const;
  /// Once ended.
  const BoundedList<Product>& products() const { return m_products; }

private:
  void loop();

  const std::string m_name;
  StereoCamera& m_camera;
  const Read m_read;
  BoundedList<Product> m_products{RunRecord::defaultCapacity};
  std::exception_ptr m_error;
  std::atomic<bool> m_hasRead{false};
  std::atomic<bool> m_failed{false};
  std::atomic<bool> m_ending{false};
  std::thread m_thread;  // last: it uses the others
};

/// The three readers of a measured run, on a `MeasuredCamera`. Stopping the camera ends them.
class Readers {
public:
  Readers(StereoCamera& camera, Watchdog& watch);
  ~Readers() { end(); }
  Readers(const Readers&) = delete;
  Readers& operator=(const Readers&) = delete;

  bool failed() const { return pair.failed() || depth.failed() || cloud.failed(); }
  /// The first that has read nothing yet; null if none.
  const Reader* waiting() const;
  /// Stops the camera, which releases waiting readers, and ends the readers.
  void end();
  /// Once ended: rethrows what a read threw.
  void check() const;

private:
  Watchdog& m_watch;

public:
  Reader pair;   ///< timestamps are those of the raw frames
  Reader depth;  ///< timestamps are those of the raw frames that woke the reader
  Reader cloud;  ///< timestamps are those of the disparities
};

}  // namespace stereo::app
