// The shared log file: line format, levels, rotation, the 100 ms mutex rule, and
// many writers in several processes at once.
#include "diag/Logger.h"
#include "support/ChildProcess.h"
#include "support/RegistryValue.h"
#include "support/SharedFiles.h"
#include "platform/UniqueResource.h"

#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <regex>
#include <cstdio>
#include <map>
#include <set>
#include <thread>

namespace quillon::test {
namespace {

// Lines of the log without their CR LF; a trailing part without CR LF is returned as is.
std::vector<std::string> LogLines() {
  std::vector<std::string> lines;
  const std::string all = LogText();
  size_t start = 0;
  for (size_t end; (end = all.find("\r\n", start)) != std::string::npos; start = end + 2) {
    lines.push_back(all.substr(start, end - start));
  }
  if (start < all.size()) lines.push_back(all.substr(start));
  return lines;
}

// A whole line; captures the level (1), the year (2), the process (3) and
// thread (4), the function and line (5), and the message (6).
const std::regex kLinePattern(
    R"(\[# (TRACE|DEBUG|INFO |WARNING|ERROR) \| (\d{4})-\d{2}-\d{2} \| \d{2}:\d{2}:\d{2}\.\d{3} \| )"
    R"(PID= *(\d+) \| ThreadId= *(\d+) \| ([A-Za-z:~]+:\d+) \| (.*) #\])");

class LoggerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(Logger::Instance().LogFilePath().Empty()) << "the log folder must be usable";
    Logger::Instance().SetLevel(LOG_TRACE);
    DeleteFileW(Logger::Instance().LogFilePath().Data());
    DeleteFileW(Logger::Instance().OldLogFilePath().Data());
  }
  void TearDown() override { Logger::Instance().SetLevel(LOG_ERROR); }  // the level without a setting
};

TEST_F(LoggerTest, LineHasTheFixedPrefix) {
  QLOG_LINE(LOG_INFO, 512, L"Quillon::LockForProcess", L"Some message %d [Code=%x: %s]", 7, 0x887d0003u, L"text");
  std::vector<std::string> lines = LogLines();
  ASSERT_EQ(1u, lines.size());
  std::smatch m;
  ASSERT_TRUE(std::regex_match(lines[0], m, kLinePattern)) << lines[0];
  EXPECT_EQ("INFO ", m[1].str());
  SYSTEMTIME now{};
  GetLocalTime(&now);
  EXPECT_EQ(now.wYear, std::stoi(m[2]));
  EXPECT_EQ(GetCurrentProcessId(), std::stoul(m[3]));
  EXPECT_EQ(GetCurrentThreadId(), std::stoul(m[4]));
  EXPECT_EQ("Quillon::LockForProcess:512", m[5].str());
  EXPECT_EQ("Some message 7 [Code=887d0003: text]", m[6].str());
}

TEST_F(LoggerTest, Utf8WithoutByteOrderMarkAndWithoutLengthLimit) {
  QLOG(LOG_ERROR, L"A::B", L"caf\u00e9 \u20ac \u4e2d");
  std::wstring longText(100000, L'x');
  QLOG(LOG_ERROR, L"A::B", L"%s", longText.c_str());
  const std::string all = LogText();
  ASSERT_GE(all.size(), 3u);
  EXPECT_NE(std::string("\xEF\xBB\xBF"), all.substr(0, 3));
  EXPECT_NE(std::string::npos, all.find("caf\xC3\xA9 \xE2\x82\xAC \xE4\xB8\xAD #]\r\n"));
  std::vector<std::string> lines = LogLines();
  ASSERT_EQ(2u, lines.size());
  EXPECT_NE(std::string::npos, lines[1].find(std::string(100000, 'x') + " #]"));
}

TEST_F(LoggerTest, CallsBelowTheThresholdTouchNothing) {
  Logger::Instance().SetLevel(LOG_WARNING);
  QLOG(LOG_INFO, L"A::B", L"suppressed");
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(Logger::Instance().LogFilePath().Data()));
  QLOG(LOG_WARNING, L"A::B", L"written");
  EXPECT_EQ(1u, LogLines().size());
}

// Above 2 MiB the file becomes the old log and the line starts a new one; at
// 2 MiB the line is appended.
TEST_F(LoggerTest, RotatesOnlyAboveTwoMebibytes) {
  for (const uint64_t size : {2097153ull, 2097152ull}) {
    const bool rotates = size > 2097152;
    DeleteFileW(Logger::Instance().OldLogFilePath().Data());
    std::ofstream(Logger::Instance().LogFilePath().Data(), std::ios::binary) << std::string(size, 'o');  // truncates
    QLOG(LOG_ERROR, L"A::B", L"after %llu", static_cast<unsigned long long>(size));
    WIN32_FILE_ATTRIBUTE_DATA old{};
    EXPECT_EQ(rotates, GetFileAttributesExW(Logger::Instance().OldLogFilePath().Data(), GetFileExInfoStandard, &old) !=
                           FALSE) << size;
    if (rotates) EXPECT_EQ(size, old.nFileSizeLow);
    const std::string all = LogText();
    const size_t kept = rotates ? 0 : size;
    ASSERT_TRUE(all.size() > kept && all.find_first_not_of('o') == kept) << size;
    const std::string line = all.substr(kept);
    EXPECT_EQ(0u, line.rfind("[# ERROR | ", 0)) << size;
    EXPECT_EQ(line.size() - 2, line.find("\r\n")) << "exactly one line after what was kept";
  }
}

