// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

namespace stereo::core {

/// Which of a kernel's compiled forms runs. All forms give the same bits; they differ in how many pixels go at once.
/// `plain` is what the compiler makes for any processor of the architecture (SSE2 or NEON).
enum class InstructionSet { plain, avx2, avx512 };

const char* name(InstructionSet set);

/// What this processor can run, narrowest first; never empty.
std::vector<InstructionSet> availableInstructionSets();

/// The one in use: the widest there is, unless the environment variable STEREO_CAMERA_INSTRUCTIONS names another one of
/// the available ones (`plain`, `avx2` or `avx512`) when it is first asked for.
InstructionSet instructionSet();

/// Uses another one from now on. Any thread; kernels that run meanwhile finish in the form they began with.
/// Throws std::invalid_argument if this processor cannot run it.
void useInstructionSet(InstructionSet set);

}  // namespace stereo::core
