// SPDX-License-Identifier: Apache-2.0
// The host program's command line: sources, names, help.
#include <algorithm>
#include <filesystem>
#include <set>
#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/stereo-camera/camera/DeviceName.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "tests/support/Program.hpp"

using stereo::app::ExitCode;
using stereo::test::Arguments;
using stereo::test::Outcome;
using stereo::test::Program;
using stereo::test::TempDir;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

Outcome run(const Arguments& arguments, const std::vector<std::string>& environment = {}) {
  return stereo::test::run(STEREO_CAMERA_PROGRAM, arguments, environment);
}

void expectUsage(const Arguments& arguments, const std::string& message) {
  const Outcome outcome = run(arguments);
  EXPECT_EQ(outcome.code, static_cast<int>(ExitCode::usage)) << testing::PrintToString(arguments) << outcome.err;
  EXPECT_THAT(outcome.err, HasSubstr(message)) << testing::PrintToString(arguments);
}

}  // namespace

TEST(Options, TheSourceIsTheFirstLine) {
  EXPECT_THAT(run({"info", "--simulate", "--seed", "5"}).err, StartsWith("source: simulated camera, seed 5\n"));
  EXPECT_THAT(run({"info"}).err, StartsWith("source: simulated camera, seed 1 (no --device, --settings or --replay"));
  EXPECT_THAT(run({"info", "--replay", "nothing.png"}).err, StartsWith("source: recording nothing.png\n"));
}

TEST(Options, WhatTakesLongWantsItsSourceNamed) {
  const TempDir folder;
  for (const Arguments& arguments :
       {Arguments{"record", "-o", folder.path("taken")},
        Arguments{"calibrate", "--square", "30", "-o", folder.path("made") + "/calibration.yml"}}) {
    expectUsage(arguments, "--device N, --settings FILE, --replay PATH or --simulate");
  }
  EXPECT_TRUE(std::filesystem::is_empty(folder.path()));
  expectUsage({"calibrate", "--square", "30"}, "a FOLDER of pictures");
}

TEST(Options, DevicesHaveNumbersAndPaths) {
  using stereo::app::deviceNode;
  using stereo::app::Failure;
  EXPECT_EQ(deviceNode("7"), 7);
  EXPECT_EQ(deviceNode("/dev/video12"), 12);
  // As below /dev/v4l, where names lead on to numbers; whether the device is there shows when it is opened.
  const TempDir folder;
  std::filesystem::create_directory(folder.path("by-id"));
  std::filesystem::create_symlink("/dev/../dev/video97", folder.path("by-path"));
  std::filesystem::create_symlink("../by-path", folder.path("by-id/camera"));
  EXPECT_EQ(deviceNode(folder.path("by-id/camera")), 97);
  const Outcome absent = run({"info", "--device", folder.path("by-id/camera")}, {"ASAN_OPTIONS=detect_leaks=0"});
  EXPECT_EQ(absent.code, static_cast<int>(ExitCode::source));
  EXPECT_THAT(absent.err, HasSubstr("cannot open video device 97"));
  for (const char* const name : {"", "-1", "100", "video0", "/dev/null", "/dev/video", "/dev/video0x"}) {
    EXPECT_THROW(deviceNode(name), Failure) << name;
  }
  expectUsage({"doctor", "--device", "video0"}, "'video0' is neither N nor a path");
  EXPECT_EQ(run({"info", "--device", "/dev/v4l/none"}).code, static_cast<int>(ExitCode::source));
}

TEST(Options, CommandsHaveTheOptionsThatTheyUse) {
  const auto has = [](const std::string& command, const std::string& option) {
    return run({command, "--help"}).out.find(option + " ") != std::string::npos;
  };
  for (const char* const command : {"share", "stream", "record", "calibrate", "doctor"}) {
    EXPECT_TRUE(has(command, "--position")) << command;
  }
  for (const char* const command : {"stream", "doctor"}) {
    EXPECT_TRUE(has(command, "--receiver")) << command;
  }
  for (const char* const command : {"info", "share", "check", "calibrate"}) {
    EXPECT_FALSE(has(command, "--matcher")) << command;
    EXPECT_FALSE(has(command, "--depth-mode")) << command;
  }
  EXPECT_FALSE(has("info", "--once"));
  EXPECT_FALSE(has("calibrate", "--calibration"));
  expectUsage({"share", "--matcher", "bm"}, "share has no option '--matcher'");
}

