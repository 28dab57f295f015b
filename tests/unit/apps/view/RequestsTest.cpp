// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/Requests.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace stereo::app {
namespace {

using testing::Pair;

TEST(Requests, ReadsForms) {
  const auto form = parseForm("camera=front+left&note=%C3%A4%20%3D%26&empty=&bare");
  ASSERT_TRUE(form);
  EXPECT_THAT(*form, testing::ElementsAre(Pair("camera", "front left"), Pair("note", "\xC3\xA4 =&"), Pair("empty", ""),
                                          Pair("bare", "")));
  EXPECT_EQ(*valueOf(*form, "camera"), "front left");
  EXPECT_EQ(valueOf(*form, "none"), nullptr);
  EXPECT_TRUE(parseForm("")->empty());
  for (const char* const bad : {"a=%", "a=%4", "a=%4g", "a=%00", "a=%0a", "a=1&a=2", "%zz=1"}) {
    EXPECT_FALSE(parseForm(bad)) << bad;
  }
  std::string many = "n=1";
  for (int k = 0; k < 40; ++k) {
    many += "&n" + std::to_string(k) + "=1";
  }
  EXPECT_FALSE(parseForm(many));
}

TEST(Requests, ReadsTargets) {
  const auto target = parseTarget("/snapshot/front/left.jpg?token=a%2Bb");
  ASSERT_TRUE(target);
  EXPECT_EQ(target->path, "/snapshot/front/left.jpg");
  EXPECT_EQ(*valueOf(target->query, "token"), "a+b");
  EXPECT_EQ(parseTarget("/a+b")->path, "/a+b");
  for (const char* const bad : {"", "health", "http://host/health", "*", "/%", "/%00", "/a?b=%"}) {
    EXPECT_FALSE(parseTarget(bad)) << bad;
  }
}

TEST(Requests, ReadsViewersMessages) {
  const auto watch = parseViewerMessage("watch front raw-left,range");
  ASSERT_TRUE(watch && std::holds_alternative<Watch>(*watch));
  EXPECT_EQ(std::get<Watch>(*watch).camera, "front");
  EXPECT_EQ(std::get<Watch>(*watch).views, (1U << 0U) | (1U << 6U));
  const auto nothing = parseViewerMessage("watch front");
  ASSERT_TRUE(nothing && std::holds_alternative<Watch>(*nothing));
  EXPECT_EQ(std::get<Watch>(*nothing).views, 0U);
  const auto ack = parseViewerMessage("ack 4294967295");
  ASSERT_TRUE(ack && std::holds_alternative<Acknowledged>(*ack));
  EXPECT_EQ(std::get<Acknowledged>(*ack).number, 4294967295U);
  for (const char* const bad :
       {"", "watch", "watch  left", "watch front left,", "watch front ,left", "watch front Left", "watch a/b left",
        "ack", "ack ", "ack -1", "ack 1 ", "ack 4294967296", "ack 0x1", "ACK 1", "stop"}) {
    EXPECT_FALSE(parseViewerMessage(bad)) << bad;
  }
}

TEST(Requests, ReadsHostNames) {
  EXPECT_EQ(hostName("Robot.Local:8080"), "robot.local");
  EXPECT_EQ(hostName("127.0.0.1"), "127.0.0.1");
  EXPECT_EQ(hostName("[::1]:80"), "::1");
  EXPECT_EQ(hostName("[fe80::1]"), "fe80::1");
  for (const char* const bad : {"", "a b", "a:b", "a:", "a:123456", "[::1", "a/b", "a@b", "[::1]80"}) {
    EXPECT_EQ(hostName(bad), "") << bad;
  }
}

TEST(Requests, KnowsItsOwnOrigin) {
  EXPECT_TRUE(isOwnOrigin("http://robot:8080", "robot:8080"));
  EXPECT_TRUE(isOwnOrigin("https://Robot", "robot"));
  EXPECT_FALSE(isOwnOrigin("http://robot:8081", "robot:8080"));
  EXPECT_FALSE(isOwnOrigin("http://robot", "robot:8080"));
  EXPECT_FALSE(isOwnOrigin("ftp://robot", "robot"));
  EXPECT_FALSE(isOwnOrigin("null", "null"));
  EXPECT_FALSE(isOwnOrigin("http://", ""));
}

TEST(Requests, FindsTokens) {
  EXPECT_EQ(bearerToken("Bearer abc "), "abc");
  EXPECT_EQ(bearerToken("Basic abc"), "");
  EXPECT_EQ(protocolToken("stereo-camera.1, token.abc"), "abc");
  EXPECT_EQ(protocolToken("stereo-camera.1"), "");
  EXPECT_TRUE(offersProtocol("token.x,stereo-camera.1", "stereo-camera.1"));
  EXPECT_FALSE(offersProtocol("stereo-camera.10", "stereo-camera.1"));
  EXPECT_TRUE(isSameToken("abc", "abc"));
  EXPECT_FALSE(isSameToken("abc", "abd"));
  EXPECT_FALSE(isSameToken("abc", "ab"));
  EXPECT_FALSE(isSameToken("", ""));
}

}  // namespace
}  // namespace stereo::app
