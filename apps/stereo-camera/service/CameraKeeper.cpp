// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/service/CameraKeeper.hpp"

#include <algorithm>
#include <exception>
#include <filesystem>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

#include "ReadLimit.hpp"
#include "apps/stereo-camera/camera/CalibrationCheck.hpp"
#include "apps/stereo-camera/camera/DeviceCamera.hpp"
#include "apps/stereo-camera/camera/DeviceName.hpp"
#include "apps/stereo-camera/doctor/SystemChecks.hpp"
#include "apps/stereo-camera/output/Output.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/ResourceUsage.hpp"
#include "apps/stereo-camera/process/Signals.hpp"
#include "apps/stereo-camera/session/Streaming.hpp"
#include "apps/stereo-camera/view/ViewMaker.hpp"
#include "model/CameraFacts.hpp"
#include "model/FileKeys.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds turnPeriod{100};
constexpr std::chrono::milliseconds leastBackOff{200};
constexpr std::chrono::seconds mostBackOff{5};
constexpr std::chrono::seconds firstFrameTime{5};  // a device may take this long to begin
constexpr int checkFrames = 5;

std::int64_t nowMicroseconds() { return systemMicroseconds(); }

// The calibration as a file's content, before the start scales it; empty if there is none. Not by way of a file: saving
// one flushes the machine's disks, which takes long while another camera records.
std::string calibrationText(const OpenedCamera& opened) {
  if (!opened.calibrated) {
    return {};
  }
  namespace keys = model::keys;
  StereoCamera& camera = *opened.camera;
  std::vector<cv::Mat> left;
  std::vector<cv::Mat> right;
  camera.getCalibParams(left, false);
  camera.getCalibParams(right, true);
  cv::FileStorage text(".yml", cv::FileStorage::WRITE | cv::FileStorage::MEMORY | cv::FileStorage::FORMAT_YAML);
  text << keys::serialNumber << camera.getSerialNumber() << keys::posNumber << camera.getPosNumber();
  // In the order of `getCalibParams`.
  const char* const names[2][4] = {{keys::leftIntrinsic, keys::leftDistortion, keys::leftXi, keys::leftRotation},
                                   {keys::rightIntrinsic, keys::rightDistortion, keys::rightXi, keys::rightRotation}};
  for (int k = 0; k < 4; ++k) {
    text << names[0][k] << left.at(k) << names[1][k] << right.at(k);
  }
  text << keys::translation << left.at(4);
  return text.releaseAndGetString();
}

// Number of a device's node, which a device that is plugged in again gets anew, also under the same name; 0: not there.
ino_t nodeNumber(const std::string& device) {
  struct stat about {};
  return ::stat(device.c_str(), &about) == 0 ? about.st_ino : 0;
}

}  // namespace

// One camera's life, from the first frame asked for to the last. Made and used on the keeper's thread.
class CameraKeeper::Session {
public:
  explicit Session(CameraKeeper& keeper) : m_keeper(keeper) { open(); }

  ~Session() { end(); }

  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  // A turn of the loop. False if a new camera is to be made. Throws Failure if no more frames come.
  bool turn(const Requests& requests) {
    const bool goesOn = countFrames();
    if (!m_opened.camera->isOpened()) {
      m_watch->run([] { return false; });  // throws the watchdog's reason for stopping the camera
      throw Failure(ExitCode::noFrames, "the camera was stopped");
    }
    if (!m_device.empty()) {
      const ino_t node = nodeNumber(m_device);
      if (node != m_node) {
        throw Failure(ExitCode::source, m_device + (node == 0 ? " is gone: unplugged?" : " was plugged in anew"));
      }
    }
    if (m_keeper.m_ring) {
      m_keeper.m_ring->step(m_isRunning ? &m_recorded : nullptr, m_keeper.m_tap);
    }
    if (requests.record) {
      record(*requests.record);
    }
    if (m_recording) {
      followRecording();
    }
    if (requests.snapshot) {
      takeSnapshot();
    }
    if (requests.check) {
      beginCheck();
    }
    if (m_isChecking) {
      checkFrame();
    }
    return goesOn;
  }

private:
  void open();
  bool countFrames();
  void record(bool on);
  void followRecording();
  void endRecording(const std::string& reason = "");
  void endCheck(const std::string& reason);
  void takeSnapshot();
  void beginCheck();
  void checkFrame();
  void readStream(const std::stop_token& stop);

