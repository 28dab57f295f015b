// SPDX-License-Identifier: Apache-2.0
// What a long-running camera is to do.
#pragma once

#include <cstdint>
#include <string>

#include "apps/stereo-camera/camera/CameraSource.hpp"
#include "apps/stereo-camera/pictures/WideResults.hpp"

namespace stereo::app {

/// One camera of the service, from the command line or a section of the configuration.
struct CameraPlan {
  std::string name = "camera";
  SourceOptions source;
  std::string device;  ///< as named by the user, since its number may change when it is plugged in again; empty: none
  WideOptions wide;
  double patience = 2;  ///< seconds without a frame after which the camera is made anew

  bool share = false;   ///< the left eye in shared memory
  int streamMode = -1;  ///< of the network stream; below 0: none
  int receiver = 15;    ///< last octet of the stream's receiver
  std::string ring;     ///< folder of a recording without end; empty: none
  std::uint64_t ringMegabytes = 2000;
  double ringPart = 30;  ///< seconds

  std::string codec = "huffyuv";  ///< of recordings
  std::size_t queue = 32;         ///< frames that may wait to be written
  std::uint64_t keepFree = 256;   ///< megabytes to leave free on the disk
};

/// Where the service writes what viewers ask for.
struct ServiceFolders {
  std::string snapshots = "snapshots";
  std::string recordings = "recordings";
};

}  // namespace stereo::app
