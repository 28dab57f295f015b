// SPDX-License-Identifier: Apache-2.0
// The camera, and the free functions that it uses.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include "StereoCameraExport.hpp"

class SystemLog;
namespace stereo {
class ReadWatchdog;
namespace core {
struct CloudModel;
struct DepthModel;
struct StreamMode;
}  // namespace core
}  // namespace stereo

/// A point of a colored cloud.
struct PCL {
  /// X, Y, Z in meters in the left rectified camera's frame: x to the right, y down, z forward.
  cv::Vec3f point;
  /// Blue, green, red of the pixel where the point was seen.
  cv::Vec3b color;
};

/// A stereo fisheye camera whose two eyes arrive side by side in one video frame.
///
/// Life of a camera: construct, check `isOpened`, `loadCalibParams`, `setRawFrameSize` (only this sets the radius of
/// the image circle: without it, all but one pixel of each eye is black), `setRectFrameSize`, `startCapture`,
/// `startStereoCompute` for depth, then read; `stopStereoCompute`, `stopCapture`, destroy. A stopped camera cannot be
/// started again; make a new one. Destroying a camera whose worker still runs ends the process.
///
/// Threads. One host thread constructs, configures, starts, stops and destroys. Reads (`get…Frame`,
/// `getPointCloud`) may be called from any number of threads at once. Each read but the two-image `getDepthFrame`
/// waits for the *next* result published after the call began, without a timeout: while no worker publishes, it
/// blocks until the matching stop operation is called, and then returns false with its outputs untouched. Reads that
/// begin after a `stopCapture` that ended a worker return false at once, unless a derived class publishes frames
/// itself or feeds the disparity worker.
///
/// Results are deep copies. A read writes into the caller's matrix only if that is the sole owner of its pixels;
/// otherwise the matrix gets a new buffer. Images are 8-bit BGR unless stated otherwise.
///
/// Errors are reported by returning `false`, with a message in the log or on standard error. Exceptions of OpenCV pass
/// to the caller, except while a settings or calibration file is read. On a worker thread they end the process.
///
/// To feed frames from elsewhere, derive: replace `m_videoCapture` by a `cv::VideoCapture` of your own and set
/// `m_isOpened`. Overriding `getStereoFrame` changes the source of the rectified reads and of the disparity worker
/// only. An override that blocks has to end by itself: no stop operation can release it.
class STEREO_CAMERA_EXPORT StereoCamera {
public:
  /// Two images that belong together and the time at which they were captured.
  struct TimeFrame {
    cv::Mat first;   ///< Left eye, or the view that a disparity image came with.
    cv::Mat second;  ///< Right eye, or the disparity image.
    /// Since the epoch of `std::chrono::system_clock`.
    std::chrono::microseconds timestamp{0};
  };

  /// Opens video device 0 as it is; size and rate are not sent to it.
  StereoCamera();
  /// Opens video device `deviceNode` as it is; size and rate are not sent to it.
  explicit StereoCamera(int deviceNode);
  /// Loads the settings file, then opens the device that it names and sends it width, height and rate; whether the
  /// device accepted them is not checked. If the file cannot be loaded, the camera stays closed.
  explicit StereoCamera(std::string settingsPath);

  StereoCamera(const StereoCamera&) = delete;
  StereoCamera& operator=(const StereoCamera&) = delete;

  /// Releases the device and the log. Neither signals nor joins the workers: stop them first.
  virtual ~StereoCamera();

  /// Whether the device is open and the camera has not been stopped. Does not block; any thread.
  virtual bool isOpened();

  // Setters. None of them blocks or locks. Call them on the host's thread, before `startCapture`.

  /// Stores the level, which `getLogLevel` and `saveConfig` report; the existing log keeps the level that it was
  /// created with. False for a negative level, which is stored all the same.
  virtual bool setLogLevel(int level);
  /// Position of this camera on its machine: shared-memory key 9000 + n, stream port 9200 + n. Always true.
  virtual bool setPosNumber(int posNumber);
  /// Always true.
  virtual bool setSerialNumber(int serialNumber);
  /// Raw frames per second. False if there is no device object to send the rate to; it is stored all the same.
  virtual bool setRawFrameRate(int framesPerSecond);
  /// Size of the side-by-side frame in pixels, 1856 x 800 or 928 x 400; any other is refused with a message. Sets the
  /// device and the radius of the image circle (a quarter of the width). False if refused, or if there is no device
  /// object; then the size is stored, but not the radius.
  virtual bool setRawFrameSize(cv::Size size);
  /// Size of one rectified eye in pixels. The maps follow at the next `startCapture`; the width also scales depth in
  /// mode 1, at once. False for a width of 0, which is stored all the same.
  virtual bool setRectFrameSize(cv::Size size);

