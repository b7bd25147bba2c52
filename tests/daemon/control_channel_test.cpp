// The control channel against a scripted fake driver: wire layout of the
// header, reply matching, time-outs, DSP status codes and the re-open of a
// lost descriptor.
#include <android/log.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "common/wire.h"
#include "daemon/lumx_control.h"
#include "daemon/lumxd.h"
#include "support/daemon_test_util.h"
#include "support/fake_control_driver.h"

using lumx_host::LogCapture;
using lumx_host::LogEntry;
using lumx_test::FakeControlDriver;
using lumx_test::ScopedEnv;
using lumx_test::TempDir;

namespace {

bool HasEntry(const LogCapture& log, int prio, const std::string& message) {
  for (const LogEntry& e : log.entries()) {
    if (e.priority == prio && e.tag == "lumx" && e.message == message) return true;
  }
  return false;
}

// Index of the first entry with this exact message, or -1.
int IndexOf(const LogCapture& log, const std::string& message) {
  auto entries = log.entries();
  for (size_t i = 0; i < entries.size(); ++i) {
    if (entries[i].message == message) return static_cast<int>(i);
  }
  return -1;
}

uint32_t CommandCounter() {
  lumx::MutexLock lock(&commandMutex);
  return nextCommandId;
}

class ControlChannelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.path().empty());
    driver_ = std::make_unique<FakeControlDriver>(dir_.path());
    ASSERT_TRUE(driver_->ok());
    Lumxd::Instance().reopenLumxControl();
    ASSERT_GE(Lumxd::Instance().controlFd(), 0);
    Lumxd::Instance().resetLogLimits();
  }
  void TearDown() override {
    Lumxd::Instance().closeLumxControl();
    driver_.reset();
  }

  int32_t Send(uint16_t opcode, std::vector<uint8_t>& msg) {
    return Lumxd::Instance().SendLumxCommand(opcode, reinterpret_cast<CMD_HDR*>(msg.data()), msg.size());
  }

  TempDir dir_{"lumx-ctl"};
  ScopedEnv env_{"LUMX_DEV_ROOT", dir_.path().c_str()};
  std::unique_ptr<FakeControlDriver> driver_;
};

// Header bytes of each opcode's request, written out: a wrong opcode or
// message size in the code fails here. Byte 1 (the id) is checked apart.
TEST_F(ControlChannelTest, StampsHeaderOfEveryOpcodeAndKeepsPayload) {
  const std::vector<uint8_t> kHeaders[] = {
      {0, 0, 16, 0, 0xCA, 0, 0, 0}, {0, 0, 18, 0, 0xCB, 0, 0, 0}, {0, 0, 44, 0, 0xCC, 0, 0, 0},
      {0, 0, 28, 0, 0xCD, 0, 0, 0}, {0, 0, 20, 0, 0xCE, 0, 0, 0},
  };
  const std::pair<uint16_t, size_t> kSent[] = {
      {CMD_LUMX_TAP_ENABLE_ID, kTapEnableCmdSize}, {CMD_LUMX_TAP_BIND_ID, kTapBindCmdSize},
      {CMD_LUMX_TAP_LIST_ID, kTapListCmdSize},     {CMD_LUMX_TAP_INFO_ID, kTapInfoCmdSize},
      {CMD_LUMX_TAP_SET_BLOCK_LEN_ID, kTapSetBlockLenCmdSize},
  };
  for (size_t k = 0; k < 5; ++k) {
    SCOPED_TRACE(k);
    std::vector<uint8_t> msg(kSent[k].second, 0);
    for (size_t i = 8; i < msg.size(); ++i) msg[i] = static_cast<uint8_t>(0xA0 + i);
    // Garbage in the header must be overwritten, except the status bytes.
    std::fill(msg.begin(), msg.begin() + 6, 0x77);
    const uint32_t idBefore = CommandCounter();
    ASSERT_EQ(0, Send(kSent[k].first, msg));
    auto requests = driver_->Requests();
    ASSERT_EQ(k + 1, requests.size());
    std::vector<uint8_t> req = requests.back();
    ASSERT_EQ(kHeaders[k][2], req.size());
    EXPECT_EQ(static_cast<uint8_t>(idBefore), req[1]);
    req[1] = 0;
    EXPECT_EQ(kHeaders[k], std::vector<uint8_t>(req.begin(), req.begin() + 8));
    for (size_t i = 8; i < req.size(); ++i) EXPECT_EQ(static_cast<uint8_t>(0xA0 + i), req[i]) << "offset " << i;
    EXPECT_EQ(idBefore + 1, CommandCounter());
  }
}

