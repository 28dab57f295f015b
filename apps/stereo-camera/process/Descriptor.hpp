// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <unistd.h>

namespace stereo::app {

/// Closes a file descriptor at its end; below 0 it is none. Not copied.
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
