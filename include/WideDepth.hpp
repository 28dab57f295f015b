// SPDX-License-Identifier: Apache-2.0
// Metric range over the whole field that both eyes see.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "StereoCameraExport.hpp"

namespace stereo {

/// Why a pixel has a range, or why it has none.
enum class RangeState : std::uint8_t {
  measured = 0,      ///< The range is above 0.
  unseen = 1,        ///< Outside the field of one eye, or hidden from the right one.
  tooNear = 2,       ///< Nearer than `WideDepthOptions::nearest`.
  textureless = 3,   ///< Too plain to be found again in the other eye, or to be placed exactly.
  inconsistent = 4,  ///< The eyes disagree, or several places fit.
  tooFar = 5         ///< Farther than `WideDepthOptions::farthest`.
};

/// What to measure. A `WideDepth` takes a copy.
struct WideDepthOptions {
  cv::Size size{464, 400};         ///< of the view, pixels; 32 x 32 to 4096 x 4096
  double horizontalField = 170.0;  ///< degrees of longitude, above 0 up to 180
  double verticalField = 150.0;    ///< degrees of latitude, above 0 up to 180
  double nearest = 0.15;           ///< meters, above 0. Ranges below about 1.2 baselines are too near in any case.
  double farthest = 10.0;          ///< meters, above `nearest`
  int threads = 0;                 ///< 0: as many as OpenCV has. The results do not depend on it.
  /// Estimate from the frames by how many rows the eyes are misaligned, and correct it.
  bool selfCalibrate = true;
  /// Combine the measurements of successive frames: more pixels and less noise where nothing moves. What moved by
  /// more than its error counts from the last frame alone.
  bool fuse = false;
};

/// The calibration of both eyes as calibration files hold it (docs/calibration.md). All matrices are CV_64F.
struct WideDepthCalibration {
  /// Reads a calibration file with the same checks as `StereoCamera::loadCalibParams`. Throws cv::Exception, with a
  /// message of one line, if the file is missing, malformed or incomplete.
  STEREO_CAMERA_EXPORT static WideDepthCalibration load(const std::string& file);

  /// Deep copies of both eyes' matrices as `StereoCamera::getCalibParams` returns them: K, D, xi, R, translation,
  /// further ones ignored. Of a camera that was never started, since the start scales them. Throws cv::Exception for
  /// fewer.
  STEREO_CAMERA_EXPORT static WideDepthCalibration from(const std::vector<cv::Mat>& left,
                                                        const std::vector<cv::Mat>& right);

