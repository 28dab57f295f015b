// SPDX-License-Identifier: Apache-2.0
// What each mode of the stream sends.
#include "src/core/StreamMode.hpp"

#include <limits>

#include <gtest/gtest.h>

using stereo::core::streamedSize;
using stereo::core::StreamMode;
using stereo::core::streamMode;
using stereo::core::StreamSource;

TEST(StreamMode, NamesTheReadAndTheImageOfEachMode) {
  const struct {
    int mode;
    StreamSource source;
    bool isJoined;
    cv::Size size;
  } table[] = {{0, StreamSource::rawEyes, false, {928, 800}},
               {1, StreamSource::rawEyes, true, {1856, 800}},
               {2, StreamSource::perspectivePair, false, {464, 400}},
               {3, StreamSource::perspectivePair, true, {928, 400}},
               {4, StreamSource::depthPicture, true, {928, 400}}};
  for (const auto& row : table) {
    const StreamMode mode = streamMode(row.mode);
    EXPECT_EQ(mode.source, row.source) << row.mode;
    EXPECT_EQ(mode.isJoined, row.isJoined) << row.mode;
    EXPECT_EQ(streamedSize(mode, {1856, 800}, {464, 400}), row.size) << row.mode;
  }
}

TEST(StreamMode, SendsNothingInAnyOther) {
  constexpr int most = std::numeric_limits<int>::max();
  for (const int number : {-most - 1, -1, 5, most}) {
    EXPECT_EQ(streamMode(number).source, StreamSource::none) << number;
    EXPECT_TRUE(streamedSize(streamMode(number), {1856, 800}, {464, 400}).empty()) << number;
  }
}

TEST(StreamMode, WrapsAWidthThatIsTooLargeToBeDoubled) {
  EXPECT_EQ(streamedSize(streamMode(3), {}, {std::numeric_limits<int>::max(), 1}), cv::Size(-2, 1));
}
