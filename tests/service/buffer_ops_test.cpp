// The buffer operations of the service: discovery, listings, StartIo/StopIo,
// capture and the Debug commands, against FIFOs in a temporary device
// directory.
#include <android/log.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "buffer/lumx_buffer.h"
#include "service/lumx_service.h"
#include "support/buffer_dev_dir.h"
#include "support/buffer_test_processor.h"
#include "support/daemon_service_access.h"
#include "support/daemon_test_util.h"
#include "support/system_service_env.h"

namespace {

using Status = CommandResult::Status;
using Lines = std::vector<std::string>;

const Lines kHelp = {
    "debug commands:",        "  buffer_init",           "  buffer_deinit", "  buffer_dump <tapout|inject> <n>",
    "  log_start <file prfx>", "  log_stop <file prfx>",
};

Lines Concat(Lines a, const Lines& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

bool HasLineContaining(const Lines& lines, const std::string& needle) {
  return std::any_of(lines.begin(), lines.end(), [&](const std::string& l) { return l.find(needle) != std::string::npos; });
}

// The analysis cannot see that the accessor returns the service's mutex_.
int InitLumBuffersLocked(LumxService& s) NO_THREAD_SAFETY_ANALYSIS {
  lumx::MutexLock lock(&LumxServiceTestAccess::Mutex(s));
  return s.initLumBuffers();
}

class BufferOpsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture.setEcho(false);
    ASSERT_EQ(0, mkdir(sysfs.Join("power").c_str(), 0700));
    sysfs.Touch("power/wake_lock");
    sysfs.Touch("power/wake_unlock");
    AddTapOut("zch-lumx_tapout0");
    AddTapOut("zch-lumx_tapout1");
    AddInject("zch-lumx_inject0");
    AddInject("zch-lumx_inject1");
  }
  void TearDown() override {
    service.reset();
    for (int fd : fds) close(fd);
  }

  // Tap-out FIFOs get a feeder (so the buffer's open finds a writer), inject
  // FIFOs a reader (so the buffer's write-only open does not wait).
  void AddTapOut(const std::string& name) {
    dev.MakeFifo(name);
    fds.push_back(BufferOpenFifoFeeder(dev.Path(name)));
  }
  void AddInject(const std::string& name) {
    dev.MakeFifo(name);
    fds.push_back(BufferOpenFifoReader(dev.Path(name)));
  }
  void StartService() {
    service = LumxServiceTestAccess::Make();
    ASSERT_TRUE(service);
  }
  CommandResult Debug(const Lines& args) {
    return ::lumx::test::Call([&](CommandResult* r) { return service->Debug(args, r); });
  }
  CommandResult StartIo(int id) {
    return ::lumx::test::Call([&](CommandResult* r) { return service->StartIo(id, r); });
  }
  CommandResult StopIo(int id) { return ::lumx::test::Call([&](CommandResult* r) { return service->StopIo(id, r); }); }
  CommandResult ListTapOut() {
    return ::lumx::test::Call([&](CommandResult* r) { return service->ListTapOutBuffers(r); });
  }
  CommandResult ListInject() {
    return ::lumx::test::Call([&](CommandResult* r) { return service->ListInjectBuffers(r); });
  }
  // Log lines that start with one of the enable/disable words.
  Lines EnableLines() const {
    Lines out;
    for (const std::string& m : capture.messages("lumx")) {
      if (m.rfind("Enable buffer", 0) == 0 || m.rfind("Disable buffer", 0) == 0) out.push_back(m);
    }
    return out;
  }
  bool Enabled(bool tapOut, int id) {
    LumxBuffer* b = tapOut ? service->findTapOutBuffer(id) : service->findInjectBuffer(id);
    return b != nullptr && b->isEnabled();
  }

  lumx_host::LogCapture capture;
  lumx_test::TempDir sysfs{"lumx-buffer-sysfs"};
  lumx_test::ScopedEnv sysfsEnv{"LUMX_SYSFS_ROOT", sysfs.path().c_str()};
  BufferDevDir dev;
  std::vector<int> fds;
  std::shared_ptr<LumxService> service;
};

// ---- Discovery and listings ----

