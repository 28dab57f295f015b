// SPDX-License-Identifier: Apache-2.0
#include "calibration/Calibrate.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <optional>

#include "calibration/InitialEstimate.hpp"
#include "calibration/Rectification.hpp"

namespace stereo::calibration {

namespace {

constexpr int mostRounds = 8;
// A corner this many standard deviations off is rejected, but never one nearer than half a pixel.
constexpr double cornerLimit = 5.0;
constexpr double leastCornerLimit = 0.5;
// A picture is rejected if its rms is this many times the median picture's, but never below half a pixel.
constexpr double pictureLimit = 3.0;
constexpr double leastPictureLimit = 0.5;

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

std::size_t chosen(const std::vector<char>& corners) {
  return static_cast<std::size_t>(std::count(corners.begin(), corners.end(), 1));
}

// The motion from left to right that the pictures agree on best: the one with the least median distance to the others.
Pose commonMotion(const std::vector<Pose>& motions) {
  const auto distance = [](const Pose& a, const Pose& b) {
    // A degree counts as a tenth of the distance between the eyes.
    const double turned = cv::norm(combined(a, inverse(b)).rotation) * 180.0 / CV_PI;
    return turned + 10.0 * cv::norm(a.translation - b.translation) / std::max(1.0, cv::norm(a.translation));
  };
  const Pose* best = nullptr;
  double least = std::numeric_limits<double>::infinity();
  for (const Pose& motion : motions) {
    std::vector<double> toOthers;
    toOthers.reserve(motions.size());
    for (const Pose& other : motions) {
      toOthers.push_back(distance(motion, other));
    }
    const double middle = median(toOthers);
    if (best == nullptr || middle < least) {
      least = middle;
      best = &motion;
    }
  }
  return *best;
}

EyeStart startOf(const std::vector<BoardView>& views, int eye, const Board& board, const cv::Size& eyeSize,
                 const std::function<void(const std::string&)>& tell) {
  const char* const name = eye == 0 ? "left" : "right";
  std::optional<EyeStart> start = initialEye(views, eye, board, eyeSize);
  if (!start) {
    throw CannotCalibrate(std::string("no lens that can be calibrated explains the ") + name +
                          " eye's corners: are --board and the pictures right, and is the board flat?");
  }
  char line[120];
  // A longer text is cut.
  static_cast<void>(std::snprintf(line, sizeof line, "%s eye alone: %.2f px in the median picture", name, start->rms));
  tell(line);
  return *start;
}

// Root mean square of a picture's distances without the worst tenth, so that single outliers do not reject a picture.
double pictureRms(const FitErrors& errors, std::size_t view) {
  std::vector<double> all = distances(errors, view);
  std::sort(all.begin(), all.end());
  all.resize(all.size() - all.size() / 10);
  return spreadOf(all).rms;
}

class Rounds {
public:
  Rounds(const std::vector<BoardView>& views, const Board& board, Calibration& state)
      : m_views(views), m_board(board), m_state(state) {}

  void improve(double lossScale) {
    SolverOptions options;
    options.lossScale = lossScale;
    const SolverResult result = solve(m_state.estimate, m_views, m_board, m_state.selection, options);
    m_state.converged = result.converged;
    if (!result.usable) {
      throw CannotCalibrate(
          "the solver did not converge from the initial estimate; take more pictures, evenly over "
          "the field");
    }
    m_state.errors = fitErrors(m_state.estimate, m_views, m_board, m_state.selection);
  }

  // Robust standard deviation of one coordinate, pixels: if both coordinates are normal, the median of the distances is
  // 1.177 times as large.
  double sigma() const {
    std::vector<double> all;
    for (std::size_t view = 0; view < m_views.size(); ++view) {
      const std::vector<double> here = distances(m_state.errors, view, &m_state.selection);
      all.insert(all.end(), here.begin(), here.end());
    }
    return all.empty() ? 0.0 : median(all) / 1.177;
  }

