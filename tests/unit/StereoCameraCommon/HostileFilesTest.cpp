// SPDX-License-Identifier: Apache-2.0
#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/unit/StereoCameraCommon/HostileFiles.hpp"

using namespace stereo::test;

namespace {

INSTANTIATE_TEST_SUITE_P(Syntax, HostileFiles, testing::Values("yml", "xml", "json"),
                         [](const auto& instance) { return instance.param; });

}  // namespace

TEST_P(HostileFiles, MissingEmptyAndBlank) {
  EXPECT_EQ(settingsAt(m_dir.path("missing." + GetParam())), Outcome::incomplete);
  EXPECT_EQ(settings(""), Outcome::incomplete);
  EXPECT_EQ(settings(" "), Outcome::malformed);
  EXPECT_EQ(settings("\n\n\n"), Outcome::malformed);
  EXPECT_EQ(calibrationAt(m_dir.path("missing." + GetParam())), Outcome::incomplete);
  EXPECT_EQ(untouched(), 0);
  for (const char* const text : {"", " ", "\n\n\n"}) {
    EXPECT_EQ(calibration(text), Outcome::malformed);
    EXPECT_EQ(untouched(), 9);
  }
}

TEST_P(HostileFiles, DirectoriesAndPathsOfNoName) {
  const std::string directory = m_dir.path("directory." + GetParam());
  std::filesystem::create_directory(directory);
  for (const std::string& odd : {directory, std::string()}) {
    EXPECT_EQ(settingsAt(odd), Outcome::malformed);
    EXPECT_EQ(calibrationAt(odd), Outcome::malformed);
    EXPECT_EQ(untouched(), 9);
  }
  const SyncProbe sync(directory);
  const OutputCapture errors(2);
  EXPECT_TRUE(camera.saveConfig(directory));
  EXPECT_TRUE(camera.saveCalibParams(directory));
  EXPECT_TRUE(std::filesystem::is_empty(directory));
  EXPECT_TRUE(camera.saveConfig(""));
  EXPECT_TRUE(camera.saveCalibParams(""));
}

// A board's power may fail while a file is written.
TEST_P(HostileFiles, SettingsCutOffAnywhere) {
  const std::string whole = savedSettings();
  ASSERT_EQ(settings(whole), Outcome::loaded);
  // Only this syntax has no end that could be missing.
  const std::size_t device = GetParam() == "yml" ? whole.find("FrameSize") : whole.size() - 2;
  for (std::size_t length = 1; length < whole.size(); ++length) {
    const Outcome outcome = settings(whole.substr(0, length));
    EXPECT_FALSE(outcome == Outcome::loaded && length < device - 5) << length;
  }
}

TEST_P(HostileFiles, CalibrationCutOffAnywhere) {
  const std::string whole = savedCalibration();
  ASSERT_EQ(calibration(whole), Outcome::loaded);
  const std::size_t end = GetParam() == "yml" ? whole.find("Reserved") : whole.size() - 2;
  for (std::size_t length = 1; length < whole.size(); ++length) {
    const Outcome outcome = calibration(whole.substr(0, length));
    EXPECT_FALSE(outcome == Outcome::loaded && length < end - 5) << length;
    EXPECT_FALSE(outcome == Outcome::malformed && GetParam() != "yml" && untouched() != 9) << length;
  }
}

TEST_P(HostileFiles, Noise) {
  std::mt19937 random(20240229);
  const std::string head = GetParam() == "yml"   ? "%YAML:1.0\n---\n"
                           : GetParam() == "xml" ? "<?xml version=\"1.0\"?>\n<opencv_storage>\n"
                                                 : "{\n";
  for (int round = 0; round < 300; ++round) {
    std::string text = round % 2 == 0 ? head : "";
    const std::size_t length = random() % 3000;
    for (std::size_t i = 0; i < length; ++i) {
      text += static_cast<char>(random());
    }
    EXPECT_NE(settings(text), Outcome::loaded) << round;
    EXPECT_NE(calibration(text), Outcome::loaded) << round;
  }
}

// One character changed: the outcome may be any, but keeps its promises.
TEST_P(HostileFiles, SingleCharactersChanged) {
  std::mt19937 random(20240301);
  const std::string characters = "[]{}\"'-! \n<>&/%#|?,\t0e.nz\x80";
  for (const bool calibrated : {false, true}) {
    const std::string whole = calibrated ? savedCalibration() : savedSettings();
    int outcomes[3] = {};
    for (int round = 0; round < 600; ++round) {
      std::string text = whole;
      text[random() % text.size()] = characters[random() % characters.size()];
      ++outcomes[static_cast<int>(calibrated ? calibration(text) : settings(text))];
    }
    EXPECT_GT(outcomes[static_cast<int>(Outcome::loaded)], 0);
    EXPECT_GT(outcomes[static_cast<int>(Outcome::malformed)], 0);
  }
}

TEST_P(HostileFiles, EmptyNames) {
  const std::vector<std::string> texts =
      GetParam() == "yml"
          ? std::vector<std::string>{"%YAML:1.0\n---\nA: 5\n: 5\n", "%YAML:1.0\n---\nA:\n   B: 5\n   : 5\n"}
      : GetParam() == "xml"
          ? std::vector<std::string>{"<?xml version=\"1.0\"?>\n<opencv_storage>\n<>5</>\n</opencv_storage>\n"}
          : std::vector<std::string>{"{ \"\": 5 }\n", "{ : 5 }\n"};
  for (const std::string& text : texts) {
    EXPECT_EQ(settings(text), Outcome::malformed) << text;
    EXPECT_EQ(calibration(text), Outcome::malformed) << text;
    EXPECT_EQ(untouched(), 9) << text;
  }
}

