// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

// What a target of the fuzzer gives and may use. libFuzzer calls the targets in the fuzzing build, replay.cpp in all
// others.

extern "C" {

/// Tries one input. Returns 0; whatever is wrong ends the process.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

/// Optional: changes an input of `size` bytes in place, to at most `mostBytes`; returns the new size. The same seed
/// gives the same change.
std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t mostBytes, unsigned int seed);

/// Given to targets: changes an input as bytes that mean nothing.
std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t mostBytes);
}

namespace stereo::fuzz {

/// Ends the process, with `what` on standard error, unless `holds`.
void require(bool holds, const char* what);

/// As above, for something that was computed twice: ends the process with `difference` unless that is empty.
void requireSame(const char* what, const char* difference);

/// Once for the process: OpenCV on the calling thread alone and silent.
void prepareOpenCv();

}  // namespace stereo::fuzz