  // Rejects corners and pictures; returns whether there were any.
  bool throwOut() {
    const double limit = std::max(cornerLimit * sigma(), leastCornerLimit);
    const double worst = pictureLimitNow();
    bool changed = false;
    for (std::size_t view = 0; view < m_views.size(); ++view) {
      if (m_state.kept[view] == 0) {
        continue;
      }
      if (pictureRms(m_state.errors, view) > worst) {
        drop(view);
        changed = true;
        continue;
      }
      changed = throwOutCorners(view, limit) || changed;
    }
    return changed;
  }

  // Estimates the boards of rejected pictures again with the current camera; those that fit are taken back.
  bool takeBack() {
    const double worst = pictureLimitNow();
    bool changed = false;
    for (std::size_t view = 0; view < m_views.size(); ++view) {
      if (m_state.kept[view] != 0 || !place(view)) {
        continue;
      }
      const FitErrors again = fitErrors(m_state.estimate, m_views, m_board, m_state.selection);
      if (pictureRms(again, view) <= worst) {
        m_state.kept[view] = 1;
        m_state.selection[view] = allCorners({m_views[view]})[0];
        changed = true;
      }
    }
    return changed;
  }

private:
  double pictureLimitNow() const {
    std::vector<double> each;
    for (std::size_t view = 0; view < m_views.size(); ++view) {
      if (m_state.kept[view] != 0) {
        each.push_back(pictureRms(m_state.errors, view));
      }
    }
    return each.empty() ? 0.0 : std::max(pictureLimit * median(each), leastPictureLimit);
  }

  void drop(std::size_t view) {
    m_state.kept[view] = 0;
    for (std::vector<char>& corners : m_state.selection[view]) {
      std::fill(corners.begin(), corners.end(), 0);
    }
  }

  // If less than three quarters of an eye's corners are good, the whole picture is rejected.
  bool throwOutCorners(std::size_t view, double limit) {
    bool changed = false;
    for (std::size_t eye = 0; eye < 2; ++eye) {
      std::vector<char>& corners = m_state.selection[view][eye];
      for (std::size_t k = 0; k < corners.size(); ++k) {
        if (corners[k] != 0 && !(m_state.errors.reprojection[view][eye][k] <= limit)) {
          corners[k] = 0;
          changed = true;
        }
      }
      if (!corners.empty() && 4 * chosen(corners) < 3 * corners.size()) {
        drop(view);
        return true;
      }
    }
    return changed;
  }

  bool place(std::size_t view) {
    const StereoRig& rig = m_state.estimate.rig;
    for (const int eye : {0, 1}) {
      if (!m_views[view].sees(eye)) {
        continue;
      }
      const auto which = static_cast<std::size_t>(eye);
      auto pose = boardPose(rig.eyes[which], m_views[view].corners[which], m_board);
      if (!pose) {
        return false;
      }
      Estimate one{rig, {eye == 0 ? *pose : combined(inverse(rig.rightFromLeft), *pose)}, m_state.estimate.sags};
      SolverOptions options;
      options.fixedCamera = true;
      if (!solve(one, {m_views[view]}, m_board, allCorners({m_views[view]}), options).usable) {
        return false;
      }
      m_state.estimate.boards[view] = one.boards[0];
      return true;
    }
    return false;
  }

