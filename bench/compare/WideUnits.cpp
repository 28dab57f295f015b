// SPDX-License-Identifier: Apache-2.0
// Units of comparison: wide depth.
#include <memory>

#include "bench/compare/Unit.hpp"
#include "bench/support/WideWork.hpp"

namespace stereo::compare {

namespace {

/// Made by the first call, since that takes seconds.
class LateWork {
public:
  LateWork(const cv::Size& size, int threads) : m_size(size), m_threads(threads) {}

  bench::WideWork& get() {
    if (!m_work) {
      m_work = std::make_unique<bench::WideWork>(m_size, m_threads);
    }
    return *m_work;
  }

private:
  cv::Size m_size;
  int m_threads;
  std::unique_ptr<bench::WideWork> m_work;
};

Unit againstMatcher(const char* name, const std::shared_ptr<LateWork>& work, double target) {
  Unit unit;
  unit.name = name;
  unit.library = [work] { work->get().library(); };
  unit.peer = [work] { work->get().peer(); };
  unit.peerName = "StereoSGBM, block 7, matching alone";
  unit.difference = [] { return std::string(); };  // has no plain form
  unit.targets = {0, target, 0};
  return unit;
}

}  // namespace

void addWideUnits(std::vector<Unit>& units) {
  const auto one = std::make_shared<LateWork>(cv::Size(464, 400), 1);
  const auto two = std::make_shared<LateWork>(cv::Size(464, 400), 2);
  units.push_back(againstMatcher("wide depth 464x400, one thread", one, 1 / 1.2));
  Unit both;
  both.name = "wide depth 464x400, two threads";
  both.library = [two] { two->get().library(); };
  both.peer = [one] { one->get().library(); };
  both.peerName = "the same with one thread";
  both.difference = [] { return std::string(); };
  both.targets = {0, 1.6, 0};
  units.push_back(both);
  units.push_back(
      againstMatcher("wide depth 928x800, one thread", std::make_shared<LateWork>(cv::Size(928, 800), 1), 1));
}

}  // namespace stereo::compare
