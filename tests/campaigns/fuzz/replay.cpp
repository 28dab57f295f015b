// SPDX-License-Identifier: Apache-2.0
// Stands in for libFuzzer where it is not used: tries every file of the folders given, then changed copies of them, the
// same at every run. An input that fails is left in the working folder.
//
//   fuzz_NAME [--mutations N] FOLDER_OR_FILE...
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "tests/campaigns/fuzz/Target.hpp"

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t mostBytes,
                                               unsigned int seed) __attribute__((weak));
// NOLINTNEXTLINE(bugprone-reserved-identifier): the sanitizers' own name, where there is one
extern "C" void __sanitizer_set_death_callback(void (*callback)()) __attribute__((weak));

namespace {

using Bytes = std::vector<std::uint8_t>;

std::mt19937 bytesRandom;

struct Seed {
  std::string path;
  Bytes bytes;
};

// What is being tried, for the report of a process that dies of it.
const Bytes* current = nullptr;
char currentName[1024] = "nothing";
constexpr const char* leftBehind = "failed-input";

// Called in a process that is about to end, on a signal too: system calls alone.
void reportCurrent() {
  if (current == nullptr) {
    return;
  }
  const int file = open(leftBehind, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  bool done = file >= 0 && write(file, current->data(), current->size()) >= 0;
  for (const char* const text :
       {"while trying ", static_cast<const char*>(currentName), ", left in ", leftBehind, "\n"}) {
    done = write(STDERR_FILENO, text, std::strlen(text)) >= 0 && done;
  }
  current = nullptr;
}

void onSignal(int number) {
  reportCurrent();
  std::signal(number, SIG_DFL);
  std::raise(number);
}

void tryOne(const Bytes& bytes, const std::string& name) {
  std::snprintf(currentName, sizeof currentName, "%s", name.c_str());
  // In memory of just that size, so that a read past the end can be seen.
  const Bytes exact(bytes.begin(), bytes.end());
  current = &exact;
  LLVMFuzzerTestOneInput(exact.data(), exact.size());
  current = nullptr;
}

std::vector<Seed> seedsAt(const std::filesystem::path& path) {
  std::vector<std::filesystem::path> files;
  if (std::filesystem::is_directory(path)) {
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
      files.push_back(entry.path());
    }
  } else {
    files.push_back(path);
  }
  std::sort(files.begin(), files.end());
  std::vector<Seed> seeds;
  for (const auto& file : files) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
      std::fprintf(stderr, "cannot read %s\n", file.c_str());
      std::exit(2);
    }
    seeds.push_back({file.string(), Bytes(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>())});
  }
  return seeds;
}

}  // namespace

// One change, of a byte or of a stretch.
std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t mostBytes) {
  const std::size_t at = size == 0 ? 0 : bytesRandom() % size;
  switch (bytesRandom() % 5) {
    case 0:
      if (size < mostBytes) {
        std::memmove(data + at + 1, data + at, size - at);
        data[at] = static_cast<std::uint8_t>(bytesRandom());
        return size + 1;
      }
      return size;
    case 1:
      if (size > 1) {
        const std::size_t length = std::min<std::size_t>(1 + bytesRandom() % 8, size - at);
        std::memmove(data + at, data + at + length, size - at - length);
        return size - length;
      }
      return size;
    case 2:
      if (size > 0) {
        data[at] ^= static_cast<std::uint8_t>(1U << (bytesRandom() % 8));
      }
      return size;
    case 3:
      if (size > 0) {
        const std::size_t from = bytesRandom() % size;
        const std::size_t length = std::min<std::size_t>({1 + bytesRandom() % 16, size - at, size - from});
        std::memmove(data + at, data + from, length);
      }
      return size;
    default:
      if (size > 0) {
        data[at] = static_cast<std::uint8_t>(bytesRandom());
      }
      return size;
  }
}

int main(int argc, char** argv) {
  unsigned int mutations = 0;
  std::vector<Seed> seeds;
  for (int k = 1; k < argc; ++k) {
    if (std::strcmp(argv[k], "--mutations") == 0 && k + 1 < argc) {
      mutations = static_cast<unsigned int>(std::strtoul(argv[++k], nullptr, 10));
      continue;
    }
    const std::vector<Seed> found = seedsAt(argv[k]);
    seeds.insert(seeds.end(), found.begin(), found.end());
  }
  if (seeds.empty()) {
    std::fprintf(stderr, "nothing to try\n");
    return 2;
  }
  for (const int number : {SIGABRT, SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTERM}) {
    std::signal(number, onSignal);
  }
  if (__sanitizer_set_death_callback != nullptr) {
    __sanitizer_set_death_callback(reportCurrent);
  }

  for (const Seed& seed : seeds) {
    tryOne(seed.bytes, seed.path);
  }
  constexpr std::size_t mostBytes = 4096;
  for (unsigned int k = 0; k < mutations; ++k) {
    const Seed& seed = seeds[k % seeds.size()];
    bytesRandom.seed(k);
    Bytes bytes = seed.bytes;
    std::size_t size = std::min(bytes.size(), mostBytes);
    bytes.resize(mostBytes);
    for (unsigned int changes = 1 + k / static_cast<unsigned int>(seeds.size()) % 4; changes > 0; --changes) {
      size = LLVMFuzzerCustomMutator != nullptr
                 ? LLVMFuzzerCustomMutator(bytes.data(), size, mostBytes, 1000003 * k + changes)
                 : LLVMFuzzerMutate(bytes.data(), size, mostBytes);
    }
    bytes.resize(size);
    tryOne(bytes, seed.path + ", change " + std::to_string(k));
  }
  std::printf("%zu files and %u changes of them\n", seeds.size(), mutations);
  return 0;
}
