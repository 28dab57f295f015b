// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/DeviceWishes.hpp"

#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/stereo-camera/process/Failure.hpp"

using stereo::app::DeviceCamera;
using stereo::app::DeviceOffers;
using stereo::app::DeviceWishes;
using stereo::app::notOffered;
using stereo::app::ratesText;
using stereo::app::sizesText;
using stereo::app::takenInstead;
using stereo::app::wishesUnmet;
using testing::AllOf;
using testing::HasSubstr;

namespace {

const cv::Size full(1856, 800);
const DeviceWishes byOption{full, 30, false};
const DeviceWishes byFile{full, 30, true};

DeviceOffers someRates(std::vector<double> rates, std::vector<std::pair<double, double>> ranges = {}) {
  DeviceOffers offers;
  offers.formats = {"YUYV"};
  offers.rates = std::move(rates);
  offers.rateRanges = std::move(ranges);
  return offers;
}

}  // namespace

TEST(DeviceWishes, WhatWasTakenAsAskedNeedsNoLine) {
  EXPECT_EQ(takenInstead(full, 30, byOption), "");
  EXPECT_EQ(takenInstead(full, 29.97, byOption), "");
  EXPECT_EQ(takenInstead(full, 0, byOption), "") << "the driver has no say in its rate";
}

TEST(DeviceWishes, AnotherSizeIsNamedWithTheRemedy) {
  EXPECT_THAT(takenInstead({640, 480}, 30, byOption),
              AllOf(HasSubstr("gives 640 x 480 instead of 1856 x 800"), HasSubstr("--size 640x480")));
  EXPECT_THAT(takenInstead({640, 480}, 30, byFile), HasSubstr("\"FrameSize\" in the settings to 640x480"));
}

TEST(DeviceWishes, AnotherRateIsNamedWithTheRemedy) {
  EXPECT_THAT(takenInstead(full, 25, byOption),
              AllOf(HasSubstr("gives 25 frames a second instead of 30"), HasSubstr("--rate 25")));
  EXPECT_THAT(takenInstead(full, 25, byFile), HasSubstr("\"FrameRate\" in the settings to 25"));
}

TEST(DeviceWishes, ADriverThatTellsNothingIsNotJudged) {
  EXPECT_EQ(notOffered({}, byOption), "");
  EXPECT_EQ(notOffered(someRates({}), byOption), "");
}

TEST(DeviceWishes, SizesOnOffer) {
  EXPECT_EQ(notOffered(someRates({30}), byOption), "");
  DeviceOffers others;
  others.otherSizes = {{640, 480}, {1280, 720}};
  EXPECT_EQ(sizesText(others), "640x480, 1280x720");
  EXPECT_THAT(notOffered(others, byOption),
              AllOf(HasSubstr("does not offer 1856 x 800"), HasSubstr("640x480, 1280x720")));
}

TEST(DeviceWishes, RatesOnOffer) {
  EXPECT_THAT(notOffered(someRates({25, 15, 5}), byOption),
              AllOf(HasSubstr("does not offer 30 frames a second"), HasSubstr("--rate 25, 15 or 5")));
  EXPECT_EQ(notOffered(someRates({29.97, 15}), byOption), "");
  EXPECT_EQ(notOffered(someRates({}, {{1, 60}}), byOption), "");
  EXPECT_THAT(notOffered(someRates({}, {{1, 25}}), byOption), HasSubstr("any from 1 to 25"));
  EXPECT_NE(notOffered(someRates({}, {{50, 60}}), byOption), "");
  // One format has a single rate, another a range below what is asked for.
  EXPECT_THAT(notOffered(someRates({60}, {{1, 25}}), byOption), HasSubstr("--rate 60 or any from 1 to 25"));
  EXPECT_EQ(ratesText(someRates({30})), "30");
}

TEST(DeviceWishes, WithoutADriverThereAreNoOffers) {
  const DeviceOffers none = stereo::app::offersOfNode(9900, full);
  EXPECT_FALSE(none.tellsSizes());
  EXPECT_TRUE(none.rates.empty());
}

// A device that is not open at all has closed over the wishes, as far as the user is concerned.
TEST(DeviceWishes, AClosedDeviceIsAFailureWithTheRemedy) {
  const DeviceCamera camera(9900);
  try {
    bool isAboutSize = false;
    wishesUnmet(camera, byOption, isAboutSize);
    FAIL() << "the device cannot be open";
  } catch (const stereo::app::Failure& failure) {
    EXPECT_EQ(failure.code(), stereo::app::ExitCode::source);
    EXPECT_THAT(failure.what(), AllOf(HasSubstr("closed when it was asked for 1856 x 800 at 30 frames a second"),
                                      HasSubstr("OPENCV_VIDEOIO_PRIORITY_V4L2=999")));
  }
}
