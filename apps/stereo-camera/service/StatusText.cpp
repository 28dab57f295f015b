// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/service/StatusText.hpp"

#include <array>
#include <functional>
#include <limits>

#include "apps/stereo-camera/output/Json.hpp"
#include "apps/stereo-camera/view/CameraFeed.hpp"
#include "model/CameraFacts.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

using model::formatted;
using State = CameraStatus::State;

// null where there is none: `Json` writes it for what is not a number.
double orNull(const std::optional<double>& value) { return value.value_or(std::numeric_limits<double>::quiet_NaN()); }

double number(std::int64_t value) { return static_cast<double>(value); }

void addTime(Json& json, const char* name, std::int64_t microseconds) {
  json.add(name, static_cast<std::uint64_t>(std::max<std::int64_t>(microseconds, 0)));
}

const char* nameOf(State state) {
  return state == State::running ? "running" : state == State::waiting ? "waiting" : "ended";
}

void addWide(Json& json, const CameraStatus& camera) {
  json.object("wide")
      .add("width", camera.wide.size.width)
      .add("height", camera.wide.size.height)
      .add("horizontal_field", camera.wide.horizontalField)
      .add("vertical_field", camera.wide.verticalField)
      .add("nearest", camera.wide.nearest)
      .add("farthest", camera.wide.farthest)
      .add("fuse", camera.wide.fuse)
      .add("self_calibrate", camera.wide.selfCalibrate)
      .add("measured_percent", camera.wideFindings ? camera.wideFindings->measuredPercent : orNull(std::nullopt))
      .add("row_correction", camera.wideFindings ? camera.wideFindings->rowCorrection : orNull(std::nullopt))
      .end();
}

void addRecordings(Json& json, const CameraStatus& camera) {
  const CameraStatus::Recording& recording = camera.recording;
  json.object("recording")
      .add("on", recording.isOn)
      .add("folder", recording.folder)
      .add("frames", recording.counts.written)
      .add("dropped", recording.counts.dropped)
      .add("bytes", std::uint64_t{recording.bytes})
      .add("error", recording.error)
      .end();
  if (camera.hasRing) {
    json.object("ring")
        .add("state", camera.ring.isRecording ? "recording" : "waiting")
        .add("folder", camera.ringFolder)
        .add("bytes", std::uint64_t{camera.ring.bytes})
        .add("most_bytes", std::uint64_t{camera.ringMost})
        .add("error", camera.ring.error)
        .end();
  } else {
    json.null("ring");
  }
}

void addOutputs(Json& json, const CameraStatus& camera) {
  if (camera.shares) {
    json.object("share").add("key", model::firstSegmentKey + camera.position).add("error", camera.shareError).end();
  } else {
    json.null("share");
  }
  if (camera.streamMode >= 0) {
    json.object("stream")
        .add("mode", camera.streamMode)
        .add("receiver", camera.receiver)
        .add("error", camera.streamError)
        .end();
  } else {
    json.null("stream");
  }
  json.object("snapshot").add("folder", camera.snapshotFolder).add("error", camera.snapshotError).end();
}

void addCheck(Json& json, const CameraStatus::Check& check) {
  using CheckState = CameraStatus::Check::State;
  json.object("check")
      .add("state", check.state == CheckState::none      ? "none"
                    : check.state == CheckState::running ? "running"
                                                         : "done")
      .add("frames", check.frames)
      .add("of", check.of)
      .add("matches", std::uint64_t{check.matches})
      .add("median_px", orNull(check.median));
  if (check.fits) {
    json.add("fits", *check.fits);
  } else {
    json.null("fits");
  }
  json.add("text", check.text).end();
}

void addCamera(Json& json, const CameraStatus& camera, std::int64_t now) {
  json.object()
      .add("name", camera.name)
      .add("source", camera.source)
      .add("state", nameOf(camera.state))
      .add("reason", camera.reason);
  addTime(json, "since_us", camera.since);
  json.add("restarts", camera.restarts)
      .add("position", camera.position)
      .add("calibrated", camera.calibrated)
      .object("frame")
      .add("width", camera.frame.width)
      .add("height", camera.frame.height)
      .end()
      .add("frames", camera.frames)
      .add("lost", camera.lost)
      .add("fps", camera.rate)
      .add("age_ms", camera.newest > 0 ? number(now - camera.newest) / 1000.0 : orNull(std::nullopt));
  json.list("stages");
  for (const auto& [stage, milliseconds] : camera.stages) {
    json.object().add("name", stage).add("ms", milliseconds).end();
  }
  json.end().list("views");
  for (std::size_t view = 0; view < viewCount; ++view) {
    if ((camera.views & bitOf(static_cast<View>(view))) != 0) {
      json.add("", viewNames.at(view));
    }
  }
  json.end();
  if (camera.calibrated) {
    addWide(json, camera);
  } else {
    json.null("wide");
  }
  addRecordings(json, camera);
  addOutputs(json, camera);
  json.add("view_error", camera.viewError);
  addCheck(json, camera.check);
  json.end();
}