// ---- Other owners of the logger's mutex: threads, as a mutex belongs to a thread --------
constexpr const wchar_t* kLoggerMutex = L"Global\\QuillonLoggerMutex";

TEST_F(LoggerTest, BusyMutexDropsTheLineAfterAboutOneHundredMilliseconds) {
  const UniqueHandle held(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  const UniqueHandle release(CreateEventW(nullptr, TRUE, FALSE, nullptr));
  std::thread holder([&] {
    const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, kLoggerMutex));
    WaitForSingleObject(mutex.Get(), 10000);
    SetEvent(held.Get());
    WaitForSingleObject(release.Get(), 30000);
    ReleaseMutex(mutex.Get());
  });
  EXPECT_EQ(WAIT_OBJECT_0, WaitForSingleObject(held.Get(), 30000));
  const auto start = std::chrono::steady_clock::now();
  QLOG(LOG_ERROR, L"A::B", L"dropped");
  const auto waited = std::chrono::steady_clock::now() - start;
  SetEvent(release.Get());
  holder.join();
  EXPECT_GE(waited, std::chrono::milliseconds(90)) << "the logger waits for the mutex before dropping";
  EXPECT_LT(waited, std::chrono::seconds(10));

  QLOG(LOG_ERROR, L"A::B", L"written");
  std::vector<std::string> lines = LogLines();
  ASSERT_EQ(1u, lines.size());
  EXPECT_NE(std::string::npos, lines[0].find("written"));
}

TEST_F(LoggerTest, AbandonedMutexStillWrites) {
  const UniqueHandle mutex(CreateMutexW(nullptr, FALSE, kLoggerMutex));  // the mutex outlives its owner
  std::thread([&] { WaitForSingleObject(mutex.Get(), 10000); }).join();  // which ends owning it
  QLOG(LOG_ERROR, L"A::B", L"after abandon");
  EXPECT_EQ(1u, LogLines().size());
}

// ---- Across processes -------------------------------------------------------------
struct LevelCase {
  const char* name;
  const wchar_t* registryText;  // null: no value
  std::set<int> written;
};

class LevelFromRegistry : public LoggerTest, public ::testing::WithParamInterface<LevelCase> {};

TEST_P(LevelFromRegistry, SelectsWhatANewProcessWrites) {
  const LevelCase& c = GetParam();
  ScopedRegistryValue value(HKEY_LOCAL_MACHINE, kSettingsKey, kLogLevelValue);
  value.Delete();
  if (c.registryText != nullptr) ASSERT_TRUE(value.SetString(c.registryText));
  ASSERT_EQ(0, ChildProcess(L"quillon_log_helper.exe", L"levels lvl").Wait());
  std::set<int> written;
  for (const std::string& line : LogLines()) {
    size_t at = line.find("lvl level ");
    if (at != std::string::npos) written.insert(line[at + 10] - '0');
  }
  EXPECT_EQ(c.written, written);
}

INSTANTIATE_TEST_SUITE_P(Logger, LevelFromRegistry, ::testing::Values(
    LevelCase{"Trace", kLogLevels[LOG_TRACE].text, {0, 1, 2, 3, 4}}, LevelCase{"WarnInCapitals", L"WARN", {3, 4}},
    LevelCase{"WordWarningIsInfo", L"warning", {2, 3, 4}}, LevelCase{"Empty", L"", {2, 3, 4}},
    LevelCase{"NoLogMixedCase", L"NoLog", {}}, LevelCase{"MissingIsError", nullptr, {4}}),
    [](const auto& info) { return std::string(info.param.name); });

// Threads of this process and two other processes write at once: every line
// arrives whole, once, well-formed and in its writer's order. A writer that
// waits more than 100 ms for the log drops its line, as it must (on a loaded
// machine, above all under emulation, that happens); the count is printed.
TEST_F(LoggerTest, ConcurrentWritersAcrossProcessesWriteWholeLinesInOrder) {
  constexpr int kThreads = 4, kPerThread = 150, kPerProcess = 300;
  ChildProcess first(L"quillon_log_helper.exe", L"write procA 300");
  ChildProcess second(L"quillon_log_helper.exe", L"write procB 300");
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < kPerThread; ++i) QLOG(LOG_ERROR, L"A::B", L"thread%d line %d", t, i);
    });
  }
  for (auto& thread : threads) thread.join();
  ASSERT_EQ(0, first.Wait(60000));
  ASSERT_EQ(0, second.Wait(60000));

  std::set<std::string> seen;
  std::map<std::string, int> last;  // writer -> its last line number
  const std::regex message(R"((\w+) line (\d+))");
  for (const std::string& line : LogLines()) {
    std::smatch m, n;
    ASSERT_TRUE(std::regex_match(line, m, kLinePattern)) << line;
    const std::string text = m[6];
    ASSERT_TRUE(std::regex_match(text, n, message)) << line;
    EXPECT_TRUE(seen.insert(text).second) << "twice: " << line;
    const int number = std::stoi(n[2]);
    EXPECT_LT(last.count(n[1]) ? last[n[1]] : -1, number) << "out of order: " << line;
    last[n[1]] = number;
  }
  const size_t expected = kThreads * kPerThread + 2 * kPerProcess;
  EXPECT_EQ(6u, last.size()) << "a writer's lines are all missing";
  EXPECT_GT(seen.size(), expected / 2) << "most lines were dropped";
  if (seen.size() != expected) std::printf("[ dropped  ] %zu of %zu lines waited over 100 ms\n", expected - seen.size(), expected);
}

}  // namespace
}  // namespace quillon::test
