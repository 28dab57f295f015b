// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <opencv2/videoio.hpp>

namespace stereo::sys {

/// Who reads the device behind a cv::VideoCapture: OpenCV's GStreamer or V4L2 back end, or anything else, derived
/// classes among it that read something of their own.
enum class BackEnd { gstreamer, kernel, other };
BackEnd backEndOf(const cv::VideoCapture& device);

/// Stops the pipeline of a GStreamer device and starts it again, from any thread: a read that waits for the next frame
/// fails. Nothing is destroyed, and no property changes. Does nothing where the pipeline does not run. For live sources
/// only, as a video device is; any other is started only once it has a frame, and this waits for it. A read must have
/// come to wait, and none may begin meanwhile: both would start the pipeline.
void restartPipeline(cv::VideoCapture& device);

/// Has the kernel end the stream of /dev/video<node> through every descriptor of it that this process holds, whoever
/// opened it. A thread that waits in there for a frame, however deep in a library, gets an error instead. The number of
/// descriptors that were streaming; 0 where the device is not open here, not there, or not a video device.
int stopStreaming(int node);

/// Whether this process has /dev/video<node> open.
bool isOpenHere(int node);

}  // namespace stereo::sys