  void end() {
    if (m_keeper.m_ring) {
      m_keeper.m_ring->step(nullptr, m_keeper.m_tap);
    }
    endRecording("the camera was stopped");
    endCheck("the camera was stopped");
    if (m_maker) {
      m_maker->requestStop();
    }
    m_streamReader.request_stop();
    if (m_streamReader.joinable()) {
      m_streamReader.join();  // its reads, and those of the maker, end by themselves
    }
    m_maker.reset();
    m_watch.reset();
    m_keeper.m_wide.setFindings(std::nullopt);
    countLost(true);
  }

  // Frames lost by this camera; at its end they are added to those of the ones before.
  void countLost(bool isLast) {
    const std::uint64_t lost = m_opened.camera->missedFrames().value_or(m_keeper.m_tap.gaps() - m_gapsBefore);
    m_keeper.change([&](CameraStatus& status) { status.lost = m_lostBefore + lost; });
    if (isLast) {
      m_lostBefore += lost;
    }
  }

  CameraKeeper& m_keeper;
  OpenedCamera m_opened;
  std::string m_device;  // "/dev/video0"; empty: none
  ino_t m_node = 0;      // of the device as it was opened
  RecordedCamera m_recorded;
  std::optional<WideDepthCalibration> m_calibration;
  cv::Size m_askedSize;
  bool m_hasLonLat = true;
  bool m_streams = false;
  bool m_isRunning = false;  // a frame has come
  bool m_isChecking = false;
  Clock::time_point m_began = Clock::now();
  std::uint64_t m_framesBefore = 0;
  std::uint64_t m_framesSeen = 0;
  std::uint64_t m_gapsBefore = 0;
  std::uint64_t m_lostBefore = 0;
  std::uint64_t m_rateFrames = 0;  // at the time below
  Clock::time_point m_rateTime = Clock::now();
  std::optional<FitCheck> m_fit;
  int m_checked = 0;
  std::unique_ptr<LiveRecording> m_recording;
  std::unique_ptr<Watchdog> m_watch;
  std::unique_ptr<ViewMaker> m_maker;
  std::jthread m_streamReader;
};