TEST_F(BufferOpsTest, SuffixesNameAndNumberTheBuffers) {
  for (const char* name : {"zch-lumx_tapout10", "zch-lumx_tapout2", "zch-lumx_tapoutA", "zch-lumx_tapout-1",
                           "zch-lumx_tapout3x", "zch-lumx_tapout", "zch-lumx_inject7", "zch-lumx_injectB"}) {
    dev.MakeFile(name);
  }
  StartService();
  const CommandResult tapOut = ListTapOut();
  EXPECT_EQ(tapOut.status, Status::OK);
  EXPECT_EQ(tapOut.strList, (Lines{
                                "Tap-out buffers:",
                                "  Id        Name      InProc    OutProc   Enabled",
                                "  0         tapout0   -         -         0        ",
                                "  1         tapout1   -         -         0        ",
                                "  2         tapout2   -         -         0        ",
                                "  3         tapout3x  -         -         0        ",
                                "  10        tapout10  -         -         0        ",
                            }));
  const CommandResult inject = ListInject();
  EXPECT_EQ(inject.status, Status::OK);
  EXPECT_EQ(inject.strList, (Lines{
                                "Inject buffers:",
                                "  Id        Name      InProc    OutProc   Enabled  ",
                                "  0         inject0   -         -         0        ",
                                "  1         inject1   -         -         0        ",
                                "  7         inject7   -         -         0        ",
                            }));
}

TEST_F(BufferOpsTest, DuplicateIdKeepsTheFirstPathInNameOrder) {
  StartService();
  dev.MakeFile("zch-lumx_tapout4b");
  dev.MakeFile("zch-lumx_tapout4");
  dev.MakeFile("zch-lumx_tapout04");
  Debug({"buffer_init"});
  const Lines rows = ListTapOut().strList;
  ASSERT_EQ(rows.size(), 5u);
  EXPECT_EQ(rows.back(), "  4         tapout04  -         -         0        ");
  EXPECT_EQ(service->findTapOutBuffer(4)->devicePath(), dev.Path("zch-lumx_tapout04"));
}

TEST_F(BufferOpsTest, NoTapOutDeviceIsAFailureEvenWithInjects) {
  StartService();
  dev.Remove("zch-lumx_tapout0");
  dev.Remove("zch-lumx_tapout1");
  capture.clear();
  EXPECT_EQ(InitLumBuffersLocked(*service), -1);
  EXPECT_EQ(service->tapOutBufferCount(), 0u);
  EXPECT_EQ(service->injectBufferCount(), 0u);
  const Lines errors = {"Error scanning for lumx devices " + dev.root() + "/zch-lumx_tapout*",
                        "Error initializing lumx buffers"};
  Lines logged;
  for (const auto& e : capture.entries()) {
    if (e.priority == ANDROID_LOG_ERROR) logged.push_back(e.message);
  }
  EXPECT_EQ(logged, errors);

  // Through Debug: still a success, maps empty.
  const CommandResult r = Debug({"buffer_init"});
  EXPECT_EQ(r.status, Status::OK);
  EXPECT_EQ(r.strList, Lines{"Debug buffer_init"});
  EXPECT_EQ(ListInject().strList, (Lines{"Inject buffers:", "  none"}));
  EXPECT_EQ(ListTapOut().strList, (Lines{"Tap-out buffers:", "  none"}));
}

TEST_F(BufferOpsTest, RescanWithoutInjectDevicesTriesFiveTimes) {
  StartService();
  dev.Remove("zch-lumx_inject0");
  dev.Remove("zch-lumx_inject1");
  capture.clear();
  service->initLumBuffersWithRetry();  // about 2.5 s
  EXPECT_EQ(capture.count("Found 2 tap-out buffers, 0 inject buffers"), 1u);
  // Every scan drops the buffers of the one before: five scans.
  EXPECT_EQ(capture.count("tapout0 UnregisterAllOutputs"), 5u);
  EXPECT_EQ(service->tapOutBufferCount(), 2u);

  dev.Remove("zch-lumx_tapout1");
  AddInject("zch-lumx_inject0");
  capture.clear();
  service->initLumBuffersWithRetry();
  EXPECT_EQ(capture.count("Found 1 tap-out buffer, 1 inject buffer"), 1u);
  EXPECT_EQ(capture.count("tapout0 UnregisterAllOutputs"), 1u);
}

