// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/output/Json.hpp"

#include <string>
#include <utility>

#include <gtest/gtest.h>

namespace stereo::app {
namespace {

std::string written(const std::string& text) {
  const std::string all = Json().add("a", text).text();
  const std::size_t begin = all.find(": ") + 3;
  return all.substr(begin, all.rfind('"') - begin);
}

TEST(Json, KeepsText) {
  for (const std::string text : {"", "plain", "d\xc3\xa9j\xc3\xa0 vu", "\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf",
                                 "\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", "\xc2\x80\xdf\xbf\xe0\xa0\x80"}) {
    EXPECT_EQ(written(text), text);
  }
  EXPECT_EQ(written("say \"no\"\\\n"), R"(say \"no\"\\\u000a)");
}

// Browsers refuse a message with such bytes.
TEST(Json, ReplacesWhatIsNoUtf8) {
  const std::string mark = "\\ufffd";
  for (const auto& [text, marks] : {std::pair<std::string, int>{"\xff", 1},
                                    {"\x80", 1},
                                    {"\xc3", 1},
                                    {"\xc0\xaf", 2},
                                    {"\xe0\x9f\xbf", 3},
                                    {"\xed\xa0\x80", 3},
                                    {"\xf0\x8f\xbf\xbf", 4},
                                    {"\xf4\x90\x80\x80", 4},
                                    {"\xe2\x82", 2},
                                    {"\xf5", 1}}) {
    std::string expected;
    for (int i = 0; i < marks; ++i) {
      expected += mark;
    }
    EXPECT_EQ(written("a" + text + "b"), "a" + expected + "b");
  }
  EXPECT_EQ(written("\xc3(\xc3\xa9"), mark + "(\xc3\xa9");
}

}  // namespace
}  // namespace stereo::app