void CameraKeeper::Session::open() {
  const CameraPlan& plan = m_keeper.m_plan;
  SourceOptions source = plan.source;
  source.atOnce = true;
  if (!plan.device.empty()) {
    source.device = deviceNode(plan.device);
    m_device = "/dev/video" + std::to_string(source.device);
    m_node = nodeNumber(m_device);
  }
  if (!m_keeper.m_deliveredSize.empty()) {
    source.frameSize = model::sizeOption(m_keeper.m_deliveredSize);
  }
  LiveTap& tap = m_keeper.m_tap;
  tap.expect(0);
  m_framesBefore = m_framesSeen = m_rateFrames = tap.frames();
  m_gapsBefore = tap.gaps();
  m_lostBefore = m_keeper.status().lost;
  m_opened = openCamera(source, {.tap = &tap});
  sources::HostCamera& camera = *m_opened.camera;
  if (m_device.empty() && !plan.source.settings.empty() && dynamic_cast<DeviceCamera*>(&camera) != nullptr) {
    m_device = "/dev/video" + std::to_string(camera.getDeviceNode());
    m_node = nodeNumber(m_device);
  }

  std::string streamError;
  // Snapshots contain the camera's longitude-latitude pair; only depth for the stream needs the other mode.
  m_hasLonLat = plan.streamMode != depthStream;
  camera.setDepthMode(1);
  if (plan.streamMode >= 0) {
    try {
      prepareStream(m_opened, plan.streamMode, plan.source.rate, plan.receiver);
      m_streams = true;
    } catch (const Failure& failure) {
      streamError = failure.what();
    }
  }
  std::string shareError;
  m_askedSize = camera.getRawFrameSize();
  if (plan.share) {
    try {
      requireSegment(camera.getRawFrameSize(), camera.getPosNumber());
    } catch (const Failure& failure) {
      shareError = failure.what();
    }
  }
  if (m_opened.calibrated) {
    m_calibration = wideCalibration(camera);
  }
  m_recorded = {m_opened.description, camera.settings(), calibrationText(m_opened)};
  const bool isFirst = !std::exchange(m_keeper.m_wasOpen, true);
  m_keeper.change([&](CameraStatus& status) {
    status.restarts += isFirst ? 0 : 1;
    status.source = m_opened.description;
    status.position = camera.getPosNumber();
    status.calibrated = m_opened.calibrated;
    status.views = deliverableViews(m_opened.calibrated);
    status.streamError = streamError;
    status.shareError = shareError;
    status.viewError.clear();
    status.check = {};
  });
  if (!streamError.empty()) {
    m_keeper.m_log("no stream: " + streamError);
  }
  if (!shareError.empty()) {
    m_keeper.m_log("not shared: " + shareError);
  }
  const double rate = camera.getRawFrameRate();  // as asked; later it is measured
  startCapture(m_opened, m_streams, plan.share && shareError.empty());
  tap.expect(camera.missedFrames() ? 0 : rate);
  m_began = Clock::now();
  m_watch = std::make_unique<Watchdog>(m_opened, plan.patience);
  m_watch->follow([&tap] { return tap.frames(); });
  if (m_streams && plan.streamMode == depthStream) {
    m_watch->startStereoCompute();
  }
  m_maker = std::make_unique<ViewMaker>(ViewMaker::Parts{
      camera, m_keeper.m_feed, m_keeper.m_times, m_keeper.m_wide, m_calibration, [this](const std::string& text) {
        m_keeper.m_log("a view cannot be made: " + text);
        m_keeper.change([&](CameraStatus& status) { status.viewError = text; });
      }});
  if (m_streams) {
    m_streamReader = std::jthread([this](const std::stop_token& stop) { readStream(stop); });
  }
}

void CameraKeeper::Session::readStream(const std::stop_token& stop) {
  const ReadLimit limit([&stop] { return !stop.stop_requested(); });
  cv::Mat a;
  cv::Mat b;
  bool isFirst = true;
  while (!stop.stop_requested()) {
    try {
      if (!readForStream(*m_opened.camera, m_keeper.m_plan.streamMode, a, b)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));  // stopped, or nothing to show yet
        continue;
      }
      if (std::exchange(isFirst, false) && !m_opened.camera->streamOpened()) {
        throw std::runtime_error("the stream does not open");
      }
    } catch (const std::exception& error) {
      m_keeper.m_log(std::string("no stream: ") + error.what());
      m_keeper.change([&](CameraStatus& status) { status.streamError = error.what(); });
      return;
    }
  }
}