TEST(Options, HelpIsAsWideAsTheTerminal) {
  for (const std::size_t width : {50U, 80U, 120U}) {
    for (const Arguments& help :
         {Arguments{"--help"}, Arguments{"record", "--help"}, Arguments{"calibrate", "--help"}}) {
      std::istringstream lines(run(help, {"COLUMNS=" + std::to_string(width)}).out);
      std::size_t longest = 0;
      for (std::string line; std::getline(lines, line);) {
        longest = std::max(longest, line.size());
      }
      EXPECT_LE(longest, width);
      EXPECT_GT(longest, width - 15);
    }
  }
}

TEST(Options, MistakesGetASuggestion) {
  expectUsage({"snapshto"}, "stereo-camera: there is no command 'snapshto'; did you mean 'snapshot'?");
  expectUsage({"bench", "--secnds", "3"},
              "bench has no option '--secnds'; did you mean '--seconds'? (stereo-camera bench");
  expectUsage({"record", "--simul=1"}, "did you mean '--simulate'?");
  const Outcome far = run({"record", "--xyzzyxyzzy"});
  EXPECT_EQ(far.code, static_cast<int>(ExitCode::usage));
  EXPECT_EQ(far.err, "stereo-camera: record has no option '--xyzzyxyzzy' (stereo-camera record --help)\n");
}

namespace {

// Words that bash would offer for the last of these.
std::set<std::string> completed(const std::string& script, const std::string& words) {
  Program bash("/bin/bash", {"-c", "source '" + script + "'; COMP_WORDS=(stereo-camera " + words +
                                       "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _stereo_camera; printf '%s\\n' "
                                       "\"${COMPREPLY[@]}\""});
  EXPECT_EQ(bash.wait(), 0) << bash.err();
  EXPECT_EQ(bash.err(), "");
  std::set<std::string> result;
  std::istringstream lines(bash.out());
  for (std::string line; std::getline(lines, line);) {
    result.insert(line);
  }
  return result;
}

}  // namespace

TEST(Options, ShellsCompleteWhatTheParserKnows) {
  const TempDir folder;
  const std::string script = folder.write("bash", run({"completion", "bash"}).out);
  EXPECT_EQ(completed(script, "sn"), std::set<std::string>{"snapshot"});
  EXPECT_EQ(completed(script, "record --codec ''"), (std::set<std::string>{"huffyuv", "ffv1"}));
  EXPECT_EQ(completed(script, "bench --ma"), std::set<std::string>{"--matcher"});
  EXPECT_EQ(completed(script, "share --ma"), std::set<std::string>{""});
  EXPECT_EQ(completed(script, "info --calibration " + folder.path() + "/b"),
            std::set<std::string>{folder.path("bash")});
  EXPECT_EQ(run({"completion", "fish"}).code, static_cast<int>(ExitCode::usage));
  // Every command and option of the help, in both.
  const std::string zsh = run({"completion", "zsh"}).out;
  EXPECT_THAT(zsh, StartsWith("#compdef stereo-camera\n"));
  for (const std::string& command : completed(script, "''")) {
    if (command.rfind("--", 0) == 0) {
      continue;
    }
    EXPECT_THAT(zsh, HasSubstr("'" + command + ":"));
    const std::set<std::string> offered = completed(script, command + " --");
    std::istringstream help(run({command, "--help"}).out);
    for (std::string word; help >> word;) {
      const std::string option = word.substr(std::min(word.find("--"), word.size()));
      if (word.rfind("--", 0) == 0 && word.find_first_of(",;)(.") == std::string::npos) {
        EXPECT_EQ(offered.count(option), 1U) << command << " " << option;
        EXPECT_THAT(zsh, HasSubstr("'" + option + "["));
      }
    }
  }
}
