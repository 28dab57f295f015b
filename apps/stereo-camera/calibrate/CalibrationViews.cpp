// SPDX-License-Identifier: Apache-2.0
#include "apps/stereo-camera/calibrate/CalibrationViews.hpp"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "apps/stereo-camera/camera/BoardCameraSource.hpp"
#include "apps/stereo-camera/output/Console.hpp"
#include "apps/stereo-camera/output/Output.hpp"
#include "apps/stereo-camera/pictures/Pictures.hpp"
#include "apps/stereo-camera/process/Ended.hpp"
#include "apps/stereo-camera/process/Failure.hpp"
#include "apps/stereo-camera/process/Signals.hpp"
#include "apps/stereo-camera/session/Watchdog.hpp"
#include "calibration/BoardFinder.hpp"
#include "calibration/Calibrate.hpp"
#include "calibration/Collector.hpp"
#include "model/Text.hpp"

namespace stereo::app {

namespace {

namespace fs = std::filesystem;
using calibration::BoardView;
using calibration::Collector;

std::vector<fs::path> imagesOf(const fs::path& folder) {
  std::vector<fs::path> images;
  std::error_code failure;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder, failure)) {
    if (entry.is_regular_file() && cv::haveImageReader(entry.path().string())) {
      images.push_back(entry.path());
    }
  }
  if (failure || images.empty()) {
    throw Failure(ExitCode::source, "no readable image in the folder '" + folder.string() + "'");
  }
  std::sort(images.begin(), images.end());
  return images;
}

void tell(std::size_t number, std::size_t of, const std::string& name, const std::string& verdict) {
  progress() << "[" << number << "/" << of << "] " << name << ": " << verdict << std::endl;
}

std::string coverageText(const calibration::Coverage& coverage) {
  char text[120];
  std::snprintf(text, sizeof text, "covered: left %.0f %%, right %.0f %%", 100 * coverage.share(0),
                100 * coverage.share(1));
  const std::string where = coverage.emptiest();
  return text + (where.empty() ? "" : "; next: " + where);
}

// The next frame, both eyes side by side.
cv::Mat nextFrame(StereoCamera& camera, Watchdog& watch) {
  cv::Mat left;
  cv::Mat right;
  readEyes(camera, watch, left, right);
  cv::Mat frame;
  cv::hconcat(left, right, frame);
  return frame;
}

// Looks for a board of another size if none of the requested size was seen in the first pictures. Throws Failure with
// the size that would fit, if there is one.
class WrongBoard {
public:
  explicit WrongBoard(const calibration::Board& board) : m_board(board) {}

  /// Adds a picture; `isSeen`: it shows a whole board.
  void offer(const cv::Mat& picture, bool isSeen) {
    m_isSeen = m_isSeen || isSeen;
    if (m_isSeen || m_isTold) {
      m_pictures.clear();
      return;
    }
    m_pictures.push_back(picture.clone());
    if (m_pictures.size() == first) {
      assess();
    }
  }
  /// After the last picture.
  void assess() {
    if (m_isSeen || m_isTold || m_pictures.empty()) {
      return;
    }
    const cv::Size other = calibration::boardSizeIn(m_pictures, 2);
    const std::string start = "no board of " + model::sizeOption(m_board.corners) + " in the first " +
                              std::to_string(m_pictures.size()) + (m_pictures.size() == 1 ? " picture" : " pictures") +
                              ": wrong --board? It counts inner corners";
    if (!other.empty() && other != m_board.corners &&
        other != cv::Size(m_board.corners.height, m_board.corners.width)) {
      throw Failure(ExitCode::problems, start + "; " + model::sizeOption(other) + " would fit");
    }
    progress() << start << std::endl;
    m_isTold = true;
    m_pictures.clear();
  }

private:
  static constexpr std::size_t first = 10;

  const calibration::Board& m_board;
  std::vector<cv::Mat> m_pictures;
  bool m_isSeen = false;
  bool m_isTold = false;
};

}  // namespace