// False if the camera is to be made anew for frames of another size.
bool CameraKeeper::Session::countFrames() {
  const std::uint64_t frames = m_keeper.m_tap.frames();
  const Clock::time_point now = Clock::now();
  if (!m_isRunning && now < m_began + firstFrameTime) {
    m_watch->alive();
  }
  const bool isNews = frames > m_framesSeen;
  m_framesSeen = frames;
  const double seconds = std::chrono::duration<double>(now - m_rateTime).count();
  std::optional<double> rate;
  if (seconds >= 1) {
    rate = static_cast<double>(frames - m_rateFrames) / seconds;
    m_rateTime = now;
    m_rateFrames = frames;
  }
  const cv::Size size = m_opened.camera->getRawFrameSize();
  m_keeper.change([&](CameraStatus& status) {
    status.frames = frames;
    status.newest = m_keeper.m_tap.newest();
    status.rate = rate.value_or(status.rate);
  });
  countLost(false);
  if (!isNews || m_isRunning) {
    return true;
  }
  m_isRunning = true;
  m_keeper.m_backOff = {};
  const CameraStatus before = m_keeper.status();
  if (before.restarts > 0) {
    m_keeper.m_log("frames again, after " +
                   model::formatted("%.1f s", static_cast<double>(nowMicroseconds() - before.since) / 1e6));
  }
  m_keeper.change([&](CameraStatus& status) {
    status.state = CameraStatus::State::running;
    status.since = nowMicroseconds();
    status.reason.clear();
    status.frame = size;
  });
  m_recorded.settings = m_opened.camera->settings();
  // The segment was made for the size that was asked for.
  if (m_keeper.m_plan.share && !m_device.empty() && size != m_askedSize && size != m_keeper.m_deliveredSize) {
    m_keeper.m_deliveredSize = size;
    m_keeper.m_log("frames of " + model::sizeText(size) + " pixels: the camera is made anew for them");
    return false;
  }
  return true;
}

void CameraKeeper::Session::record(bool on) {
  if (on == (m_recording != nullptr)) {
    return;
  }
  if (!on) {
    endRecording();
    return;
  }
  const CameraPlan& plan = m_keeper.m_plan;
  try {
    if (!m_isRunning) {
      throw Failure(ExitCode::noFrames, "no frames come");
    }
    sources::Recorder::Options options;
    options.folder = fs::path(m_keeper.m_folders.recordings) / (plan.name + "-" + timeName());
    options.codec = plan.codec;
    options.queue = plan.queue;
    options.rate = plan.source.rate > 0 ? plan.source.rate : 30.0;
    options.spare = plan.keepFree * 1'000'000;
    m_recording = std::make_unique<LiveRecording>(options, m_recorded, m_keeper.m_tap);
    m_keeper.change([&](CameraStatus& status) { status.recording = {true, options.folder.string(), {}, 0, {}}; });
    m_keeper.m_log("recording to " + options.folder.string());
  } catch (const std::exception& error) {
    m_keeper.m_log(std::string("not recording: ") + error.what());
    m_keeper.change([&](CameraStatus& status) { status.recording = {false, {}, {}, 0, error.what()}; });
  }
}

void CameraKeeper::Session::followRecording() {
  try {
    m_recording->check();
    const sources::Recorder::Counts counts = m_recording->counts();
    const std::uintmax_t bytes = m_recording->bytes();  // the disk may be slow: not under the lock
    m_keeper.change([&](CameraStatus& status) {
      status.recording.counts = counts;
      status.recording.bytes = bytes;
    });
  } catch (const sources::RecordingError&) {
    endRecording();
  }
}

// `reason`: why, if nobody asked for it.
void CameraKeeper::Session::endRecording(const std::string& reason) {
  if (!m_recording) {
    return;
  }
  std::string error = reason;
  try {
    m_recording->finish();
  } catch (const std::exception& failure) {
    error = failure.what();
  }
  const sources::Recorder::Counts counts = m_recording->counts();
  const std::uintmax_t bytes = m_recording->bytes();
  const std::string folder = m_recording->folder().string();
  m_recording.reset();
  m_keeper.m_log("recorded " + std::to_string(counts.written) + " frames to " + folder +
                 (error.empty() ? "" : ", then: " + error));
  m_keeper.change([&](CameraStatus& status) { status.recording = {false, folder, counts, bytes, error}; });
}

