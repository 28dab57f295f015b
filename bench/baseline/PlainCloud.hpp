// SPDX-License-Identifier: Apache-2.0
// Point clouds, plain form.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "StereoCamera.hpp"
#include "src/core/Cloud.hpp"

namespace stereo::baseline {

// The clouds that the two forms of `getPointCloud` append, pixel by pixel in double precision, with new lists for each
// block. A lookup outside an image skips the pixel. Types are those of `CloudImages`; nothing checks them.

void plainCloud(const core::CloudImages& images, const core::CloudModel& model, std::vector<cv::Vec3f>& points);
void coloredCloud(const core::CloudImages& images, const core::CloudModel& model, std::vector<PCL>& points);

}  // namespace stereo::baseline
