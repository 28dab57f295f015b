// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "sim/FaultScript.hpp"
#include "sim/FaultyCapture.hpp"
#include "sources/FrameSource.hpp"
#include "tests/support/Await.hpp"

namespace stereo::test {

inline const cv::Size rawSize(64, 32);

/// Frame after frame of noise that its number is the seed of, the right eye's a little to the left of the left eye's.
class NumberedNoise : public sources::FrameSource {
public:
  NumberedNoise() : FrameSource(0) {}

protected:
  cv::Mat next() override {
    cv::Mat coarse(rawSize.height / 2, rawSize.width / 4 + 1, CV_8UC3);
    cv::RNG random(++m_number);
    random.fill(coarse, cv::RNG::UNIFORM, 0, 256);
    cv::Mat wide;
    cv::resize(coarse, wide, {rawSize.width / 2 + 2, rawSize.height});
    cv::Mat frame;
    cv::hconcat(wide.colRange(0, rawSize.width / 2), wide.colRange(2, rawSize.width / 2 + 2), frame);
    return frame;
  }
  cv::Size frameSize() const override { return rawSize; }
  bool resize(int /*propId*/, double /*value*/) override { return false; }

private:
  std::uint64_t m_number = 0;
};

// What the camera's worker got from its device by one read. A frame is published after that read has returned and
// before the next one begins, so its timestamp lies in between.
struct Delivery {
  cv::Mat picture;
  bool warmUp = false;
  std::chrono::microseconds returned{0};
  std::chrono::microseconds nextAsked = std::chrono::microseconds::max();
};

/// A device that notes all pictures that it delivers. One thread reads; the notes are looked at afterwards.
class NotedCapture : public cv::VideoCapture {
public:
  explicit NotedCapture(const sim::FaultScript& script) : faulty(std::make_unique<NumberedNoise>(), script) {}

  bool read(cv::OutputArray image) override {
    if (!deliveries.empty()) {
      deliveries.back().nextAsked = std::min(deliveries.back().nextAsked, timeOfDay());
    }
    // Into an image of its own, of a type that nothing delivers. So it shows whether the read left it untouched, and
    // nothing is noted that the caller's image held before.
    cv::Mat picture(1, 1, CV_8SC1);
    const bool success = faulty.read(picture);
    const bool warmUp = m_reads++ < 10;
    if (picture.type() == CV_8SC1 && !picture.empty()) {
      return success;
    }
    if (picture.empty()) {
      image.release();
    } else {
      picture.copyTo(image);
      deliveries.push_back({picture, warmUp, timeOfDay()});
    }
    return success;
  }
  bool isOpened() const override { return faulty.isOpened(); }
  void release() override { faulty.release(); }

  /// The picture that was published with this timestamp; null if there is none.
  const cv::Mat* published(std::chrono::microseconds timestamp) const {
    for (const Delivery& each : deliveries) {
      if (!each.warmUp && each.returned <= timestamp && timestamp <= each.nextAsked) {
        return &each.picture;
      }
    }
    return nullptr;
  }

  sim::FaultyCapture faulty;
  std::vector<Delivery> deliveries;

private:
  int m_reads = 0;
};

}  // namespace stereo::test