void CameraKeeper::Session::takeSnapshot() {
  const std::string folder =
      (fs::path(m_keeper.m_folders.snapshots) / (m_keeper.m_plan.name + "-" + timeName())).string();
  std::string error;
  try {
    const ReadLimit limit(std::chrono::seconds(5));
    OutputFolder files(folder, false, {});
    std::vector<Picture> pictures;
    if (m_hasLonLat) {
      readPictures(m_opened, *m_watch, pictures);
    } else {
      cv::Mat frame;
      std::chrono::microseconds timestamp{0};
      if (!m_watch->run([&] { return m_opened.camera->getRawFrame(frame, timestamp); })) {
        throw Failure(ExitCode::noFrames, "no frame came");
      }
      pictures.push_back({"raw.png", "Raw frame", "", frame});
    }
    if (m_calibration) {
      WideDepthOptions wideOptions = m_keeper.m_wide.options();
      wideOptions.threads = static_cast<int>(std::max(1U, processorCount() - 1));  // the last one is the camera's
      WideReader wide(*m_calibration, wideOptions);
      if (!m_watch->run([&] { return wide.read(*m_opened.camera) != 0; })) {
        throw Failure(ExitCode::noFrames, "no frame came");
      }
      const std::vector<Picture> more = writeWide(wide, files.draft());
      pictures.insert(pictures.end(), more.begin(), more.end());
    }
    writePictures(pictures, files.draft());
    files.commit();
    m_keeper.m_log("snapshot in " + folder);
  } catch (const Ended&) {
    throw;
  } catch (const std::exception& failure) {
    error = failure.what();
    m_keeper.m_log("no snapshot: " + error);
  }
  m_keeper.change([&](CameraStatus& status) {
    status.snapshotFolder = error.empty() ? folder : "";
    status.snapshotError = error;
  });
}

void CameraKeeper::Session::beginCheck() {
  m_fit.reset();
  m_checked = 0;
  m_isChecking = m_calibration && m_isRunning;
  m_keeper.change([&](CameraStatus& status) {
    status.check = {};
    status.check.of = checkFrames;
    if (m_isChecking) {
      status.check.state = CameraStatus::Check::State::running;
    } else {
      status.check.state = CameraStatus::Check::State::done;
      status.check.text = m_calibration ? "no frames come" : "there is nothing to check without a calibration";
    }
  });
}

void CameraKeeper::Session::endCheck(const std::string& reason) {
  if (!m_isChecking) {
    return;
  }
  m_isChecking = false;
  m_keeper.change([&](CameraStatus& status) {
    status.check.state = CameraStatus::Check::State::done;
    status.check.text = reason;
  });
}

void CameraKeeper::Session::checkFrame() {
  std::string text;
  std::optional<FitCheck::Result> result;
  try {
    const ReadLimit limit(std::chrono::seconds(2));
    cv::Mat left;
    cv::Mat right;
    readEyes(*m_opened.camera, *m_watch, left, right);
    if (!m_fit) {
      m_fit.emplace(*m_opened.camera, left.size());
    }
    m_fit->add(left, right);
    if (++m_checked == checkFrames) {
      result = m_fit->result();
      text = result->whyUnknown();
      for (const std::string& fault : result->rows.faults) {
        text += (text.empty() ? "" : "; ") + fault;
      }
      if (text.empty()) {
        text = model::formatted("the calibration fits: rows differ by %.2f px in the middle of the matches",
                                result->rows.median);
      }
    }
  } catch (const Ended&) {
    throw;
  } catch (const std::exception& error) {
    text = error.what();
  }
  m_isChecking = text.empty();
  m_keeper.change([&](CameraStatus& status) {
    CameraStatus::Check& check = status.check;
    check.frames = m_checked;
    check.text = text;
    if (!m_isChecking) {
      check.state = CameraStatus::Check::State::done;
    }
    if (result) {
      check.matches = result->rows.matches;
      if (result->whyUnknown().empty()) {
        check.fits = result->fits();
        check.median = result->rows.median;
      }
    }
  });
  if (!m_isChecking) {
    m_fit.reset();
    m_keeper.m_log("calibration check: " + text);
  }
}