  /// Sets one eye's calibration and the translation from {intrinsic matrix 3x3 for a raw frame 1856 pixels wide,
  /// distortion 1x4 (k1, k2, p1, p2), xi 1x1, rectifying rotation 3x3, translation in millimeters}, all CV_64F;
  /// further elements are ignored. Deep copies are kept; they take effect at the next `startCapture`. False, with a
  /// message and nothing changed, for fewer than five matrices. Takes no lock: no worker may run.
  virtual bool setCalibParams(std::vector<cv::Mat> params, bool isRight);

  virtual int getLogLevel() const;      ///< As set or loaded, 1 at first.
  virtual int getDeviceNode() const;    ///< N of /dev/videoN.
  virtual int getPosNumber() const;     ///< As set, or from the calibration file; 0 at first.
  virtual int getSerialNumber() const;  ///< As set, or from the calibration file; 0 at first.
  /// Frames per second: as set; once the capture worker runs, one over the duration of its last pass (from the start
  /// of the device's read until the frame is ready to be published).
  virtual float getRawFrameRate() const;
  /// Pixels; after the capture worker's warm-up, the size that the device really delivers.
  virtual cv::Size getRawFrameSize() const;

  /// Next frame, both eyes side by side (2w x h for eyes of w x h), black outside the image circles.
  /// Blocks for the next frame; any thread. Feeds the stream in modes 0 and 1. False if empty.
  virtual bool getRawFrame(cv::Mat& frame, std::chrono::microseconds& timestamp);
  /// Next frame's left and right eye. Blocks for the next frame; any thread. False if either is empty.
  virtual bool getStereoFrame(cv::Mat& left, cv::Mat& right, std::chrono::microseconds& timestamp);
  /// Depth as a false-color picture: CV_8UC3 of the disparity's size, rotated by 180 degrees, near blue and far red,
  /// black where there is no depth within the limits. `color` is ignored. The timestamp is that of the newest raw
  /// frame. Blocks for the next raw frame; any thread. False at once without a disparity worker, and false until a
  /// disparity has been published. Feeds the stream in mode 4 with depth mode 2.
  virtual bool getDepthFrame(cv::Mat& depth, bool color, std::chrono::microseconds& timestamp);
  /// Disparity (CV_32FC1, pixels of the rectified eye) to depth (CV_32FC1, meters, same size): -1 where the disparity
  /// is not above the number of the near limit, 0 where the depth is outside the limits. Depth mode 2:
  /// f * b / d with focal length f in pixels and baseline b in meters. Depth mode 1, on longitude-latitude
  /// pictures: b * sin(pi * ((column - d) / W + o)) / sin(pi * d / W), o = (180 - longitude-latitude field) / 360,
  /// which assumes that the pictures span 180 degrees. Neither waits nor locks. Throws cv::Exception for a disparity
  /// of another type.
  virtual void getDepthFrame(cv::Mat& disparity, cv::Mat& depth);
  /// Appends the points of the next disparity image, in meters. The timestamp is that of the newest raw frame. Blocks
  /// for the next disparity; any thread. True if the vector is not empty afterwards.
  virtual bool getPointCloud(std::vector<cv::Vec3f>& points, std::chrono::microseconds& timestamp);
  /// As above, with the color of each point. The disparity worker cannot publish meanwhile.
  virtual bool getPointCloud(std::vector<PCL>& points, std::chrono::microseconds& timestamp);
  /// Appends {intrinsic matrix, distortion, xi, rotation of the eye, translation, camera matrix of the perspective
  /// view}: six headers that share their pixels with the camera, so clone them before you write into them. Each
  /// `startCapture` that builds maps scales the intrinsic matrix to the raw frame; the last matrix is empty before the
  /// first of these. Always true.
  virtual bool getCalibParams(std::vector<cv::Mat>& params, bool isRight);
  /// Like the four-argument form, without the timestamp.
  virtual bool getRectStereoFrame(cv::Mat& left, cv::Mat& right, cv::Mat& view);
  /// Next frame's eyes in the perspective view, each of the rectified size, black where the eye saw nothing. Blocks
  /// for the next frame; any thread. Feeds the stream in modes 2 and 3. True if both outputs are non-empty, even if an
  /// override of `getStereoFrame` failed and left them as they were; false if a stop ended the read. Throws
  /// cv::Exception while there are no maps (no complete calibration or no rectified size at `startCapture`).
  virtual bool getRectStereoFrame(cv::Mat& left, cv::Mat& right);
  /// Next frame's eyes in the view that depth is computed from (depth mode 1: longitude-latitude, 2: perspective;
  /// any other leaves `left` and `right` as they were), and the left eye in the perspective view. Blocks for the
  /// next frame; any thread. True if all three outputs are non-empty. Throws as above.
  virtual bool getRectStereoFrame(cv::Mat& left, cv::Mat& right, cv::Mat& view, std::chrono::microseconds& timestamp);

