// SPDX-License-Identifier: Apache-2.0
// The host program's command line: sources, names, help.
#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Failure.hpp"
#include "apps/Program.hpp"

using stereo::app::ExitCode;
using stereo::test::Program;
using stereo::test::TempDir;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

using Arguments = std::vector<std::string>;

struct Outcome {
  int code;
  std::string out;
  std::string err;
};

Outcome run(const Arguments& arguments, const std::vector<std::string>& environment = {}) {
  Program program(STEREO_CAMERA_PROGRAM, arguments, environment);
  const int code = program.wait();
  return {code, program.out(), program.err()};
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
