// SPDX-License-Identifier: Apache-2.0
// Names of the values in settings and calibration files. A misspelled one is part of the format.
#pragma once

namespace stereo::model::keys {

// Settings.
inline constexpr const char* logLevel = "LogLevel";
inline constexpr const char* deviceNode = "DeviceNode";
inline constexpr const char* frameSize = "FrameSize";
inline constexpr const char* frameRate = "FrameRate";
inline constexpr const char* threshold = "Threshold";
inline constexpr const char* algorithm = "Algorithm";
inline constexpr const char* ipLastSegment = "IpLastSegment";
inline constexpr const char* hFov = "hFov";
inline constexpr const char* transrate = "Transrate";
inline constexpr const char* transmode = "Transmode";
inline constexpr const char* depthmode = "Depthmode";

// Both.
inline constexpr const char* rectifyFrameSize = "RectifyFrameSize";
inline constexpr const char* reserved = "Reserved";  ///< Written as an identity matrix, never read.

// Calibration.
inline constexpr const char* serialNumber = "SerialNumber";
inline constexpr const char* posNumber = "PositonNumber";
inline constexpr const char* leftXi = "LeftXi";
inline constexpr const char* leftIntrinsic = "LeftIntrinsicMatrix";
inline constexpr const char* leftDistortion = "LeftDistortionCoefficients";
inline constexpr const char* leftRotation = "LeftRotation";
inline constexpr const char* rightXi = "RightXi";
inline constexpr const char* rightIntrinsic = "RightIntrinsicMatrix";
inline constexpr const char* rightDistortion = "RightDistortionCoefficients";
inline constexpr const char* rightRotation = "RightRotation";
inline constexpr const char* translation = "Translation";

}  // namespace stereo::model::keys
