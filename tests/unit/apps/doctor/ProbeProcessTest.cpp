// SPDX-License-Identifier: Apache-2.0
#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "apps/stereo-camera/doctor/ProbeProcess.hpp"

using namespace std::chrono_literals;
using stereo::app::askProcess;
using stereo::app::ProbeAnswer;
using How = stereo::app::ProbeAnswer::How;

namespace {

constexpr std::chrono::seconds ample{60};

ProbeAnswer askShell(const std::string& script, std::chrono::milliseconds toBegin, std::chrono::milliseconds toAnswer) {
  return askProcess("/bin/sh", {"sh", "-c", script}, toBegin, toAnswer);
}

}  // namespace

TEST(ProbeProcess, GivesTheAnswerAmongOtherLines) {
  for (const std::string answer : {"frame 928x400 30", "fails it does not open"}) {
    const ProbeAnswer got =
        askShell("echo a log; echo began; echo another; echo '" + answer + "'; echo frame 1x1 1", ample, ample);
    EXPECT_EQ(got.how, How::answered);
    EXPECT_EQ(got.line, answer);
  }
}

TEST(ProbeProcess, TakesNoAnswerFromBeforeItBegan) {
  EXPECT_EQ(askShell("echo frame 928x400 30; echo began", ample, ample).how, How::endedWithout);
  EXPECT_EQ(askShell("echo frame 928x400 30", ample, ample).how, How::neverBegan);
}

TEST(ProbeProcess, TellsOneThatEndedFromOneThatTheDeviceKeeps) {
  EXPECT_EQ(askShell("echo began; kill -SEGV $$", ample, ample).how, How::endedWithout);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(askShell("echo began; exec sleep 600", ample, 200ms).how, How::keptWaiting);
  EXPECT_LT(std::chrono::steady_clock::now() - start, ample) << "killed, not waited for";
}

TEST(ProbeProcess, KeepsTheAnswerOfOneThatDoesNotEnd) {
  const ProbeAnswer got = askShell("printf 'began\\nframe 928x400 30\\n'; exec sleep 600", ample, 200ms);
  EXPECT_EQ(got.how, How::answered);
  EXPECT_EQ(got.line, "frame 928x400 30");
}

TEST(ProbeProcess, CountsTheTimeToAnswerFromTheBeginning) {
  EXPECT_EQ(askShell("sleep 0.5; printf 'began\\nframe 928x400 30\\n'", ample, 200ms).how, How::answered);
}

TEST(ProbeProcess, TellsOneThatNeverBegins) {
  EXPECT_EQ(askShell("exec sleep 600", 200ms, ample).how, How::neverBegan);
  EXPECT_EQ(askShell("exit 1", ample, ample).how, How::neverBegan);
  EXPECT_EQ(askProcess("/nonexistent/program", {"program"}, ample, ample).how, How::neverBegan);
}
