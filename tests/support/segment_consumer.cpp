// SPDX-License-Identifier: Apache-2.0
// Takes images from the camera's shared-memory segment, by the handshake, and checks each.
//
//   segment_consumer KEY BYTES IMAGES
//
// Every image must be of one value and differ from the one before. Ends with 0 when IMAGES were taken and all were
// right, 1 with a line on standard error otherwise.
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <thread>
#include <vector>

#include <sys/shm.h>

namespace {

constexpr auto patience = std::chrono::seconds(60);

int fail(const char* what) {
  std::cerr << "segment_consumer: " << what << std::endl;
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    return fail("wants KEY BYTES IMAGES");
  }
  const auto key = static_cast<key_t>(std::strtol(argv[1], nullptr, 10));
  const std::size_t bytes = std::strtoul(argv[2], nullptr, 10);
  const long images = std::strtol(argv[3], nullptr, 10);
  const auto end = std::chrono::steady_clock::now() + patience;
  const auto expired = [&] { return std::chrono::steady_clock::now() > end; };
  int id = -1;
  while ((id = shmget(key, 0, 0)) == -1) {
    if (expired()) {
      return fail("no segment");
    }
    std::this_thread::yield();
  }
  shmid_ds about{};
  if (shmctl(id, IPC_STAT, &about) != 0 || about.shm_segsz != bytes) {
    return fail("segment of another size");
  }
  auto* const segment = static_cast<std::uint8_t*>(shmat(id, nullptr, 0));
  std::atomic_ref<std::int32_t> status(*reinterpret_cast<std::int32_t*>(segment));
  int last = -1;
  for (int taken = 0; taken < images; ++taken) {
    // The mark comes before the pixels, so an image is whole only once it stops changing into one of one value.
    std::vector<std::uint8_t> pixels;
    for (;;) {
      if (expired()) {
        return fail("no whole image in time");
      }
      const std::int32_t word = status.load();
      if (word != 0 && word != 2) {
        return fail("a status word that is neither 0 nor 2");
      }
      if (word != 2) {
        std::this_thread::yield();
        continue;
      }
      pixels.assign(segment + sizeof(std::int32_t), segment + bytes);
      const bool whole = pixels == std::vector<std::uint8_t>(pixels.size(), pixels[0]);
      if (whole && pixels[0] != last) {
        break;
      }
    }
    last = pixels[0];
    status.store(0);
  }
  shmdt(segment);
  return 0;
}