// Commands from several threads at once, each answered late with a reply
// derived from its own payload: each caller must read its own reply (the
// write and the reply read form one exchange) and see status 0.
TEST_F(ControlChannelTest, ConcurrentCommandsEachGetTheirOwnReply) {
  driver_->SetDefault([](const std::vector<uint8_t>&) {
    FakeControlDriver::Action a;
    a.delayMs = 3;
    a.fill = [](const std::vector<uint8_t>& req, std::vector<uint8_t>& reply) {
      for (size_t i = 8; i < reply.size(); ++i) reply[i] = static_cast<uint8_t>(req[i] ^ 0xFF);
    };
    return a;
  });
  constexpr int kThreads = 4, kRounds = 15;
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int r = 0; r < kRounds; ++r) {
        std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
        for (size_t i = 8; i < msg.size(); ++i) msg[i] = static_cast<uint8_t>(t * 16 + r + i);
        const int32_t status = Send(CMD_LUMX_TAP_INFO_ID, msg);
        bool own = status == 0;
        for (size_t i = 8; i < msg.size(); ++i) own = own && msg[i] == static_cast<uint8_t>(~(t * 16 + r + i));
        if (!own) ++wrong;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(0, wrong.load());
  EXPECT_EQ(static_cast<size_t>(kThreads * kRounds), driver_->Requests().size());
}

FakeControlDriver::Action With(const std::function<void(FakeControlDriver::Action&)>& edit) {
  FakeControlDriver::Action a;
  edit(a);
  return a;
}

// One TAP_INFO exchange per scripted answer: the status returned and the
// lines logged, in order (and the lines that must not appear).
TEST_F(ControlChannelTest, ReplyFailureTable) {
  const std::string timeout = "waitForLumxCommandResponse: timeout for opcode 0xcd";
  const struct {
    const char* name;
    FakeControlDriver::Action action;
    int32_t status;
    std::vector<std::pair<int, std::string>> logged;
    std::vector<std::string> absent;
  } cases[] = {
      {"ok", {}, 0,
       {{ANDROID_LOG_INFO, "SendLumxCommand: send opcode 0xcd\n"}, {ANDROID_LOG_INFO, "LUM reply OK"}},
       {"reply status", "mismatch"}},
      {"dsp error", lumx_test::Status(-5), -5,
       {{ANDROID_LOG_ERROR, "LUM opcode 0xcd reply status -5"}, {ANDROID_LOG_INFO, "LUM reply OK"}}, {}},
      {"positive status", lumx_test::Status(7), 7, {}, {}},
      {"status is signed 16 bit", lumx_test::Status(-32768), -32768, {}, {}},
      // A reply to another opcode is skipped, and nothing is resent.
      {"other opcode first", With([](auto& a) { a.otherOpcodeFirst = CMD_LUMX_TAP_ENABLE_ID; }), 0,
       {{ANDROID_LOG_ERROR, "mismatch reply id 202 opcode 0xcd"}, {ANDROID_LOG_INFO, "LUM reply OK"}}, {}},
      // The id byte is not matched: the right opcode is the answer.
      {"other id byte",
       With([](auto& a) { a.fill = [](const std::vector<uint8_t>&, std::vector<uint8_t>& r) { r[1] ^= 0x5a; }; }), 0,
       {}, {"mismatch"}},
      {"no reply", With([](auto& a) { a.silent = true; }), -1, {{ANDROID_LOG_WARN, timeout}}, {"LUM reply OK"}},
      {"short reply", With([](auto& a) { a.wrongSize = 10; }), -1,
       {{ANDROID_LOG_ERROR, "wrong data sz 10"}, {ANDROID_LOG_WARN, timeout}}, {}},
      // Last, as its real reply comes too late and stays unread: the wrong
      // reply after 350 ms, the right one 350 ms later; each wait alone is
      // shorter than 500 ms, the exchange as a whole is not.
      {"skipped reply keeps the budget", With([](auto& a) {
         a.delayMs = 350;
         a.otherOpcodeFirst = CMD_LUMX_TAP_BIND_ID;
         a.delayBetweenMs = 350;
       }),
       -1, {{ANDROID_LOG_WARN, timeout}}, {"LUM reply OK"}},
  };
  size_t sent = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    driver_->Queue(c.action);
    LogCapture log;
    std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
    EXPECT_EQ(c.status, Send(CMD_LUMX_TAP_INFO_ID, msg));
    EXPECT_EQ(++sent, driver_->Requests().size());
    // The late reply (last case) drains before the descriptor closes.
    ASSERT_TRUE(driver_->WaitHandled(sent));
    int last = -1;
    for (const auto& line : c.logged) {
      EXPECT_TRUE(HasEntry(log, line.first, line.second)) << line.second;
      EXPECT_LT(last, IndexOf(log, line.second)) << line.second;
      last = IndexOf(log, line.second);
    }
    for (const std::string& text : c.absent) EXPECT_EQ(0u, log.count(text)) << text;
  }
}