  /// Reads the settings file (YAML, XML or JSON, recognized by its content; it may be compressed if its name ends in
  /// ".gz"). Values out of range are replaced, with a message on standard error. False, with a message, if the file
  /// cannot be read or names no device.
  virtual bool loadConfig(std::string path);
  /// Reads the calibration file, in the same formats. False if a value is missing (the others are used) or, with a
  /// message on standard error, if the file is malformed.
  virtual bool loadCalibParams(std::string fileName);
  /// Writes the settings, replacing the file (compressed if its name ends in ".gz"), and flushes the system's buffers
  /// to disk. The key "FrameRate" gets the serial number; field of view, stream rate, stream mode and depth mode are
  /// not written. A file that cannot be opened is not reported.
  virtual bool saveConfig(std::string path);
  /// Writes the current calibration (scaled by each `startCapture` that built maps), replacing the file, and flushes
  /// the system's buffers to disk. A file that cannot be opened is not reported.
  virtual bool saveCalibParams(std::string fileName);

  /// Scales the intrinsic matrices to the raw frame, builds the maps (if there is a rectified size and a calibration)
  /// and starts the capture worker. `useTransmit` turns the network stream on, `useShareMemory` the shared-memory
  /// segment; both stay on. Starting a second time scales again. If the segment cannot be created or mapped, the
  /// worker ends the process with status 1. Throws cv::Exception for a malformed calibration. The host's thread. True.
  virtual bool startCapture(bool useTransmit, bool useShareMemory);
  /// Starts the disparity worker. True; false while one is already running. The host's thread.
  virtual bool startStereoCompute();
  /// Ends the disparity worker and waits for it to finish its cycle, including its wait for a frame. That wait is
  /// ended only if no frame can come (the capture is stopped, or none came for two seconds). Readers that still wait
  /// for a cloud are released with false. True. The host's thread; also code that a colored cloud calls.
  virtual bool stopStereoCompute();
  /// Ends the capture worker after its device read and waits for it. Readers that still wait for a frame are released
  /// with false. If the device stalls and the read goes on for two seconds, it is made to fail, and the worker reads no
  /// more: OpenCV's own video devices are stopped in the way of their back end, a derived cv::VideoCapture by one call
  /// of its `release`, which it must accept during a read. A read of OpenCV's that nothing can end is abandoned, with
  /// its thread and device. True. The host's thread; also code that a colored cloud calls.
  virtual bool stopCapture();

protected:
  int m_fisheyeRadius = 0;  ///< Radius of each eye's image circle in raw pixels.
  int m_algorithm = 0;      ///< Matcher: 0 semi-global, 1 block matching, other none.
  int m_logLevel = 1;       ///< Level that the next log is made with.
  int m_deviceNode = 0;     ///< Index of the video device.
  int m_posNumber = 0;      ///< Position of this camera on its machine.
  int m_serialNumber = 0;   ///< Serial number of the camera.
  int m_threshold = 120;    ///< Largest distance from the principal point in the clouds, rectified pixels.
  std::atomic<float> m_frameRate{30.0F};      ///< Frames per second: as set, then as measured by each pass.
  int m_ipLastSegment = 15;                   ///< Last octet of the stream receiver's address.
  std::atomic<bool> m_useShareMemory{false};  ///< Offer the left eye in shared memory.
  std::atomic<bool> m_useTransmit{false};     ///< Feed the network stream.
  std::atomic<bool> m_isOpened{false};        ///< Device open; the capture worker runs while true.
  std::atomic<bool> m_isComputing{false};     ///< The disparity worker runs while true.
  float m_maxDepth = 1.0F;                    ///< Far limit of depth, meters.
  float m_minDepth = 0.05F;     ///< Near limit of depth, meters; its number also cuts off disparities, pixels.
  int m_transmode = -1;         ///< Stream mode, -1 (none) to 4.
  double m_transrate = 0.0;     ///< Frames per second announced to the encoder.
  double m_hFov = 90.0;         ///< Horizontal field of the perspective view, degrees.
  double m_defaultHFov = 90.0;  ///< Fallback for `m_hFov`.
  double m_fisheyeFov = 222.0;  ///< Field of view of the lenses, degrees; for information.
  double m_lonLatFov = 180.0;  ///< Field of longitude-latitude depth, degrees; its maps span value / 222 * 180 degrees.
  int m_depthmode = 1;         ///< Depth from the 1 longitude-latitude, 2 perspective pair.
  cv::VideoWriter m_videoWriter;              ///< The network stream.
  alignas(8) cv::Size m_rawFrameSize{0, 0};   ///< Side-by-side frame, pixels. Aligned for atomic access.
  alignas(8) cv::Size m_rectFrameSize{0, 0};  ///< One rectified eye, pixels. Aligned for atomic access.
  TimeFrame m_rawFrame;                       ///< Latest left and right eye; guarded by `m_frameMutex`.
  TimeFrame m_disparityFrame;  ///< Latest view (CV_8UC3) and disparity (CV_32FC1, pixels); `m_disparityMutex`.
  // Calibration; read without a lock, so not to be changed while a worker runs. All CV_64FC1.
  cv::Mat m_leftXi;             ///< 1x1, mirror parameter.
  cv::Mat m_leftRotation;       ///< 3x3, rectifying rotation.
  cv::Mat m_leftIntrinsic;      ///< 3x3, pixels.
  cv::Mat m_leftDistortion;     ///< 1x4: k1, k2, p1, p2.
  cv::Mat m_rightXi;            ///< As the left eye's.
  cv::Mat m_rightRotation;      ///< As the left eye's.
  cv::Mat m_rightIntrinsic;     ///< As the left eye's.
  cv::Mat m_rightDistortion;    ///< As the left eye's.
  cv::Mat m_translation;        ///< Between the eyes, millimeters; its norm is the baseline.
  cv::Mat m_rectCameraMatrix;   ///< 3x3 camera matrix of the perspective view; built by `startCapture`.
  cv::Mat m_rectifyMaps[2][2];  ///< Perspective maps [0 left, 1 right][0 source column, 1 source row], CV_32FC1.
  cv::Mat m_lonLatMaps[2][2];   ///< Longitude-latitude maps, same indexing and type.
  cv::Mat m_reservedMats[2];    ///< Unused.
  SystemLog* m_log = nullptr;   ///< Owned; null if it could not be created or the settings failed to load.
  std::string m_logName = "StereoCamera";      ///< Prefix of each record.
  std::mutex m_frameMutex;                     ///< Guards `m_rawFrame`.
  std::mutex m_disparityMutex;                 ///< Guards `m_disparityFrame`.
  std::condition_variable m_frameCond;         ///< A raw frame was published.
  std::condition_variable m_disparityCond;     ///< A disparity image was published.
  cv::VideoCapture* m_videoCapture = nullptr;  ///< Owned.
  std::thread* m_captureThread = nullptr;      ///< Owned.
  std::thread* m_computeThread = nullptr;      ///< Owned.

private:
  struct Internals;  // leaf locks and bookkeeping that derived classes do not need
  std::unique_ptr<Internals> m_internals;

