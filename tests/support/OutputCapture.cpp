// SPDX-License-Identifier: Apache-2.0
#include "tests/support/OutputCapture.hpp"

#include <cstdio>
#include <iostream>
#include <regex>
#include <stdexcept>

#include <sys/mman.h>
#include <unistd.h>

namespace stereo::test {

namespace {

void flushAll() {
  std::cout.flush();
  std::cerr.flush();
  std::fflush(nullptr);
}

}  // namespace

OutputCapture::OutputCapture(int descriptor)
    : m_descriptor(descriptor), m_saved(dup(descriptor)), m_file(memfd_create("output", MFD_CLOEXEC)) {
  flushAll();
  if (m_saved < 0 || m_file < 0 || dup2(m_file, descriptor) < 0) {
    throw std::runtime_error("cannot capture output");
  }
}

OutputCapture::~OutputCapture() {
  flushAll();
  dup2(m_saved, m_descriptor);
  close(m_saved);
  close(m_file);
}

std::string OutputCapture::text() const {
  flushAll();
  std::string result;
  char buffer[4096];
  off_t offset = 0;
  for (;;) {
    const ssize_t count = pread(m_file, buffer, sizeof buffer, offset);
    if (count <= 0) {
      return result;
    }
    result.append(buffer, static_cast<std::size_t>(count));
    offset += count;
  }
}

std::string OutputCapture::ownText() const {
  return std::regex_replace(text(), std::regex("\\[ *(WARN|ERROR|INFO|FATAL|DEBUG):[^\\n]*\\n"), "");
}

std::vector<std::string> recordTexts(const std::string& output) {
  static const std::regex head("\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{6} \\[[^\\]]*\\] ");
  std::vector<std::string> texts;
  auto match = std::sregex_iterator(output.begin(), output.end(), head);
  for (; match != std::sregex_iterator(); ++match) {
    const auto next = std::next(match);
    const auto begin = static_cast<std::size_t>(match->position() + match->length());
    const auto end = next == std::sregex_iterator() ? output.size() : static_cast<std::size_t>(next->position());
    texts.push_back(output.substr(begin, end - begin));
  }
  return texts;
}

}  // namespace stereo::test
