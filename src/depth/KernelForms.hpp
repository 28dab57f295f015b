// SPDX-License-Identifier: Apache-2.0
// Compiles a file of kernels once for each instruction set.
#pragma once

#include "src/core/InstructionSet.hpp"

// Kernels that need vectors of a given length are written with the compiler's vector types, in a file `...Body.hpp`
// that is included once for each form, in a namespace of its own:
//
//   #define STEREO_DEPTH_LANES 32
//   STEREO_DEPTH_AVX2_BEGIN
//   namespace avx2 {
//   #include "src/depth/...Body.hpp"
//   }
//   STEREO_DEPTH_AVX2_END
//
// and again as `plain` with 16. A body must not depend on the number of lanes for its results. (A template that is
// inlined into functions for several instruction sets won't do: GCC splits its vectors for the plain processor first.)

#if defined(__x86_64__)
#define STEREO_DEPTH_HAS_AVX2 1
#if defined(__clang__)
#define STEREO_DEPTH_AVX2_BEGIN _Pragma("clang attribute push(__attribute__((target(\"avx2\"))), apply_to = function)")
#define STEREO_DEPTH_AVX2_END _Pragma("clang attribute pop")
#else
#define STEREO_DEPTH_AVX2_BEGIN _Pragma("GCC push_options") _Pragma("GCC target(\"avx2\")")
#define STEREO_DEPTH_AVX2_END _Pragma("GCC pop_options")
#endif
// Calls the form in use.
#define STEREO_DEPTH_CALL(function, ...) \
  (core::instructionSet() == core::InstructionSet::plain ? plain::function(__VA_ARGS__) : avx2::function(__VA_ARGS__))
#else
#define STEREO_DEPTH_HAS_AVX2 0
#define STEREO_DEPTH_CALL(function, ...) (plain::function(__VA_ARGS__))
#endif
