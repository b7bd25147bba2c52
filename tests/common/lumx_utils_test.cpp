// The result logger, the result's text form, the service name and the
// real-time priority helper.
#include <android/log.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <sched.h>

#include <string>
#include <thread>

#include "common/lumx_utils.h"
#include "common/utf8_text.h"

using lumx_host::LogCapture;
using lumx_host::LogEntry;
using Status = CommandResult::Status;

namespace {

CommandResult Make(int status, std::vector<std::string> lines = {}) {
  CommandResult r;
  r.status = static_cast<Status>(status);
  r.strList = std::move(lines);
  return r;
}

// What print_aidl_return logs for a result: nothing for a bare success, the
// fixed word of a bare failure, else the whole result in its text form.
TEST(PrintAidlReturnTest, LineOfEachResult) {
  const int E = ANDROID_LOG_ERROR, I = ANDROID_LOG_INFO;
  const struct {
    int status;
    std::vector<std::string> lines;
    std::vector<LogEntry> logged;
  } cases[] = {
      {1, {}, {{E, "lumx", "Op: ERROR"}}},
      {2, {}, {{E, "lumx", "Op: INVALID PROCESSOR"}}},
      {3, {}, {{E, "lumx", "Op: INVALID PARAMETER"}}},
      {4, {}, {{E, "lumx", "Op: INVALID_VALUE"}}},
      {5, {}, {{E, "lumx", "Op: Unknown error"}}},
      {6, {}, {{E, "lumx", "Op: Unknown error"}}},
      {7, {}, {{E, "lumx", "Op: Unknown error"}}},
      {127, {}, {{E, "lumx", "Op: Unknown error"}}},
      {-1, {}, {{E, "lumx", "Op: Unknown error"}}},
      {5, {"bad element"},
       {{E, "lumx", "Op: CommandResult{status: INVALID_ELEMENT, value: 0.000000, strList: [bad element]}"}}},
      {6, {"a", "b"}, {{E, "lumx", "Op: CommandResult{status: READ_ONLY, value: 0.000000, strList: [a, b]}"}}},
      {7, {"x"}, {{E, "lumx", "Op: CommandResult{status: 7, value: 0.000000, strList: [x]}"}}},
      {0, {}, {}},
      {0, {"line"}, {{I, "lumx", "Op: CommandResult{status: OK, value: 0.000000, strList: [line]}"}}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.status);
    LogCapture log;
    const CommandResult r = Make(c.status, c.lines);
    print_aidl_return("Op", &r);
    EXPECT_EQ(c.logged, log.entries());
  }
  EXPECT_EQ("CommandResult{status: OK, value: 0.000000, strList: []}", Make(0).toString());
  CommandResult r = Make(1, {"x"});
  r.value = 2.5f;
  EXPECT_EQ("CommandResult{status: ERROR, value: 2.500000, strList: [x]}", r.toString());
}

TEST(LumxDescriptorTest, StableNameWithDefaultInstance) {
  const char* first = LumxDescriptor();
  EXPECT_EQ(first, LumxDescriptor());
  EXPECT_EQ(std::string(::aidl::lumx::ILumx::descriptor) + "/default", first);
  const char* fromThread = nullptr;
  std::thread([&] { fromThread = LumxDescriptor(); }).join();
  EXPECT_EQ(first, fromThread);
}

TEST(FourCcTest, MostSignificantByteFirstAndStopsAtZero) {
  EXPECT_EQ("imic", FourCcToString(0x696d6963));
  EXPECT_EQ("ab", FourCcToString(0x61620063));
  EXPECT_EQ("", FourCcToString(0));
  // A code that ends inside a character loses that half character.
  EXPECT_EQ("A", FourCcToString(0x41c30000));
  EXPECT_EQ("\xc3\xa9x", FourCcToString(0xc3a97800));
  EXPECT_EQ("x\xe2\x82\xac", FourCcToString(0x78e282ac));
}

TEST(Utf8CutTest, FixedBufferCutsKeepWholeCharacters) {
  const struct {
    size_t size;
    const char* text;
    const char* kept;
  } cases[] = {
      {8, "abcdefghij", "abcdefg"},             // ASCII: cut at the byte
      {8, "abcde\xc3\xa9z", "abcde\xc3\xa9"},   // the cut falls after a character
      {7, "abcde\xc3\xa9z", "abcde"},           // ... or inside one: it goes
      {6, "ab\xe2\x82\xacz", "ab\xe2\x82\xac"},
      {5, "ab\xe2\x82\xacz", "ab"},
      {4, "a\xf0\x9f\x98\x80", "a"},
      {64, "Enable Lumx use case 'caf\xc3\xa9'", "Enable Lumx use case 'caf\xc3\xa9'"},
  };
  for (const auto& c : cases) {
    char buf[64];
    const size_t kept = lumx::FormatCut(buf, c.size, "%s", c.text);
    EXPECT_STREQ(c.kept, buf) << c.text << " in " << c.size;
    EXPECT_EQ(strlen(c.kept), kept);
  }
  std::string cut = "x\xe2\x82";
  lumx::Utf8TrimCut(&cut);
  EXPECT_EQ("x", cut);
}

TEST(RealtimePriorityTest, SucceedsOrLogsTheFailureLine) {
  int status = 0;
  int expectedErrno = 0;
  int policy = -1;
  LogCapture log;
  // On a thread of its own, so the test runner keeps its scheduling.
  std::thread([&] {
    // What the system answers this process, to know which line to expect.
    struct sched_param probe = {};
    probe.sched_priority = 2;
    if (sched_setscheduler(0, SCHED_FIFO, &probe) != 0) {
      expectedErrno = errno;
    } else {
      probe.sched_priority = 0;
      sched_setscheduler(0, SCHED_OTHER, &probe);
    }
    status = SetThreadRealtimePriority();
    policy = sched_getscheduler(0);
  }).join();
  auto entries = log.entries();
  if (expectedErrno == 0) {
    EXPECT_EQ(0, status);
    EXPECT_EQ(SCHED_FIFO, policy);
    EXPECT_TRUE(entries.empty());
  } else {
    EXPECT_EQ(-1, status);
    ASSERT_EQ(1u, entries.size());
    EXPECT_EQ(ANDROID_LOG_ERROR, entries[0].priority);
    EXPECT_EQ("lumx_utils", entries[0].tag);
    EXPECT_EQ("common/lumx_utils failed. status -1, errno " + std::to_string(expectedErrno) + ", pid 0",
              entries[0].message);
  }
}

}  // namespace
