// SPDX-License-Identifier: Apache-2.0
// The readers of a measured run, a thread each.
#pragma once

#include <atomic>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "StereoCamera.hpp"
#include "apps/stereo-camera/observe/RunRecord.hpp"
#include "apps/stereo-camera/pictures/WideResults.hpp"
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

/// The readers of a measured run, on a `MeasuredCamera`: of the rectified pair and of the class's depth and cloud, or
/// of wide depth instead of these two. Stopping the camera ends them.
class Readers {
public:
  /// `wide`: null for the class's depth; else it is used by a reader's thread, and outlives the readers.
  Readers(StereoCamera& camera, Watchdog& watch, WideReader* wide);
  ~Readers() { end(); }
  Readers(const Readers&) = delete;
  Readers& operator=(const Readers&) = delete;

  bool failed() const;
  /// The first that has read nothing yet; null if none.
  const Reader* waiting() const;
  /// Stops the camera, which releases waiting readers, and ends the readers.
  void end();
  /// Once ended: rethrows what a read threw.
  void check() const;
  /// Those there are.
  std::vector<const Reader*> all() const;

private:
  Watchdog& m_watch;

public:
  Reader pair;                  ///< timestamps are those of the raw frames
  std::optional<Reader> depth;  ///< timestamps are those of the raw frames that woke the reader
  std::optional<Reader> cloud;  ///< timestamps are those of the disparities
  std::optional<Reader> wide;   ///< timestamps are those of the raw frames
};

}  // namespace stereo::app