// A value of a camera, as a metric.
struct CameraMetric {
  const char* name;
  const char* type;
  const char* help;
  std::function<std::optional<double>(const CameraStatus&, const BoardStatus&)> value;
};

const std::array cameraMetrics = {
    CameraMetric{
        "up", "gauge", "1 while frames come, 0 otherwise.",
        [](const CameraStatus& camera, const BoardStatus&) { return camera.state == State::running ? 1.0 : 0.0; }},
    CameraMetric{"frames_total", "counter", "Frames published.",
                 [](const CameraStatus& camera, const BoardStatus&) { return static_cast<double>(camera.frames); }},
    CameraMetric{"frames_lost_total", "counter", "Frames that were due but not read in time.",
                 [](const CameraStatus& camera, const BoardStatus&) { return static_cast<double>(camera.lost); }},
    CameraMetric{"restarts_total", "counter", "Times that a new camera was made.",
                 [](const CameraStatus& camera, const BoardStatus&) { return static_cast<double>(camera.restarts); }},
    CameraMetric{"frame_rate", "gauge", "Frames a second.",
                 [](const CameraStatus& camera, const BoardStatus&) { return camera.rate; }},
    CameraMetric{"frame_age_seconds", "gauge", "Age of the newest frame.",
                 [](const CameraStatus& camera, const BoardStatus& board) {
                   return camera.newest > 0 ? std::optional(number(board.now - camera.newest) / 1e6) : std::nullopt;
                 }},
    CameraMetric{"ring_bytes", "gauge", "Size of the ring recording.",
                 [](const CameraStatus& camera, const BoardStatus&) {
                   return camera.hasRing ? std::optional(static_cast<double>(camera.ring.bytes)) : std::nullopt;
                 }},
    CameraMetric{"ring_recording", "gauge", "1 while the ring records, 0 otherwise.",
                 [](const CameraStatus& camera, const BoardStatus&) {
                   return camera.hasRing ? std::optional(camera.ring.isRecording ? 1.0 : 0.0) : std::nullopt;
                 }},
    CameraMetric{"recording_frames_dropped", "gauge", "Frames that the last recording had no time to write.",
                 [](const CameraStatus& camera, const BoardStatus&) {
                   return static_cast<double>(camera.recording.counts.dropped);
                 }},
};

void addHead(std::string& text, const std::string& name, const char* type, const char* help) {
  text += "# HELP " + name + " " + help + "\n# TYPE " + name + " " + type + "\n";
}

}  // namespace

std::string statusJson(const std::vector<CameraStatus>& cameras, const BoardStatus& board, bool mayChange) {
  Json json;
  json.add("version", STEREO_CAMERA_VERSION);
  addTime(json, "time_us", board.now);
  json.add("uptime_s", board.uptime)
      .add("may_change", mayChange)
      .add("viewers", board.viewers)
      .object("board")
      .add("temperature_c", orNull(board.temperature))
      .add("load_percent", orNull(board.load))
      .add("processors", static_cast<int>(board.processors))
      .add("memory_mb", board.megabytes)
      .end()
      .list("cameras");
  for (const CameraStatus& camera : cameras) {
    addCamera(json, camera, board.now);
  }
  return json.text();
}

std::string metricsText(const std::vector<CameraStatus>& cameras, const BoardStatus& board) {
  std::string text;
  for (const CameraMetric& metric : cameraMetrics) {
    const std::string name = std::string("stereo_camera_") + metric.name;
    addHead(text, name, metric.type, metric.help);
    for (const CameraStatus& camera : cameras) {
      if (const std::optional<double> value = metric.value(camera, board)) {
        text += name + "{camera=\"" + camera.name + "\"} " + formatted("%.10g", *value) + "\n";
      }
    }
  }
  addHead(text, "stereo_camera_stage_seconds", "gauge", "Mean time of a stage, recently.");
  for (const CameraStatus& camera : cameras) {
    for (const auto& [stage, milliseconds] : camera.stages) {
      text += formatted("stereo_camera_stage_seconds{camera=\"%s\",stage=\"%s\"} %.6g\n", camera.name.c_str(),
                        stage.c_str(), milliseconds / 1000);
    }
  }
  const auto add = [&text](const char* name, const char* type, const char* help, std::optional<double> value) {
    if (value) {
      addHead(text, name, type, help);
      text += std::string(name) + " " + formatted("%.10g", *value) + "\n";
    }
  };
  add("stereo_camera_viewers", "gauge", "Pages, streams and pictures that are watched.", board.viewers);
  add("stereo_camera_refused_requests_total", "counter", "Requests that the server refused.",
      static_cast<double>(board.refusals));
  add("stereo_camera_resident_bytes", "gauge", "Resident memory.", board.megabytes * 1e6);
  add("stereo_camera_temperature_celsius", "gauge", "Temperature of the hottest sensor.", board.temperature);
  add("stereo_camera_machine_load_ratio", "gauge", "Share of all processors in use.",
      board.load ? std::optional(*board.load / 100) : std::nullopt);
  add("stereo_camera_uptime_seconds", "counter", "Time since the program began.", board.uptime);
  return text;
}

}  // namespace stereo::app
