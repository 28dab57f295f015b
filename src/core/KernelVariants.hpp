// SPDX-License-Identifier: Apache-2.0
// Compiles a kernel for several instruction sets.
#pragma once

#include "src/core/InstructionSet.hpp"

// A kernel is a loop over plain arrays that the compiler turns into vector code. STEREO_CAMERA_KERNEL compiles the same
// body for each instruction set and defines a function that picks the form in use:
//
//   STEREO_CAMERA_ALWAYS_INLINE void halveBody(const float* in, float* out, int count) { ... }
//   STEREO_CAMERA_KERNEL(halve, (const float* in, float* out, int count), (in, out, count))
//
// The body must be forced inline, because otherwise every form would call the plain one. For the same reason it may
// only call functions that are forced inline or a single instruction. Fused multiply-add stays off in all forms, so
// that they agree to the bit. Files with kernels are compiled without errno and traps for mathematics: nothing here
// checks either, and both would prevent vector code for divisions, roots and comparisons. So pixels that do not count
// may raise floating-point exceptions (masked, unless a host enables signals), and rounding must be to nearest on every
// thread.

#define STEREO_CAMERA_ALWAYS_INLINE [[gnu::always_inline]] inline

#if defined(__x86_64__)
#if defined(__clang__)
#define STEREO_CAMERA_AVX512 "avx512f,avx512dq,avx512vl,avx512bw"
#else
#define STEREO_CAMERA_AVX512 "avx512f,avx512dq,avx512vl,avx512bw,prefer-vector-width=512"
#endif
#define STEREO_CAMERA_KERNEL(name, parameters, arguments)                                      \
  [[gnu::target(STEREO_CAMERA_AVX512)]] void name##Avx512 parameters { name##Body arguments; } \
  [[gnu::target("avx2")]] void name##Avx2 parameters { name##Body arguments; }                 \
  void name##Plain parameters { name##Body arguments; }                                        \
  void name parameters {                                                                       \
    switch (instructionSet()) {                                                                \
      case InstructionSet::avx512:                                                             \
        return name##Avx512 arguments;                                                         \
      case InstructionSet::avx2:                                                               \
        return name##Avx2 arguments;                                                           \
      default:                                                                                 \
        return name##Plain arguments;                                                          \
    }                                                                                          \
  }
#else
#define STEREO_CAMERA_KERNEL(name, parameters, arguments) \
  void name parameters { name##Body arguments; }
#endif
