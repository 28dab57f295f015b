// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

#include "sources/FrameSource.hpp"
#include "tests/campaigns/soak/ExpectedImages.hpp"
#include "tests/campaigns/soak/Ledger.hpp"

namespace stereo::soak {

/// Delivers a book's pictures as fast as they are asked for, each frame with its number, and notes them in the ledger.
/// One thread reads.
class NumberedDevice final : public sources::FrameSource {
public:
  /// `newest` is the number of the newest frame of all devices of the run. With `tears`, the lower half of every 50th
  /// frame is the frame's before. Images, ledger and number have to outlive the device.
  NumberedDevice(const ExpectedImages& book, Ledger& ledger, std::atomic<std::uint32_t>& newest, bool tears);

  bool read(cv::OutputArray image) override;

protected:
  cv::Mat next() override;
  cv::Size frameSize() const override { return m_book.frameSize(); }
  bool resize(int propId, double value) override;

private:
  const ExpectedImages& m_book;
  Ledger& m_ledger;
  std::atomic<std::uint32_t>& m_newest;
  const bool m_tears;
  cv::Mat m_frame;  // as delivered last; nobody else keeps its pixels
  std::uint64_t m_reads = 0;
};

}  // namespace stereo::soak
