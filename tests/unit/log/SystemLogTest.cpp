// SPDX-License-Identifier: Apache-2.0
#include "SystemLog.hpp"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <regex>
#include <sstream>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/OutputCapture.hpp"

using stereo::test::OutputCapture;
using stereo::test::recordTexts;

// Each camera owns a log and deletes it through its own type; reports never throw.
static_assert(!std::is_polymorphic_v<SystemLog> && std::is_constructible_v<SystemLog, std::string>);
static_assert(noexcept(std::declval<SystemLog&>().runTimeInfo("x")));
static_assert(noexcept(std::declval<SystemLog&>().runTimeError("x")));
static_assert(noexcept(std::declval<SystemLog&>().setLogLevel(0)));

namespace {

const char* const stampPattern = "\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}\\.\\d{6}";

// Records begin on a line of their own, so what an earlier test left open would show in the next test's first record.
void endOpenLines() {
  const OutputCapture out(1);
  const OutputCapture errors(2);
  SystemLog log("end");
  log.runTimeInfo("\n");
  log.runTimeError("\n");
}

class SystemLogTest : public testing::Test {
protected:
  void SetUp() override { endOpenLines(); }
  void TearDown() override { endOpenLines(); }
};

using SystemLogDeathTest = SystemLogTest;

std::string withoutStamps(const std::string& output) {
  return std::regex_replace(output, std::regex(stampPattern), "STAMP");
}

// Both streams in one file, as on a terminal.
class TerminalCapture {
public:
  TerminalCapture() : m_out(1), m_errors(2) { dup2(1, 2); }
  std::string text() const { return m_out.text(); }

private:
  OutputCapture m_out;
  OutputCapture m_errors;
};

}  // namespace

// A new log reports both, before anyone sets its level.
TEST_F(SystemLogTest, ProgressGoesToStandardOutputErrorsToStandardError) {
  const OutputCapture out(1);
  const OutputCapture errors(2);
  SystemLog log("front");
  log.runTimeInfo("started\n");
  log.runTimeError("failed\n");
  EXPECT_EQ(withoutStamps(out.text()), "STAMP [front] started\n");
  EXPECT_EQ(withoutStamps(errors.text()), "STAMP [front] failed\n");
}

TEST_F(SystemLogTest, TextIsFormattedAsPrintfDoes) {
  const OutputCapture errors(2);
  SystemLog log("front");
  log.runTimeError("Init Camera %d Error!\n", -3);
  log.runTimeError("%s|%5.2f|%%|%x|%c\n", "a%sb", 3.14159, 255U, 'z');
  log.runTimeError("1856\xC3\x97%d\nsecond line\n\n", 800);
  EXPECT_EQ(recordTexts(errors.text()), (std::vector<std::string>{"Init Camera -3 Error!\n", "a%sb| 3.14|%|ff|z\n",
                                                                  "1856\xC3\x97"
                                                                  "800\nsecond line\n\n"}));
}

TEST_F(SystemLogTest, StampIsTheLocalTimeOfTheReport) {
  const char* const zone = std::getenv("TZ");
  const std::string before = zone != nullptr ? zone : "";
  setenv("TZ", "XYZ-05:45", 1);  // 5 h 45 min ahead
  tzset();
  const std::time_t first = std::time(nullptr);
  std::string output;
  {
    const OutputCapture out(1);
    SystemLog("front").runTimeInfo("now\n");
    output = out.text();
  }
  const std::time_t last = std::time(nullptr);
  if (zone != nullptr) {
    setenv("TZ", before.c_str(), 1);
  } else {
    unsetenv("TZ");
  }
  tzset();
  std::tm fields{};
  ASSERT_NE(strptime(output.c_str(), "%Y-%m-%d %H:%M:%S", &fields), nullptr) << output;
  const std::time_t reported = timegm(&fields) - (5 * 60 + 45) * 60;
  EXPECT_GE(reported, first);
  EXPECT_LE(reported, last);
}

TEST_F(SystemLogTest, NoLineEndIsAddedToATextAndTheNextRecordBeginsItsOwnLine) {
  const OutputCapture errors(2);
  SystemLog log("front");
  SystemLog other("rear");
  log.runTimeError("Delete share memory error!");
  EXPECT_EQ(withoutStamps(errors.text()), "STAMP [front] Delete share memory error!");
  other.runTimeError("%s", "");
  log.runTimeError("next\n");
  log.runTimeError("last\n");
  EXPECT_EQ(withoutStamps(errors.text()),
            "STAMP [front] Delete share memory error!\nSTAMP [rear] \nSTAMP [front] next\nSTAMP [front] last\n");
}

TEST_F(SystemLogTest, OpenLineOfOneStreamIsEndedByTheOtherWhereBothAreOneFile) {
  const TerminalCapture terminal;
  SystemLog log("front");
  log.runTimeError("open");
  log.runTimeInfo("progress\n");
  log.runTimeInfo("open too");
  log.runTimeError("error\n");
  log.runTimeInfo("end\n");
  EXPECT_EQ(withoutStamps(terminal.text()),
            "STAMP [front] open\nSTAMP [front] progress\nSTAMP [front] open too\nSTAMP [front] error\n"
            "STAMP [front] end\n");
}

