// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/bench/BenchReaders.hpp"

#include <algorithm>
#include <utility>
#include <vector>

#include "apps/stereo-camera/observe/MeasuredCamera.hpp"

namespace stereo::app {

namespace {

Reader::Read readPair(StereoCamera& camera) {
  return [&camera, left = cv::Mat(), right = cv::Mat()]() mutable -> std::int64_t {
    inputTimestamp = 0;  // stays 0 without a frame; the return value is true with images filled before
    return camera.getRectStereoFrame(left, right) ? inputTimestamp : 0;
  };
}

Reader::Read readDepth(StereoCamera& camera) {
  return [&camera, color = cv::Mat()]() mutable -> std::int64_t {
    std::chrono::microseconds timestamp{0};
    return camera.getDepthFrame(color, true, timestamp) ? timestamp.count() : 0;
  };
}

Reader::Read readCloud(StereoCamera& camera) {
  return [&camera, points = std::vector<PCL>()]() mutable -> std::int64_t {
    std::chrono::microseconds timestamp{0};
    points.clear();
    return camera.getPointCloud(points, timestamp) ? inputTimestamp : 0;
  };
}

}  // namespace

Reader::Reader(std::string name, StereoCamera& camera, Read read)
    : m_name(std::move(name)), m_camera(camera), m_read(std::move(read)), m_thread([this] { loop(); }) {}

void Reader::end() {
  m_ending = true;
  if (m_thread.joinable()) {
    m_thread.join();
  }
}

void Reader::check() const {
  if (m_error) {
    std::rethrow_exception(m_error);
  }
}

void Reader::loop() {
  try {
    while (!m_ending && m_camera.isOpened()) {
      const std::int64_t timestamp = m_read();
      if (timestamp != 0) {
        m_products.add({timestamp, systemMicroseconds(), threadMicroseconds()});
        m_hasRead = true;
      }
    }
  } catch (...) {
    m_error = std::current_exception();
    m_failed = true;
  }
}

Readers::Readers(StereoCamera& camera, Watchdog& watch, WideReader* wideReader)
    : m_watch(watch), pair("rectified pair", camera, readPair(camera)) {
  if (wideReader != nullptr) {
    wide.emplace("wide range", camera, [&camera, wideReader] { return wideReader->read(camera); });
  } else {
    depth.emplace("coloured depth", camera, readDepth(camera));
    cloud.emplace("coloured cloud", camera, readCloud(camera));
  }
}

std::vector<const Reader*> Readers::all() const {
  std::vector<const Reader*> readers = {&pair};
  for (const std::optional<Reader>* const each : {&depth, &cloud, &wide}) {
    if (each->has_value()) {
      readers.push_back(&**each);
    }
  }
  return readers;
}

bool Readers::failed() const {
  const auto readers = all();
  return std::any_of(readers.begin(), readers.end(), [](const Reader* each) { return each->failed(); });
}

const Reader* Readers::waiting() const {
  const auto readers = all();
  const auto found = std::find_if(readers.begin(), readers.end(), [](const Reader* each) { return !each->hasRead(); });
  return found == readers.end() ? nullptr : *found;
}

void Readers::end() {
  const auto eachReader = [this](const auto& action) {
    action(pair);
    for (std::optional<Reader>* const each : {&depth, &cloud, &wide}) {
      if (each->has_value()) {
        action(**each);
      }
    }
  };
  eachReader([](Reader& each) { each.askToEnd(); });
  m_watch.finish();
  eachReader([](Reader& each) { each.end(); });
}

void Readers::check() const {
  for (const Reader* const each : all()) {
    each->check();
  }
}

}  // namespace stereo::app
