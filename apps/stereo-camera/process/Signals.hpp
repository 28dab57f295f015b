// SPDX-License-Identifier: Apache-2.0
// Signals that ask the program to end.
#pragma once

namespace stereo::app {

// SIGINT (Ctrl-C), SIGTERM, SIGHUP (the terminal is gone) and SIGPIPE (the reader of the output is gone). The first
// signal is only stored, so that the camera is stopped in order and no partial files stay behind. A second SIGINT or
// SIGTERM ends the process at once, as usual.

/// Installs the handlers. SIGHUP and SIGPIPE stay ignored if they are, as with nohup. Call once, from the main thread.
void takeOverSignals();

/// The first signal that came; 0 if none did. Any thread.
int signalReceived();

/// Throws Ended if a signal came. Call it wherever something takes long. Any thread.
void checkSignals();

/// Forgets the signal: for a command in which a signal only starts the next step.
void forgiveSignal();

/// From here on, SIGHUP asks for a reload instead of the end. From the main thread.
void takeHangupForReload();

/// Whether a reload was asked for since the last call.
bool takeReload();

}  // namespace stereo::app