BoardPictures readBoards(const fs::path& folder, const calibration::Board& board) {
  BoardPictures result;
  const std::vector<fs::path> images = imagesOf(folder);
  std::vector<fs::path> paths;
  cv::Size size;
  WrongBoard wrongBoard(board);
  for (std::size_t k = 0; k < images.size(); ++k) {
    checkSignals();
    const std::string name = images[k].filename().string();
    const cv::Mat picture = cv::imread(images[k].string(), cv::IMREAD_GRAYSCALE);
    if (picture.empty()) {
      tell(k + 1, images.size(), name, "cannot be decoded; left out");
      continue;
    }
    if (picture.cols % 2 != 0) {
      throw Failure(ExitCode::problems,
                    "'" + name + "' has an odd width: both eyes must be side by side, equally wide");
    }
    if (!size.empty() && picture.size() != size) {
      throw Failure(ExitCode::problems, "'" + name +
                                            "' differs in size from the pictures before: one folder holds the "
                                            "pictures of one camera at one size");
    }
    size = picture.size();
    BoardView view = calibration::findBoard(picture, board, name, calibration::Effort::thorough);
    tell(k + 1, images.size(), name,
         view.seesBoth() ? "board in both eyes"
         : view.sees(0)  ? "board in the left eye only"
         : view.sees(1)  ? "board in the right eye only"
                         : "no whole board; left out");
    wrongBoard.offer(picture, view.sees(0) || view.sees(1));
    if (view.sees(0) || view.sees(1)) {
      result.views.push_back(std::move(view));
      paths.push_back(images[k]);
    }
  }
  wrongBoard.assess();
  result.eyeSize = cv::Size(size.width / 2, size.height);
  result.source = "pictures of " + folder.string();
  result.picture = [paths](std::size_t view) { return cv::imread(paths[view].string(), cv::IMREAD_COLOR); };
  return result;
}

BoardPictures takeBoards(const LiveOptions& options, const calibration::Board& board) {
  using Clock = std::chrono::steady_clock;
  if (!options.keep.empty()) {
    makeFolder(options.keep);
  }
  OpenedCamera opened = openBoardCamera(options.source, board);
  startCapture(opened);
  Watchdog watch(opened, options.patience);
  RunTime runTime(0);
  runTime.begin();
  BoardPictures result;
  result.source = opened.description;
  const auto wanted = static_cast<std::size_t>(options.pictures);
  std::vector<cv::Mat> frames;
  std::unique_ptr<Collector> collector;
  WrongBoard wrongBoard(board);
  Collector::Verdict told = Collector::Verdict::taken;
  Clock::time_point last = Clock::now();
  Clock::time_point toldAt;
  const bool isDevice = options.source.device >= 0 ||
                        (!options.source.settings.empty() && !options.source.simulate && options.source.replay.empty());
  while (frames.size() < wanted && !runTime.over()) {
    cv::Mat frame;
    try {
      frame = nextFrame(*opened.camera, watch);
    } catch (const Ended&) {
      break;
    } catch (const Failure& failure) {
      if (failure.code() != ExitCode::noFrames || frames.size() < calibration::leastPictures) {
        throw;
      }
      progress() << failure.what() << ": continuing with the pictures so far" << std::endl;
      break;
    }
    if (collector == nullptr) {
      result.eyeSize = cv::Size(frame.cols / 2, frame.rows);
      collector = std::make_unique<Collector>(result.eyeSize, isDevice);
    }
    if (frame.size() != cv::Size(2 * result.eyeSize.width, result.eyeSize.height)) {
      throw Failure(ExitCode::problems, "the frame size changed; calibrate from one size at a time");
    }
    char name[32];
    std::snprintf(name, sizeof name, "board-%03zu.png", frames.size() + 1);
    const BoardView view = calibration::findBoard(frame, board, name, calibration::Effort::quick);
    wrongBoard.offer(frame, view.sees(0) || view.sees(1));
    watch.alive();
    const Collector::Verdict verdict = collector->offer(view);
    if (verdict == Collector::Verdict::taken) {
      if (!options.keep.empty()) {
        writeImage(fs::path(options.keep) / name, frame);
      }
      frames.push_back(frame);
      tell(frames.size(), wanted, name, "taken; " + coverageText(collector->coverage()));
      last = Clock::now();
      told = verdict;
    } else {
      // Once per reason, not for every frame; and slowly enough to read if a board at the edge comes and goes.
      if (verdict != told && Clock::now() - toldAt >= std::chrono::seconds(1)) {
        tell(frames.size(), wanted, "waiting", describe(verdict));
        told = verdict;
        toldAt = Clock::now();
      }
      if (Clock::now() - last > std::chrono::duration<double>(options.idle)) {
        progress() << "nothing new for " << options.idle << " seconds: continuing with the pictures so far"
                   << std::endl;
        break;
      }
    }
  }
  watch.finish();
  if (signalReceived() == SIGINT && !frames.empty()) {
    forgiveSignal();  // Ctrl-C means: that is enough pictures
  }
  checkSignals();
  if (collector != nullptr) {
    result.views = collector->views();
  }
  result.picture = [frames](std::size_t view) { return frames[view]; };
  return result;
}

}  // namespace stereo::app
