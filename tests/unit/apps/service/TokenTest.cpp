// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/service/Token.hpp"

#include <filesystem>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/stereo-camera/process/Failure.hpp"
#include "tests/support/TempDir.hpp"

namespace stereo::app {
namespace {

namespace fs = std::filesystem;

TEST(Token, IsNewEachTime) {
  const std::string token = newToken();
  EXPECT_THAT(token, testing::MatchesRegex("[0-9a-f]+"));
  EXPECT_EQ(token.size(), 32U);
  EXPECT_NE(token, newToken());
}

TEST(Token, StaysInItsFileWhichOthersCannotRead) {
  const test::TempDir folder;
  const std::string file = folder.path("token");
  bool isNew = false;
  const std::string token = tokenFrom(file, isNew);
  EXPECT_TRUE(isNew);
  EXPECT_EQ(fs::status(file).permissions(), fs::perms::owner_read | fs::perms::owner_write);
  EXPECT_EQ(tokenFrom(file, isNew), token);
  EXPECT_FALSE(isNew);
  fs::permissions(file, fs::perms::others_read, fs::perm_options::add);
  EXPECT_THROW(tokenFrom(file, isNew), Failure);
}

TEST(Token, RefusesFilesWithAnythingElse) {
  const test::TempDir folder;
  const std::string file = folder.path("token");
  bool isNew = false;
  for (const std::string& content :
       {std::string("short"), std::string("with spaces in between"), std::string(300, 'a'), std::string()}) {
    test::writeFile(file, content);
    fs::permissions(file, fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_THROW(tokenFrom(file, isNew), Failure) << content;
  }
  EXPECT_THROW(tokenFrom(folder.path("none/token"), isNew), Failure);
}

}  // namespace
}  // namespace stereo::app
