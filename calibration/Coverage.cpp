// SPDX-License-Identifier: Apache-2.0
#include "calibration/Coverage.hpp"

#include <cmath>

namespace stereo::calibration {

Coverage::Coverage(const cv::Size& eyeSize) : m_eyeSize(eyeSize) {
  for (cv::Mat& cells : m_cells) {
    cells = cv::Mat::zeros(side, side, CV_8UC1);
  }
}

bool Coverage::counts(int row, int col) const {
  // In units of the circle's radius, from the middle.
  const double x = (2 * col + 1.0) / side - 1.0;
  const double y = (2 * row + 1.0) / side - 1.0;
  return std::hypot(x, y) <= 0.9 && std::abs(y) * m_eyeSize.width <= m_eyeSize.height;
}

void Coverage::add(const BoardView& view) {
  const double cell = static_cast<double>(m_eyeSize.width) / side;
  for (std::size_t eye = 0; eye < 2; ++eye) {
    for (const cv::Point2d& corner : view.corners[eye]) {
      const int col = static_cast<int>(std::floor((corner.x + 0.5) / cell));
      const int row =
          static_cast<int>(std::floor((corner.y + 0.5 + 0.5 * (m_eyeSize.width - m_eyeSize.height)) / cell));
      if (row >= 0 && row < side && col >= 0 && col < side) {
        m_cells[eye].at<unsigned char>(row, col) = 255;
      }
    }
  }
}

double Coverage::share(int eye) const {
  int counted = 0;
  int covered = 0;
  for (int row = 0; row < side; ++row) {
    for (int col = 0; col < side; ++col) {
      if (counts(row, col)) {
        ++counted;
        covered += m_cells[static_cast<std::size_t>(eye)].at<unsigned char>(row, col) != 0 ? 1 : 0;
      }
    }
  }
  return counted == 0 ? 0.0 : static_cast<double>(covered) / counted;
}

std::string Coverage::emptiest() const {
  static const char* const names[3][3] = {
      {"upper left", "top", "upper right"}, {"left", "middle", "right"}, {"lower left", "bottom", "lower right"}};
  const auto third = [](int cell) { return cell * 3 / side; };
  int counted[3][3] = {};
  int missing[3][3] = {};
  for (int row = 0; row < side; ++row) {
    for (int col = 0; col < side; ++col) {
      if (counts(row, col)) {
        ++counted[third(row)][third(col)];
        missing[third(row)][third(col)] += m_cells[0].at<unsigned char>(row, col) == 0 ? 1 : 0;
      }
    }
  }
  double most = 0.5;
  std::string where;
  for (int row = 0; row < 3; ++row) {
    for (int col = 0; col < 3; ++col) {
      const double share = counted[row][col] == 0 ? 0.0 : static_cast<double>(missing[row][col]) / counted[row][col];
      if (share > most) {
        most = share;
        where = names[row][col];
      }
    }
  }
  return where;
}

}  // namespace stereo::calibration
