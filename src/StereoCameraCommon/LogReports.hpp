// SPDX-License-Identifier: Apache-2.0
// Reports of the class through its log.
#pragma once

class SystemLog;

namespace stereo {

/// Report progress or an error. `log` may be null, as in a camera whose settings failed to load: then errors go to
/// standard error unchanged, and progress is dropped.
void reportInfo(SystemLog* log, const char* text);
void reportError(SystemLog* log, const char* text);

}  // namespace stereo
