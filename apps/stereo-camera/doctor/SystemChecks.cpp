// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/doctor/SystemChecks.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <fstream>

#include <gst/gst.h>

#include "apps/stereo-camera/process/Failure.hpp"
#include "model/CameraFacts.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

// Number and name of a process.
std::string nameOf(pid_t process) {
  if (process == 0) {
    return "a process outside this container";
  }
  std::ifstream file("/proc/" + std::to_string(process) + "/comm");
  std::string name;
  std::getline(file, name);
  return name.empty() ? "process " + std::to_string(process) + ", which is gone"
                      : "process " + std::to_string(process) + " (" + name + ")";
}

// This machine's address in the network, given as three octets and a dot; empty if there is none.
std::string addressIn(const std::string& network) {
  ifaddrs* all = nullptr;
  if (getifaddrs(&all) != 0) {
    return "";
  }
  std::string found;
  for (const ifaddrs* one = all; one != nullptr; one = one->ifa_next) {
    if (one->ifa_addr == nullptr || one->ifa_addr->sa_family != AF_INET) {
      continue;
    }
    char text[INET_ADDRSTRLEN] = "";
    const auto* address = reinterpret_cast<const sockaddr_in*>(one->ifa_addr);
    inet_ntop(AF_INET, &address->sin_addr, text, sizeof text);
    if (std::string(text).rfind(network, 0) == 0) {
      found = text;
    }
  }
  freeifaddrs(all);
  return found;
}

bool hasElement(const std::string& name) {
  GstElementFactory* const factory = gst_element_factory_find(name.c_str());
  if (factory == nullptr) {
    return false;
  }
  gst_object_unref(factory);
  return true;
}

}  // namespace

SegmentHolder segmentHolder(int position) {
  SegmentHolder holder;
  holder.key = model::firstSegmentKey + position;
  const int id = shmget(holder.key, 0, 0);
  holder.exists = id != -1 || errno != ENOENT;
  shmid_ds about{};
  holder.isOurs = id != -1 && shmctl(id, IPC_STAT, &about) == 0;
  if (holder.isOurs) {
    holder.bytes = about.shm_segsz;
    holder.users = about.shm_nattch;
    holder.maker = nameOf(about.shm_cpid);
    holder.isAlive = kill(about.shm_cpid, 0) == 0 || errno == EPERM;
  }
  return holder;
}

void removeOwnSegment(int position) {
  const int id = shmget(model::firstSegmentKey + position, 0, 0);
  shmid_ds about{};
  if (id != -1 && shmctl(id, IPC_STAT, &about) == 0 && about.shm_cpid == getpid()) {
    shmctl(id, IPC_RMID, nullptr);
  }
}

void requireSegment(cv::Size frame, int position) {
  if (frame.width != 1856 && frame.width != 928) {
    throw Failure(ExitCode::usage,
                  "shared memory takes raw frames 1856 or 928 pixels wide; these are " + model::sizeText(frame));
  }
  const SegmentHolder holder = segmentHolder(position);
  const std::string key = std::to_string(holder.key);
  if (holder.isOurs && holder.users > 0 && holder.isAlive) {
    throw Failure(ExitCode::output, "the key " + key + " is in use: " + holder.maker +
                                        " shares at this position; stop it, or use another --position");
  }
  if (holder.isOurs && holder.bytes < model::segmentBytes(frame)) {
    throw Failure(ExitCode::output,
                  "a smaller segment holds the key " + key + ": one left behind (ipcrm -M " + key + " removes it)");
  }
}

Findings checkSharedMemory(int position) {
  Findings findings;
  const SegmentHolder holder = segmentHolder(position);
  const std::string key = std::to_string(holder.key);
  const std::string what = "shared memory: key " + key;
  if (!holder.exists) {
    add(findings, what + " is free");
  } else if (!holder.isOurs) {
    add(findings, what + " exists, but you may not use it",
        "run as the user who made it, or have that user remove it: ipcrm -M " + key);
  } else {
    add(findings,
        what + " is in use: made by " + holder.maker + ", " + std::to_string(holder.bytes) + " bytes, attached " +
            std::to_string(holder.users) + " times",
        holder.users == 0 ? "unused: ipcrm -M " + key : "stop that camera first, or give this one another position");
  }
  return findings;
}

std::vector<std::string> missingStreamElements() {
  std::vector<std::string> missing = {"appsrc", "videoconvert", "omxh264enc", "rtph264pay", "udpsink"};
  if (gst_init_check(nullptr, nullptr, nullptr) != 0) {
    missing.erase(std::remove_if(missing.begin(), missing.end(), hasElement), missing.end());
  }
  return missing;
}

std::string streamRemedy(const std::string& element) {
  return element == "omxh264enc"
             ? "install the board's encoder; on a PC, set GST_PLUGIN_PATH to the folder of the stand-in"
             : "install gstreamer1.0-plugins-base and gstreamer1.0-plugins-good";
}

Findings checkStream(int lastOctet, int position) {
  Findings findings;
  for (const std::string& element : missingStreamElements()) {
    add(findings, "stream: no GStreamer element " + element, streamRemedy(element));
  }
  if (findings.empty()) {
    add(findings, "stream: encoder and other GStreamer elements are installed");
  }
  const std::string network = STEREO_CAMERA_STREAM_NETWORK;
  const std::string receiver =
      network + std::to_string(lastOctet) + ", port " + std::to_string(model::firstStreamPort + position);
  const std::string own = addressIn(network);
  add(findings, "stream: goes to " + receiver + (own.empty() ? "" : ", from " + own),
      own.empty() ? "no interface of this machine has an address in " + network + "0/24: ip addr add " + network +
                        "1/24 dev INTERFACE"
                  : "");
  return findings;
}

}  // namespace stereo::app