TEST_F(BufferOpsTest, ListingsShowTheWiring) {
  StartService();
  BufferTestProcessor pass(BufferTestFourCc("pass"));
  BufferTestProcessor arel(BufferTestFourCc("arel"));
  LumxBuffer* tapout0 = service->findTapOutBuffer(0);
  LumxBuffer* inject1 = service->findInjectBuffer(1);
  ASSERT_EQ(tapout0->RegisterOutput(&pass), 0);
  ASSERT_EQ(tapout0->RegisterOutput(&arel), 0);
  pass.SetInput(tapout0);
  arel.SetInput(tapout0);
  ASSERT_EQ(inject1->RegisterInput(&pass), 0);
  const std::string outs = std::less<LumxProcessor*>()(&pass, &arel) ? "pass,arel" : "arel,pass";
  EXPECT_EQ(ListTapOut().strList[2], "  0         tapout0   -         " + outs + " 0        ");
  EXPECT_EQ(ListInject().strList[3], "  1         inject1   pass      -         0        ");
}

// ---- StartIo / StopIo ----

TEST_F(BufferOpsTest, StartAndStopAllBuffers) {
  StartService();
  capture.clear();
  const CommandResult started = StartIo(-1);
  EXPECT_EQ(started.status, Status::OK);
  ASSERT_FALSE(started.strList.empty());
  EXPECT_EQ(started.strList[0], "Enable all buffers");
  EXPECT_FALSE(HasLineContaining(started.strList, "failed"));
  EXPECT_EQ(EnableLines(), (Lines{
                               "Enable buffer tapout0 (0 processors connected), I/O thread start",
                               "Enable buffer tapout1 (0 processors connected), I/O thread start",
                               "Enable buffer inject0 with 0 input",
                               "Enable buffer inject1 with 0 input",
                           }));
  EXPECT_TRUE(Enabled(true, 0) && Enabled(true, 1) && Enabled(false, 0) && Enabled(false, 1));
  EXPECT_TRUE(capture.contains("handleEnableBuffers: CommandResult{status: OK, value: 0.000000, strList: [Enable all buffers"));

  capture.clear();
  const CommandResult stopped = StopIo(-1);
  EXPECT_EQ(stopped.status, Status::OK);
  EXPECT_EQ(stopped.strList[0], "Disable all buffers");
  EXPECT_EQ(EnableLines(), (Lines{"Disable buffer tapout0", "Disable buffer tapout1", "Disable buffer inject0",
                                  "Disable buffer inject1"}));
  EXPECT_FALSE(Enabled(true, 0) || Enabled(true, 1) || Enabled(false, 0) || Enabled(false, 1));
}

TEST_F(BufferOpsTest, StartOneTapOutEnablesTheInjectBuffersItFeeds) {
  StartService();
  BufferTestProcessor p1(BufferTestFourCc("pro1"));
  BufferTestProcessor p2(BufferTestFourCc("pro2"));
  LumxBuffer* tapout0 = service->findTapOutBuffer(0);
  LumxBuffer* inject1 = service->findInjectBuffer(1);
  ASSERT_EQ(tapout0->RegisterOutput(&p1), 0);
  ASSERT_EQ(tapout0->RegisterOutput(&p2), 0);
  p1.SetInput(tapout0);
  p2.SetInput(tapout0);
  ASSERT_EQ(inject1->RegisterInput(&p1), 0);
  p2.SetOutput(inject1);  // two producers for one inject buffer
  capture.clear();

  const CommandResult started = StartIo(0);
  EXPECT_EQ(started.status, Status::OK);
  EXPECT_EQ(started.strList[0], "Enable tap-out buffer 0");
  EXPECT_FALSE(HasLineContaining(started.strList, "failed"));
  EXPECT_EQ(EnableLines(), (Lines{
                               "Enable buffer tapout0 (2 processors connected), I/O thread start",
                               "Enable buffer inject1 with 1 input",
                               "Enable buffer inject1: already enabled",
                           }));
  EXPECT_TRUE(Enabled(true, 0));
  EXPECT_TRUE(Enabled(false, 1));
  EXPECT_FALSE(Enabled(true, 1));
  EXPECT_FALSE(Enabled(false, 0));

  capture.clear();
  const CommandResult stopped = StopIo(0);
  EXPECT_EQ(stopped.strList[0], "Disable tap-out buffer 0");
  EXPECT_EQ(EnableLines(),
            (Lines{"Disable buffer tapout0", "Disable buffer inject1", "Disable buffer inject1: already disabled"}));
  p2.SetOutput(nullptr);
}

