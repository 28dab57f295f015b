// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <functional>
#include <string>

#include <opencv2/videoio.hpp>

namespace stereo::sys {

/// Who reads what is behind a cv::VideoCapture: OpenCV's GStreamer or V4L2 back end, another one of OpenCV's, or none
/// of them, as with a derived class that reads something of its own.
enum class BackEnd { gstreamer, kernel, otherOfOpenCv, foreign };
/// While nobody opens or releases the device.
BackEnd backEndOf(const cv::VideoCapture& device);

/// Stops the pipeline of a GStreamer device, from any thread, while a read waits for its next frame: that read fails,
/// and nothing is destroyed. The next read would start the pipeline again; none may begin meanwhile. A pipeline that
/// does not run is left alone, after the five seconds that OpenCV waits for it.
void stopPipeline(cv::VideoCapture& device);

/// Has the kernel end the stream of /dev/video<node> through every descriptor of it that this process holds, whoever
/// opened it. A thread that waits in there for a frame, however deep in a library, gets an error instead. The number of
/// descriptors that were streaming; 0 where the device is not open here, not there, or not a video device.
int stopStreaming(int node);

/// Calls `visit` with a descriptor for each that this process holds of a device of the kernel's, for the call's
/// duration. It is one of our own for the same open file: its owner may close his meanwhile, and the number may then be
/// another file's.
void forEachDescriptor(const std::string& path, const std::function<void(int)>& visit);

}  // namespace stereo::sys