TEST_F(ControlChannelTest, ClosedDescriptorIsReopenedAndTheMessageResent) {
  Lumxd::Instance().closeLumxControl();
  const uint32_t idBefore = CommandCounter();
  LogCapture log;
  std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
  EXPECT_EQ(0, Send(CMD_LUMX_TAP_INFO_ID, msg));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_ERROR, "SendLumxCommand: Error sending opcode 0xcd, status -1, expected 28"));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_ERROR, "SendLumxCommand: Trying again\n"));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, "Opened " + driver_->nodePath() + "\n"));
  EXPECT_LT(IndexOf(log, "SendLumxCommand: Trying again\n"), IndexOf(log, "Opened " + driver_->nodePath() + "\n"));
  // Stamped once: the resend carries the same id.
  auto requests = driver_->Requests();
  ASSERT_EQ(1u, requests.size());
  EXPECT_EQ(static_cast<uint8_t>(idBefore & 0xff), requests[0][1]);
  EXPECT_EQ(idBefore + 1, CommandCounter());
  EXPECT_GE(Lumxd::Instance().controlFd(), 0);
}

// The open waits up to 400 ms for the node: one that appears during the wait
// is opened; one that never appears fails only after the whole wait.
TEST_F(ControlChannelTest, OpenWaitsForTheNode) {
  char target[256] = {};
  ASSERT_GT(readlink(driver_->nodePath().c_str(), target, sizeof(target) - 1), 0);
  for (bool appears : {true, false}) {
    SCOPED_TRACE(appears);
    Lumxd::Instance().closeLumxControl();
    driver_->RemoveNode();
    LogCapture log;
    ::testing::internal::CaptureStderr();
    std::thread creator([&] {
      if (!appears) return;
      std::this_thread::sleep_for(std::chrono::milliseconds(120));  // well inside the wait
      (void)!symlink(target, driver_->nodePath().c_str());
    });
    const auto start = std::chrono::steady_clock::now();
    Lumxd::Instance().reopenLumxControl();
    const auto waited = std::chrono::steady_clock::now() - start;
    creator.join();
    const std::string err = ::testing::internal::GetCapturedStderr();
    if (appears) {
      EXPECT_GE(Lumxd::Instance().controlFd(), 0);
      EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, "Opened " + driver_->nodePath() + "\n"));
      EXPECT_EQ(std::string::npos, err.find("ERROR: Cannot find"));
      continue;
    }
    EXPECT_GE(std::chrono::duration_cast<std::chrono::milliseconds>(waited).count(), 400);
    EXPECT_EQ(-1, Lumxd::Instance().controlFd());
    const std::string path = dir_.Join("zch-lumx_control");
    EXPECT_TRUE(HasEntry(log, ANDROID_LOG_ERROR, "Cannot find " + path + "\n"));
    EXPECT_NE(std::string::npos, err.find("ERROR: Cannot find " + path + "\n"));
    // A command on the closed descriptor re-opens, fails and sends nothing.
    std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
    EXPECT_EQ(-1, Send(CMD_LUMX_TAP_INFO_ID, msg));
    EXPECT_EQ(0u, log.count("LUM reply OK"));
    EXPECT_TRUE(driver_->Requests().empty());
  }
}

