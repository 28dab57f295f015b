// SPDX-License-Identifier: Apache-2.0
#include "SystemChecks.hpp"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <netinet/in.h>
#include <sys/shm.h>

#include <fstream>

#include <gst/gst.h>

namespace stereo::app {

namespace {

constexpr int firstKey = 9000;   // shared memory of the camera at position 0
constexpr int firstPort = 9200;  // its stream

// What a process calls itself, or its number where it is gone.
std::string nameOf(pid_t process) {
  std::ifstream file("/proc/" + std::to_string(process) + "/comm");
  std::string name;
  std::getline(file, name);
  return name.empty() ? "process " + std::to_string(process) + ", which is gone"
                      : "process " + std::to_string(process) + " (" + name + ")";
}

// Of this machine in the network whose three octets, each with its dot, are given.
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

bool hasElement(const char* name) {
  GstElementFactory* const factory = gst_element_factory_find(name);
  if (factory == nullptr) {
    return false;
  }
  gst_object_unref(factory);
  return true;
}

}  // namespace

Findings checkSharedMemory(int position) {
  Findings findings;
  const int key = firstKey + position;
  const std::string what = "shared memory: key " + std::to_string(key);
  const int id = shmget(key, 0, 0);
  if (id == -1) {
    const bool free = errno == ENOENT;
    add(findings, what + (free ? " is free" : " is there, but not for you"),
        free ? "" : "run as the user who made it, or have him remove it: ipcrm -M " + std::to_string(key));
    return findings;
  }
  shmid_ds about{};
  if (shmctl(id, IPC_STAT, &about) != 0) {
    add(findings, what + " cannot be looked at", "run as the user who made it");
    return findings;
  }
  add(findings,
      what + " is held: made by " + nameOf(about.shm_cpid) + ", " + std::to_string(about.shm_segsz) +
          " bytes, attached " + std::to_string(about.shm_nattch) + " times",
      about.shm_nattch == 0 ? "nobody uses it any more: ipcrm -M " + std::to_string(key)
                            : "stop that camera first, or give this one another position");
  return findings;
}

Findings checkStream(int lastOctet, int position) {
  Findings findings;
  gst_init(nullptr, nullptr);
  for (const char* const element : {"appsrc", "videoconvert", "omxh264enc", "rtph264pay", "udpsink"}) {
    if (!hasElement(element)) {
      add(findings, std::string("stream: no GStreamer element ") + element,
          std::string(element) == "omxh264enc"
              ? "install the board's encoder, or on a PC name the folder of the stand-in in GST_PLUGIN_PATH"
              : "install gstreamer1.0-plugins-base and gstreamer1.0-plugins-good");
    }
  }
  if (findings.empty()) {
    add(findings, "stream: encoder and the other GStreamer elements are there");
  }
  const std::string network = STEREO_CAMERA_STREAM_NETWORK;
  const std::string receiver = network + std::to_string(lastOctet) + ", port " + std::to_string(firstPort + position);
  const std::string own = addressIn(network);
  add(findings, "stream: goes to " + receiver + (own.empty() ? "" : ", from " + own),
      own.empty() ? "no interface of this machine has an address in " + network + "0/24: ip addr add " + network +
                        "1/24 dev INTERFACE"
                  : "");
  return findings;
}

}  // namespace stereo::app
