// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "StereoCamera.hpp"
#include "src/core/Cloud.hpp"

namespace stereo::baseline {

// Clouds as the two `getPointCloud` append them, pixel by pixel in double precision, with the lists of each block made
// and released with the block. Look-ups that would leave an image skip the pixel. Types are as `CloudImages` says;
// nothing checks them.

void plainCloud(const core::CloudImages& images, const core::CloudModel& model, std::vector<cv::Vec3f>& points);
void coloredCloud(const core::CloudImages& images, const core::CloudModel& model, std::vector<PCL>& points);

}  // namespace stereo::baseline
