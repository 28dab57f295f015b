// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <cstdint>

#include <opencv2/core.hpp>

namespace stereo::fuzz {

/// Takes values off the front of an input. When the bytes are used up, everything is zero.
class Input {
public:
  Input(const std::uint8_t* data, std::size_t size) : m_next(data), m_end(data + size) {}

  std::uint8_t byte() { return m_next == m_end ? std::uint8_t{0} : *m_next++; }
  /// One byte, spread over [lowest, highest].
  int between(int lowest, int highest) { return lowest + byte() % (highest - lowest + 1); }
  bool flag() { return (byte() & 1) != 0; }

  /// Any number: one byte chooses among exceptional ones, those near `usual`, and the eight bytes that follow as they
  /// stand.
  double number(double usual);
  /// The same in one byte, or five for a number as it stands.
  float pixel(double usual);
  /// Any integer, most often one of the small ones.
  int integer();

  /// A matrix for which `rows` x `cols` doubles near `usual` (row by row) are expected. Mostly that is what it is; else
  /// of any type, size, number of dimensions or none.
  cv::Mat matrix(int rows, int cols, const double* usual);

  /// Any image of at most `largest`. One byte a number; more only where numbers are taken as they stand.
  cv::Mat image(int usualType, cv::Size largest, double usual);

private:
  int anyType();
  void fill(cv::Mat& image, double usual);

  const std::uint8_t* m_next;
  const std::uint8_t* m_end;
};

/// Uses the kernels' form for the instruction set with this number, of those that the processor has.
void chooseInstructionSet(int number);

}  // namespace stereo::fuzz
