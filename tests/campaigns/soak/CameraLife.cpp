// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/CameraLife.hpp"

#include <stdexcept>

#include "model/CameraFacts.hpp"
#include "tests/campaigns/soak/NumberedDevice.hpp"

namespace stereo::soak {

namespace {

constexpr int receiverOctet = 15;
constexpr double streamRate = 30;  // told to the encoder

}  // namespace

CameraLife::CameraLife(const Plan& plan, const ExpectedImages& book, const Setting& setting, int position,
                       std::atomic<std::uint32_t>& newest, const Breaks& breaks, Failures& failures)
    : m_plan(plan),
      m_breaks(breaks),
      m_camera(std::make_unique<NumberedDevice>(book, m_ledger, newest, breaks.tear), book.frameSize(), setting,
               m_ledger),
      m_checks(book, m_ledger, plan.depthMode, plan.algorithm) {
  const bool streams = plan.streamMode >= 0;
  m_camera.setPosNumber(position);
  m_camera.setDepthMode(plan.depthMode);
  m_camera.setAlgorithm(plan.algorithm);
  if (streams) {
    if (!test::inOwnNetwork()) {
      throw std::logic_error("streams only in a network of its own");
    }
    m_camera.setStream(plan.streamMode, streamRate, receiverOctet);
    m_receiver = std::make_unique<test::PacketCounter>(model::firstStreamPort + position);
  }
  if (plan.disparityFirst) {
    m_camera.startStereoCompute();
  }
  m_camera.startCapture(streams, true);
  if (!plan.disparityFirst) {
    m_camera.startStereoCompute();
  }
  m_readers = std::make_unique<CheckingReaders>(m_camera, m_checks, failures);
  m_readers->setComputing(true);
}

void CameraLife::restartDisparity() {
  m_readers->setComputing(false);
  m_camera.stopStereoCompute();
  m_camera.startStereoCompute();
  m_readers->setComputing(!m_breaks.restart);
  ++m_disparityStarts;
}

void CameraLife::end() {
  m_readers->end();
  if (m_plan.captureEndsFirst) {
    m_camera.stopCapture();
    m_camera.stopStereoCompute();
  } else {
    m_camera.stopStereoCompute();
    m_camera.stopCapture();
  }
  m_readers->join();
}

void CameraLife::addTo(Totals& totals) {
  totals.frames += m_ledger.frames();
  totals.checks += m_checks.made();
  totals.lives += 1;
  totals.disparityStarts += m_disparityStarts;
  const ReadCounts counts = reads();
  for (std::size_t i = 0; i < counts.size(); ++i) {
    totals.reads[i] += counts[i];
  }
  if (m_plan.streamMode >= 0) {
    totals.streams += 1;
    totals.packets += packets();
  }
}

}  // namespace stereo::soak
