// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/record/LiveRecording.hpp"

#include <chrono>
#include <ctime>
#include <exception>
#include <utility>

#include "model/Text.hpp"

namespace stereo::app {

namespace {

namespace fs = std::filesystem;
using sources::Recording;

}  // namespace

LiveRecording::LiveRecording(const sources::Recorder::Options& options, const RecordedCamera& camera, LiveTap& tap)
    : m_folder(options.folder),
      m_made(options.folder),
      m_codec(options.codec),
      m_camera(camera),
      m_tap(tap),
      m_recorder(options) {
  Recording::writeSettings(m_folder, m_camera.settings);
  Recording::writeAbout(m_folder, m_camera.description, m_codec, m_camera.settings.fisheyeRadius, {});
  if (!m_camera.calibration.empty()) {
    writeFile(m_folder / Recording::calibrationFile, m_camera.calibration);
  }
  m_tap.attach(m_recorder);
}

LiveRecording::~LiveRecording() {
  try {
    finish();
  } catch (const std::exception&) {
    // Callers who need errors call `finish` themselves.
  }
  if (m_recorder.counts().written == 0) {
    std::error_code ignored;
    for (const char* const file : Recording::files) {
      fs::remove(m_folder / file, ignored);
    }
  }
}

void LiveRecording::check() { m_recorder.awaitFrame(m_recorder.counts(), std::chrono::milliseconds(0)); }

void LiveRecording::detach() {
  if (std::exchange(m_isAttached, false)) {
    m_tap.detach(m_recorder);
  }
}

void LiveRecording::finish() {
  if (!m_isAttached) {
    return;
  }
  detach();
  std::exception_ptr failure;
  try {
    m_recorder.finish();
  } catch (const sources::RecordingError&) {
    failure = std::current_exception();
  }
  if (m_recorder.counts().written > 0) {
    Recording::writeAbout(m_folder, m_camera.description, m_codec, m_camera.settings.fisheyeRadius,
                          m_recorder.counts());
  }
  if (failure) {
    std::rethrow_exception(failure);
  }
}

std::string timeName() {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto milliseconds =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  char text[32] = {};
  static_cast<void>(std::strftime(text, sizeof(text), "%Y%m%d-%H%M%S", &parts));
  return model::formatted("%s-%03d", text, static_cast<int>(milliseconds));
}

}  // namespace stereo::app
