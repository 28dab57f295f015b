// SPDX-License-Identifier: Apache-2.0
#include "calibration/Solver.hpp"

#include <algorithm>
#include <array>
#include <memory>

#include <ceres/ceres.h>
#include <ceres/normal_prior.h>

#include "calibration/Residuals.hpp"

namespace stereo::calibration {

namespace {

using EyeBlock = std::array<double, eyeParameters>;
using PoseBlock = std::array<double, poseParameters>;

constexpr double mostXi = 6.0;
// Values at which a prior costs as much as one corner that is a pixel off.
constexpr double radialScale = 1.0;
constexpr double tangentialScale = 0.05;
constexpr double skewScale = 1.0;  // pixels
constexpr double sagScale = 2.0;   // millimeters

EyeBlock toBlock(const model::OmniModel& eye) {
  const double grown = 1.0 + eye.xi;
  return {eye.xi, eye.fx / grown, eye.fy / grown, eye.cx, eye.cy, eye.k1, eye.k2, eye.p1, eye.p2, eye.skew};
}

void fromBlock(const EyeBlock& block, model::OmniModel& eye) {
  eye.xi = block[xi];
  eye.fx = block[reducedFocalX] * (1.0 + eye.xi);
  eye.fy = block[reducedFocalY] * (1.0 + eye.xi);
  eye.skew = block[skew];
  eye.cx = block[centerX];
  eye.cy = block[centerY];
  eye.k1 = block[radial1];
  eye.k2 = block[radial2];
  eye.p1 = block[tangential1];
  eye.p2 = block[tangential2];
}

PoseBlock toBlock(const Pose& pose) {
  const cv::Vec3d& r = pose.rotation;
  const cv::Vec3d& t = pose.translation;
  return {r[0], r[1], r[2], t[0], t[1], t[2]};
}

Pose fromBlock(const PoseBlock& block) { return {{block[0], block[1], block[2]}, {block[3], block[4], block[5]}}; }

// The parameter blocks, and the problem built on them.
class Work {
public:
  Work(const Estimate& estimate, const SolverOptions& options)
      : m_loss(options.lossScale),
        m_relative(toBlock(estimate.rig.rightFromLeft)),
        m_sags{estimate.sags[0], estimate.sags[1], estimate.sags[2]} {
    for (std::size_t eye = 0; eye < 2; ++eye) {
      m_eyes[eye] = toBlock(estimate.rig.eyes[eye]);
    }
    for (const Pose& board : estimate.boards) {
      m_boards.push_back(toBlock(board));
    }
    ceres::Problem::Options ownership;
    ownership.loss_function_ownership = ceres::DO_NOT_TAKE_OWNERSHIP;
    m_problem = std::make_unique<ceres::Problem>(ownership);
  }

  void add(const std::vector<BoardView>& views, const Board& board, const Selection& selection) {
    for (std::size_t view = 0; view < views.size(); ++view) {
      for (std::size_t eye = 0; eye < 2; ++eye) {
        const std::vector<char>& chosen = selection[view][eye];
        for (std::size_t k = 0; k < chosen.size(); ++k) {
          if (chosen[k] != 0) {
            addCorner(view, eye, {board.point(k), board.bend(k), views[view].corners[eye][k]});
          }
        }
      }
    }
  }

  void hold(const SolverOptions& options) {
    for (EyeBlock& eye : m_eyes) {
      if (!m_problem->HasParameterBlock(eye.data())) {
        continue;
      }
      if (options.fixedCamera) {
        m_problem->SetParameterBlockConstant(eye.data());
        continue;
      }
      m_problem->SetParameterLowerBound(eye.data(), xi, 0.0);
      m_problem->SetParameterUpperBound(eye.data(), xi, mostXi);
      if (options.fixedDistortion) {
        m_problem->SetManifold(
            eye.data(), new ceres::SubsetManifold(eyeParameters, {radial1, radial2, tangential1, tangential2, skew}));
      }
    }
    if (options.fixedCamera || options.flatBoard) {
      m_problem->SetParameterBlockConstant(m_sags.data());
    }
    if (options.fixedCamera && m_problem->HasParameterBlock(m_relative.data())) {
      m_problem->SetParameterBlockConstant(m_relative.data());
    }
  }

