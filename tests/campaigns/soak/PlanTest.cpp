// SPDX-License-Identifier: Apache-2.0
// That the lives of a run differ in all that they can differ in, whatever else they have in common.
#include <array>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "tests/campaigns/soak/Plan.hpp"

using stereo::soak::Plan;
using stereo::soak::planOf;

namespace {

constexpr std::array<const char*, 7> names = {"size",           "depth mode",       "algorithm", "stream",
                                              "disparityFirst", "captureEndsFirst", "long"};
using Choices = std::array<int, names.size()>;

Choices choicesOf(const Plan& plan) {
  return {plan.fullSize,       plan.depthMode,        plan.algorithm, plan.streamMode,
          plan.disparityFirst, plan.captureEndsFirst, plan.isLong};
}

// What there is of each choice.
std::array<std::set<int>, names.size()> choices(bool streams) {
  std::array<std::set<int>, names.size()> all = {{{0, 1}, {1, 2}, {0, 1}, {-1}, {0, 1}, {0, 1}, {0, 1}}};
  if (streams) {
    all[3] = {-1, 0, 1, 2, 3, 4};
  }
  return all;
}

bool isPossible(std::size_t a, int ofA, std::size_t b, int ofB) {
  return !(names[a] == std::string("depth mode") && ofA == 1 && names[b] == std::string("stream") && ofB == 4);
}

}  // namespace

TEST(SoakPlan, BringsEveryTwoChoicesTogether) {
  for (const bool streams : {true, false}) {
    std::set<std::array<int, 4>> seen;
    for (int life = 0; life < 600; ++life) {
      const Choices plan = choicesOf(planOf(life, streams));
      for (int a = 0; a < static_cast<int>(plan.size()); ++a) {
        for (int b = 0; b < static_cast<int>(plan.size()); ++b) {
          seen.insert({a, plan[a], b, plan[b]});
        }
      }
    }
    const auto all = choices(streams);
    for (std::size_t a = 0; a < all.size(); ++a) {
      for (std::size_t b = a + 1; b < all.size(); ++b) {
        for (const int ofA : all[a]) {
          for (const int ofB : all[b]) {
            EXPECT_EQ(seen.count({static_cast<int>(a), ofA, static_cast<int>(b), ofB}), isPossible(a, ofA, b, ofB))
                << names[a] << " " << ofA << " with " << names[b] << " " << ofB << ", streams " << streams;
          }
        }
      }
    }
  }
}

// As long as CTest allows.
TEST(SoakPlan, BringsEveryChoiceWithinTenLives) {
  auto left = choices(true);
  for (int life = 0; life < 10; ++life) {
    const Choices plan = choicesOf(planOf(life, true));
    for (std::size_t i = 0; i < plan.size(); ++i) {
      left[i].erase(plan[i]);
    }
  }
  left.back().erase(1);  // long ones are left out of so short a run
  for (std::size_t i = 0; i < left.size(); ++i) {
    EXPECT_TRUE(left[i].empty()) << names[i];
  }
}