TEST_F(BufferOpsTest, UnknownIdChangesNothing) {
  StartService();
  capture.clear();
  for (int id : {5, -2, 1000}) {
    const CommandResult r = StartIo(id);
    EXPECT_EQ(r.status, Status::OK);
    ASSERT_FALSE(r.strList.empty());
    EXPECT_EQ(r.strList[0], "Enable tap-out buffer " + std::to_string(id));
    EXPECT_FALSE(HasLineContaining(r.strList, "failed"));
  }
  EXPECT_EQ(StopIo(7).strList[0], "Disable tap-out buffer 7");
  EXPECT_TRUE(EnableLines().empty());
}

TEST_F(BufferOpsTest, UnopenableBufferFailsTheCallButTheOthersStart) {
  StartService();
  dev.Remove("zch-lumx_inject0");
  // About four seconds of open retries for inject0.
  const CommandResult r = StartIo(-1);
  EXPECT_EQ(r.status, Status::ERROR);
  EXPECT_EQ(r.strList[0], "Enable all buffers");
  EXPECT_TRUE(std::find(r.strList.begin(), r.strList.end(), "inject0 failed to enable, status -1") != r.strList.end());
  EXPECT_TRUE(Enabled(true, 0) && Enabled(true, 1) && Enabled(false, 1));
  EXPECT_FALSE(Enabled(false, 0));
  EXPECT_TRUE(capture.contains("handleEnableBuffers: CommandResult{status: ERROR"));
  // Disabling never fails.
  EXPECT_EQ(StopIo(-1).status, Status::OK);
}

// ---- Debug ----

TEST_F(BufferOpsTest, DebugHelpAndUnknownWords) {
  StartService();
  CommandResult r = Debug({});
  EXPECT_EQ(r.status, Status::OK);
  EXPECT_EQ(r.strList, Concat({"Debug"}, kHelp));
  r = Debug({"help", "me", "now"});
  EXPECT_EQ(r.strList, Concat({"Debug help me now"}, kHelp));
  r = Debug({"HELP"});
  EXPECT_EQ(r.status, Status::INVALID_PARAMETER);
  EXPECT_EQ(r.strList, Lines{"Debug HELP"});
  r = Debug({"buffer", "init"});
  EXPECT_EQ(r.status, Status::INVALID_PARAMETER);
  EXPECT_EQ(r.strList, Lines{"Debug buffer init"});
  EXPECT_TRUE(capture.contains("Debug: CommandResult{status: INVALID_PARAMETER, value: 0.000000, strList: [Debug HELP]}"));
}

TEST_F(BufferOpsTest, DebugBufferDumpChecksItsArguments) {
  StartService();
  const auto status = [&](const Lines& args) { return Debug(args).status; };
  for (const Lines& bad : {Lines{"buffer_dump"}, Lines{"buffer_dump", "tapout"}, Lines{"buffer_dump", "tapout", "0", "1"},
                           Lines{"buffer_dump", "tapout", "x"}, Lines{"buffer_dump", "tapout", "00"},
                           Lines{"buffer_dump", "Tapout", "0"}, Lines{"buffer_dump", "inject", "9"},
                           Lines{"buffer_dump", "inject", "-1"}}) {
    EXPECT_EQ(status(bad), Status::INVALID_PARAMETER) << ::testing::PrintToString(bad);
  }
  EXPECT_EQ(capture.count("buffer is null"), 0u);

  // Disabled: only the null line, nothing in the result.
  const CommandResult r = Debug({"buffer_dump", "tapout", "0"});
  EXPECT_EQ(r.status, Status::OK);
  EXPECT_EQ(r.strList, Lines{"Debug buffer_dump tapout 0"});
  EXPECT_EQ(capture.count("tapout0 buffer is null"), 1u);
  // "1x" reads as 1.
  EXPECT_EQ(status({"buffer_dump", "inject", "1x"}), Status::OK);
  EXPECT_EQ(capture.count("inject1 buffer is null"), 1u);

  // Enabled: the whole block, 2048 lines.
  ASSERT_EQ(StartIo(-1).status, Status::OK);
  capture.clear();
  EXPECT_EQ(status({"buffer_dump", "inject", "0"}), Status::OK);
  Lines dump;
  for (const std::string& m : capture.messages("lumx")) {
    if (m.find(" : ") == 8) dump.push_back(m);
  }
  ASSERT_EQ(dump.size(), 2048u);
  EXPECT_EQ(dump.front().rfind("00000000 : ", 0), 0u);
  EXPECT_EQ(dump.back().rfind("00003ff8 : ", 0), 0u);
  StopIo(-1);

  // No buffers at all: not found.
  Debug({"buffer_deinit"});
  EXPECT_EQ(status({"buffer_dump", "tapout", "0"}), Status::INVALID_PARAMETER);
}

