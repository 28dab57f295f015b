// SPDX-License-Identifier: Apache-2.0
#pragma once

class SystemLog;

namespace stereo {

/// Reports of a camera. `log` may be null (a camera whose settings failed to load has none): errors then go to standard
/// error as they are, progress is dropped.
void reportInfo(SystemLog* log, const char* text);
void reportError(SystemLog* log, const char* text);

}  // namespace stereo
