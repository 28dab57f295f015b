// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace stereo::sys {

/// Has the kernel end the stream of /dev/video<node> through every descriptor of it that this process holds, whoever
/// opened it. A thread that waits in there for a frame, however deep in a library, gets an error instead. The number of
/// descriptors that were streaming; 0 where the device is not open here, not there, or not a video device.
int stopStreaming(int node);

}  // namespace stereo::sys
