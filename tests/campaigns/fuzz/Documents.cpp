// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/fuzz/Documents.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/campaigns/fuzz/Target.hpp"
#include "tests/support/Gzip.hpp"

namespace {

int syncs = 0;

}  // namespace

// In the place of the C library's. What the library runs after it saved a file is counted; libFuzzer starts processes
// of its own in this way.
extern "C" int system(const char* command) {
  if (command != nullptr && std::strcmp(command, "sync") == 0) {
    ++syncs;
    return 0;
  }
  const char* const arguments[] = {"sh", "-c", command, nullptr};
  pid_t shell = 0;
  int status = -1;
  if (posix_spawn(&shell, "/bin/sh", nullptr, nullptr, const_cast<char* const*>(arguments), environ) != 0) {
    return -1;
  }
  while (waitpid(shell, &status, 0) < 0 && errno == EINTR) {
  }
  return status;
}

namespace stereo::fuzz {

namespace {

// Folder in memory, removed with the process. One that crashes leaves it to whoever started it and chose the place.
class Folder {
public:
  Folder() {
    const char* const chosen = std::getenv("STEREO_CAMERA_FUZZ_FOLDER");
    const std::string parent = chosen != nullptr                     ? chosen
                               : std::filesystem::exists("/dev/shm") ? "/dev/shm"
                                                                     : std::filesystem::temp_directory_path().string();
    m_path = parent + "/stereo-camera-fuzz-XXXXXX";
    require(mkdtemp(m_path.data()) != nullptr, "there is room for a folder");
  }
  ~Folder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  const std::string& path() const { return m_path; }

private:
  std::string m_path;
};

const std::string& folder() {
  static const Folder made;
  return made.path();
}

}  // namespace

Document::Document(const std::string& name) : m_path(folder() + "/" + name) {}

std::string Document::write(const std::uint8_t* data, std::size_t size) const {
  const std::uint8_t kind = size == 0 ? 0 : data[0];
  const bool isCompressed = kind == 'z' || kind == 'g';
  const std::string path = m_path + (isCompressed ? ".gz" : "");
  const std::string bytes(reinterpret_cast<const char*>(data) + (isCompressed ? 1 : 0), size - (isCompressed ? 1 : 0));
  if (kind == 'z') {
    test::writeCompressed(path, bytes);
    return path;
  }
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  require(file >= 0, "the document can be made");
  require(::write(file, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()),
          "the document can be written");
  close(file);
  return path;
}

std::string Document::read() const {
  std::ifstream file(m_path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

Messages::Messages() : m_before(std::cerr.rdbuf(this)) {}

Messages::~Messages() { std::cerr.rdbuf(m_before); }

int Messages::overflow(int character) {
  if (character != EOF) {
    m_text += static_cast<char>(character);
  }
  return character;
}

std::streamsize Messages::xsputn(const char* text, std::streamsize length) {
  m_text.append(text, static_cast<std::size_t>(length));
  return length;
}

int syncsAskedFor() { return syncs; }

namespace {

using Random = std::minstd_rand;

std::size_t below(Random& random, std::size_t limit) { return limit == 0 ? 0 : random() % limit; }

template <typename List>
std::string_view pick(Random& random, const List& list) {
  return list[below(random, std::size(list))];
}

constexpr std::array numbers{"0",     "1",      "-1",    "2",          "3",           "4",      "33",
                             "0.",    "-0.",    "1.5",   "59.9",       "60.",         "140.",   "141.",
                             "1e300", "-1e300", "1e999", "4.9e-324",   ".Nan",        ".Inf",   "-.Inf",
                             ".inf",  "-.nan",  "0x10",  "2147483647", "-2147483649", "1e-400", "65536",
                             "1e9",   "600",    "1e",    "..",         "+7",          "1856.",  "928."};

constexpr std::array pieces{"rows",
                            "cols",
                            "dt",
                            "data",
                            "sizes",
                            "type_id",
                            "opencv-matrix",
                            "opencv-nd-matrix",
                            "opencv-sparse-matrix",
                            "!!opencv-matrix",
                            "!!opencv-nd-matrix",
                            "\"d\"",
                            "\"f\"",
                            "\"i\"",
                            "\"u\"",
                            "\"c\"",
                            "\"w\"",
                            "\"s\"",
                            "\"h\"",
                            "\"2d\"",
                            "\"3f\"",
                            "\"2if\"",
                            "\"600d\"",
                            "\"r\"",
                            ": ",
                            "- ",
                            "[ ",
                            " ]",
                            "{ ",
                            " }",
                            ", ",
                            "\"",
                            "'",
                            "<a>",
                            "</a>",
                            "<_>",
                            "</_>",
                            "</opencv_storage>",
                            "<!-- ",
                            " -->",
                            "#",
                            "&lt;",
                            "&#33;",
                            "\\u0041",
                            "\\n",
                            "null",
                            "true",
                            "false",
                            "!!binary",
                            "$base64$",
                            "!<",
                            "|",
                            "\n---\n",
                            "...\n",
                            "\n",
                            "   ",
                            "\t",
                            "\r\n"};

struct Stretch {
  std::size_t from, length;
};

Stretch someLine(Random& random, const std::string& text) {
  const std::size_t at = below(random, text.size());
  const std::size_t before = at == 0 ? std::string::npos : text.rfind('\n', at - 1);
  const std::size_t from = before == std::string::npos ? 0 : before + 1;
  const std::size_t end = std::min(text.find('\n', from), text.size() - 1);
  return {from, end + 1 - from};
}

// The next run of characters of one kind at or after some place; nothing if there is none.
template <typename OfKind>
Stretch someRun(Random& random, const std::string& text, OfKind ofKind) {
  std::size_t from = below(random, text.size());
  while (from < text.size() && !ofKind(text[from])) {
    ++from;
  }
  std::size_t end = from;
  while (end < text.size() && ofKind(text[end])) {
    ++end;
  }
  return {from, end - from};
}

bool isOfNumber(char c) { return (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+'; }
bool isOfWord(char c) { return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' || c == '!'; }

void change(std::string& text, Random& random, const std::vector<std::string_view>& names) {
  switch (random() % 40 == 0 ? 9 : random() % 9) {
    case 0:
    case 1: {
      const Stretch number = someRun(random, text, isOfNumber);
      text.replace(number.from, number.length, pick(random, numbers));
      break;
    }
    case 2: {
      const Stretch word = someRun(random, text, isOfWord);
      text.replace(word.from, word.length, random() % 2 == 0 ? pick(random, names) : pick(random, pieces));
      break;
    }
    case 3: {
      const Stretch line = someLine(random, text);
      text.erase(line.from, line.length);
      break;
    }
    case 4: {
      const Stretch line = someLine(random, text);
      text.insert(someLine(random, text).from, text.substr(line.from, line.length));
      break;
    }
    case 5: {
      const Stretch line = someLine(random, text);
      const std::string moved = text.substr(line.from, line.length);
      text.erase(line.from, line.length);
      text.insert(text.empty() ? 0 : someLine(random, text).from, moved);
      break;
    }
    case 6:
      text.insert(below(random, text.size() + 1), pick(random, pieces));
      break;
    case 7: {
      const std::size_t from = below(random, text.size());
      text.erase(from, 1 + below(random, 8));
      break;
    }
    case 8:
      text.resize(text.size() - below(random, std::min<std::size_t>(text.size(), 64)));
      break;
    default:  // compressed, or no longer
      text[0] == 'z' ? text.erase(0, 1) : text.insert(0, 1, 'z');
  }
}

}  // namespace

std::size_t mutateDocument(std::uint8_t* data, std::size_t size, std::size_t mostBytes, unsigned int seed,
                           const std::vector<std::string_view>& names) {
  Random random(seed);
  if (size == 0 || random() % 2 == 0) {
    return LLVMFuzzerMutate(data, size, mostBytes);
  }
  std::string text(reinterpret_cast<const char*>(data), size);
  for (std::size_t changes = 1 + below(random, 3); changes > 0 && !text.empty(); --changes) {
    change(text, random, names);
  }
  text.resize(std::min(text.size(), mostBytes));
  // NOLINTNEXTLINE(bugprone-not-null-terminated-result): bytes and their count, no text that ends with a zero
  std::memcpy(data, text.data(), text.size());
  return text.size();
}

}  // namespace stereo::fuzz