TEST_F(SystemLogTest, OpenLineOfOneStreamDoesNotTouchTheOtherWhereTheyAreTwoFiles) {
  const OutputCapture out(1);
  const OutputCapture errors(2);
  SystemLog log("front");
  log.runTimeError("open");
  log.runTimeInfo("progress\n");
  log.runTimeError("closed\n");
  log.runTimeInfo("end\n");
  EXPECT_EQ(withoutStamps(out.text()), "STAMP [front] progress\nSTAMP [front] end\n");
  EXPECT_EQ(withoutStamps(errors.text()), "STAMP [front] open\nSTAMP [front] closed\n");
}

TEST_F(SystemLogTest, LevelZeroAndBelowLetErrorsThroughOnly) {
  SystemLog log("front");
  for (const auto& [level, progress] : {std::pair(1, true), {0, false}, {100, true}, {-1, false}, {2, true}}) {
    const OutputCapture out(1);
    const OutputCapture errors(2);
    log.setLogLevel(level);
    log.runTimeInfo("progress\n");
    log.runTimeError("error\n");
    EXPECT_EQ(recordTexts(out.text()).size(), progress ? 1U : 0U) << level;
    EXPECT_EQ(recordTexts(errors.text()).size(), 1U) << level;
  }
}

// What a host has printed through the same stream without flushing stays before the record.
TEST_F(SystemLogTest, RecordsKeepTheirOrderWithWhatTheHostPrints) {
  const OutputCapture out(1);
  SystemLog log("front");
  std::printf("host before\n");
  log.runTimeInfo("record\n");
  std::printf("host after\n");
  EXPECT_EQ(withoutStamps(out.text()), "host before\nSTAMP [front] record\nhost after\n");
}

TEST_F(SystemLogTest, LongRecordIsWhole) {
  const OutputCapture out(1);
  SystemLog log("front");
  for (const std::size_t length : {100U, 4095U, 4096U, 65536U, 70001U, 1500000U}) {
    std::string text;
    for (std::size_t i = 0; text.size() < length; ++i) {
      text += std::to_string(i) + ' ';
    }
    text += '\n';
    const std::size_t before = recordTexts(out.text()).size();
    log.runTimeInfo("%s", text.c_str());
    const std::vector<std::string> texts = recordTexts(out.text());
    ASSERT_EQ(texts.size(), before + 1);
    EXPECT_TRUE(texts.back() == text) << length;
  }
}