TEST_F(BufferOpsTest, DebugDeinitDisablesAndDropsAndInitRescans) {
  StartService();
  ASSERT_EQ(StartIo(-1).status, Status::OK);
  capture.clear();
  CommandResult r = Debug({"buffer_deinit", "ignored"});
  EXPECT_EQ(r.status, Status::OK);
  EXPECT_EQ(r.strList, Lines{"Debug buffer_deinit ignored"});
  EXPECT_EQ(service->tapOutBufferCount(), 0u);
  EXPECT_EQ(service->injectBufferCount(), 0u);
  EXPECT_TRUE(capture.contains("Buffer tapout0 disabled, I/O thread end"));
  EXPECT_TRUE(capture.contains("Buffer inject1 disabled"));
  r = Debug({"buffer_init"});
  EXPECT_EQ(r.status, Status::OK);
  EXPECT_EQ(service->tapOutBufferCount(), 2u);
  EXPECT_EQ(service->injectBufferCount(), 2u);
  EXPECT_FALSE(Enabled(true, 0));
}

TEST_F(BufferOpsTest, DebugCaptureNamesOneFilePerBuffer) {
  StartService();
  CommandResult r = Debug({"log_start"});
  EXPECT_EQ(r.status, Status::OK);
  EXPECT_EQ(r.strList, (Lines{
                           "Debug log_start",
                           "tapout0 buffer CaptureStart /tmp/lumx_capture_tapout0.wav",
                           "tapout1 buffer CaptureStart /tmp/lumx_capture_tapout1.wav",
                           "inject0 buffer CaptureStart /tmp/lumx_capture_inject0.wav",
                           "inject1 buffer CaptureStart /tmp/lumx_capture_inject1.wav",
                       }));
  EXPECT_TRUE(service->findInjectBuffer(1)->captureEnabled());
  r = Debug({"log_start", "/data/x", "more"});
  EXPECT_EQ(r.strList[1], "tapout0 buffer CaptureStart /data/x_tapout0.wav");
  EXPECT_EQ(r.strList[4], "inject1 buffer CaptureStart /data/x_inject1.wav");
  r = Debug({"log_stop", "/data/x"});
  EXPECT_EQ(r.strList, (Lines{
                           "Debug log_stop /data/x",
                           "tapout0 buffer CaptureStop",
                           "tapout1 buffer CaptureStop",
                           "inject0 buffer CaptureStop",
                           "inject1 buffer CaptureStop",
                       }));
  EXPECT_FALSE(service->findInjectBuffer(1)->captureEnabled());
  // Stopping again still reports every buffer.
  EXPECT_EQ(Debug({"log_stop"}).strList.size(), 5u);

  Debug({"buffer_deinit"});
  EXPECT_EQ(Debug({"log_start"}).strList, Lines{"Debug log_start"});
  EXPECT_EQ(Debug({"log_stop"}).strList, Lines{"Debug log_stop"});
}

// ---- Concurrency ----

// StartIo/StopIo enable pinned buffers without the service mutex while other
// threads drop and rebuild the registries, list and dump them.
TEST_F(BufferOpsTest, RegistryChangesRaceWithIoControlAndListings) {
  StartService();
  std::atomic<bool> stop{false};
  std::thread io([&] {
    for (int i = 0; i < 40 && !stop; ++i) {
      StartIo(i % 3 == 0 ? -1 : 0);
      StopIo(-1);
    }
  });
  std::thread lists([&] {
    while (!stop) {
      ListTapOut();
      ListInject();
      Debug({"log_start"});
      Debug({"buffer_dump", "tapout", "0"});
    }
  });
  for (int i = 0; i < 40; ++i) {
    if (i % 2 == 0) {
      lumx_test::SyntheticEvent gone(IN_DELETE, "zch-lumx_inject3");
      service->HandleInotifyEvent(gone.get());
    } else {
      Debug({"buffer_deinit"});
    }
    Debug({"buffer_init"});
  }
  io.join();
  stop = true;
  lists.join();
  StopIo(-1);
  EXPECT_EQ(service->tapOutBufferCount(), 2u);
  EXPECT_FALSE(Enabled(true, 0));
}

}  // namespace
