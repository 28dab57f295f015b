// SPDX-License-Identifier: Apache-2.0
// Settings files: whatever is in one, loading it ends in one of the outcomes that are promised, and what was loaded
// survives being saved and loaded again.
#include <cmath>
#include <string>
#include <string_view>
#include <vector>

#include "tests/campaigns/fuzz/Documents.hpp"
#include "tests/campaigns/fuzz/Target.hpp"
#include "tests/support/TestCamera.hpp"

using stereo::fuzz::Document;
using stereo::fuzz::extensions;
using stereo::fuzz::Messages;
using stereo::fuzz::require;
using stereo::test::TestCamera;

namespace {

// Values that no setting has by default, so that what a load leaves alone can be told from what it sets.
void setKnownValues(TestCamera& camera) {
  camera.m_deviceNode = 901;
  camera.m_rawFrameSize = cv::Size(902, 903);
  camera.m_rectFrameSize = cv::Size(904, 905);
  camera.m_frameRate = 906.0F;
  camera.m_ipLastSegment = 907;
  camera.m_hFov = 90.8;
  camera.m_transrate = 90.9;
  camera.m_transmode = 3;
  camera.m_depthmode = 2;
  camera.m_logLevel = 910;
  camera.m_threshold = 911;
  camera.m_algorithm = 912;
  camera.m_serialNumber = 913;
}

bool hasKnownValues(const TestCamera& camera) {
  return camera.m_deviceNode == 901 && camera.m_rawFrameSize == cv::Size(902, 903) &&
         camera.m_rectFrameSize == cv::Size(904, 905) && camera.getRawFrameRate() == 906.0F &&
         camera.m_ipLastSegment == 907 && camera.m_hFov == 90.8 && camera.m_transrate == 90.9 &&
         camera.m_transmode == 3 && camera.m_depthmode == 2;
}

bool hasKnownFirstValues(const TestCamera& camera) {
  return camera.m_logLevel == 910 && camera.m_threshold == 911 && camera.m_algorithm == 912;
}

// Takes `line` off the front of the messages; whether it was there.
bool takeLine(std::string_view& messages, std::string_view line) {
  if (messages.substr(0, line.size()) != line) {
    return false;
  }
  messages.remove_prefix(line.size());
  return true;
}

void requireLoaded(TestCamera& camera, std::string_view messages) {
  if (takeLine(messages, "m_transrate must be set to lower than m_frameRate (default m_frameRate) \n")) {
    require(camera.m_transrate == static_cast<double>(camera.getRawFrameRate()), "too high a rate is the frame rate");
  }
  if (takeLine(messages, "m_transmode must be set to -1~4 (default -1) \n")) {
    require(camera.m_transmode == -1, "a mode that does not exist streams nothing");
  }
  if (takeLine(messages, "fov=")) {
    const std::size_t end = messages.find(' ');
    messages.remove_prefix(std::min(end, messages.size()));
    require(takeLine(messages, " must be set to 60 ~ 140（Angle） (default 90)\n"), "the message of the field of view");
    require(camera.m_hFov == 90.0, "a field of view out of range is the default");
  }
  if (takeLine(messages, "m_transmode must be set to 1 or 2 (default 1) \n")) {
    require(camera.m_depthmode == 1, "a depth mode that does not exist is the first");
  }
  require(messages.empty(), "nothing but corrections is said about a file that loads");
  require(camera.m_hFov >= 60.0 && camera.m_hFov <= 140.0, "field of view within limits");
  require(camera.m_transmode >= -1 && camera.m_transmode <= 4, "stream mode within limits");
  require(camera.m_depthmode == 1 || camera.m_depthmode == 2, "depth mode within limits");
  require(!std::isnan(camera.m_transrate) && !std::isnan(camera.getRawFrameRate()), "rates are numbers");
  require(camera.m_transrate == 90.9 || camera.m_transrate <= static_cast<double>(camera.getRawFrameRate()),
          "a stream rate from the file is not above the frame rate");
  require(camera.getRawFrameRate() == std::trunc(camera.getRawFrameRate()), "the frame rate is whole");
  require(camera.m_serialNumber == 913, "the serial number is none of the settings");
}

// What a host does with settings that it loaded: computes with them, saves them, loads them at the next start.
void use(TestCamera& camera, TestCamera& next, const Document& saved) {
  cv::Mat disparity(2, 3, CV_32FC1, cv::Scalar(2.5));
  cv::Mat depth;
  camera.getDepthFrame(disparity, depth);
  require(depth.size() == disparity.size() && depth.type() == CV_32FC1, "depth has the disparity's size");

  const int syncs = stereo::fuzz::syncsAskedFor();
  const Messages messages;
  require(camera.saveConfig(saved.path()), "settings can be saved");
  require(stereo::fuzz::syncsAskedFor() == syncs + 2, "the disks are synchronised twice");
  setKnownValues(next);
  require(next.loadConfig(saved.path()), "settings that were saved can be loaded");
  require(messages.text().empty(), "saved settings need no correction");
  require(next.m_logLevel == camera.m_logLevel && next.m_deviceNode == camera.m_deviceNode &&
              next.m_rawFrameSize == camera.m_rawFrameSize && next.m_rectFrameSize == camera.m_rectFrameSize &&
              next.m_threshold == camera.m_threshold && next.m_algorithm == camera.m_algorithm &&
              next.m_ipLastSegment == camera.m_ipLastSegment,
          "what was saved is what is loaded");
  require(next.getRawFrameRate() == 913.0F, "the serial number comes back as the frame rate");
  require(next.m_hFov == 90.0 && next.m_transrate == 90.9 && next.m_transmode == 3 && next.m_depthmode == 2,
          "what is not saved is as if its key were missing");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const bool prepared = (stereo::fuzz::prepareOpenCv(), true);
  static const Document document("settings");
  static const Document saved[] = {Document("saved.yml"), Document("saved.xml"), Document("saved.json")};
  static TestCamera camera;
  static TestCamera next;
  require(prepared, "OpenCV is prepared");

  const std::string path = document.write(data, size);
  setKnownValues(camera);
  bool loaded = false;
  {
    const Messages messages;
    loaded = camera.loadConfig(path);
    if (loaded) {
      requireLoaded(camera, messages.text());
    } else {
      require(hasKnownValues(camera), "a file that does not load changes nothing that comes after the device");
      if (messages.text() != "Invalid deviceNode!\n") {
        require(messages.text() == "Read A NULL File," + path + " not loaded!\n", "one message, that one");
        require(hasKnownFirstValues(camera), "a malformed file changes nothing");
      }
    }
  }
  if (loaded) {
    use(camera, next, saved[size % std::size(extensions)]);
  }
  return 0;
}

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t mostBytes,
                                               unsigned int seed) {
  static const std::vector<std::string_view> names = {"LogLevel",  "DeviceNode", "FrameSize", "RectifyFrameSize",
                                                      "FrameRate", "Threshold",  "Algorithm", "IpLastSegment",
                                                      "hFov",      "Transrate",  "Transmode", "Depthmode"};
  return stereo::fuzz::mutateDocument(data, size, mostBytes, seed, names);
}
