// SPDX-License-Identifier: Apache-2.0
// Finds out what reads a video device, and stops its stream from outside.
#pragma once

#include <functional>
#include <string>

#include <opencv2/videoio.hpp>

namespace stereo::sys {

/// What reads the source behind a cv::VideoCapture: OpenCV's GStreamer or V4L2 back end, another one of OpenCV's, or
/// none of them, as with a derived class that reads a source of its own.
enum class BackEnd { gstreamer, kernel, otherOfOpenCv, foreign };
/// The back end of a device. Nobody may open or release the device meanwhile.
BackEnd backEndOf(const cv::VideoCapture& device);

/// Stops the pipeline of a GStreamer device, from any thread, while a read waits for its next frame: that read fails,
/// and nothing is destroyed. The next read would start the pipeline again, so none may begin meanwhile. Has no effect
/// on a pipeline that does not run, after the five seconds that OpenCV waits for it.
void stopPipeline(cv::VideoCapture& device);

/// Has the kernel end the stream of /dev/video<node> on every descriptor of the device that this process holds, no
/// matter what opened it. A thread that waits for a frame, however deep in a library, gets an error instead. Returns
/// the number of descriptors that were streaming; 0 if the device is not open here, does not exist, or is not a video
/// device.
int stopStreaming(int node);

/// Calls `visit` with a descriptor for each one that this process holds of a kernel device. It is a duplicate, valid
/// during the call: the owner may close the original meanwhile, and its number may then belong to another file.
void forEachDescriptor(const std::string& path, const std::function<void(int)>& visit);

}  // namespace stereo::sys
