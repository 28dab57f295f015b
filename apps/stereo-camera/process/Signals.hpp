// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace stereo::app {

// Signals that ask for the program's end: SIGINT (Ctrl-C), SIGTERM, SIGHUP (the terminal is gone) and SIGPIPE (who read
// the output is gone). The first one is only noted, so that the camera is stopped in order and nothing half-written
// stays behind. A second SIGINT or SIGTERM ends the process at once, as it would without this.

/// Takes the signals over; one that is ignored already, as SIGHUP by nohup, stays so, but for SIGINT and SIGTERM. Once,
/// by the main thread.
void takeOverSignals();

/// The first signal that came; 0 if none did. Any thread.
int signalReceived();

/// Throws Ended if a signal came. Called wherever something takes long. Any thread.
void checkSignals();

/// As if no signal had come: for a command that a signal only sends on to its next step.
void forgiveSignal();

}  // namespace stereo::app
