// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/view/JpegEncoder.hpp"

#include <stdexcept>

#include <turbojpeg.h>

namespace stereo::app {

namespace {

constexpr int quality = 75;

}  // namespace

void JpegEncoder::Closer::operator()(void* handle) const { tjDestroy(handle); }

JpegEncoder::JpegEncoder() : m_handle(tjInitCompress()) {
  if (!m_handle) {
    throw std::runtime_error("no JPEG encoder: out of memory");
  }
}

std::uint32_t JpegEncoder::append(const cv::Mat& picture, std::vector<std::uint8_t>& bytes) {
  if (picture.type() != CV_8UC3 || picture.empty()) {
    throw std::runtime_error("only color pictures can be shown");
  }
  unsigned long size = tjBufSize(picture.cols, picture.rows, TJSAMP_420);
  if (m_capacity < size) {
    m_memory.reset(new unsigned char[size]);
    m_capacity = size;
  }
  unsigned char* place = m_memory.get();
  if (tjCompress2(m_handle.get(), picture.data, picture.cols, static_cast<int>(picture.step), picture.rows, TJPF_BGR,
                  &place, &size, TJSAMP_420, quality, TJFLAG_FASTDCT | TJFLAG_NOREALLOC) != 0) {
    throw std::runtime_error(std::string("cannot encode a picture: ") + tjGetErrorStr2(m_handle.get()));
  }
  bytes.insert(bytes.end(), place, place + size);
  return static_cast<std::uint32_t>(size);
}

}  // namespace stereo::app
