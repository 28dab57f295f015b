// SPDX-License-Identifier: Apache-2.0
// What each mode of the network stream sends: the one place that decides it.
#pragma once

#include <opencv2/core.hpp>

namespace stereo::core {

/// The read whose pair of images feeds the stream.
enum class StreamSource {
  none,
  rawEyes,          ///< `getRawFrame`: left and right eye.
  perspectivePair,  ///< The two-image `getRectStereoFrame`: left and right view.
  depthPicture      ///< The colored `getDepthFrame` in depth mode 2: perspective view and depth picture.
};

/// What a mode takes from that pair.
struct StreamMode {
  StreamSource source = StreamSource::none;
  bool isJoined = false;  ///< Both images side by side; otherwise the second one alone.
};

/// | mode | image                                               | size                           |
/// |------|-----------------------------------------------------|--------------------------------|
/// | 0    | right eye                                           | half the raw width, raw height |
/// | 1    | both eyes, left one on the left                     | raw frame                      |
/// | 2    | right perspective view                              | rectified eye                  |
/// | 3    | both perspective views, left one on the left        | two rectified eyes             |
/// | 4    | perspective view, depth picture on its right        | two rectified eyes             |
///
/// Any other mode sends nothing.
StreamMode streamMode(int mode);

/// Size in pixels of the images of a mode, from the sizes of the raw frame and of one rectified eye. Empty where the
/// mode sends nothing.
cv::Size streamedSize(const StreamMode& mode, cv::Size raw, cv::Size rectified);

}  // namespace stereo::core
