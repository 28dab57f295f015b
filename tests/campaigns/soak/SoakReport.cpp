// SPDX-License-Identifier: Apache-2.0
#include "tests/campaigns/soak/SoakReport.hpp"

#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

namespace stereo::soak {

namespace {

std::string quoted(const std::string& text) {
  std::string result = "\"";
  for (const char each : text) {
    if (each == '"' || each == '\\') {
      result += '\\';
    }
    result += static_cast<unsigned char>(each) < ' ' ? ' ' : each;
  }
  return result + "\"";
}

}  // namespace

SoakReport::SoakReport(const std::string& libraryOutput)
    : m_output(fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w")) {
  const int file = open(libraryOutput.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (m_output == nullptr || file < 0 || dup2(file, STDOUT_FILENO) < 0) {
    throw std::runtime_error("cannot write " + libraryOutput);
  }
  close(file);
}

SoakReport::~SoakReport() { std::fclose(m_output); }

void SoakReport::line(const std::string& text) {
  std::fprintf(m_output, "%s\n", text.c_str());
  std::fflush(m_output);
}

void SoakReport::figures(const Totals& totals) {
  std::ostringstream text;
  text.precision(1);
  text << std::fixed << totals.seconds / 60 << " min: " << totals.frames << " frames ("
       << static_cast<double>(totals.frames) / totals.seconds << "/s); reads:";
  for (std::size_t i = 0; i < totals.reads.size(); ++i) {
    text << (i == 0 ? " " : ", ") << productNames[i] << " " << totals.reads[i];
  }
  text << "; " << totals.checks << " checks, " << totals.failures << " failures; "
       << static_cast<double>(totals.resources.residentKilobytes) / 1024 << " MiB, " << totals.resources.threads
       << " threads, " << totals.resources.descriptors << " descriptors, " << totals.resources.segments
       << " segments; consumer " << totals.images << " images, " << totals.restarts << " restarts; " << totals.lives
       << " captures, " << totals.disparityStarts << " disparity starts, " << totals.streams << " streams ("
       << totals.packets << " packets)";
  line(text.str());
}

std::string json(const Totals& totals, const std::vector<Resources>& atRest, bool good,
                 const std::vector<std::string>& reasons) {
  std::ostringstream text;
  text << "{\n  \"good\": " << (good ? "true" : "false") << ",\n  \"reasons\": [";
  for (std::size_t i = 0; i < reasons.size(); ++i) {
    text << (i == 0 ? "" : ", ") << quoted(reasons[i]);
  }
  text << "],\n  \"seconds\": " << totals.seconds << ",\n  \"frames\": " << totals.frames << ",\n  \"reads\": {";
  for (std::size_t i = 0; i < totals.reads.size(); ++i) {
    text << (i == 0 ? "" : ", ") << quoted(productNames[i]) << ": " << totals.reads[i];
  }
  text << "},\n  \"checks\": " << totals.checks << ",\n  \"failures\": " << totals.failures
       << ",\n  \"consumerImages\": " << totals.images << ",\n  \"consumerRestarts\": " << totals.restarts
       << ",\n  \"captures\": " << totals.lives << ",\n  \"disparityStarts\": " << totals.disparityStarts
       << ",\n  \"streams\": " << totals.streams << ",\n  \"packets\": " << totals.packets
       << ",\n  \"residentKilobytes\": " << totals.resources.residentKilobytes
       << ",\n  \"threads\": " << totals.resources.threads << ",\n  \"descriptors\": " << totals.resources.descriptors
       << ",\n  \"segments\": " << totals.resources.segments << ",\n  \"atRest\": [";
  for (std::size_t i = 0; i < atRest.size(); ++i) {
    text << (i == 0 ? "\n" : ",\n") << "    {\"residentKilobytes\": " << atRest[i].residentKilobytes
         << ", \"heapKilobytes\": " << atRest[i].heapKilobytes << ", \"threads\": " << atRest[i].threads
         << ", \"descriptors\": " << atRest[i].descriptors << "}";
  }
  text << "]\n}\n";
  return text.str();
}

}  // namespace stereo::soak
