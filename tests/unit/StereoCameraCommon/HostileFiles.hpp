// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cmath>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "StereoCamera.hpp"
#include "tests/support/Images.hpp"
#include "tests/support/OutputCapture.hpp"
#include "tests/support/TempDir.hpp"
#include "tests/support/TestCamera.hpp"

namespace stereo::test {

enum class Outcome { loaded, incomplete, malformed };

// A matrix as it stands in the file, plausible or not.
struct Raw {
  std::string key, rows = "1", cols = "1", type = "d", data = "1";
};

// Without what a sanitizer's allocator prints when it refuses.
inline std::string withoutAllocatorWarnings(const std::string& output) {
  return std::regex_replace(output, std::regex("==[0-9]+==WARNING: [^\\n]*\\n"), "");
}

inline Raw number(const std::string& key, const std::string& value) { return {.key = key, .data = value}; }

// A document with these matrices in the syntax of an extension; numbers in `data` are separated by blanks.
inline std::string textOf(const std::string& syntax, const std::vector<Raw>& matrices) {
  std::string text;
  for (const Raw& m : matrices) {
    std::string listed;
    for (const char c : m.data) {
      listed += c == ' ' ? std::string(", ") : std::string(1, c);
    }
    if (syntax == "yml") {
      text += m.key + ": !!opencv-matrix\n   rows: " + m.rows + "\n   cols: " + m.cols + "\n   dt: \"" + m.type +
              "\"\n   data: [ " + listed + " ]\n";
    } else if (syntax == "xml") {
      text += "<" + m.key + " type_id=\"opencv-matrix\"><rows>" + m.rows + "</rows><cols>" + m.cols + "</cols><dt>\"" +
              m.type + "\"</dt><data>" + m.data + "</data></" + m.key + ">\n";
    } else {
      text += (text.empty() ? "\"" : ",\n\"") + m.key + "\": { \"type_id\": \"opencv-matrix\", \"rows\": " + m.rows +
              ", \"cols\": " + m.cols + ", \"dt\": \"" + m.type + "\", \"data\": [ " + listed + " ] }";
    }
  }
  if (syntax == "xml") {
    return "<?xml version=\"1.0\"?>\n<opencv_storage>\n" + text + "</opencv_storage>\n";
  }
  return syntax == "yml" ? "%YAML:1.0\n---\n" + text : "{\n" + text + "\n}\n";
}

// Loads anything into cameras with known values, and checks what each outcome promises.
class HostileFiles : public testing::TestWithParam<std::string> {
public:
  std::string path() const { return m_dir.path("hostile." + GetParam()); }

  Outcome settings(const std::string& text) {
    writeFile(path(), text);
    return settingsAt(path());
  }

  Outcome settingsAt(const std::string& file) {
    TestCamera& c = camera;
    c.m_deviceNode = 901;
    c.m_rawFrameSize = cv::Size(902, 903);
    c.m_rectFrameSize = cv::Size(904, 905);
    c.m_frameRate = 906.0F;
    c.m_ipLastSegment = 907;
    c.m_hFov = 90.8;
    c.m_transrate = 90.9;
    c.m_transmode = 3;
    c.m_depthmode = 2;
    c.m_logLevel = 910;
    c.m_threshold = 911;
    c.m_algorithm = 912;
    const OutputCapture errors(2);
    const bool loaded = c.loadConfig(file);
    const std::string messages = withoutAllocatorWarnings(errors.ownText());
    if (loaded) {
      EXPECT_TRUE(c.m_hFov >= 60.0 && c.m_hFov <= 140.0) << c.m_hFov;
      EXPECT_TRUE(c.m_transmode >= -1 && c.m_transmode <= 4) << c.m_transmode;
      EXPECT_TRUE(c.m_depthmode == 1 || c.m_depthmode == 2) << c.m_depthmode;
      EXPECT_FALSE(std::isnan(c.m_transrate) || std::isnan(c.getRawFrameRate()));
      return Outcome::loaded;
    }
    EXPECT_TRUE(c.m_deviceNode == 901 && c.m_rawFrameSize == cv::Size(902, 903) &&
                c.m_rectFrameSize == cv::Size(904, 905) && c.getRawFrameRate() == 906.0F && c.m_ipLastSegment == 907 &&
                c.m_hFov == 90.8 && c.m_transrate == 90.9 && c.m_transmode == 3 && c.m_depthmode == 2);
    if (messages == "Invalid deviceNode!\n") {
      return Outcome::incomplete;
    }
    EXPECT_EQ(messages, "Read A NULL File," + file + " not loaded!\n");
    EXPECT_TRUE(c.m_logLevel == 910 && c.m_threshold == 911 && c.m_algorithm == 912);
    return Outcome::malformed;
  }

  Outcome calibration(const std::string& text) {
    writeFile(path(), text);
    return calibrationAt(path());
  }

  Outcome calibrationAt(const std::string& file) {
    TestCamera& c = camera;
    calibrate(c);
    c.m_serialNumber = 801;
    c.m_posNumber = 802;
    const OutputCapture errors(2);
    const bool loaded = c.loadCalibParams(file);
    const std::string messages = withoutAllocatorWarnings(errors.ownText());
    if (loaded) {
      EXPECT_EQ(messages, "");
      for (const cv::Mat* const matrix : matrices(c)) {
        EXPECT_FALSE(matrix->empty());
      }
      return Outcome::loaded;
    }
    EXPECT_TRUE(c.m_serialNumber == 801 && c.m_posNumber == 802);
    if (messages.empty()) {
      return Outcome::incomplete;
    }
    EXPECT_EQ(messages, "Read A NULL File, Camera CalibParams not loaded!\n");
    return Outcome::malformed;
  }

  static std::vector<const cv::Mat*> matrices(const TestCamera& c) {
    return {&c.m_leftXi,         &c.m_leftIntrinsic,   &c.m_leftDistortion, &c.m_leftRotation, &c.m_rightXi,
            &c.m_rightIntrinsic, &c.m_rightDistortion, &c.m_rightRotation,  &c.m_translation};
  }

protected:
  // How many of the camera's nine matrices are still those from before the load.
  int untouched() const {
    TestCamera before;
    calibrate(before);
    int count = 0;
    for (std::size_t i = 0; i < 9; ++i) {
      count += sameBits(*matrices(camera)[i], *matrices(before)[i]) ? 1 : 0;
    }
    return count;
  }

  // Both files as the camera itself writes them.
  std::string savedSettings() const {
    const SyncProbe sync(path());
    TestCamera().saveConfig(path());
    return readFile(path());
  }
  std::string savedCalibration() const {
    const SyncProbe sync(path());
    TestCamera saver;
    saver.setCalibParams(someCalibration(10), false);
    saver.setCalibParams(someCalibration(11), true);
    saver.saveCalibParams(path());
    return readFile(path());
  }

  TestCamera camera;
  TempDir m_dir;
};

inline const char* const settingsKeys[] = {"LogLevel",  "DeviceNode", "FrameSize", "RectifyFrameSize",
                                           "FrameRate", "Threshold",  "Algorithm", "IpLastSegment",
                                           "hFov",      "Transrate",  "Transmode", "Depthmode"};

}  // namespace stereo::test
