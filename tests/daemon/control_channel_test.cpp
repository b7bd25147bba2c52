// The control channel against a scripted fake driver: wire layout of the
// header, reply matching, time-outs, DSP status codes and the re-open of a
// lost descriptor.
#include <android/log.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <sys/stat.h>

#include <cstring>
#include <string>
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

struct OpcodeCase {
  uint16_t opcode;
  size_t size;
};
constexpr OpcodeCase kOpcodes[] = {
    {CMD_LUMX_TAP_ENABLE_ID, kTapEnableCmdSize}, {CMD_LUMX_TAP_BIND_ID, kTapBindCmdSize},
    {CMD_LUMX_TAP_LIST_ID, kTapListCmdSize},     {CMD_LUMX_TAP_INFO_ID, kTapInfoCmdSize},
    {CMD_LUMX_TAP_SET_BLOCK_LEN_ID, kTapSetBlockLenCmdSize},
};

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

TEST_F(ControlChannelTest, StampsHeaderOfEveryOpcodeAndKeepsPayload) {
  for (const OpcodeCase& c : kOpcodes) {
    SCOPED_TRACE(c.opcode);
    std::vector<uint8_t> msg(c.size + 8, 0);  // room to see that nothing beyond size travels
    msg.resize(c.size);
    for (size_t i = 8; i < c.size; ++i) msg[i] = static_cast<uint8_t>(0xA0 + i);
    // Garbage in the header must be overwritten, except the status bytes.
    msg[0] = 0x77;
    msg[1] = 0x77;
    msg[2] = 0x77;
    msg[3] = 0x77;
    msg[4] = 0x77;
    msg[5] = 0x77;
    const uint32_t idBefore = CommandCounter();
    const size_t before = driver_->Requests().size();
    ASSERT_EQ(0, Send(c.opcode, msg));
    auto requests = driver_->Requests();
    ASSERT_EQ(before + 1, requests.size());
    const std::vector<uint8_t>& req = requests.back();
    ASSERT_EQ(c.size, req.size());
    EXPECT_EQ(0, req[0]);
    EXPECT_EQ(static_cast<uint8_t>(idBefore & 0xff), req[1]);
    EXPECT_EQ(c.size & 0xff, req[2]);
    EXPECT_EQ(0, req[3]);
    EXPECT_EQ(c.opcode & 0xff, req[4]);
    EXPECT_EQ(0, req[5]);
    EXPECT_EQ(0, req[6]);
    EXPECT_EQ(0, req[7]);
    for (size_t i = 8; i < c.size; ++i) EXPECT_EQ(static_cast<uint8_t>(0xA0 + i), req[i]) << "offset " << i;
    EXPECT_EQ(idBefore + 1, CommandCounter());
  }
}

TEST_F(ControlChannelTest, ReplyIsReadOverTheRequest) {
  FakeControlDriver::Action answer;
  answer.fill = [](const std::vector<uint8_t>&, std::vector<uint8_t>& reply) {
    for (size_t i = 8; i < reply.size(); ++i) reply[i] = static_cast<uint8_t>(i);
  };
  driver_->Queue(answer);
  std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
  ASSERT_EQ(0, Send(CMD_LUMX_TAP_INFO_ID, msg));
  for (size_t i = 8; i < msg.size(); ++i) EXPECT_EQ(i, msg[i]);
}

TEST_F(ControlChannelTest, LogsSendLineAndReplyOk) {
  LogCapture log;
  std::vector<uint8_t> msg(kTapEnableCmdSize, 0);
  ASSERT_EQ(0, Send(CMD_LUMX_TAP_ENABLE_ID, msg));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, "SendLumxCommand: send opcode 0xca\n"));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, "LUM reply OK"));
  EXPECT_EQ(0u, log.count("reply status"));
}

TEST_F(ControlChannelTest, DspErrorStatusIsReturnedWithBothLines) {
  driver_->Queue(lumx_test::Status(-5));
  LogCapture log;
  std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
  EXPECT_EQ(-5, Send(CMD_LUMX_TAP_INFO_ID, msg));
  const int status = IndexOf(log, "LUM opcode 0xcd reply status -5");
  const int ok = IndexOf(log, "LUM reply OK");
  ASSERT_GE(status, 0);
  ASSERT_GE(ok, 0);
  EXPECT_LT(status, ok);
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_ERROR, "LUM opcode 0xcd reply status -5"));
}

