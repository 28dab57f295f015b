// SPDX-License-Identifier: Apache-2.0
// Settings and calibrations in compressed files, and what a file's name selects.
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>
#include <thread>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/Gzip.hpp"
#include "tests/support/Images.hpp"
#include "tests/unit/StereoCameraCommon/HostileFiles.hpp"

using namespace stereo::test;

namespace {

class CompressedFiles : public HostileFiles {
protected:
  std::string compressedPath() const { return path() + ".gz"; }

  Outcome compressedSettings(const std::string& text) {
    writeCompressed(compressedPath(), text);
    return settingsAt(compressedPath());
  }
  // The content, compressed.
  std::string packed(const std::string& text) const {
    writeCompressed(compressedPath(), text);
    return readFile(compressedPath());
  }
  Outcome settingsFrom(const std::string& file, const std::string& bytes) {
    writeFile(file, bytes);
    return settingsAt(file);
  }
  std::string settingsText(int device) const {
    return textOf(GetParam(), {number("DeviceNode", std::to_string(device))});
  }
};

using CompressedFilesDeathTest = CompressedFiles;
const auto syntaxes = testing::Values("yml", "xml", "json");
std::string nameOf(const testing::TestParamInfo<std::string>& instance) { return instance.param; }
INSTANTIATE_TEST_SUITE_P(Syntax, CompressedFiles, syntaxes, nameOf);
INSTANTIATE_TEST_SUITE_P(Syntax, CompressedFilesDeathTest, syntaxes, nameOf);

}  // namespace

TEST_P(CompressedFiles, WhatIsSavedLoads) {
  const SyncProbe sync(path());
  TestCamera saver;
  saver.m_deviceNode = 5;
  saver.m_rawFrameSize = cv::Size(928, 400);
  saver.setCalibParams(someCalibration(10), false);
  saver.setCalibParams(someCalibration(11), true);
  saver.m_posNumber = 17;
  ASSERT_TRUE(saver.saveConfig(compressedPath()));
  EXPECT_EQ(readFile(compressedPath()).substr(0, 2), "\x1F\x8B");
  EXPECT_EQ(settingsAt(compressedPath()), Outcome::loaded);
  EXPECT_EQ(camera.m_deviceNode, 5);
  EXPECT_EQ(camera.m_rawFrameSize, cv::Size(928, 400));

  ASSERT_TRUE(saver.saveCalibParams(compressedPath()));
  EXPECT_EQ(calibrationAt(compressedPath()), Outcome::loaded);
  EXPECT_EQ(camera.m_posNumber, 17);
  for (std::size_t i = 0; i < 9; ++i) {
    EXPECT_TRUE(sameBits(*matrices(camera)[i], *matrices(saver)[i])) << i;
  }
}

// A digit is the level of compression, not part of the name. Parameters follow a question mark.
TEST_P(CompressedFiles, NamesAreTakenAsTheStorageLayerTakesThem) {
  const SyncProbe sync(path());
  TestCamera saver;
  saver.m_deviceNode = 6;
  ASSERT_TRUE(saver.saveConfig(compressedPath() + "9"));
  for (const std::string end : {"", "9", "?a", "0?a&b"}) {
    EXPECT_EQ(settingsAt(compressedPath() + end), Outcome::loaded) << end;
    EXPECT_EQ(camera.m_deviceNode, 6);
  }
  for (const std::string end : {"99", "x", "9a"}) {
    EXPECT_EQ(settingsAt(compressedPath() + end), Outcome::incomplete) << end;  // no such file
  }
  ASSERT_EQ(settings(settingsText(7)), Outcome::loaded);
  EXPECT_EQ(settingsAt(path() + "?base64"), Outcome::loaded);
  EXPECT_EQ(camera.m_deviceNode, 7);
  EXPECT_EQ(settingsAt("?" + path()), Outcome::malformed);
  EXPECT_EQ(settingsFrom(m_dir.path("two\nlines." + GetParam()), settingsText(7)), Outcome::malformed);
  // Without such an extension nothing is inflated.
  EXPECT_EQ(settingsFrom(path(), packed(settingsText(7))), Outcome::malformed);
  EXPECT_EQ(settingsFrom(path() + ".GZ", packed(settingsText(7))), Outcome::malformed);
}