CameraKeeper::CameraKeeper(CameraPlan plan, ServiceFolders folders, std::function<void(const std::string&)> log)
    : m_plan(std::move(plan)),
      m_folders(std::move(folders)),
      m_log([name = m_plan.name, log = std::move(log)](const std::string& text) { log(name + ": " + text); }),
      m_wide(wideOptions(m_plan.wide)) {
  if (!m_plan.device.empty()) {
    try {
      deviceNode(m_plan.device);
    } catch (const Failure& failure) {
      if (failure.code() == ExitCode::usage) {  // otherwise it is only not there
        throw;
      }
    }
  }
  parseSize(m_plan.source.frameSize, "--size");
  parseSize(m_plan.source.rectifiedSize, "--rectified");
  if (!m_plan.ring.empty()) {
    RecordingRing::Options ring;
    ring.folder = m_plan.ring;
    ring.mostBytes = m_plan.ringMegabytes * 1'000'000;
    ring.partSeconds = m_plan.ringPart;
    ring.recorder.codec = m_plan.codec;
    ring.recorder.queue = m_plan.queue;
    ring.recorder.rate = m_plan.source.rate > 0 ? m_plan.source.rate : 30.0;
    ring.recorder.spare = m_plan.keepFree * 1'000'000;
    m_ring.emplace(ring);
  }
  m_status.name = m_plan.name;
  m_status.since = nowMicroseconds();
  m_status.reason = "starting";
  turn();
  m_thread = std::thread([this] { run(); });
}

CameraKeeper::~CameraKeeper() {
  requestStop();
  m_thread.join();
}

void CameraKeeper::requestStop() {
  {
    const std::lock_guard lock(m_mutex);
    m_isStopping = true;
  }
  m_changed.notify_all();
}

CameraStatus CameraKeeper::status() const {
  CameraStatus status;
  {
    const std::lock_guard lock(m_mutex);
    status = m_status;
  }
  status.stages = m_times.recent();
  status.wide = m_wide.options();
  status.wideFindings = m_wide.findings();
  status.shares = m_plan.share;
  status.streamMode = m_plan.streamMode;
  status.receiver = m_plan.receiver;
  status.hasRing = !m_plan.ring.empty();
  status.ringFolder = m_plan.ring;
  status.ringMost = m_plan.ringMegabytes * 1'000'000;
  return status;
}

void CameraKeeper::change(const std::function<void(CameraStatus&)>& edit) {
  const std::lock_guard lock(m_mutex);
  edit(m_status);
}

void CameraKeeper::record(bool on) {
  const std::lock_guard lock(m_mutex);
  m_requests.record = on;
  m_changed.notify_all();
}

void CameraKeeper::takeSnapshot() {
  const std::lock_guard lock(m_mutex);
  m_requests.snapshot = true;
  m_changed.notify_all();
}

void CameraKeeper::check() {
  const std::lock_guard lock(m_mutex);
  m_requests.check = true;
  m_changed.notify_all();
}

void CameraKeeper::reload() {
  const std::lock_guard lock(m_mutex);
  m_requests.reload = true;
  m_changed.notify_all();
}

void CameraKeeper::turn() {
  m_lastTurn = Clock::now().time_since_epoch().count();
  if (m_ring) {
    const RecordingRing::Status ring = m_ring->status();
    change([&](CameraStatus& status) { status.ring = ring; });
  }
}

void CameraKeeper::pause(Clock::duration time) {
  std::unique_lock lock(m_mutex);
  m_changed.wait_for(lock, time, [this] { return m_isStopping || m_requests.any(); });
}

// Frames have stopped, or did not begin.
void CameraKeeper::waitingFor(const std::string& reason) {
  bool isNew = false;
  change([&](CameraStatus& status) {
    isNew = status.reason != reason;
    if (status.state != CameraStatus::State::waiting) {
      status.since = std::max(status.since, status.newest);
      status.state = CameraStatus::State::waiting;
    }
    status.reason = reason;
    status.rate = 0;
  });
  if (isNew) {
    m_log("no frames: " + reason);
  }
}

