// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/service/Token.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include "apps/stereo-camera/process/Descriptor.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

constexpr std::size_t leastLength = 16;

Failure cannot(const std::string& verb, const std::string& file) {
  return Failure(ExitCode::output, "cannot " + verb + " the token file '" + file + "': " + std::strerror(errno));
}

// False if there is one already.
bool makeTokenFile(const std::string& file) {
  if (access(file.c_str(), F_OK) == 0) {
    return false;
  }
  // Beside its place first, so that a power cut leaves no empty file.
  const std::string draft = file + "." + std::to_string(getpid());
  unlink(draft.c_str());  // of an earlier process
  const Descriptor made(open(draft.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
  const std::string line = newToken() + "\n";
  const bool isWritten =
      made >= 0 && write(made, line.data(), line.size()) == static_cast<ssize_t>(line.size()) && fsync(made) == 0;
  const bool isNew = isWritten && link(draft.c_str(), file.c_str()) == 0;
  const bool isThere = isNew || (isWritten && errno == EEXIST);  // another process may have been faster
  const Failure failure = cannot("make", file);
  unlink(draft.c_str());
  if (!isThere) {
    throw failure;
  }
  return isNew;
}

}  // namespace

std::string newToken() {
  std::array<unsigned char, 16> bytes{};
  if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) {
    throw Failure(ExitCode::unexpected, "the system has no random numbers for a token");
  }
  std::string token;
  for (const unsigned char each : bytes) {
    token += model::formatted("%02x", each);
  }
  return token;
}

std::string tokenFrom(const std::string& file, bool& isNew) {
  isNew = makeTokenFile(file);
  const Descriptor there(open(file.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat about {};
  if (there < 0 || fstat(there, &about) != 0) {
    throw cannot("read", file);
  }
  if (about.st_uid != geteuid() && about.st_uid != 0) {
    throw Failure(ExitCode::output, "the token file '" + file + "' belongs to somebody else");
  }
  if ((about.st_mode & (S_IRWXO)) != 0) {
    throw Failure(ExitCode::output, "everybody may read the token file '" + file + "': chmod 600 " + file);
  }
  std::array<char, 257> content{};
  const ssize_t size = read(there, content.data(), content.size());
  if (size < 0) {
    throw cannot("read", file);
  }
  std::string token(content.data(), static_cast<std::size_t>(size));
  while (!token.empty() && std::isspace(static_cast<unsigned char>(token.back())) != 0) {
    token.pop_back();
  }
  if (token.size() < leastLength || token.size() > 256 ||
      !std::all_of(token.begin(), token.end(), [](unsigned char c) { return std::isalnum(c) != 0; })) {
    throw Failure(ExitCode::output, "the token file '" + file +
                                        "' does not hold 16 to 256 letters and digits; remove it for a new token");
  }
  return token;
}

}  // namespace stereo::app