namespace {

constexpr int writers = 16;

std::string payload(int writer, int number) {
  return std::string(static_cast<std::size_t>((writer * 37 + number * 101) % 900), static_cast<char>('a' + writer));
}

// Sixteen threads on four logs: progress beside two threads of the host that print lines, or progress and errors.
void reportFromManyThreads(int records, bool host, const char* end) {
  SystemLog logs[4] = {SystemLog("log0"), SystemLog("log1"), SystemLog("log2"), SystemLog("log3")};
  std::vector<std::thread> threads;
  for (int writer = 0; writer < writers; ++writer) {
    threads.emplace_back([&, writer] {
      for (int number = 0; number < records; ++number) {
        const std::string text = payload(writer, number);
        if (host || writer % 2 == 0) {
          logs[writer % 4].runTimeInfo("w%d n%d %s.%s", writer, number, text.c_str(), end);
        } else {
          logs[writer % 4].runTimeError("w%d n%d %s.%s", writer, number, text.c_str(), end);
        }
      }
    });
  }
  for (int printer = 0; host && printer < 2; ++printer) {
    threads.emplace_back([=] {
      for (int number = 0; number < records; ++number) {
        std::printf("host%d n%d %s.\n", printer, number, payload(printer, number).c_str());
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

void expectAllLines(const std::string& output, int records, bool host) {
  const std::regex record(std::string("^") + stampPattern + " \\[log(\\d)\\] w(\\d+) n(\\d+) (.*)\\.$");
  const std::regex printed("^host(\\d+) n(\\d+) (.*)\\.$");
  std::map<std::pair<char, int>, int> next;  // number of the next line of each writer and each printer
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);) {
    std::smatch match;
    if (std::regex_match(line, match, record)) {
      const int writer = std::stoi(match[2]);
      ASSERT_EQ(std::stoi(match[1]), writer % 4);
      ASSERT_EQ(std::stoi(match[3]), (next[{'w', writer}]++));
      ASSERT_EQ(match[4].str(), payload(writer, std::stoi(match[3])));
    } else {
      ASSERT_TRUE(host && std::regex_match(line, match, printed)) << line;
      ASSERT_EQ(std::stoi(match[2]), (next[{'h', std::stoi(match[1])}]++));
      ASSERT_EQ(match[3].str(), payload(std::stoi(match[1]), std::stoi(match[2])));
    }
  }
  EXPECT_EQ(next.size(), static_cast<std::size_t>(writers + (host ? 2 : 0)));
  for (const auto& [thread, count] : next) {
    EXPECT_EQ(count, records) << thread.first << thread.second;
  }
}

}  // namespace

TEST_F(SystemLogTest, NoLineIsLostOrTornAmongManyThreadsAndTheHostsOwnOutput) {
  std::string output;
  {
    const OutputCapture out(1);
    reportFromManyThreads(200, true, "\n");
    output = out.text();
  }
  expectAllLines(output, 200, true);
}

TEST_F(SystemLogTest, RecordsWithoutLineEndsStayApartAmongManyThreads) {
  std::string output;
  {
    const TerminalCapture terminal;
    reportFromManyThreads(100, false, "");
    output = terminal.text();
  }
  expectAllLines(output, 100, false);
}

// A host may have made its output non-blocking; a pipe then takes a record in pieces, with refusals in between.
TEST_F(SystemLogTest, NothingIsLostInAFullPipe) {
  for (const int flags : {0, O_NONBLOCK}) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    fcntl(ends[1], F_SETFL, flags);
    std::string output;
    std::thread reader([&] {
      char buffer[4096];
      ssize_t count;
      while ((count = read(ends[0], buffer, sizeof buffer)) > 0) {
        output.append(buffer, static_cast<std::size_t>(count));
      }
    });
    const std::string text(300000, 'x');
    {
      std::fflush(stdout);
      const int saved = dup(1);
      dup2(ends[1], 1);
      close(ends[1]);
      SystemLog logs[2] = {SystemLog("a"), SystemLog("b")};
      std::thread second([&] { logs[1].runTimeInfo("%s\n", text.c_str()); });
      logs[0].runTimeInfo("%s\n", text.c_str());
      second.join();
      dup2(saved, 1);
      close(saved);
    }
    reader.join();
    close(ends[0]);
    EXPECT_EQ(recordTexts(output), (std::vector<std::string>{text + "\n", text + "\n"})) << flags;
  }
}

// Written at once: a process that ends suddenly leaves nothing unflushed.
TEST_F(SystemLogDeathTest, RecordsSurviveTheProcess) {
  EXPECT_EXIT(
      {
        SystemLog("front").runTimeError("last error\n");
        _exit(0);
      },
      testing::ExitedWithCode(0), "\\[front\\] last error\n$");
  EXPECT_EXIT(
      {
        dup2(2, 1);
        SystemLog("front").runTimeInfo("last progress\n");
        _exit(0);
      },
      testing::ExitedWithCode(0), "\\[front\\] last progress\n$");
}

TEST_F(SystemLogDeathTest, ClosedStreamsAreBorne) {
  EXPECT_EXIT(
      {
        close(1);
        SystemLog log("front");
        log.runTimeInfo("lost");
        log.runTimeInfo("lost\n");
        log.runTimeError("kept\n");
        close(2);
        log.runTimeError("lost\n");
        _exit(0);
      },
      testing::ExitedWithCode(0), "\\[front\\] kept\n$");
}

namespace {

// With little more memory than the process already has.
[[noreturn, maybe_unused]] void reportTooMuch() {
  std::size_t pages = 0;
  if (std::FILE* const statm = std::fopen("/proc/self/statm", "r")) {
    // NOLINTNEXTLINE(cert-err34-c): the kernel's own line
    pages = std::fscanf(statm, "%zu", &pages) == 1 ? pages : 0;
    std::fclose(statm);
  }
  const rlim_t bytes = pages * static_cast<rlim_t>(sysconf(_SC_PAGESIZE)) + 50'000'000;
  const rlimit limit{bytes, bytes};
  setrlimit(RLIMIT_AS, &limit);
  SystemLog log("front");
  log.runTimeError("%100000000d\n", 1);
  log.runTimeError("after\n");
  _exit(0);
}

}  // namespace

// A report that cannot be made is dropped; it does not throw, and later ones come through.
TEST_F(SystemLogDeathTest, ReportTooLargeForMemoryDoesNotThrow) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "sanitizers need all of the address space";
#else
  EXPECT_EXIT(reportTooMuch(), testing::ExitedWithCode(0), "^[^\n]* \\[front\\] after\n$");
#endif
}

// A host that holds standard output for a while keeps others from reporting progress, but must not wait for them.
TEST_F(SystemLogDeathTest, HostThatHoldsAStreamMayReport) {
  EXPECT_EXIT(
      {
        alarm(20);  // ends the process if it hangs
        dup2(open("/dev/null", O_WRONLY), 2);
        SystemLog log("front");
        flockfile(stdout);
        std::atomic<bool> ready{false};
        std::thread other([&] { ready = true, log.runTimeInfo("progress\n"); });
        for (int i = 0; i < 20000 || !ready; ++i) {
          log.runTimeError("error\n");
        }
        funlockfile(stdout);
        other.join();
        _exit(0);
      },
      testing::ExitedWithCode(0), "");
}

// A text with a character that the locale cannot encode still says which report it was.
TEST_F(SystemLogTest, RefusedFormatIsReportedAsItStands) {
  const OutputCapture errors(2);
  SystemLog("front").runTimeError("Init Camera %ls Error!\n", L"\u20ac");
  EXPECT_EQ(recordTexts(errors.text()), std::vector<std::string>{"Init Camera %ls Error!\n"});
}
