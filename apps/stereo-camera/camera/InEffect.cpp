// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/InEffect.hpp"

#include <functional>

#include <opencv2/core/persistence.hpp>

#include "apps/stereo-camera/output/Output.hpp"

namespace stereo::app {

namespace {

void writeDocument(const std::filesystem::path& path, const std::function<void(cv::FileStorage&)>& write) {
  // In memory, since OpenCV does not notice a full disk.
  cv::FileStorage storage(path.filename().string(), cv::FileStorage::WRITE | cv::FileStorage::MEMORY);
  write(storage);
  writeFile(path, storage.releaseAndGetString());
}

}  // namespace

void writeSettings(const std::filesystem::path& path, const SettingsInEffect& settings) {
  writeDocument(path, [&](cv::FileStorage& storage) {
    const auto number = [&](const char* key, double value) {
      storage << key << cv::Mat(cv::Mat_<double>(1, 1, value));
    };
    const auto size = [&](const char* key, cv::Size value) {
      storage << key << cv::Mat((cv::Mat_<double>(1, 2) << value.width, value.height));
    };
    number("LogLevel", settings.logLevel);
    number("DeviceNode", settings.deviceNode);
    size("FrameSize", settings.frameSize);
    size("RectifyFrameSize", settings.rectifiedSize);
    number("FrameRate", settings.frameRate);
    number("Threshold", settings.threshold);
    number("Algorithm", settings.algorithm);
    number("IpLastSegment", settings.ipLastSegment);
    number("hFov", settings.hFov);
    number("Transrate", settings.transrate);
    number("Transmode", settings.transmode);
    number("Depthmode", settings.depthmode);
  });
}

void writeAbout(const std::filesystem::path& path, const std::string& description, const std::string& codec,
                const SettingsInEffect& settings, const Recorder::Counts& counts) {
  writeDocument(path, [&](cv::FileStorage& storage) {
    storage << "Source" << description << "Codec" << codec << "FisheyeRadius" << settings.fisheyeRadius;
    // Doubles: the storage knows no longer integers than an int.
    storage << "FramesWritten" << static_cast<double>(counts.written) << "FramesDropped"
            << static_cast<double>(counts.dropped) << "FramesUnfit" << static_cast<double>(counts.unfit);
  });
}

}  // namespace stereo::app
