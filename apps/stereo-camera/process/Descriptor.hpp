// SPDX-License-Identifier: Apache-2.0
// Owns a file descriptor.
#pragma once

#include <unistd.h>

namespace stereo::app {

/// Closes its file descriptor on destruction; below 0 there is none. Not copyable.
class Descriptor {
public:
  explicit Descriptor(int number) : m_number(number) {}
  ~Descriptor() {
    if (m_number >= 0) {
      close(m_number);
    }
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  operator int() const { return m_number; }

private:
  int m_number;
};

}  // namespace stereo::app
