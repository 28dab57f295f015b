// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstddef>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core.hpp>

namespace stereo::arm {

/// Writes results as plain numbers, one file each, little-endian and without a header; the ending tells the type (u8,
/// f32, f64). What differs between two folders of them, compare.py tells.
class Writer {
public:
  explicit Writer(std::string folder) : m_folder(std::move(folder)) { std::filesystem::create_directories(m_folder); }

  /// An image of CV_8U, CV_32F or CV_64F, any channels. An empty one becomes an empty file.
  void write(const std::string& name, const cv::Mat& image) const {
    const cv::Mat whole = image.isContinuous() ? image : image.clone();
    const char* const ending = whole.depth() == CV_8U ? ".u8" : whole.depth() == CV_32F ? ".f32" : ".f64";
    CV_Assert(whole.depth() == CV_8U || whole.depth() == CV_32F || whole.depth() == CV_64F);
    bytes(name + ending, whole.ptr<char>(), whole.total() * whole.elemSize());
  }
  void write(const std::string& name, const std::vector<double>& values) const {
    bytes(name + ".f64", reinterpret_cast<const char*>(values.data()), values.size() * sizeof(double));
  }
  void write(const std::string& name, const std::vector<float>& values) const {
    bytes(name + ".f32", reinterpret_cast<const char*>(values.data()), values.size() * sizeof(float));
  }

private:
  void bytes(const std::string& name, const char* data, std::size_t size) const {
    std::ofstream out(m_folder + "/" + name, std::ios::binary);
    if (size > 0) {
      out.write(data, static_cast<std::streamsize>(size));
    }
    out.flush();
    if (!out) {
      throw std::runtime_error("cannot write " + m_folder + "/" + name);
    }
  }

  std::string m_folder;
};

}  // namespace stereo::arm