  explicit StereoCamera(std::unique_ptr<Internals> internals);

  bool createLog();
  void dropLog();
  bool createDevice();
  void noteDevice();
  void buildMaps(float frameScale);
  void captureWorker(float frameScale, stereo::ReadWatchdog& reads);
  void interruptRead(int attempt);
  void abandonCapture();
  void openStream();
  stereo::core::StreamMode wantedStream() const;
  void sendToStream(const stereo::core::StreamMode& mode, const cv::Mat& first, const cv::Mat& second);
  void disparityWorker();
  void awaitDisparityWorker();
  bool noFrameCanCome() const;
  bool waitForFrame(std::unique_lock<std::mutex>& frameLock, bool isDisparityWorker);
  bool waitAsReader(std::unique_lock<std::mutex>& frameLock);
  bool waitAsDisparityWorker(std::unique_lock<std::mutex>& frameLock);
  std::unique_lock<std::mutex> waitForDisparity();
  std::unique_lock<std::mutex> lockDisparityUnlessHeld();
  void releaseFrameReaders(bool captureEnded);
  void releaseDisparityReaders();
  void releaseDisparityReadersOfCapture();
  stereo::core::DepthModel depthModel() const;
  stereo::core::CloudModel cloudModel() const;
  cv::Mat rectCameraMatrix() const;
};