TEST_F(ControlChannelTest, PositiveAndLargeStatusesAreSigned16Bit) {
  driver_->Queue(lumx_test::Status(7));
  driver_->Queue(lumx_test::Status(-32768));
  std::vector<uint8_t> msg(kTapListCmdSize, 0);
  EXPECT_EQ(7, Send(CMD_LUMX_TAP_LIST_ID, msg));
  EXPECT_EQ(-32768, Send(CMD_LUMX_TAP_LIST_ID, msg));
}

TEST_F(ControlChannelTest, ReplyToAnotherOpcodeIsSkipped) {
  FakeControlDriver::Action answer;
  answer.otherOpcodeFirst = CMD_LUMX_TAP_ENABLE_ID;
  driver_->Queue(answer);
  LogCapture log;
  std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
  EXPECT_EQ(0, Send(CMD_LUMX_TAP_INFO_ID, msg));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_ERROR, "mismatch reply id 202 opcode 0xcd"));
  EXPECT_EQ(1u, driver_->Requests().size());  // no resend
}

TEST_F(ControlChannelTest, IdByteIsNotMatched) {
  // A reply that carries a different id but the right opcode is the answer.
  FakeControlDriver::Action answer;
  answer.fill = [](const std::vector<uint8_t>&, std::vector<uint8_t>& reply) { reply[1] ^= 0x5a; };
  driver_->Queue(answer);
  LogCapture log;
  std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
  EXPECT_EQ(0, Send(CMD_LUMX_TAP_INFO_ID, msg));
  EXPECT_EQ(0u, log.count("mismatch"));
}

TEST_F(ControlChannelTest, NoReplyTimesOut) {
  FakeControlDriver::Action silent;
  silent.silent = true;
  driver_->Queue(silent);
  LogCapture log;
  std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
  EXPECT_EQ(-1, Send(CMD_LUMX_TAP_INFO_ID, msg));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_WARN, "waitForLumxCommandResponse: timeout for opcode 0xcd"));
  EXPECT_EQ(0u, log.count("LUM reply OK"));
}

TEST_F(ControlChannelTest, SkippedReplyDoesNotRestartTheBudget) {
  // The wrong reply comes after 350 ms and the right one 350 ms later: each
  // wait alone is shorter than 500 ms, the exchange as a whole is not.
  FakeControlDriver::Action late;
  late.delayMs = 350;
  late.otherOpcodeFirst = CMD_LUMX_TAP_BIND_ID;
  late.delayBetweenMs = 350;
  driver_->Queue(late);
  LogCapture log;
  std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
  EXPECT_EQ(-1, Send(CMD_LUMX_TAP_INFO_ID, msg));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_WARN, "waitForLumxCommandResponse: timeout for opcode 0xcd"));
  // Let the late reply drain before the next test's descriptor.
  ASSERT_TRUE(driver_->WaitHandled(1));
}

TEST_F(ControlChannelTest, ShortReplyIsLoggedAndWaitedPast) {
  FakeControlDriver::Action shortReply;
  shortReply.wrongSize = 10;
  driver_->Queue(shortReply);
  LogCapture log;
  std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
  EXPECT_EQ(-1, Send(CMD_LUMX_TAP_INFO_ID, msg));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_ERROR, "wrong data sz 10"));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_WARN, "waitForLumxCommandResponse: timeout for opcode 0xcd"));
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

TEST_F(ControlChannelTest, ClosedDescriptorWithoutNodeFails) {
  Lumxd::Instance().closeLumxControl();
  driver_->RemoveNode();
  LogCapture log;
  ::testing::internal::CaptureStderr();
  std::vector<uint8_t> msg(kTapInfoCmdSize, 0);
  const int32_t status = Send(CMD_LUMX_TAP_INFO_ID, msg);
  const std::string err = ::testing::internal::GetCapturedStderr();
  EXPECT_EQ(-1, status);
  const std::string path = dir_.Join("zch-lumx_control");
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_ERROR, "Cannot find " + path + "\n"));
  EXPECT_NE(std::string::npos, err.find("ERROR: Cannot find " + path + "\n"));
  EXPECT_EQ(0u, log.count("LUM reply OK"));
  EXPECT_EQ(-1, Lumxd::Instance().controlFd());
  EXPECT_TRUE(driver_->Requests().empty());
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