  const std::vector<BoardView>& m_views;
  const Board& m_board;
  Calibration& m_state;
};

void requireEnough(const std::vector<BoardView>& views, const std::vector<char>& kept, const char* when) {
  std::size_t both = 0;
  for (std::size_t view = 0; view < views.size(); ++view) {
    both += kept[view] != 0 && views[view].seesBoth() ? 1 : 0;
  }
  if (both < leastPictures) {
    throw CannotCalibrate("only " + std::to_string(both) + " pictures show the whole board in both eyes" + when +
                          "; at least " + std::to_string(leastPictures) + " are needed, 20 or more are good");
  }
}

void requireEyesInOrder(const Pose& rightFromLeft) {
  const cv::Vec3d position = inverse(rightFromLeft).translation;
  if (position[0] <= 0.5 * cv::norm(position)) {
    throw CannotCalibrate(
        "the right half's eye is not to the right of the left half's: are the halves exchanged, or is "
        "the camera turned?");
  }
}

}  // namespace

std::size_t Calibration::picturesKept() const { return chosen(kept); }

std::size_t Calibration::cornersFound() const {
  std::size_t sum = 0;
  for (std::size_t view = 0; view < views.size(); ++view) {
    sum += kept[view] != 0 ? views[view].corners[0].size() + views[view].corners[1].size() : 0;
  }
  return sum;
}

std::size_t Calibration::cornersUsed() const {
  std::size_t sum = 0;
  for (const auto& [left, right] : selection) {
    sum += chosen(left) + chosen(right);
  }
  return sum;
}

double Calibration::rms() const {
  std::vector<double> all;
  for (std::size_t view = 0; view < views.size(); ++view) {
    if (kept[view] != 0) {
      const std::vector<double> here = distances(errors, view);
      all.insert(all.end(), here.begin(), here.end());
    }
  }
  return spreadOf(all).rms;
}

double Calibration::rmsUsed() const {
  std::vector<double> all;
  for (std::size_t view = 0; view < views.size(); ++view) {
    const std::vector<double> here = distances(errors, view, &selection);
    all.insert(all.end(), here.begin(), here.end());
  }
  return spreadOf(all).rms;
}

double Calibration::reach(int eye) const {
  const auto which = static_cast<std::size_t>(eye);
  double most = 0;
  for (std::size_t view = 0; view < views.size(); ++view) {
    for (std::size_t k = 0; k < selection[view][which].size(); ++k) {
      const auto ray = estimate.rig.eyes[which].unproject(views[view].corners[which][k]);
      if (selection[view][which][k] != 0 && ray) {
        most = std::max(most, std::acos(std::clamp((*ray)[2], -1.0, 1.0)));
      }
    }
  }
  return most;
}

Calibration calibrate(const std::vector<BoardView>& views, const Board& board, const cv::Size& eyeSize,
                      const std::function<void(const std::string&)>& tell) {
  if (board.corners.width == board.corners.height) {
    throw std::invalid_argument(
        "a board with as many corners in a row as in a column looks the same rotated by 90 "
        "degrees");
  }
  Calibration state;
  state.views = views;
  state.kept.assign(views.size(), 1);
  requireEnough(views, state.kept, "");
  const EyeStart left = startOf(views, 0, board, eyeSize, tell);
  const EyeStart right = startOf(views, 1, board, eyeSize, tell);

  std::vector<Pose> motions;
  for (std::size_t view = 0; view < views.size(); ++view) {
    if (left.boards[view] && right.boards[view]) {
      motions.push_back(combined(*right.boards[view], inverse(*left.boards[view])));
    }
  }
  if (motions.size() < leastPictures) {
    throw CannotCalibrate("too few pictures fit in both eyes; take more of them, the board flat and still");
  }
  state.estimate.rig = {{left.model, right.model}, commonMotion(motions)};
  state.selection = allCorners(views);
  for (std::size_t view = 0; view < views.size(); ++view) {
    if (left.boards[view]) {
      state.estimate.boards.push_back(*left.boards[view]);
    } else if (right.boards[view]) {
      state.estimate.boards.push_back(combined(inverse(state.estimate.rig.rightFromLeft), *right.boards[view]));
    } else {
      state.estimate.boards.emplace_back();
      state.kept[view] = 0;
      for (std::vector<char>& corners : state.selection[view]) {
        std::fill(corners.begin(), corners.end(), 0);
      }
    }
  }

  Rounds rounds(views, board, state);
  rounds.improve(2.0);
  bool tookBack = false;
  for (int round = 0; round < mostRounds; ++round) {
    const bool changed = rounds.throwOut();
    requireEnough(views, state.kept, " and fit the others");
    char line[120];
    rounds.improve(std::max(3.0 * rounds.sigma(), 0.1));
    static_cast<void>(std::snprintf(line, sizeof line, "both eyes: %zu pictures, %zu corners, %.3f px",
                                    state.picturesKept(), state.cornersUsed(), state.rmsUsed()));
    tell(line);
    if (!changed) {
      if (tookBack || !rounds.takeBack()) {
        break;
      }
      tookBack = true;
    }
  }
  requireEyesInOrder(state.estimate.rig.rightFromLeft);
  return state;
}

}  // namespace stereo::calibration
