// SPDX-License-Identifier: Apache-2.0
#pragma once

class StereoCamera;

namespace stereo {

/// The camera whose disparity worker the calling thread is, null on any other thread. A worker that waits for a frame
/// has to end with its own stop operation, whoever else may still be waiting.
extern thread_local const StereoCamera* disparityWorkerOfThisThread;

}  // namespace stereo
