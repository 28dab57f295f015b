// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "tests/campaigns/soak/CheckingReaders.hpp"
#include "tests/campaigns/soak/Checks.hpp"
#include "tests/campaigns/soak/ExpectedImages.hpp"
#include "tests/campaigns/soak/Failures.hpp"
#include "tests/campaigns/soak/Ledger.hpp"
#include "tests/campaigns/soak/Plan.hpp"
#include "tests/campaigns/soak/SoakCamera.hpp"
#include "tests/campaigns/soak/SoakReport.hpp"
#include "tests/support/StreamReceiver.hpp"

namespace stereo::soak {

/// A camera at work, with its readers and the receiver of its stream. Begins with construction. The host's thread.
class CameraLife {
public:
  /// `newest` counts the frames of all lives. What is referred to has to outlive this. Throws std::logic_error for a
  /// plan that streams outside a network of its own.
  CameraLife(const Plan& plan, const ExpectedImages& book, const Setting& setting, int position,
             std::atomic<std::uint32_t>& newest, const Breaks& breaks, Failures& failures);

  void restartDisparity();
  /// Ends the workers in the planned order, then the readers, which are released by it.
  void end();

  ReadCounts reads() const { return m_readers->counts(); }
  /// Packets that the stream's receiver got so far.
  std::uint64_t packets() { return m_receiver ? static_cast<std::uint64_t>(m_receiver->count()) : 0; }
  void addTo(Totals& totals);

private:
  const Plan m_plan;
  const Breaks m_breaks;
  Ledger m_ledger;
  SoakCamera m_camera;
  const Checks m_checks;
  std::uint64_t m_disparityStarts = 1;
  std::unique_ptr<test::PacketCounter> m_receiver;
  std::unique_ptr<CheckingReaders> m_readers;  // goes first
};

}  // namespace stereo::soak