TEST_F(ControlChannelTest, IdByteWrapsAfter256Commands) {
  const uint32_t first = CommandCounter();
  std::vector<uint8_t> msg(kTapEnableCmdSize, 0);
  for (int i = 0; i <= 256; ++i) {
    std::fill(msg.begin(), msg.end(), 0);
    ASSERT_EQ(0, Send(CMD_LUMX_TAP_ENABLE_ID, msg)) << i;
  }
  auto requests = driver_->Requests();
  ASSERT_EQ(257u, requests.size());
  for (int i = 0; i <= 256; ++i) EXPECT_EQ(static_cast<uint8_t>((first + i) & 0xff), requests[i][1]);
  EXPECT_EQ(requests[0][1], requests[256][1]);
  EXPECT_EQ(first + 257, CommandCounter());  // the counter itself keeps counting
}

// A node that is always readable but never yields a whole reply (here an
// ordinary file: every read is at its end) must still end in the time-out,
// not keep the command thread spinning with commandMutex held.
TEST(ControlBudgetTest, EndlessShortReadsEndInTheTimeout) {
  TempDir dir("lumx-ctl-eof");
  ScopedEnv env("LUMX_DEV_ROOT", dir.path().c_str());
  for (const char* name : {"lum", "zch-lumx_control"}) {
    FILE* f = fopen(dir.Join(name).c_str(), "w");
    ASSERT_NE(nullptr, f);
    fclose(f);
  }
  Lumxd::Instance().reopenLumxControl();
  ASSERT_GE(Lumxd::Instance().controlFd(), 0);
  Lumxd::Instance().resetLogLimits();
  LogCapture log;
  std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
  EXPECT_EQ(-1, Lumxd::Instance().SendLumxCommand(CMD_LUMX_TAP_INFO_ID, reinterpret_cast<CMD_HDR*>(msg.data()),
                                                   msg.size()));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_ERROR, "wrong data sz 0"));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_WARN, "waitForLumxCommandResponse: timeout for opcode 0xcd"));
  Lumxd::Instance().closeLumxControl();
}

TEST(ControlOpenTest, OpenFailureLogsAndLeavesDescriptorClosed) {
  TempDir dir("lumx-open");
  ScopedEnv env("LUMX_DEV_ROOT", dir.path().c_str());
  const std::string path = dir.Join("zch-lumx_control");
  // A directory exists but cannot be opened for writing.
  ASSERT_EQ(0, mkdir(path.c_str(), 0755));
  LogCapture log;
  ::testing::internal::CaptureStderr();
  Lumxd::Instance().reopenLumxControl();
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(-1, Lumxd::Instance().controlFd());
  const std::string text = "Failed to open " + path + ": " + strerror(EISDIR);
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_ERROR, text));
  EXPECT_NE(std::string::npos, err.find("ERROR: " + text));
  // No newline after the standard-error line.
  EXPECT_EQ(std::string::npos, err.find("ERROR: " + text + "\n"));
}

}  // namespace
