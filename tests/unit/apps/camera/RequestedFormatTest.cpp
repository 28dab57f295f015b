// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/RequestedFormat.hpp"

#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "apps/stereo-camera/process/Failure.hpp"

using stereo::app::chosenInstead;
using stereo::app::DeviceCamera;
using stereo::app::notSupported;
using stereo::app::ratesText;
using stereo::app::RequestedFormat;
using stereo::app::sizesText;
using stereo::app::SupportedFormats;
using stereo::app::unmetRequest;
using testing::AllOf;
using testing::HasSubstr;

namespace {

const cv::Size full(1856, 800);
const RequestedFormat byOption{full, 30, false};
const RequestedFormat byFile{full, 30, true};

SupportedFormats someRates(std::vector<double> rates, std::vector<std::pair<double, double>> ranges = {}) {
  SupportedFormats supported;
  supported.formats = {"YUYV"};
  supported.rates = std::move(rates);
  supported.rateRanges = std::move(ranges);
  return supported;
}

}  // namespace

TEST(RequestedFormat, WhatWasTakenAsAskedNeedsNoLine) {
  EXPECT_EQ(chosenInstead(full, 30, byOption), "");
  EXPECT_EQ(chosenInstead(full, 29.97, byOption), "");
  EXPECT_EQ(chosenInstead(full, 0, byOption), "") << "the driver has no say in its rate";
}

TEST(RequestedFormat, AnotherSizeIsNamedWithTheRemedy) {
  EXPECT_THAT(chosenInstead({640, 480}, 30, byOption),
              AllOf(HasSubstr("delivers 640 x 480 instead of 1856 x 800"), HasSubstr("--size 640x480")));
  EXPECT_THAT(chosenInstead({640, 480}, 30, byFile), HasSubstr("\"FrameSize\" in the settings to 640x480"));
}

TEST(RequestedFormat, AnotherRateIsNamedWithTheRemedy) {
  EXPECT_THAT(chosenInstead(full, 25, byOption),
              AllOf(HasSubstr("delivers 25 frames a second instead of 30"), HasSubstr("--rate 25")));
  EXPECT_THAT(chosenInstead(full, 25, byFile), HasSubstr("\"FrameRate\" in the settings to 25"));
}

TEST(RequestedFormat, ADriverThatTellsNothingIsNotJudged) {
  EXPECT_EQ(notSupported({}, byOption), "");
  EXPECT_EQ(notSupported(someRates({}), byOption), "");
}

TEST(RequestedFormat, SizesOnOffer) {
  EXPECT_EQ(notSupported(someRates({30}), byOption), "");
  SupportedFormats others;
  others.otherSizes = {{640, 480}, {1280, 720}};
  EXPECT_EQ(sizesText(others), "640x480, 1280x720");
  EXPECT_THAT(notSupported(others, byOption),
              AllOf(HasSubstr("does not support 1856 x 800"), HasSubstr("640x480, 1280x720")));
}

TEST(RequestedFormat, RatesOnOffer) {
  EXPECT_THAT(notSupported(someRates({25, 15, 5}), byOption),
              AllOf(HasSubstr("does not support 30 frames a second"), HasSubstr("--rate 25, 15 or 5")));
  EXPECT_EQ(notSupported(someRates({29.97, 15}), byOption), "");
  EXPECT_EQ(notSupported(someRates({}, {{1, 60}}), byOption), "");
  EXPECT_THAT(notSupported(someRates({}, {{1, 25}}), byOption), HasSubstr("any from 1 to 25"));
  EXPECT_NE(notSupported(someRates({}, {{50, 60}}), byOption), "");
  // One format has a single rate, another a range below what is asked for.
  EXPECT_THAT(notSupported(someRates({60}, {{1, 25}}), byOption), HasSubstr("--rate 60 or any from 1 to 25"));
  EXPECT_EQ(ratesText(someRates({30})), "30");
}

TEST(RequestedFormat, WithoutADriverThereAreNoOffers) {
  const SupportedFormats none = stereo::app::supportedFormatsOfNode(9900, full);
  EXPECT_FALSE(none.reportsSizes());
  EXPECT_TRUE(none.rates.empty());
}

// To the user, a device that is not open closed because of the requested format.
TEST(RequestedFormat, AClosedDeviceIsAFailureWithTheRemedy) {
  const DeviceCamera camera(9900);
  try {
    bool isAboutSize = false;
    unmetRequest(camera, byOption, isAboutSize);
    FAIL() << "the device cannot be open";
  } catch (const stereo::app::Failure& failure) {
    EXPECT_EQ(failure.code(), stereo::app::ExitCode::source);
    EXPECT_THAT(failure.what(), AllOf(HasSubstr("closed when it was asked for 1856 x 800 at 30 frames a second"),
                                      HasSubstr("OPENCV_VIDEOIO_PRIORITY_V4L2=999")));
  }
}
