// SPDX-License-Identifier: Apache-2.0
#include "src/core/InstructionSet.hpp"

#include <algorithm>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

using stereo::core::availableInstructionSets;
using stereo::core::InstructionSet;
using stereo::core::instructionSet;
using stereo::core::useInstructionSet;

TEST(InstructionSet, EveryMachineHasThePlainForm) {
  const auto available = availableInstructionSets();
  ASSERT_FALSE(available.empty());
  EXPECT_EQ(available.front(), InstructionSet::plain);
  EXPECT_NE(std::find(available.begin(), available.end(), instructionSet()), available.end());
}

TEST(InstructionSet, CanBeChosenFromWhatThereIs) {
  const InstructionSet before = instructionSet();
  const auto available = availableInstructionSets();
  for (const InstructionSet set : {InstructionSet::plain, InstructionSet::avx2, InstructionSet::avx512}) {
    if (std::find(available.begin(), available.end(), set) != available.end()) {
      useInstructionSet(set);
      EXPECT_EQ(instructionSet(), set);
    } else {
      EXPECT_THROW(useInstructionSet(set), std::invalid_argument);
      EXPECT_NE(instructionSet(), set);
    }
  }
  useInstructionSet(before);
}

TEST(InstructionSet, NamesAreThoseOfTheEnvironmentVariable) {
  EXPECT_EQ(std::string(name(InstructionSet::plain)), "plain");
  EXPECT_EQ(std::string(name(InstructionSet::avx2)), "avx2");
  EXPECT_EQ(std::string(name(InstructionSet::avx512)), "avx512");
}

// Read once per process, so each choice needs its own process.
class InstructionSetVariable : public testing::Test {
protected:
  // Runs this test in a new process with the variable set, and returns the choice that it reports.
  static void chosenWith(const char* value, InstructionSet expected, const char* complaint) {
    EXPECT_EXIT(
        {
          setenv("STEREO_CAMERA_INSTRUCTIONS", value, 1);
          std::exit(instructionSet() == expected ? 0 : 1);
        },
        testing::ExitedWithCode(0), complaint)
        << value;
  }

  InstructionSetVariable() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(InstructionSetVariable, ChoosesAndFallsBackToTheWidestWithAWord) {
  for (const InstructionSet set : availableInstructionSets()) {
    chosenWith(name(set), set, "^$");
  }
  chosenWith("", availableInstructionSets().back(), "^$");
  chosenWith("quantum", availableInstructionSets().back(), "'quantum' cannot be had on this processor");
}