  void addPriors() {
    ceres::Matrix weights = ceres::Matrix::Zero(5, eyeParameters);
    weights(0, radial1) = weights(1, radial2) = 1.0 / radialScale;
    weights(2, tangential1) = weights(3, tangential2) = 1.0 / tangentialScale;
    weights(4, skew) = 1.0 / skewScale;
    for (EyeBlock& eye : m_eyes) {
      if (m_problem->HasParameterBlock(eye.data())) {
        m_problem->AddResidualBlock(new ceres::NormalPrior(weights, ceres::Vector::Zero(eyeParameters)), nullptr,
                                    eye.data());
      }
    }
    const ceres::Matrix sagWeights = ceres::Matrix::Identity(sagParameters, sagParameters) / sagScale;
    m_problem->AddResidualBlock(new ceres::NormalPrior(sagWeights, ceres::Vector::Zero(sagParameters)), nullptr,
                                m_sags.data());
  }

  ceres::Problem& problem() { return *m_problem; }

  void store(Estimate& estimate) const {
    for (std::size_t eye = 0; eye < 2; ++eye) {
      if (m_problem->HasParameterBlock(m_eyes[eye].data())) {
        fromBlock(m_eyes[eye], estimate.rig.eyes[eye]);
      }
    }
    estimate.rig.rightFromLeft = fromBlock(m_relative);
    estimate.sags = {m_sags[0], m_sags[1], m_sags[2]};
    std::transform(m_boards.begin(), m_boards.end(), estimate.boards.begin(),
                   [](const PoseBlock& block) { return fromBlock(block); });
  }

private:
  void addCorner(std::size_t view, std::size_t eye, const CornerResidual& corner) {
    double* const lens = m_eyes[eye].data();
    double* const board = m_boards[view].data();
    if (eye == 0) {
      m_problem->AddResidualBlock(
          new ceres::AutoDiffCostFunction<CornerResidual, 2, eyeParameters, poseParameters, sagParameters>(
              new CornerResidual(corner)),
          &m_loss, lens, board, m_sags.data());
    } else {
      m_problem->AddResidualBlock(
          new ceres::AutoDiffCostFunction<CornerResidual, 2, eyeParameters, poseParameters, poseParameters,
                                          sagParameters>(new CornerResidual(corner)),
          &m_loss, lens, m_relative.data(), board, m_sags.data());
    }
  }

  ceres::CauchyLoss m_loss;
  std::array<EyeBlock, 2> m_eyes;
  PoseBlock m_relative;
  std::array<double, sagParameters> m_sags;
  std::vector<PoseBlock> m_boards;
  std::unique_ptr<ceres::Problem> m_problem;  // refers to all of the above
};

}  // namespace

Selection allCorners(const std::vector<BoardView>& views) {
  Selection selection(views.size());
  for (std::size_t view = 0; view < views.size(); ++view) {
    for (std::size_t eye = 0; eye < 2; ++eye) {
      selection[view][eye].assign(views[view].corners[eye].size(), 1);
    }
  }
  return selection;
}

SolverResult solve(Estimate& estimate, const std::vector<BoardView>& views, const Board& board,
                   const Selection& selection, const SolverOptions& options) {
  Work work(estimate, options);
  work.add(views, board, selection);
  if (work.problem().NumResiduals() == 0) {
    return {};
  }
  work.addPriors();
  work.hold(options);
  double cost = 0;
  if (!work.problem().Evaluate(ceres::Problem::EvaluateOptions(), &cost, nullptr, nullptr, nullptr)) {
    return {};
  }
  ceres::Solver::Options how;
  how.linear_solver_type = ceres::DENSE_SCHUR;
  how.max_num_iterations = options.maxIterations;
  how.function_tolerance = 1e-10;
  how.parameter_tolerance = 1e-10;
  how.gradient_tolerance = 1e-12;
  how.num_threads = 1;
  how.logging_type = ceres::SILENT;
  ceres::Solver::Summary summary;
  ceres::Solve(how, &work.problem(), &summary);
  if (!summary.IsSolutionUsable()) {
    return {};
  }
  work.store(estimate);
  return {true, summary.termination_type == ceres::CONVERGENCE, summary.final_cost};
}

}  // namespace stereo::calibration
