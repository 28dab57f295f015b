// SPDX-License-Identifier: Apache-2.0
#include "sources/Recording.hpp"

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <stdexcept>
#include <string_view>

#include <opencv2/core.hpp>
#include <opencv2/core/persistence.hpp>

#include "DocumentGuard.hpp"
#include "model/FileKeys.hpp"
#include "sources/HostCamera.hpp"

namespace stereo::sources {

namespace {

namespace fs = std::filesystem;

constexpr int mostRadius = 1 << 20;

template <typename Number>
bool readWhole(std::string_view text, Number& number) {
  const auto [stopped, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && stopped == text.data() + text.size();
}

// "12,1763728000000000": the expected number, and a timestamp.
bool readLine(std::string_view line, std::size_t number, std::int64_t& timestamp) {
  const std::size_t comma = line.find(',');
  std::size_t told = 0;
  return comma != std::string_view::npos && readWhole(line.substr(0, comma), told) && told == number &&
         readWhole(line.substr(comma + 1), timestamp);
}

std::vector<std::int64_t> readTimestamps(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  if (!std::getline(file, line) || line != Recording::timestampsHeading) {
    throw std::runtime_error("cannot read the timestamps of a recording from " + path.string());
  }
  std::vector<std::int64_t> timestamps;
  while (std::getline(file, line)) {
    if (file.eof()) {
      break;  // no end of line: the writer was cut off
    }
    std::int64_t timestamp = 0;
    if (!readLine(line, timestamps.size(), timestamp) || timestamp < 0 ||
        (!timestamps.empty() && timestamp <= timestamps.back())) {
      throw std::runtime_error(path.string() + ", line " + std::to_string(timestamps.size() + 2) + ": '" + line +
                               "' is not the next frame's number and a later timestamp");
    }
    timestamps.push_back(timestamp);
  }
  if (timestamps.empty()) {
    throw std::runtime_error("there is no frame in the recording " + path.parent_path().string());
  }
  return timestamps;
}

// The image circle's radius; negative if the file has none, as in a recording that was cut off early.
int readRadius(const fs::path& path) {
  if (!fs::exists(path)) {
    return -1;
  }
  std::ifstream file(path);
  const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  try {
    if (!core::safeToParse(text)) {
      throw cv::Exception(cv::Error::StsParseError, "malformed", __func__, __FILE__, __LINE__);
    }
    const cv::FileStorage storage(text, cv::FileStorage::READ | cv::FileStorage::MEMORY);
    const cv::FileNode node = storage["FisheyeRadius"];
    if (node.empty()) {
      return -1;
    }
    const double radius = node.isReal() || node.isInt() ? node.real() : -1.0;
    if (radius >= 0.0 && radius <= mostRadius) {
      return static_cast<int>(radius);
    }
  } catch (const cv::Exception&) {
    // Reported below.
  }
  throw std::runtime_error("cannot read the image circle's radius from " + path.string());
}

void writeDocument(const fs::path& path, const std::function<void(cv::FileStorage&)>& write) {
  // In memory, since OpenCV does not notice a full disk.
  cv::FileStorage storage(path.filename().string(), cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
  write(storage);
  const std::string text = storage.releaseAndGetString();
  std::ofstream file(path, std::ios::trunc | std::ios::binary);
  if (file) {
    file << text << std::flush;
  }
  if (!file) {
    throw RecordingError("cannot write '" + path.string() + "': " + std::strerror(errno));
  }
}

fs::path existing(const fs::path& path) { return fs::exists(path) ? path : fs::path(); }

}  // namespace

bool Recording::isAt(const fs::path& path) {
  std::error_code failure;
  return fs::is_regular_file(path / framesFile, failure);
}

Recording Recording::open(const fs::path& folder) {
  if (!isAt(folder)) {
    throw std::runtime_error("there is no recording in " + folder.string());
  }
  Recording recording;
  recording.frames = folder / framesFile;
  recording.timestamps = readTimestamps(folder / timestampsFile);
  recording.fisheyeRadius = readRadius(folder / aboutFile);
  recording.calibration = existing(folder / calibrationFile);
  recording.settings = existing(folder / settingsFile);
  return recording;
}

void Recording::writeSettings(const fs::path& folder, const CameraSettings& settings) {
  writeDocument(folder / settingsFile, [&](cv::FileStorage& storage) {
    const auto number = [&](const char* key, double value) {
      storage << key << cv::Mat(cv::Mat_<double>(1, 1, value));
    };
    const auto size = [&](const char* key, cv::Size value) {
      storage << key << cv::Mat((cv::Mat_<double>(1, 2) << value.width, value.height));
    };
    number(model::keys::logLevel, settings.logLevel);
    number(model::keys::deviceNode, settings.deviceNode);
    size(model::keys::frameSize, settings.frameSize);
    size(model::keys::rectifyFrameSize, settings.rectifiedSize);
    number(model::keys::frameRate, settings.frameRate);
    number(model::keys::threshold, settings.threshold);
    number(model::keys::algorithm, settings.algorithm);
    number(model::keys::ipLastSegment, settings.ipLastSegment);
    number(model::keys::hFov, settings.hFov);
    number(model::keys::transrate, settings.transrate);
    number(model::keys::transmode, settings.transmode);
    number(model::keys::depthmode, settings.depthmode);
  });
}

void Recording::writeAbout(const fs::path& folder, const std::string& source, const std::string& codec,
                           int fisheyeRadius, const Counts& counts) {
  writeDocument(folder / aboutFile, [&](cv::FileStorage& storage) {
    storage << "Source" << source << "Codec" << codec << "FisheyeRadius" << fisheyeRadius;
    // As doubles, since the storage has no integers wider than an int.
    storage << "FramesWritten" << static_cast<double>(counts.written) << "FramesDropped"
            << static_cast<double>(counts.dropped) << "FramesUnfit" << static_cast<double>(counts.unfit);
  });
}

}  // namespace stereo::sources
