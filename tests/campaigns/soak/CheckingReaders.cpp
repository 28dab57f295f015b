// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/CheckingReaders.hpp"

using std::chrono::microseconds;

namespace stereo::soak {

namespace {

std::string firstOf(const std::string& a, const std::string& b) { return a.empty() ? b : a; }

}  // namespace

// One thread's: keeps its images from read to read, as a host would.
class CheckingReaders::Reader {
public:
  Reader(SoakCamera& camera, const Checks& checks) : m_camera(camera), m_checks(checks) {}

  /// What is wrong with the reading, empty if nothing is; nothing if there was nothing to read.
  std::optional<std::string> read(Product product) {
    m_called = now();
    switch (product) {
      case Product::frame:
        return m_camera.getRawFrame(m_a, m_timestamp) ? checked(m_checks.joinedEyes(m_a, m_timestamp)) : std::nullopt;
      case Product::eyes:
        return m_camera.getStereoFrame(m_a, m_b, m_timestamp) ? checked(m_checks.eyes(m_a, m_b, m_timestamp))
                                                              : std::nullopt;
      case Product::coloredDepth:
        return coloredDepth();
      case Product::disparity:
        return disparity();
      case Product::plainCloud:
        return cloud(m_plain);
      case Product::coloredCloud:
        return cloud(m_colored);
      default:
        return rectified(product);
    }
  }

private:
  std::optional<std::string> rectified(Product product) {
    // These leave images that were filled before as they are when there is no pair, and are content with them.
    SoakCamera::forgetPair();
    if (product == Product::pair) {
      m_camera.getRectStereoFrame(m_a, m_b);
    } else if (product == Product::pairAndView) {
      m_camera.getRectStereoFrame(m_a, m_b, m_c);
    } else {
      m_camera.getRectStereoFrame(m_a, m_b, m_c, m_timestamp);
    }
    const microseconds pair = SoakCamera::pairTimestamp();
    if (pair.count() == 0) {
      return std::nullopt;
    }
    if (product == Product::stampedPair && m_timestamp != pair) {
      return "a stamp that is not the pair's";
    }
    m_timestamp = pair;
    return checked(product == Product::pair ? m_checks.perspectivePair(m_a, m_b, m_timestamp)
                                            : m_checks.depthPair(m_a, m_b, m_c, m_timestamp));
  }

  std::optional<std::string> coloredDepth() {
    const microseconds before = m_camera.disparityTimestamp();
    if (!m_camera.getDepthFrame(m_a, true, m_timestamp)) {
      return std::nullopt;
    }
    return checked(m_checks.coloredDepth(m_a, before, m_camera.disparityTimestamp()));
  }

  std::optional<std::string> disparity() {
    if (!m_camera.nextDisparity(m_last, std::chrono::milliseconds(50), m_result)) {
      return std::nullopt;
    }
    m_timestamp = m_result.timestamp;
    m_called = m_last;  // made of a frame that may have come before the call
    m_camera.getDepthFrame(m_result.second, m_a);
    return checked(m_checks.disparity(m_result.first, m_result.second, m_a, m_timestamp));
  }

  template <typename Point>
  std::optional<std::string> cloud(std::vector<Point>& points) {
    const microseconds before = m_camera.disparityTimestamp();
    points.clear();
    if (!m_camera.getPointCloud(points, m_timestamp)) {
      return std::nullopt;
    }
    // Stamped by the newest frame there was; that may have come before the call.
    m_called = m_last;
    return checked(m_checks.cloud(points, before, m_camera.disparityTimestamp()), true);
  }

  std::optional<std::string> checked(const std::string& fault, bool again = false) {
    const std::string timestampFault = m_checks.timestamp(m_timestamp, m_called, m_last, again);
    m_last = m_timestamp;
    return firstOf(timestampFault, fault);
  }

  SoakCamera& m_camera;
  const Checks& m_checks;
  cv::Mat m_a;
  cv::Mat m_b;
  cv::Mat m_c;
  StereoCamera::TimeFrame m_result;
  std::vector<cv::Vec3f> m_plain;
  std::vector<PCL> m_colored;
  microseconds m_called{0};
  microseconds m_timestamp{0};
  microseconds m_last{0};
};

CheckingReaders::CheckingReaders(SoakCamera& camera, const Checks& checks, Failures& failures)
    : m_camera(camera), m_checks(checks), m_failures(failures) {
  for (std::size_t i = 0; i < productNames.size(); ++i) {
    m_threads.emplace_back([this, i] { run(static_cast<Product>(i)); });
  }
}

CheckingReaders::~CheckingReaders() {
  end();
  join();
}

void CheckingReaders::run(Product product) {
  SoakCamera::thisThreadReads();
  const auto index = static_cast<std::size_t>(product);
  Reader reader(m_camera, m_checks);
  while (!m_over) {
    if (product == Product::coloredDepth) {
      m_computing.wait(false);
    }
    const std::optional<std::string> fault = reader.read(product);
    if (!fault) {
      continue;
    }
    ++m_counts[index];
    if (!fault->empty()) {
      m_failures.add(productNames[index], *fault);
    }
  }
}

void CheckingReaders::setComputing(bool computing) {
  m_computing = computing || m_over;
  m_computing.notify_all();
}

void CheckingReaders::end() {
  m_over = true;
  setComputing(true);
}

void CheckingReaders::join() {
  for (std::thread& thread : m_threads) {
    thread.join();
  }
  m_threads.clear();
}

ReadCounts CheckingReaders::counts() const {
  ReadCounts counts{};
  for (std::size_t i = 0; i < counts.size(); ++i) {
    counts[i] = m_counts[i];
  }
  return counts;
}

}  // namespace stereo::soak
