// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "tests/campaigns/soak/CameraLife.hpp"
#include "tests/campaigns/soak/ConsumerProcess.hpp"
#include "tests/campaigns/soak/DeliberateLeaks.hpp"
#include "tests/campaigns/soak/ExpectedImages.hpp"
#include "tests/campaigns/soak/Failures.hpp"
#include "tests/campaigns/soak/Plan.hpp"
#include "tests/campaigns/soak/Resources.hpp"
#include "tests/campaigns/soak/SharedCounters.hpp"
#include "tests/campaigns/soak/SoakReport.hpp"

namespace stereo::soak {

/// One run: camera after camera, beside a consumer that is killed again and again. The host's thread.
class Soak {
public:
  /// SIGINT and SIGTERM have to be blocked in all threads: they are waited for here.
  Soak(const Options& options, SoakReport& report);

  /// Whether all was well. Ends early, in order, on SIGINT and SIGTERM.
  bool run();

private:
  using Clock = std::chrono::steady_clock;

  void live(int number);
  void restartDisparity(CameraLife& life);
  /// Waits for what has to happen in every life; tells a failure for what does not.
  void awaitReads(CameraLife& life, const char* what, const ReadCounts& before);
  void awaitImagesAndPackets(CameraLife& life, const Plan& plan, std::uint64_t imagesBefore);
  /// Looks at the condition until it holds; true, too, once the run is over or the life has gone wrong. False if it
  /// does not come. Takes signals and tells the minutes meanwhile.
  bool await(const std::function<bool()>& condition);
  void tick();
  bool over() const;
  bool lifeIsOver() const { return over() || m_failures.count() != m_failuresBefore; }
  void sampleAtRest();
  void judgeLongLife(int number);
  bool verdict();
  Totals totals() const;
  Limits limits() const;

  const Options m_options;
  const Setting m_setting;
  SoakReport& m_report;
  Failures m_failures;
  SharedCounters m_shared;
  const ExpectedImages m_full;
  const ExpectedImages m_half;
  const int m_position;  // of all cameras
  std::unique_ptr<ConsumerProcess> m_consumer;
  DeliberateLeaks m_waste;
  CameraLife* m_life = nullptr;     // that goes on, if any
  Totals m_totals;                  // of the lives that have ended
  std::vector<Resources> m_atRest;  // after each life
  std::vector<Resources> m_inLife;  // of the long life that goes on
  std::uint64_t m_failuresBefore = 0;
  Clock::time_point m_begin;
  Clock::time_point m_nextLine;
  Clock::time_point m_nextSample;
  Clock::duration m_sampleEvery{};
  int m_longLives = 0;
  long m_longRise = 0;                   // most kilobytes that the memory rose by within one of them
  std::chrono::seconds m_patience{180};  // with what is bound to happen
  int m_vainWaits = 0;
  bool m_interrupted = false;
};

}  // namespace stereo::soak
