// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/camera/SupportedFormats.hpp"

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <functional>

#include "model/Text.hpp"

namespace stereo::app {

namespace {

constexpr std::size_t mostOtherSizes = 12;  // enough for a line

// "YUYV"
std::string codeName(__u32 code) {
  std::string name;
  for (int shift = 0; shift < 32; shift += 8) {
    name += static_cast<char>((code >> shift) & 0x7FU);
  }
  return name;
}

bool covers(const v4l2_frmsizeenum& offered, cv::Size size) {
  const auto width = static_cast<__u32>(size.width);
  const auto height = static_cast<__u32>(size.height);
  if (offered.type == V4L2_FRMSIZE_TYPE_DISCRETE) {
    return offered.discrete.width == width && offered.discrete.height == height;
  }
  const auto& range = offered.stepwise;
  const auto fits = [](__u32 value, __u32 least, __u32 most, __u32 step) {
    return value >= least && value <= most && (step == 0 || (value - least) % step == 0);
  };
  return fits(width, range.min_width, range.max_width, range.step_width) &&
         fits(height, range.min_height, range.max_height, range.step_height);
}

// Frames a second; 0 for an invalid interval.
double rateOf(const v4l2_fract& interval) {
  return interval.numerator == 0 ? 0 : static_cast<double>(interval.denominator) / interval.numerator;
}

template <typename Value>
void addNew(std::vector<Value>& values, const Value& value) {
  if (std::find(values.begin(), values.end(), value) == values.end()) {
    values.push_back(value);
  }
}

void addRates(SupportedFormats& supported, int device, __u32 format, cv::Size size) {
  v4l2_frmivalenum interval{};
  interval.pixel_format = format;
  interval.width = static_cast<__u32>(size.width);
  interval.height = static_cast<__u32>(size.height);
  for (; ioctl(device, VIDIOC_ENUM_FRAMEINTERVALS, &interval) == 0; ++interval.index) {
    if (interval.type != V4L2_FRMIVAL_TYPE_DISCRETE) {
      addNew(supported.rateRanges, {rateOf(interval.stepwise.max), rateOf(interval.stepwise.min)});
      break;
    }
    if (rateOf(interval.discrete) > 0) {
      addNew(supported.rates, rateOf(interval.discrete));
    }
  }
}

void addOther(SupportedFormats& supported, cv::Size size) {
  if (supported.otherSizes.size() < mostOtherSizes) {
    addNew(supported.otherSizes, size);
  }
}

}  // namespace

bool SupportedFormats::hasRate(double rate) const {
  constexpr double near = 0.5;  // 29.97 counts as 30
  return !reportsRates() ||
         std::any_of(rates.begin(), rates.end(), [&](double one) { return std::abs(one - rate) < near; }) ||
         std::any_of(rateRanges.begin(), rateRanges.end(),
                     [&](const auto& range) { return rate > range.first - near && rate < range.second + near; });
}

SupportedFormats supportedFormats(int device, cv::Size wanted) {
  SupportedFormats supported;
  v4l2_fmtdesc format{};
  format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  for (; ioctl(device, VIDIOC_ENUM_FMT, &format) == 0; ++format.index) {
    v4l2_frmsizeenum offered{};
    offered.pixel_format = format.pixelformat;
    for (; ioctl(device, VIDIOC_ENUM_FRAMESIZES, &offered) == 0; ++offered.index) {
      const bool discrete = offered.type == V4L2_FRMSIZE_TYPE_DISCRETE;
      if (covers(offered, wanted)) {
        supported.formats.push_back(codeName(format.pixelformat));
        addRates(supported, device, format.pixelformat, wanted);
      } else if (discrete) {
        addOther(supported, {static_cast<int>(offered.discrete.width), static_cast<int>(offered.discrete.height)});
      } else {
        addOther(supported,
                 {static_cast<int>(offered.stepwise.max_width), static_cast<int>(offered.stepwise.max_height)});
      }
      if (!discrete) {
        break;
      }
    }
  }
  std::sort(supported.rates.begin(), supported.rates.end(), std::greater<>());
  return supported;
}

SupportedFormats supportedFormatsOfNode(int node, cv::Size wanted) {
  const int device = open(("/dev/video" + std::to_string(node)).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (device < 0) {
    return {};
  }
  SupportedFormats supported = supportedFormats(device, wanted);
  close(device);
  return supported;
}

std::string numberText(double number) {
  char digits[32];
  std::snprintf(digits, sizeof digits, "%g", number);
  return digits;
}

std::string ratesText(const SupportedFormats& supported) {
  std::vector<std::string> choices;
  for (const double rate : supported.rates) {
    choices.push_back(numberText(rate));
  }
  for (const auto& [least, most] : supported.rateRanges) {
    choices.push_back("any from " + numberText(least) + " to " + numberText(most));
  }
  std::string text;
  for (std::size_t i = 0; i < choices.size(); ++i) {
    text += (i == 0 ? "" : i + 1 == choices.size() ? " or " : ", ") + choices[i];
  }
  return text;
}

std::string sizesText(const SupportedFormats& supported) {
  std::string text;
  for (const cv::Size size : supported.otherSizes) {
    text += (text.empty() ? "" : ", ") + model::sizeOption(size);
  }
  return text;
}

}  // namespace stereo::app
