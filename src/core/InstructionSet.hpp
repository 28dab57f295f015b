// SPDX-License-Identifier: Apache-2.0
// Which compiled form of the kernels runs.
#pragma once

#include <vector>

namespace stereo::core {

/// The compiled forms of the kernels. All of them give the same bits; they differ in the number of pixels per vector.
/// `plain` runs on any processor of the architecture (SSE2 or NEON).
enum class InstructionSet { plain, avx2, avx512 };

const char* name(InstructionSet set);

/// The forms that this processor can run, narrowest first; never empty.
std::vector<InstructionSet> availableInstructionSets();

/// The form in use: the widest available one, unless the environment variable STEREO_CAMERA_INSTRUCTIONS names another
/// available one (`plain`, `avx2` or `avx512`) at the first call.
InstructionSet instructionSet();

/// Uses another form from now on. Any thread; running kernels finish in the form that they began with.
/// Throws std::invalid_argument if this processor cannot run it.
void useInstructionSet(InstructionSet set);

}  // namespace stereo::core
