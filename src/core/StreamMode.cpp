// SPDX-License-Identifier: Apache-2.0
// What each mode of the network stream sends.
#include "src/core/StreamMode.hpp"

#include "src/core/Numbers.hpp"

namespace stereo::core {

StreamMode streamMode(int mode) {
  switch (mode) {
    case 0:
      return {StreamSource::rawEyes, false};
    case 1:
      return {StreamSource::rawEyes, true};
    case 2:
      return {StreamSource::perspectivePair, false};
    case 3:
      return {StreamSource::perspectivePair, true};
    case 4:
      return {StreamSource::depthPicture, true};
    default:
      return {};
  }
}

cv::Size streamedSize(const StreamMode& mode, cv::Size raw, cv::Size rectified) {
  switch (mode.source) {
    case StreamSource::rawEyes:
      return mode.isJoined ? raw : cv::Size(raw.width >> 1, raw.height);
    case StreamSource::perspectivePair:
    case StreamSource::depthPicture:
      return mode.isJoined ? cv::Size(wrappingSum(rectified.width, rectified.width), rectified.height) : rectified;
    default:
      return {};
  }
}

}  // namespace stereo::core