  cv::Mat leftIntrinsic;     ///< 3 x 3, pixels of a raw frame `frameWidth` pixels wide
  cv::Mat leftDistortion;    ///< 1 x 4: k1, k2, p1, p2
  cv::Mat leftXi;            ///< 1 x 1
  cv::Mat leftRotation;      ///< 3 x 3: from the eye's frame to the rectified one
  cv::Mat rightIntrinsic;    ///< as the left eye's
  cv::Mat rightDistortion;   ///< as the left eye's
  cv::Mat rightXi;           ///< as the left eye's
  cv::Mat rightRotation;     ///< as the left eye's
  cv::Mat translation;       ///< 3 x 1 or 1 x 3: x_right = Q x_left + translation, millimeters
  double frameWidth = 1856;  ///< width of the raw frame (both eyes) that the intrinsic matrices belong to, pixels
};

/// What one pair of frames gave. All images have the size of the view.
struct WideDepthImage {
  cv::Mat range;       ///< CV_32FC1: meters along the pixel's ray from the left eye, 0 where not measured
  cv::Mat state;       ///< CV_8UC1: `RangeState`; `measured` exactly where `range` is above 0
  cv::Mat confidence;  ///< CV_8UC1: 255 is best, 0 where not measured
  cv::Mat view;        ///< CV_8UC3: the left eye in the same geometry, black outside its field
};

/// A measured point.
struct WidePoint {
  cv::Vec3f point;              ///< X, Y, Z in meters, left rectified frame: x right, y down, z forward
  cv::Vec3b color;              ///< blue, green, red
  std::uint8_t confidence = 0;  ///< 255 is best
};

/// Measures metric range with both fisheye eyes, over a field of up to 180 by 180 degrees at once.
///
/// The view has equal angles: longitude over its columns, latitude over its rows, the axis forward in the middle.
/// Pixel (column, row) has
///
///   longitude = (column + 0.5 - W / 2) horizontalField / W    positive to the right
///   latitude  = (row + 0.5 - H / 2) verticalField / H         positive down
///   ray       = (sin longitude, cos longitude sin latitude, cos longitude cos latitude)
///
/// in the left rectified frame. What the left eye sees in a row, the right eye sees in the same row of its own view. If
/// it is there at a longitude smaller by `d`, it is `b (cos longitude cot d + sin longitude)` away for eyes `b` apart.
///
/// A missing range is better than a wrong one: pixels without texture, next to the edge of something nearer, or about
/// which the eyes disagree are withheld, and say why. Patterns that repeat are, too, where something nearer would fit
/// as well. Not all wrong ones can be known: things a few millimeters thin, and some of what repeats, may be reported
/// too far or as `tooFar` (docs/wide-depth.md).
///
/// Threads: one thread at a time may use an object; any number of objects may be used at once. `compute` blocks until
/// it is done, shares its work among `threads` of OpenCV's threads, and allocates nothing once it has run with the same
/// output, except when the row correction changes. The results are the same to the bit on all processors and for any
/// number of threads.
class STEREO_CAMERA_EXPORT WideDepth {
public:
  /// Prepares for eyes of `eye` pixels: half a raw frame each. Takes some tenths of a second. Throws cv::Exception,
  /// with a message of one line, for a file that `WideDepthCalibration::load` does not accept, for a calibration that
  /// cannot be right (eyes at the same place or one above the other, xi below 0, rotations that are none), and for
  /// sizes, fields, ranges or threads outside the limits of `WideDepthOptions`.
  WideDepth(const std::string& calibrationFile, cv::Size eye, const WideDepthOptions& options = {});
  /// The same, from a calibration in memory.
  WideDepth(const WideDepthCalibration& calibration, cv::Size eye, const WideDepthOptions& options = {});
  ~WideDepth();
  WideDepth(WideDepth&& other) noexcept;
  WideDepth& operator=(WideDepth&& other) noexcept;

  /// Measures a pair of eyes: both CV_8UC3 (blue, green, red) or both CV_8UC1, of the size given to the constructor;
  /// anything else throws cv::Exception and leaves `out` as it was. Any content is allowed. The images of `out` are
  /// reused if they have the right size and type and no other header shares their pixels; otherwise they are replaced.
  void compute(const cv::Mat& leftEye, const cv::Mat& rightEye, WideDepthImage& out);

  /// CV_32FC3 of the size of the view: unit ray (x right, y down, z forward) of each pixel, left rectified frame.
  /// Belongs to the object; don't write to it.
  const cv::Mat& rays() const;

  /// Meters between the eyes.
  double baseline() const;

  /// Root mean square over the view of the row correction in use, rows of the view; 0 while there is none.
  double rowCorrection() const;

  /// Forgets the row correction and the frames that were combined, as if nothing had been computed yet.
  void reset();

  /// Organized cloud: CV_32FC3 of the size of the view, X, Y, Z in meters in the left rectified frame, NaN where not
  /// measured. `image` is a result of this object or of one with the same size and fields; other sizes or types throw
  /// cv::Exception. `cloud` is reused like the images of `compute`.
  void organizedCloud(const WideDepthImage& image, cv::Mat& cloud) const;

  /// The measured points whose confidence is at least `leastConfidence`, row by row. Replaces the content of `points`.
  /// `image` as for `organizedCloud`.
  void points(const WideDepthImage& image, std::vector<WidePoint>& points, int leastConfidence = 0) const;

private:
  class Engine;
  std::unique_ptr<Engine> m_engine;
};

/// Writes points as binary little-endian PLY (x, y, z as float in meters, red, green, blue, confidence as uchar),
/// replacing the file. Throws cv::Exception if it cannot be written.
STEREO_CAMERA_EXPORT void writePly(const std::string& file, const std::vector<WidePoint>& points);

}  // namespace stereo