TEST_P(HostileFiles, LargeFilesAreReadAndLongTextsRefused) {
  std::vector<Raw> document;
  for (int i = 0; i < 20000; ++i) {
    document.push_back(number("Other" + std::to_string(i), "1 2"));
    document.back().cols = "2";
  }
  document.push_back(number("DeviceNode", "3"));
  const std::string large = textOf(GetParam(), document);
  EXPECT_GT(large.size(), 1'500'000U);
  EXPECT_EQ(settings(large), Outcome::loaded);
  EXPECT_EQ(camera.m_deviceNode, 3);
  EXPECT_EQ(calibration(large), Outcome::incomplete);

  Raw wide = number("DeviceNode", "4");
  for (int i = 1; i < 500000; ++i) {
    wide.data += " 5";
  }
  wide.cols = "500000";
  EXPECT_EQ(settings(textOf(GetParam(), {wide})), Outcome::loaded);
  EXPECT_EQ(camera.m_deviceNode, 4);

  EXPECT_EQ(settings(textOf(GetParam(), {number("DeviceNode", "\"" + std::string(3'000'000, 'x') + "\"")})),
            Outcome::malformed);
}

namespace {

// In a process of its own, which a fault would end: 10 + outcome of the settings, times 10, + outcome of the
// calibration.
template <typename Test>
[[noreturn]] void loadBoth(Test& test, const std::string& text) {
  const int settings = static_cast<int>(test.settings(text));
  const int calibration = static_cast<int>(test.calibration(text));
  std::_Exit(100 + settings * 10 + calibration);
}

constexpr int bothMalformed = 100 + static_cast<int>(Outcome::malformed) * 11;

}  // namespace

using HostileFilesDeathTest = HostileFiles;
INSTANTIATE_TEST_SUITE_P(Syntax, HostileFilesDeathTest, testing::Values("yml", "xml", "json"),
                         [](const auto& instance) { return instance.param; });

// The parser recurses at each level.
TEST_P(HostileFilesDeathTest, NestingThatNoStackHolds) {
  std::string text;
  for (int i = 0; i < 200'000; ++i) {
    text += GetParam() == "xml" ? "<a>" : "[";
  }
  const std::string head = GetParam() == "yml"   ? "%YAML:1.0\n---\nDeviceNode: "
                           : GetParam() == "xml" ? "<?xml version=\"1.0\"?>\n<opencv_storage>\n"
                                                 : "{ \"DeviceNode\": ";
  EXPECT_EXIT(loadBoth(*this, head + text), testing::ExitedWithCode(bothMalformed), "");
}

// The reader has room for 32 dimensions.
TEST_P(HostileFilesDeathTest, MatricesOfTooManyDimensions) {
  for (const int dimensions : {33, 40, 3000}) {
    {
      cv::FileStorage storage(path(), cv::FileStorage::WRITE);
      for (const char* const key : {"DeviceNode", "SerialNumber"}) {
        storage << key << "{"
                << "sizes" << std::vector<int>(static_cast<std::size_t>(dimensions), 1);
        storage << "dt"
                << "d"
                << "data" << std::vector<double>{1} << "}";
      }
    }
    EXPECT_EXIT(loadBoth(*this, readFile(path())), testing::ExitedWithCode(bothMalformed), "") << dimensions;
  }
}

// A name whose value is cut off, also behind values that look like a tag's end.
TEST_P(HostileFilesDeathTest, EndAfterTheNameOfAnAttribute) {
  const std::string head = "<?xml version=\"1.0\"?>\n<opencv_storage>\n";
  const std::vector<std::string> texts =
      GetParam() == "yml"   ? std::vector<std::string>{"%YAML:1.0\n---\nDeviceNode: !!"}
      : GetParam() == "xml" ? std::vector<std::string>{head + "<DeviceNode type_id=",
                                                       head + "<a b=\">\" type_id=",
                                                       head + "<a b='>' type_id=\n\n",
                                                       head + "<!-- --><a b=\"<c></c>\" type_id=",
                                                       "<?xml version=",
                                                       "<?xml version=\"1.0\" encoding=\">\" b="}
                            : std::vector<std::string>{"{ \"DeviceNode\": { \"type_id\":"};
  for (const std::string& text : texts) {
    EXPECT_EXIT(loadBoth(*this, text), testing::ExitedWithCode(bothMalformed), "") << text;
  }
}

// A parser that waits for more would block the host forever.
TEST_P(HostileFilesDeathTest, StreamsThatNeverBegin) {
  if (GetParam() != "yml") {
    return;  // no other syntax has several
  }
  for (const char* const text : {"%YAML:1.0\n---\nA: 1\n...\n- 5\n", "%YAML:1.0\n---\n   A: 1\n%YA-.Inf\n",
                                 "%YAML:1.0\n---\n{ A: 1 } xx- 5\n"}) {
    EXPECT_EXIT((alarm(60), loadBoth(*this, text)), testing::ExitedWithCode(bothMalformed), "") << text;
  }
}