/// Builds the lookup maps for `cv::remap` that turn one fisheye eye into another view, by the unified omnidirectional
/// model: the ray (x, y, z) of each pixel of the view, scaled to the unit sphere, is projected to xu = x / (z + xi),
/// yu = y / (z + xi), distorted (radial k1, k2; tangential p1, p2) and converted to pixels by K.
///
/// @param K     3x3 CV_64F, intrinsic matrix of the eye in pixels of the eye's image.
/// @param D     CV_64F with k1, k2, p1, p2 in its first row.
/// @param R     3x3 CV_64F, rectifying rotation; its inverse rotates the rays.
/// @param P     3x3 CV_64F, camera matrix of the view.
/// @param xi    mirror parameter of the eye.
/// @param xi2   mirror parameter of the view, mode 0 only (0: pinhole, 1: stereographic).
/// @param size  of the view, pixels.
/// @param mode  0: unified model with xi2; 1: longitude-latitude, P^-1 (column, row, 1) being two angles in radians,
///              both pi/2 on the axis; 2: perspective. Any other gives NaN everywhere.
/// @param map1  CV_32FC1 of `size`: column in the eye's image.
/// @param map2  CV_32FC1 of `size`: row in the eye's image.
/// @return true. Throws cv::Exception for matrices of another shape or type. Rays behind the eye are projected like
/// any other; the inverse of a singular matrix is taken as zero.
STEREO_CAMERA_EXPORT bool initRectifyMap(cv::Mat K, cv::Mat D, cv::Mat R, cv::Mat P, double xi, double xi2,
                                         cv::Size size, int mode, cv::Mat& map1, cv::Mat& map2);

/// Product of row `row` of a CV_64FC1 matrix with the column (a, b, c): (m(row,0) a + m(row,1) b) + m(row,2) c.
/// Throws cv::Exception if the matrix has no such row, fewer than three columns, or another type.
STEREO_CAMERA_EXPORT double MatRowMul(const cv::Mat& m, double a, double b, double c, int row);

/// Blacks out everything, in both images, outside the circle of `radius` pixels around (cols / 2, rows / 2) of the
/// first; in row i the columns [cx - h, cx + h] stay, h = floor(sqrt(radius^2 - (cy - i)^2)). In place. Returns 0.
/// Throws cv::Exception if either is not CV_8UC3 or the second is smaller than the first.
STEREO_CAMERA_EXPORT int convertRawFisheyeImage(int radius, cv::Mat& first, cv::Mat& second);

/// Blacks out everything, in both images, outside an ellipse: ((j - cx) / rx)^2 + ((i - cy) / ry)^2 > 1, with
/// ry = rows / 2 + dRadiusY, rx = cols / 2 + dRadiusX, cx = cols / 2 + dCenterX, cy = rows / 2 + dCenterY, all in
/// pixels of the first image. In place. Returns 0. Throws as the circular form.
STEREO_CAMERA_EXPORT int convertRawFisheyeImage(cv::Mat& first, cv::Mat& second, float dRadiusY, float dRadiusX,
                                                float dCenterX, float dCenterY);

/// Blue of a value `v` on the scale from `lo` to `hi`: 255 at `lo`, falling to 0 in the middle; 0 elsewhere.
STEREO_CAMERA_EXPORT unsigned char getBlueSegVal(float lo, float hi, float v);
/// Green of a value `v` on the scale from `lo` to `hi`. With h = (hi - lo) / 2, r = hi - lo, x = v - lo, the low
/// eight bits of the truncated -255 x / h for 0 < x <= h, of (-255 x - 255 r) / (h - r) for h < x <= r, else 0.
STEREO_CAMERA_EXPORT unsigned char getGreenSegVal(float lo, float hi, float v);
/// Red of a value `v` on the scale from `lo` to `hi`. With h, r, x as above, the low eight bits of the truncated
/// (255 x + 255 h) / (r - h) for x >= h, else 0.
STEREO_CAMERA_EXPORT unsigned char getRedSegVal(float lo, float hi, float v);
/// Color (blue, green, red) of a value `v` on the scale from `lo` (blue) over the middle (blue and green) to `hi`
/// (red). Channels run to 510 and wrap around modulo 256.
STEREO_CAMERA_EXPORT cv::Vec3b getclolor(float lo, float hi, float v);
