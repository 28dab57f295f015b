// SPDX-License-Identifier: Apache-2.0
// Marks what the library exports.
#pragma once

/// Classes and functions of the public interface. The library hides all other symbols, so that programs cannot come to
/// depend on them and they cannot clash with a program's own.
#define STEREO_CAMERA_EXPORT __attribute__((visibility("default")))