TEST_P(CompressedFiles, TextByTheNameOfACompressedFileLoads) {
  EXPECT_EQ(settingsFrom(compressedPath(), settingsText(3)), Outcome::loaded);
  EXPECT_EQ(camera.m_deviceNode, 3);
}

TEST_P(CompressedFiles, PartsPackedOneByOneAreOneText) {
  const std::string text = settingsText(4);
  const std::string first = packed(text.substr(0, text.size() / 2));
  EXPECT_EQ(settingsFrom(compressedPath(), first + packed(text.substr(text.size() / 2))), Outcome::loaded);
  EXPECT_EQ(camera.m_deviceNode, 4);
  EXPECT_EQ(settingsFrom(compressedPath(), packed(text) + packed("") + "and what is no part of it"), Outcome::loaded);
}

TEST_P(CompressedFiles, EmptyOnesAreEmptyFiles) {
  for (const std::string& bytes : {std::string(), packed("")}) {
    EXPECT_EQ(settingsFrom(compressedPath(), bytes), Outcome::incomplete);
    EXPECT_EQ(calibrationAt(compressedPath()), Outcome::malformed);
    EXPECT_EQ(untouched(), 9);
  }
}

TEST_P(CompressedFiles, CutOffAnywhere) {
  const std::string whole = packed(savedSettings());
  ASSERT_EQ(settingsFrom(compressedPath(), whole), Outcome::loaded);
  for (std::size_t length = 1; length < whole.size(); ++length) {
    EXPECT_EQ(settingsFrom(compressedPath(), whole.substr(0, length)), Outcome::malformed) << length;
  }
}

TEST_P(CompressedFiles, DamagedAnywhere) {
  const std::string whole = packed(savedSettings());
  constexpr std::size_t header = 10;  // which holds a time and other things that damage makes no difference to
  std::mt19937 random(20240302);
  for (std::size_t at = header; at < whole.size(); ++at) {
    std::string damaged = whole;
    damaged[at] = static_cast<char>(damaged[at] ^ 1 << random() % 8);
    EXPECT_EQ(settingsFrom(compressedPath(), damaged), Outcome::malformed) << at;
  }
}

// A legal document except for its size.
TEST_P(CompressedFiles, ThatUnpackToTooMuchAreRefused) {
  const std::string text = settingsText(8);
  const std::size_t line = text.find('\n') + 1;
  std::string blank(1'000'000, ' ');
  blank.back() = '\n';
  std::string large = text.substr(0, line);
  for (int i = 0; i < 60; ++i) {
    large += blank;
  }
  EXPECT_EQ(compressedSettings(large + text.substr(line)), Outcome::loaded);
  EXPECT_EQ(camera.m_deviceNode, 8);
  for (int i = 0; i < 10; ++i) {
    large += blank;
  }
  EXPECT_EQ(compressedSettings(large + text.substr(line)), Outcome::malformed);
  EXPECT_LT(std::filesystem::file_size(compressedPath()), 1'000'000U);
  EXPECT_EQ(calibrationAt(compressedPath()), Outcome::malformed);
  EXPECT_EQ(untouched(), 9);
}

TEST_P(CompressedFiles, PipesAreReadOnce) {
  ASSERT_EQ(mkfifo(path().c_str(), 0600), 0);
  std::thread writer([this] { writeFile(path(), settingsText(9)); });
  EXPECT_EQ(settingsAt(path()), Outcome::loaded);
  writer.join();
  EXPECT_EQ(camera.m_deviceNode, 9);
}

TEST_P(CompressedFilesDeathTest, WhatTheParserDoesNotSurvive) {
  const std::string text = GetParam() == "yml"   ? "%YAML:1.0\n---\nA: 1\n...\n- 5\n"
                           : GetParam() == "xml" ? "<?xml version=\"1.0\"?>\n<opencv_storage>\n<DeviceNode type_id="
                                                 : "{ \"A\": " + std::string(200'000, '[');
  writeCompressed(compressedPath(), text);
  writeFile(path(), text);
  for (const std::string& file : {compressedPath(), path() + "?base64"}) {
    EXPECT_EXIT(
        (alarm(60),
         std::_Exit(settingsAt(file) == Outcome::malformed && calibrationAt(file) == Outcome::malformed ? 0 : 1)),
        testing::ExitedWithCode(0), "")
        << file;
  }
}
