// SPDX-License-Identifier: Apache-2.0
#include "model/OmniModel.hpp"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>
#include <opencv2/ccalib/omnidir.hpp>
#include <opencv2/core.hpp>

#include "sim/Rig.hpp"

namespace stereo::model {
namespace {

/// Rays over the whole sphere but for the neighbourhood of straight back.
std::vector<cv::Vec3d> raysAllRound(double maxAngle) {
  std::vector<cv::Vec3d> rays;
  for (int i = 0; i <= 40; ++i) {
    for (int j = 0; j < 24; ++j) {
      const double theta = maxAngle * i / 40.0;
      const double phi = 2.0 * CV_PI * (j + 0.3) / 24.0;
      rays.emplace_back(std::sin(theta) * std::cos(phi), std::sin(theta) * std::sin(phi), std::cos(theta));
    }
  }
  return rays;
}

OmniModel randomModel(cv::RNG& rng) {
  OmniModel m;
  m.xi = rng.uniform(0.3, 2.5);
  m.fx = rng.uniform(200.0, 900.0);
  m.fy = m.fx * rng.uniform(0.9, 1.1);
  m.skew = rng.uniform(-3.0, 3.0);
  m.cx = rng.uniform(300.0, 600.0);
  m.cy = rng.uniform(300.0, 500.0);
  m.k1 = rng.uniform(-0.5, 0.3);
  m.k2 = rng.uniform(-0.5, 0.3);
  m.p1 = rng.uniform(-0.005, 0.005);
  m.p2 = rng.uniform(-0.005, 0.005);
  return m;
}

std::vector<OmniModel> typicalModels() {
  std::vector<OmniModel> models;
  for (std::uint32_t seed = 1; seed <= 4; ++seed) {
    models.push_back(sim::Rig(seed).eye(seed % 2 == 0).model);
  }
  OmniModel strong;  // distortion as strong as calibrations of real lenses come out with
  strong.xi = 1.52;
  strong.fx = 846.9;
  strong.fy = 847.9;
  strong.skew = 0.4;
  strong.cx = 464.7;
  strong.cy = 313.9;
  strong.k1 = -0.482;
  strong.k2 = 0.147;
  strong.p1 = 5.2e-4;
  strong.p2 = -3.2e-4;
  strong.halfField = 100.0 / 180.0 * CV_PI;
  models.push_back(strong);
  return models;
}

TEST(OmniModel, ProjectsAsTheReferenceDoes) {
  cv::RNG rng(7);
  int compared = 0;
  for (int n = 0; n < 40; ++n) {
    const OmniModel m = randomModel(rng);
    const std::vector<cv::Vec3d> rays = raysAllRound(0.95 * CV_PI);
    std::vector<cv::Vec3d> points;
    for (const cv::Vec3d& ray : rays) {
      points.push_back(ray * rng.uniform(0.1, 20.0));
    }
    std::vector<cv::Point2d> reference;
    cv::omnidir::projectPoints(points, reference, cv::Vec3d(0, 0, 0), cv::Vec3d(0, 0, 0), cv::Mat(m.intrinsic()), m.xi,
                               cv::Mat(m.distortion()));
    for (std::size_t i = 0; i < points.size(); ++i) {
      const auto pixel = m.project(points[i]);
      if (pixel) {
        // Close to the edge of the model's domain pixels run to infinity: there a share of their size counts.
        const double tolerance = 1e-9 + 1e-11 * cv::norm(reference[i]);
        ASSERT_NEAR(pixel->x, reference[i].x, tolerance) << "model " << n << " ray " << rays[i];
        ASSERT_NEAR(pixel->y, reference[i].y, tolerance) << "model " << n << " ray " << rays[i];
        ++compared;
      }
    }
  }
  EXPECT_GT(compared, 15000);
}

TEST(OmniModel, LiftUndoesProject) {
  for (const OmniModel& m : typicalModels()) {
    int seen = 0;
    for (const cv::Vec3d& ray : raysAllRound(0.999 * m.halfField)) {
      const auto pixel = m.project(ray);
      if (!pixel) {
        continue;
      }
      const auto back = m.unproject(*pixel);
      ASSERT_TRUE(back) << ray;
      ASSERT_LT(cv::norm(*back - ray), 1e-10) << ray;
      ++seen;
    }
    EXPECT_GT(seen, 900);
  }
}

TEST(OmniModel, ProjectUndoesLiftOnEveryPixelOfTheField) {
  for (const OmniModel& m : typicalModels()) {
    int unprojected = 0;
    for (int row = 0; row < 800; row += 7) {
      for (int col = 0; col < 928; col += 7) {
        const cv::Point2d pixel(col, row);
        const auto ray = m.unproject(pixel);
        if (!ray) {
          continue;
        }
        ASSERT_NEAR(cv::norm(*ray), 1.0, 1e-12);
        const auto back = m.project(*ray);
        ASSERT_TRUE(back) << pixel;
        ASSERT_LT(cv::norm(*back - pixel), 1e-9) << pixel;
        ++unprojected;
      }
    }
    EXPECT_GT(unprojected, 8000);
  }
}

TEST(OmniModel, PixelsInTheImageCircleHaveRaysAndOthersHaveNone) {
  for (std::uint32_t seed = 1; seed <= 4; ++seed) {
    for (const bool isRight : {false, true}) {
      const OmniModel m = sim::Rig(seed).eye(isRight).model;
      for (int row = 0; row < 800; row += 5) {
        for (int col = 0; col < 928; col += 5) {
          const double radius = std::hypot(col - m.cx, row - m.cy);
          const bool hasRay = m.unproject(cv::Point2d(col, row)).has_value();
          if (radius < 459.0) {
            ASSERT_TRUE(hasRay) << col << " " << row;
          } else if (radius > 469.0) {
            ASSERT_FALSE(hasRay) << col << " " << row;
          }
        }
      }
    }
  }
}

TEST(OmniModel, RaysOutsideTheFieldHaveNoPixel) {
  const OmniModel m = sim::Rig(1).eye(false).model;
  const auto at = [&m](double degrees) {
    return m.project({std::sin(degrees / 180.0 * CV_PI), 0.0, std::cos(degrees / 180.0 * CV_PI)});
  };
  EXPECT_TRUE(at(110.9));
  EXPECT_FALSE(at(111.1));
  EXPECT_FALSE(at(180.0));
}

TEST(OmniModel, RaysBehindTheFoldHaveNoPixel) {
  // For xi = 2 the plane radius sin / (cos + 2) is largest at 120 degrees and shrinks again behind it.
  OmniModel m;
  m.xi = 2.0;
  const auto at = [&m](double degrees) {
    return m.project({std::sin(degrees / 180.0 * CV_PI), 0.0, std::cos(degrees / 180.0 * CV_PI)});
  };
  EXPECT_TRUE(at(119.9));
  EXPECT_FALSE(at(120.1));
  EXPECT_FALSE(at(170.0));
  // Radial distortion folds over too: r (1 - r^2 / 3) turns back at r = 1, which xi = 0.5 reaches at about 76 degrees.
  m.xi = 0.5;
  m.k1 = -1.0 / 3.0;
  EXPECT_TRUE(at(60.0));
  EXPECT_FALSE(at(100.0));
  EXPECT_FALSE(m.unproject({0.7, 0.0})) << "the largest reachable plane coordinate is 2/3";
  EXPECT_TRUE(m.unproject({0.66, 0.0}));
}

TEST(OmniModel, ScalingTheReadOutScalesPixels) {
  const OmniModel m = sim::Rig(3).eye(true).model;
  const OmniModel half = m.scaled(0.5);
  for (const cv::Vec3d& ray : raysAllRound(1.9)) {
    const auto full = m.project(ray);
    const auto scaled = half.project(ray);
    ASSERT_EQ(full.has_value(), scaled.has_value());
    if (full) {
      ASSERT_LT(cv::norm(*scaled - 0.5 * *full), 1e-10);
    }
  }
}

}  // namespace
}  // namespace stereo::model
