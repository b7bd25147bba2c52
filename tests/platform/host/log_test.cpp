// Host liblog: return values, filtering by $LUMX_LOG_LEVEL, truncation, the
// in-process capture and the exact stderr line.
#include <android/log.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <stdlib.h>

#include <regex>
#include <thread>

#include "test_util.h"

namespace {

using lumx_host::LogCapture;
using lumx_host::LogEntry;

class LogTest : public ::testing::Test {
 protected:
  void SetUp() override { unsetenv("LUMX_LOG_LEVEL"); }
  void TearDown() override { unsetenv("LUMX_LOG_LEVEL"); }
};

TEST_F(LogTest, CaptureRecordsPriorityTagAndExactMessage) {
  LogCapture capture;
  EXPECT_EQ(1, __android_log_print(ANDROID_LOG_INFO, "lumx", "Start %s\n", "BinderThread"));
  EXPECT_EQ(1, __android_log_write(ANDROID_LOG_ERROR, "lumx_utils", "plain"));
  EXPECT_EQ(1, __android_log_print(ANDROID_LOG_DEBUG, "lumx", "%d-%s", 7, "x"));
  std::vector<LogEntry> e = capture.entries();
  ASSERT_EQ(3u, e.size());
  EXPECT_EQ((LogEntry{ANDROID_LOG_INFO, "lumx", "Start BinderThread\n"}), e[0]);
  EXPECT_EQ((LogEntry{ANDROID_LOG_ERROR, "lumx_utils", "plain"}), e[1]);
  EXPECT_EQ((LogEntry{ANDROID_LOG_DEBUG, "lumx", "7-x"}), e[2]);
  EXPECT_EQ((std::vector<std::string>{"plain"}), capture.messages("lumx_utils"));
  EXPECT_EQ(1u, capture.count("BinderThread"));
  capture.clear();
  EXPECT_TRUE(capture.entries().empty());
  // Messages are cut to 1023 bytes; the echo to stderr can be silenced.
  capture.setEcho(false);
  testing::internal::CaptureStderr();
  const std::string big(5000, 'x');
  EXPECT_EQ(1, __android_log_print(ANDROID_LOG_INFO, "t", "%s", big.c_str()));
  EXPECT_EQ(1, __android_log_write(ANDROID_LOG_INFO, "t", big.c_str()));
  EXPECT_EQ("", testing::internal::GetCapturedStderr());
  EXPECT_EQ((std::vector<std::string>{std::string(1023, 'x'), std::string(1023, 'x')}), capture.messages());
}

TEST_F(LogTest, CapturesAreScopedAndIndependent) {
  __android_log_write(ANDROID_LOG_INFO, "t", "before");
  LogCapture outer;
  {
    LogCapture inner;
    __android_log_write(ANDROID_LOG_INFO, "t", "both");
    EXPECT_EQ((std::vector<std::string>{"both"}), inner.messages());
  }
  __android_log_write(ANDROID_LOG_INFO, "t", "outer only");
  EXPECT_EQ((std::vector<std::string>{"both", "outer only"}), outer.messages());
}

TEST_F(LogTest, MinimumPriorityFromEnvironment) {
  LogCapture capture;
  setenv("LUMX_LOG_LEVEL", "W", 1);
  EXPECT_EQ(-EPERM, __android_log_print(ANDROID_LOG_INFO, "t", "dropped %d", 1));
  EXPECT_EQ(-EPERM, __android_log_write(ANDROID_LOG_DEBUG, "t", "dropped"));
  EXPECT_EQ(1, __android_log_write(ANDROID_LOG_WARN, "t", "warn"));
  EXPECT_EQ(1, __android_log_write(ANDROID_LOG_ERROR, "t", "error"));
  setenv("LUMX_LOG_LEVEL", "6", 1);
  EXPECT_EQ(-EPERM, __android_log_write(ANDROID_LOG_WARN, "t", "dropped"));
  setenv("LUMX_LOG_LEVEL", "s", 1);
  EXPECT_EQ(-EPERM, __android_log_write(ANDROID_LOG_FATAL, "t", "silenced"));
  setenv("LUMX_LOG_LEVEL", "v", 1);
  EXPECT_EQ(1, __android_log_write(ANDROID_LOG_VERBOSE, "t", "verbose"));
  setenv("LUMX_LOG_LEVEL", "bogus", 1);
  EXPECT_EQ(1, __android_log_write(ANDROID_LOG_VERBOSE, "t", "fallback"));
  EXPECT_EQ((std::vector<std::string>{"warn", "error", "verbose", "fallback"}),
            capture.messages());
}

TEST_F(LogTest, LineTailFormat) {
  using lumx_host::FormatLogLineTail;
  EXPECT_EQ("I lumx    : hello\n", FormatLogLineTail(ANDROID_LOG_INFO, "lumx", "hello"));
  EXPECT_EQ("E lumx    : Start x\n", FormatLogLineTail(ANDROID_LOG_ERROR, "lumx", "Start x\n"))
      << "a trailing newline is not doubled";
  EXPECT_EQ("W a_long_tag: m\n", FormatLogLineTail(ANDROID_LOG_WARN, "a_long_tag", "m"));
  EXPECT_EQ("V         : (null)\n", FormatLogLineTail(ANDROID_LOG_VERBOSE, nullptr, nullptr));
  EXPECT_EQ("F t       : x\n", FormatLogLineTail(ANDROID_LOG_FATAL, "t", "x"));
  EXPECT_EQ("D t       : x\n", FormatLogLineTail(ANDROID_LOG_DEBUG, "t", "x"));
}

TEST_F(LogTest, StderrLineLayout) {
  testing::internal::CaptureStderr();
  __android_log_print(ANDROID_LOG_WARN, "lumx", "Acquire wakelocked failed, st = %d", -2);
  __android_log_print(ANDROID_LOG_INFO, "lumx", "Stop %s\n", "EventThread");
  std::string out = testing::internal::GetCapturedStderr();
  std::regex line(
      "\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} +(\\d+) +(\\d+) W lumx    : Acquire wakelocked "
      "failed, st = -2\n"
      "\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} +\\d+ +\\d+ I lumx    : Stop EventThread\n");
  std::smatch m;
  ASSERT_TRUE(std::regex_match(out, m, line)) << out;
  EXPECT_EQ(std::to_string(getpid()), m[1].str());
}

TEST_F(LogTest, EveryLineGetsItsOwnHeaderAndNoByteForgesOne) {
  using lumx_host::FormatLogLines;
  const struct {
    const char* message;
    const char* written;
  } cases[] = {
      {"one", "H I lumx    : one\n"},
      {"", "H I lumx    : \n"},
      {"two\nlines\n", "H I lumx    : two\nH I lumx    : lines\n"},
      {"a\n\nb", "H I lumx    : a\nH I lumx    : \nH I lumx    : b\n"},
      // A Debug word carrying a whole fake line, then a carriage return and
      // terminal escapes that would paint over the real header.
      {"Debug x\n01-01 00:00:00.000     1     1 E lumx    : forged",
       "H I lumx    : Debug x\nH I lumx    : 01-01 00:00:00.000     1     1 E lumx    : forged\n"},
      {"x\rE lumx: forged\x1b[2K\x7f\tend", "H I lumx    : x\\x0dE lumx: forged\\x1b[2K\\x7f\tend\n"},
      {"c1 \xc2\x9b" "2K \xc3\xa9", "H I lumx    : c1 \\xc2\\x9b2K \xc3\xa9\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.written, FormatLogLines("H ", ANDROID_LOG_INFO, "lumx", c.message)) << c.message;
  }
  // As written to stderr: the second line has a header of its own.
  testing::internal::CaptureStderr();
  __android_log_print(ANDROID_LOG_INFO, "lumx", "Debug %s", "a\nb");
  std::string out = testing::internal::GetCapturedStderr();
  std::regex lines(
      "(\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} +\\d+ +\\d+ I lumx    : )Debug a\n"
      "(\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\\.\\d{3} +\\d+ +\\d+ I lumx    : )b\n");
  std::smatch m;
  ASSERT_TRUE(std::regex_match(out, m, lines)) << out;
}

TEST_F(LogTest, ConcurrentLoggingKeepsEveryEntry) {
  LogCapture capture;
  capture.setEcho(false);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 200; ++i) __android_log_print(ANDROID_LOG_INFO, "t", "%d:%d", t, i);
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(800u, capture.entries().size());
  EXPECT_EQ(200u, capture.count("3:"));
}

TEST_F(LogTest, AssertLogsFatalAndAborts) {
  EXPECT_DEATH(__android_log_assert("x > 1", "lumx", "bad value %d", 3), "F lumx    : bad value 3");
}

}  // namespace