// Whether the device is there; waits for it a moment if not.
bool CameraKeeper::awaitDevice() {
  if (m_plan.device.empty()) {
    return true;
  }
  try {
    const std::string path = "/dev/video" + std::to_string(deviceNode(m_plan.device));
    if (::access(path.c_str(), F_OK) == 0) {
      return true;
    }
    waitingFor("there is no " + path + ": unplugged?");
  } catch (const Failure& failure) {
    waitingFor(failure.what());
  }
  m_backOff = {};  // it is opened as soon as it appears
  pause(turnPeriod);
  return false;
}

void CameraKeeper::run() {
  const auto isStopping = [this] {
    const std::lock_guard lock(m_mutex);
    return m_isStopping;
  };
  bool isOver = false;
  while (!isStopping()) {
    turn();
    {
      // What needs a camera is refused while there is none; a reload is what comes next anyway.
      const std::lock_guard lock(m_mutex);
      if (m_requests.record) {
        m_status.recording.error = "no frames come";
      }
      if (m_requests.snapshot) {
        m_status.snapshotError = "no frames come";
      }
      if (m_requests.check) {
        m_status.check = {};
        m_status.check.state = CameraStatus::Check::State::done;
        m_status.check.text = "no frames come";
      }
      isOver = isOver && !m_requests.reload;
      m_requests = {};
    }
    if (isOver) {
      pause(turnPeriod);
      continue;
    }
    if (!awaitDevice()) {
      continue;
    }
    try {
      runCamera();
      if (!isStopping()) {
        waitingFor("a new camera is made");
      }
    } catch (const Ended& ended) {
      isOver = true;  // by a signal: the service is about to end
      if (ended.signal() == 0) {
        change([&](CameraStatus& status) {
          status.state = CameraStatus::State::ended;
          status.since = nowMicroseconds();
          status.reason = "the recording is over";
          status.rate = 0;
        });
        m_log("the recording is over");
      }
    } catch (const std::exception& error) {
      waitingFor(error.what());
      m_backOff = std::clamp<Clock::duration>(2 * m_backOff, leastBackOff, mostBackOff);
      for (const Clock::time_point until = Clock::now() + m_backOff; Clock::now() < until && !isStopping();) {
        turn();
        pause(std::min<Clock::duration>(until - Clock::now(), turnPeriod));
        const std::lock_guard lock(m_mutex);
        if (m_requests.any()) {
          break;
        }
      }
    }
  }
  m_hasStopped = true;
}

// Until a new camera is to be made. Throws if that is because of a fault.
void CameraKeeper::runCamera() {
  Session session(*this);
  while (true) {
    turn();
    pause(turnPeriod);
    Requests requests;
    {
      const std::lock_guard lock(m_mutex);
      if (m_isStopping) {
        return;
      }
      requests = std::exchange(m_requests, {});
    }
    if (requests.reload && areFilesUsable()) {
      m_log("settings and calibration are loaded again");
      m_deliveredSize = {};
      // What was asked for besides, and meanwhile, is refused in between.
      const std::lock_guard lock(m_mutex);
      m_requests.record = m_requests.record ? m_requests.record : requests.record;
      m_requests.snapshot |= requests.snapshot;
      m_requests.check |= requests.check;
      return;
    }
    try {
      if (!session.turn(requests)) {
        return;
      }
    } catch (const Ended&) {
      throw;
    } catch (const std::exception& error) {
      waitingFor(error.what());  // at once: stopping a stalled device takes seconds
      throw;
    }
  }
}

bool CameraKeeper::areFilesUsable() {
  try {
    if (!m_plan.source.calibration.empty()) {
      sources::HostCamera camera;
      checkCalibration(camera, m_plan.source.calibration, camera.loadCalibParams(m_plan.source.calibration));
    }
    if (!m_plan.source.settings.empty()) {
      sources::HostCamera camera;
      if (!camera.loadConfig(m_plan.source.settings)) {
        throw Failure(ExitCode::source, "the settings '" + m_plan.source.settings + "' cannot be used");
      }
    }
    return true;
  } catch (const std::exception& error) {
    m_log(std::string("not loaded again, the running camera stays: ") + error.what());
    return false;
  }
}

}  // namespace stereo::app
