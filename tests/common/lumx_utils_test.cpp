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

std::vector<LogEntry> Logged(const CommandResult& r) {
  LogCapture log;
  print_aidl_return("Op", &r);
  return log.entries();
}

TEST(PrintAidlReturnTest, FailureWithoutTextUsesTheFixedWords) {
  const struct {
    int status;
    const char* word;
  } cases[] = {{1, "ERROR"},          {2, "INVALID PROCESSOR"}, {3, "INVALID PARAMETER"},
               {4, "INVALID_VALUE"},  {5, "Unknown error"},     {6, "Unknown error"},
               {7, "Unknown error"},  {127, "Unknown error"},   {-1, "Unknown error"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.status);
    auto entries = Logged(Make(c.status));
    ASSERT_EQ(1u, entries.size());
    EXPECT_EQ((LogEntry{ANDROID_LOG_ERROR, "lumx", std::string("Op: ") + c.word}), entries[0]);
  }
}

TEST(PrintAidlReturnTest, FailureWithTextLogsTheWholeResult) {
  auto entries = Logged(Make(5, {"bad element"}));
  ASSERT_EQ(1u, entries.size());
  EXPECT_EQ((LogEntry{ANDROID_LOG_ERROR, "lumx",
                      "Op: CommandResult{status: INVALID_ELEMENT, value: 0.000000, strList: [bad element]}"}),
            entries[0]);
  entries = Logged(Make(6, {"a", "b"}));
  ASSERT_EQ(1u, entries.size());
  EXPECT_EQ("Op: CommandResult{status: READ_ONLY, value: 0.000000, strList: [a, b]}", entries[0].message);
}

TEST(PrintAidlReturnTest, SuccessLogsOnlyWhenThereIsText) {
  EXPECT_TRUE(Logged(Make(0)).empty());
  auto entries = Logged(Make(0, {"line"}));
  ASSERT_EQ(1u, entries.size());
  EXPECT_EQ((LogEntry{ANDROID_LOG_INFO, "lumx", "Op: CommandResult{status: OK, value: 0.000000, strList: [line]}"}),
            entries[0]);
}

TEST(CommandResultTextTest, Forms) {
  EXPECT_EQ("CommandResult{status: OK, value: 0.000000, strList: []}", Make(0).toString());
  EXPECT_EQ("CommandResult{status: 7, value: 0.000000, strList: []}", Make(7).toString());
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
