// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/Soak.hpp"

#include <algorithm>
#include <fstream>

#include <malloc.h>
#include <signal.h>
#include <sys/shm.h>
#include <unistd.h>

#include "model/CameraFacts.hpp"

namespace stereo::soak {

namespace {

constexpr int mostPositions = 20'000;  // keeps the stream's port below those that the system gives to senders
// What a camera at work needs varies with what happens to coincide. A leak that outlives the camera is seen at rest.
constexpr long longLifeKilobytes = 32 * 1024;
constexpr int longSamples = 120;  // in a long life

constexpr timespec look{0, 20'000'000};             // between looks at a condition
constexpr std::chrono::seconds brokenPatience(20);  // with what is made not to happen
constexpr std::size_t fullSettling = 6;             // lives from one full wait to the next
constexpr int mostVainWaits = 3;                    // after so many nothing more is expected to settle
constexpr unsigned hung = 600;                      // seconds without a sign of life after which the process is ended

constexpr bool sanitized =
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    true;
#else
    false;
#endif

// One whose key nobody holds; drawn from the process, so that several may run beside each other.
int freePosition() {
  int position = 1 + static_cast<int>(getpid()) % mostPositions;
  while (shmget(position + model::firstSegmentKey, 0, 0) != -1) {
    position = 1 + (position + 7) % mostPositions;
  }
  return position;
}

Setting settingOf(const Options& options) {
  Setting setting;
  setting.seed = options.seed;
  setting.pictures = options.pictures;
  return setting;
}

// Seconds: a sixtieth of the run, within reason.
double longLife(const Options& options) {
  return options.lives != 0 ? options.lifeSeconds : std::clamp(options.minutes, 15.0, 120.0);
}

ReadCounts readsSince(const ReadCounts& before, ReadCounts counts) {
  for (std::size_t i = 0; i < counts.size(); ++i) {
    counts[i] -= before[i];
  }
  return counts;
}

double secondsOf(std::chrono::steady_clock::duration duration) {
  return std::chrono::duration<double>(duration).count();
}

}  // namespace

Soak::Soak(const Options& options, SoakReport& report)
    : m_options(options),
      m_setting(settingOf(options)),
      m_report(report),
      m_shared(options.pictures),
      m_full({model::fullFrameWidth, model::fullFrameHeight}, m_setting),
      m_half({model::fullFrameWidth / 2, model::fullFrameHeight / 2}, m_setting),
      m_position(freePosition()),
      m_waste(options.breaks) {
  for (int i = 0; i < options.pictures; ++i) {
    m_full.of(static_cast<std::uint32_t>(i)).eye[0].copyTo(m_shared.leftEye(true, i));
    m_half.of(static_cast<std::uint32_t>(i)).eye[0].copyTo(m_shared.leftEye(false, i));
    if (options.breaks.image) {
      m_shared.leftEye(true, i).ptr(1)[0] ^= 1;
      m_shared.leftEye(false, i).ptr(1)[0] ^= 1;
    }
  }
  if (options.breaks.image) {
    m_shared.counters().patience = 1000;
  }
}

bool Soak::run() {
  m_begin = Clock::now();
  m_nextLine = m_begin + std::chrono::minutes(1);
  m_consumer =
      std::make_unique<ConsumerProcess>(m_shared, m_position + model::firstSegmentKey, m_options.seed, m_failures);
  for (int number = 0; !over() && (m_options.lives == 0 || number < m_options.lives); ++number) {
    live(number);
    m_waste.lose();
    sampleAtRest();
  }
  return verdict();
}

void Soak::live(int number) {
  const Plan plan = planOf(number, m_options.streams);
  const std::chrono::duration<double> length(plan.isLong ? longLife(m_options) : m_options.lifeSeconds);
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(length);
  const std::uint64_t imagesBefore = m_consumer->taken();
  m_failuresBefore = m_failures.count();
  m_inLife.clear();
  m_sampleEvery = std::chrono::duration_cast<Clock::duration>(plan.isLong ? length / longSamples : length * 2);
  m_nextSample = Clock::time_point::max();

  CameraLife life(plan, plan.fullSize ? m_full : m_half, m_setting, m_position, m_shared.counters().newest,
                  m_options.breaks, m_failures);
  m_life = &life;
  awaitReads(life, "", ReadCounts{});
  restartDisparity(life);
  awaitImagesAndPackets(life, plan, imagesBefore);
  m_nextSample = Clock::now();  // by now all threads of libraries below have been made that a life makes
  while (!lifeIsOver() && Clock::now() < end) {
    const auto until = std::min(end, Clock::now() + std::chrono::seconds(5));
    await([&] { return Clock::now() >= until; });
    if (until < end) {
      restartDisparity(life);
    }
  }
  if (plan.isLong) {
    judgeLongLife(number);
  }
  tick();
  life.end();
  m_life = nullptr;
  life.addTo(m_totals);
}

void Soak::restartDisparity(CameraLife& life) {
  life.restartDisparity();
  if (m_options.breaks.restart) {
    m_patience = brokenPatience;
  }
  awaitReads(life, " after the disparity worker's restart", life.reads());
}

void Soak::awaitReads(CameraLife& life, const char* what, const ReadCounts& before) {
  const auto least = static_cast<std::uint64_t>(m_options.reads);
  await([&] {
    const ReadCounts since = readsSince(before, life.reads());
    return *std::min_element(since.begin(), since.end()) >= least;
  });
  if (lifeIsOver()) {
    return;
  }
  const ReadCounts since = readsSince(before, life.reads());
  for (std::size_t i = 0; i < since.size(); ++i) {
    if (since[i] < least) {
      m_failures.add(productNames[i], "only " + std::to_string(since[i]) + " reads" + what);
    }
  }
}

void Soak::awaitImagesAndPackets(CameraLife& life, const Plan& plan, std::uint64_t imagesBefore) {
  const auto images = static_cast<std::uint64_t>(m_options.images);
  if (!await([&] { return m_consumer->taken() >= imagesBefore + images; })) {
    m_failures.add("consumer", "only " + std::to_string(m_consumer->taken() - imagesBefore) + " images taken");
  }
  if (plan.streamMode >= 0 && !await([&] { return life.packets() > 0; })) {
    m_failures.add("stream", "no packet in mode " + std::to_string(plan.streamMode) + "; is there an encoder?");
  }
}

bool Soak::await(const std::function<bool()>& condition) {
  const auto end = Clock::now() + m_patience;
  while (!condition() && !lifeIsOver()) {
    if (Clock::now() > end) {
      return false;
    }
    tick();
  }
  return true;
}

// Waits a moment, and does what has to be done meanwhile.
void Soak::tick() {
  alarm(hung);  // its signal ends the process: a stop that never comes back is told by nothing else
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  m_interrupted = sigtimedwait(&signals, nullptr, &look) > 0 || m_interrupted;
  const auto time = Clock::now();
  if (m_life != nullptr) {
    m_life->packets();  // the receiver's buffer is small
    if (time >= m_nextSample) {
      m_inLife.push_back(resourcesInUse());
      m_nextSample = time + m_sampleEvery;
    }
  }
  if (time >= m_nextLine) {
    m_report.figures(totals());
    m_nextLine += std::chrono::minutes(1);
  }
}

bool Soak::over() const {
  return m_interrupted || (m_options.lives == 0 && secondsOf(Clock::now() - m_begin) >= m_options.minutes * 60);
}

Totals Soak::totals() const {
  Totals totals = m_totals;
  if (m_life != nullptr) {
    m_life->addTo(totals);
  }
  totals.seconds = secondsOf(Clock::now() - m_begin);
  totals.failures = m_failures.count();
  totals.images = m_shared.counters().taken;
  totals.restarts = m_consumer ? m_consumer->restarts() : m_totals.restarts;
  totals.resources = resourcesInUse();
  return totals;
}

// No camera lives. A mapped segment goes when the consumer notices. What libraries below keep for a moment, idle
// threads for instance, may still go, too; a long run waits for that now and then only, since the least numbers are
// what counts.
void Soak::sampleAtRest() {
  const bool warm = m_atRest.size() >= static_cast<std::size_t>(m_options.warmUpLives);
  const std::chrono::duration<double> settling(m_vainWaits < mostVainWaits ? m_options.settleSeconds : 0);
  const auto end = Clock::now() + std::chrono::duration_cast<Clock::duration>(settling);
  Resources found = resourcesInUse();
  const bool waitsForThreads = warm && (m_options.lives != 0 || m_atRest.size() % fullSettling == 0);
  const auto settled = [&] {
    const auto least = [&](long Resources::*field) {
      long value = found.*field;
      for (auto i = static_cast<std::size_t>(m_options.warmUpLives); i < m_atRest.size(); ++i) {
        value = std::min(value, m_atRest[i].*field);
      }
      return value;
    };
    return found.segments == 0 && (!waitsForThreads || (found.threads <= least(&Resources::threads) &&
                                                        found.descriptors <= least(&Resources::descriptors)));
  };
  while (!settled() && Clock::now() < end && !m_interrupted) {
    tick();
    found = resourcesInUse();
  }
  m_vainWaits += settled() ? 0 : 1;
  malloc_trim(0);
  found.residentKilobytes = resourcesInUse().residentKilobytes;
  m_atRest.push_back(found);
}

Limits Soak::limits() const {
  Limits limits;
  limits.judgeMemory = !sanitized;
  return limits;
}

void Soak::judgeLongLife(int number) {
  Limits inLife = limits();
  inLife.memorySamples = longSamples / 2;
  inLife.memoryKilobytes = longLifeKilobytes;
  inLife.heapKilobytes = longLifeKilobytes;
  if (m_inLife.size() >= inLife.memorySamples) {
    ++m_longLives;
    m_longRise = std::max(m_longRise, memoryRise(m_inLife));
  }
  for (Resources& each : m_inLife) {
    each.segments = 0;  // the camera's
  }
  for (const Rise& rise : assess(m_inLife, inLife)) {
    m_failures.add(rise.what + " within a life", rise.text + " in life " + std::to_string(number));
  }
}

bool Soak::verdict() {
  m_totals.restarts = m_consumer->restarts();
  m_consumer.reset();
  if (shmget(m_position + model::firstSegmentKey, 0, 0) != -1) {
    m_failures.add("segment", "left behind under key " + std::to_string(m_position + model::firstSegmentKey));
  }
  const std::size_t warmUp = std::min(m_atRest.size(), static_cast<std::size_t>(m_options.warmUpLives));
  const std::vector<Resources> warm(m_atRest.begin() + static_cast<std::ptrdiff_t>(warmUp), m_atRest.end());
  Limits betweenLives = limits();
  betweenLives.warmUp = warmUp;
  for (const Rise& rise : assess(m_atRest, betweenLives)) {
    m_failures.add(rise.what + " between lives", rise.text);
  }
  const Totals all = totals();
  const std::vector<std::string> reasons = m_failures.lines();
  m_report.figures(all);
  for (const std::string& reason : reasons) {
    m_report.line("  " + reason);
  }
  if (!describe(warm).empty()) {
    m_report.line("  at rest, " + std::to_string(warm.size()) + " times: " + describe(warm));
  }
  if (m_longLives > 0) {
    m_report.line("  within " + std::to_string(m_longLives) + " long lives: resident kilobytes rose by at most " +
                  std::to_string(m_longRise));
  }
  if (const std::string unknown = unjudged(m_atRest.size(), betweenLives); !unknown.empty()) {
    m_report.line("  not judged between lives: " + unknown);
  }
  const bool good = reasons.empty() && all.frames > 0;
  m_report.line(std::string(good ? "good" : "BAD") + (m_interrupted ? " (interrupted)" : ""));
  if (!m_options.json.empty()) {
    std::ofstream(m_options.json) << json(all, m_atRest, good, reasons);
  }
  return good;
}

}  // namespace stereo::soak
