// Device watch: the service's reaction to driver nodes appearing and going
// (synthetic events and the real event thread), and the wake lock.
#include <android/log.h>
#include <gtest/gtest.h>
#include <lumx_host/log_capture.h>
#include <signal.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <thread>

#include "common/unique_fd.h"
#include "daemon/lumxd.h"
#include "service/lumx_service.h"
#include "support/daemon_service_access.h"
#include "support/daemon_test_util.h"
#include "support/fake_control_driver.h"

using lumx_host::LogCapture;
using lumx_test::FakeControlDriver;
using lumx_test::FourCc;
using lumx_test::ReadFileText;
using lumx_test::RecordingProcessor;
using lumx_test::ScopedEnv;
using lumx_test::SyntheticEvent;
using lumx_test::TempDir;
using lumx_test::WaitUntil;
using lumx_test::WriteFileText;

namespace {

int IndexOf(const LogCapture& log, const std::string& needle) {
  auto messages = log.messages();
  for (size_t i = 0; i < messages.size(); ++i) {
    if (messages[i].find(needle) != std::string::npos) return static_cast<int>(i);
  }
  return -1;
}

bool HasEntry(const LogCapture& log, int prio, const std::string& message) {
  for (const auto& e : log.entries()) {
    if (e.priority == prio && e.tag == "lumx" && e.message == message) return true;
  }
  return false;
}

// The wake-lock files of a private sysfs root.
void MakePowerFiles(const TempDir& sys) {
  ASSERT_EQ(0, mkdir(sys.Join("power").c_str(), 0755));
  sys.Touch("power/wake_lock");
  sys.Touch("power/wake_unlock");
}

// A device directory with one tap-out and one inject node and a sysfs root
// with the wake-lock files. The tap-out node is a FIFO whose other end the
// test holds but never writes: an enabled buffer's I/O thread waits for data
// that never comes. The inject node is a plain file.
class DeviceWatchTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, mkfifo(dev_.Join("zch-lumx_tapout0").c_str(), 0644));
    fifoWriter_.reset(open(dev_.Join("zch-lumx_tapout0").c_str(), O_RDWR | O_CLOEXEC));
    ASSERT_TRUE(fifoWriter_.ok());
    dev_.Touch("zch-lumx_inject0");
    MakePowerFiles(sys_);
    service_ = LumxServiceTestAccess::Make();
    ASSERT_EQ(1u, service_->tapOutBufferCount());
    ASSERT_EQ(1u, service_->injectBufferCount());
  }
  void TearDown() override { service_.reset(); }

  void Handle(uint32_t mask, const std::string& name) {
    SyntheticEvent event(mask, name);
    service_->HandleInotifyEvent(event.get());
  }

  TempDir dev_{"lumx-watch"};
  TempDir sys_{"lumx-sys"};
  ScopedEnv devEnv_{"LUMX_DEV_ROOT", dev_.path().c_str()};
  ScopedEnv sysEnv_{"LUMX_SYSFS_ROOT", sys_.path().c_str()};
  lumx::unique_fd fifoWriter_;
  std::shared_ptr<LumxService> service_;
};

TEST_F(DeviceWatchTest, DeletionOfAnyDriverNodeDropsAllBuffers) {
  auto* proc = new RecordingProcessor(FourCc("pas1"));
  LumxServiceTestAccess::AddProcessor(*service_, proc->id(), proc);
  LogCapture log;
  Handle(IN_DELETE, "zch-lumx_inject0");
  EXPECT_EQ(0u, service_->tapOutBufferCount());
  EXPECT_EQ(0u, service_->injectBufferCount());
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, "zch-lumx_inject0 offline\n"));
  auto events = proc->events();
  ASSERT_EQ(1u, events.size());
  EXPECT_EQ(static_cast<uint32_t>(IN_DELETE), events[0].first);
  EXPECT_EQ("zch-lumx_inject0", events[0].second);
}

TEST_F(DeviceWatchTest, CreationRescansOnlyOnceUntilADeletion) {
  Handle(IN_DELETE, "zch-lumx_tapout0");
  ASSERT_EQ(0u, service_->tapOutBufferCount());

  LogCapture log;
  Handle(IN_CREATE, "zch-lumx_tapout0");
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, "zch-lumx_tapout0 online\n"));
  EXPECT_TRUE(LumxServiceTestAccess::RescanHeld(*service_));
  ASSERT_TRUE(WaitUntil([&] { return log.count("Found 1 tap-out buffer, 1 inject buffer") == 1; }));
  EXPECT_EQ(1u, service_->tapOutBufferCount());
  EXPECT_EQ(1u, service_->injectBufferCount());

  // The finished rescan is still held: another creation starts nothing. The
  // deletion joins whatever is held, so a second rescan would have logged.
  Handle(IN_CREATE, "zch-lumx_inject0");
  Handle(IN_DELETE, "zch-lumx_inject0");
  EXPECT_EQ(1u, log.count("Found "));
  EXPECT_FALSE(LumxServiceTestAccess::RescanHeld(*service_));
  EXPECT_EQ(0u, service_->tapOutBufferCount());

  // After the deletion the next creation rescans again.
  Handle(IN_CREATE, "zch-lumx_inject0");
  ASSERT_TRUE(WaitUntil([&] { return log.count("Found 1 tap-out buffer, 1 inject buffer") == 2; }));
  EXPECT_EQ(1u, service_->tapOutBufferCount());
}

TEST_F(DeviceWatchTest, OtherEventsOnlyReachTheProcessors) {
  auto* a = new RecordingProcessor(FourCc("aaaa"));
  auto* b = new RecordingProcessor(FourCc("zzzz"));
  LumxServiceTestAccess::AddProcessor(*service_, b->id(), b);
  LumxServiceTestAccess::AddProcessor(*service_, a->id(), a);
  LogCapture log;
  Handle(IN_CREATE, "lum");
  Handle(IN_DELETE, "zch-lumx");     // shorter than the prefix
  Handle(IN_DELETE, "zch_lumx_tapout0");
  Handle(IN_ACCESS, "zch-lumx_tapout0");  // neither creation nor deletion
  Handle(0, "");                      // what a failed inotify read hands on
  EXPECT_EQ(1u, service_->tapOutBufferCount());
  EXPECT_EQ(1u, service_->injectBufferCount());
  EXPECT_FALSE(LumxServiceTestAccess::RescanHeld(*service_));
  EXPECT_EQ(0u, log.count("online"));
  EXPECT_EQ(0u, log.count("offline"));
  EXPECT_EQ(5u, a->events().size());
  EXPECT_EQ(5u, b->events().size());
  EXPECT_EQ("zch-lumx", a->events()[1].second);
}

TEST_F(DeviceWatchTest, DeletionDuringARetryingRescanDoesNotDeadlock) {
  // Without a tap-out node every scan fails and the rescan retries 5 times,
  // taking the service mutex for each try.
  ASSERT_TRUE(dev_.Remove("zch-lumx_tapout0"));
  LogCapture log;
  Handle(IN_CREATE, "zch-lumx_inject0");
  Handle(IN_DELETE, "zch-lumx_inject0");
  EXPECT_FALSE(LumxServiceTestAccess::RescanHeld(*service_));
  EXPECT_EQ(0u, service_->tapOutBufferCount());
  EXPECT_EQ(0u, service_->injectBufferCount());
  // Order of effects: the offline line, then the joined rescan's report.
  const int offline = IndexOf(log, "zch-lumx_inject0 offline\n");
  const int found = IndexOf(log, "Found 0 tap-out buffers, 0 inject buffers");
  ASSERT_GE(offline, 0);
  ASSERT_GE(found, 0);
  EXPECT_LT(offline, found);
}

// A read holds whatever was queued since the last one: here a restart's
// deletion and creation with a name of the longest length between them.
// Each event is handled, in order, as a lone one would be.
TEST_F(DeviceWatchTest, EveryEventOfOneReadIsHandledInOrder) {
  auto* proc = new RecordingProcessor(FourCc("pas1"));
  LumxServiceTestAccess::AddProcessor(*service_, proc->id(), proc);
  lumx::unique_fd watch(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  ASSERT_GE(inotify_add_watch(watch.get(), dev_.path().c_str(), IN_CREATE | IN_DELETE), 0);
  const std::string longest = "zch-lumx_" + std::string(246, 'x');
  ASSERT_TRUE(dev_.Remove("zch-lumx_inject0"));
  dev_.Touch(longest);
  dev_.Touch("zch-lumx_inject0");
  LogCapture log;
  Lumxd::Instance().readInotifyEvents(watch.get());
  const std::vector<std::pair<uint32_t, std::string>> expected = {
      {IN_DELETE, "zch-lumx_inject0"}, {IN_CREATE, longest}, {IN_CREATE, "zch-lumx_inject0"}};
  EXPECT_EQ(expected, proc->events());
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, longest + " online\n"));
  EXPECT_EQ(0u, log.count("Failed to read from inotify"));
  // The creation after the deletion rescans.
  ASSERT_TRUE(WaitUntil([&] { return log.count("Found 1 tap-out buffer, 1 inject buffer") == 1; }));
  EXPECT_EQ(1u, service_->injectBufferCount());
}

TEST_F(DeviceWatchTest, DestructionJoinsARetryingRescan) {
  ASSERT_TRUE(dev_.Remove("zch-lumx_tapout0"));
  Handle(IN_CREATE, "zch-lumx_inject0");
  LogCapture log;
  service_.reset();
  EXPECT_EQ(nullptr, gService);
  EXPECT_EQ(1u, log.count("Found 0 tap-out buffers"));
}

// A node created while the destructor joins the rescan starts no other one
// (it would be left running, unjoined, on a destroyed service).
TEST_F(DeviceWatchTest, DestructionStartsNoRescanWhileItJoins) {
  ASSERT_TRUE(dev_.Remove("zch-lumx_tapout0"));  // every scan fails: 2.5 s of retries
  Handle(IN_CREATE, "zch-lumx_inject0");
  LumxService* raw = service_.get();
  std::thread destroy([&] { service_.reset(); });
  // The destructor has taken the rescan out and joins it without the mutex.
  ASSERT_TRUE(WaitUntil([&] { return !LumxServiceTestAccess::RescanHeld(*raw); }));
  SyntheticEvent created(IN_CREATE, "zch-lumx_inject1");
  raw->HandleInotifyEvent(created.get());
  EXPECT_FALSE(LumxServiceTestAccess::RescanHeld(*raw));
  destroy.join();
}

// The need computed from enabled tap-out buffers and their processors.
class WakeLockPolicyTest : public DeviceWatchTest {
 protected:
  void SetUp() override {
    Lumxd::Instance().UpdateWakeLock(false);
    DeviceWatchTest::SetUp();
    tapOut_ = service_->findTapOutBuffer(0);
    inject_ = service_->findInjectBuffer(0);
    ASSERT_NE(nullptr, tapOut_);
    ASSERT_NE(nullptr, inject_);
  }
  void TearDown() override {
    service_.reset();
    Lumxd::Instance().UpdateWakeLock(false);
  }

  std::string Line() {
    CommandResult result;
    LumxServiceTestAccess::UpdateWakeLock(*service_, &result);
    return result.strList.empty() ? std::string() : result.strList.back();
  }
  RecordingProcessor* AddOutput(const char (&id)[5]) {
    auto* p = new RecordingProcessor(FourCc(id));
    LumxServiceTestAccess::AddProcessor(*service_, p->id(), p);
    EXPECT_EQ(0, tapOut_->RegisterOutput(p));
    return p;
  }

  LumxBuffer* tapOut_ = nullptr;
  LumxBuffer* inject_ = nullptr;
};

// An enabled tap-out buffer needs the lock; an enabled inject buffer alone
// does not.
TEST_F(WakeLockPolicyTest, OnlyTapOutBuffersNeedTheLock) {
  ASSERT_EQ(0, tapOut_->Enable(true));
  ASSERT_EQ(0, inject_->Enable(true));
  EXPECT_EQ("1 buffers enabled, 0 processors active, wakelock needed: 1", Line());
  EXPECT_TRUE(Lumxd::Instance().wakeLockHeld());
  EXPECT_EQ("lumx", ReadFileText(sys_.Join("power/wake_lock")));
  ASSERT_EQ(0, tapOut_->Enable(false));
  EXPECT_EQ("0 buffers enabled, 0 processors active, wakelock needed: 0", Line());
  EXPECT_FALSE(Lumxd::Instance().wakeLockHeld());
  EXPECT_EQ("lumx", ReadFileText(sys_.Join("power/wake_unlock")));
  ASSERT_EQ(0, inject_->Enable(false));
}

TEST_F(WakeLockPolicyTest, CountsEnabledProcessorsOfEnabledTapOutBuffers) {
  RecordingProcessor* a = AddOutput("pas1");
  RecordingProcessor* b = AddOutput("pas2");
  a->Enable(true);
  // Processors of a disabled buffer do not count.
  EXPECT_EQ("0 buffers enabled, 0 processors active, wakelock needed: 0", Line());
  ASSERT_EQ(0, tapOut_->Enable(true));
  EXPECT_EQ("1 buffers enabled, 1 processor active, wakelock needed: 1", Line());
  b->Enable(true);
  EXPECT_EQ("1 buffers enabled, 2 processors active, wakelock needed: 1", Line());

  // "hwae" enabled lifts a count below 2 to 1 and leaves 2 as it is.
  auto* hwae = new RecordingProcessor(FourCc("hwae"));
  LumxServiceTestAccess::AddProcessor(*service_, hwae->id(), hwae);
  hwae->Enable(true);
  EXPECT_EQ("1 buffers enabled, 2 processors active, wakelock needed: 1", Line());
  a->Enable(false);
  b->Enable(false);
  EXPECT_EQ("1 buffers enabled, 1 processor active, wakelock needed: 1", Line());
  ASSERT_EQ(0, tapOut_->Enable(false));
  EXPECT_EQ("0 buffers enabled, 1 processor active, wakelock needed: 0", Line());
  EXPECT_FALSE(Lumxd::Instance().wakeLockHeld());
}

class WakeLockTest : public ::testing::Test {
 protected:
  void SetUp() override {
    MakePowerFiles(sys_);
    // Start from a released lock whatever earlier tests left.
    Lumxd::Instance().UpdateWakeLock(false);
    ASSERT_FALSE(Lumxd::Instance().wakeLockHeld());
    WriteFileText(sys_.Join("power/wake_unlock"), "");
  }
  void TearDown() override { Lumxd::Instance().UpdateWakeLock(false); }

  TempDir sys_{"lumx-sys"};
  ScopedEnv sysEnv_{"LUMX_SYSFS_ROOT", sys_.path().c_str()};
};

TEST_F(WakeLockTest, AcquiresAndReleasesOnlyOnChange) {
  Lumxd::Instance().UpdateWakeLock(true);
  EXPECT_TRUE(Lumxd::Instance().wakeLockHeld());
  EXPECT_EQ("lumx", ReadFileText(sys_.Join("power/wake_lock")));

  ASSERT_TRUE(WriteFileText(sys_.Join("power/wake_lock"), ""));
  Lumxd::Instance().UpdateWakeLock(true);
  EXPECT_EQ("", ReadFileText(sys_.Join("power/wake_lock")));

  Lumxd::Instance().UpdateWakeLock(false);
  EXPECT_FALSE(Lumxd::Instance().wakeLockHeld());
  EXPECT_EQ("lumx", ReadFileText(sys_.Join("power/wake_unlock")));

  ASSERT_TRUE(WriteFileText(sys_.Join("power/wake_unlock"), ""));
  Lumxd::Instance().UpdateWakeLock(false);
  EXPECT_EQ("", ReadFileText(sys_.Join("power/wake_unlock")));
}

TEST_F(WakeLockTest, FailuresAreLoggedAndRetriedNextTime) {
  ASSERT_TRUE(sys_.Remove("power/wake_lock"));
  LogCapture log;
  Lumxd::Instance().UpdateWakeLock(true);
  EXPECT_FALSE(Lumxd::Instance().wakeLockHeld());
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_ERROR, "Acquire wakelocked failed, st = -2"));

  sys_.Touch("power/wake_lock");
  Lumxd::Instance().UpdateWakeLock(true);
  EXPECT_TRUE(Lumxd::Instance().wakeLockHeld());

  ASSERT_TRUE(sys_.Remove("power/wake_unlock"));
  Lumxd::Instance().UpdateWakeLock(false);
  EXPECT_TRUE(Lumxd::Instance().wakeLockHeld());
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_ERROR, "Release wakelocked failed, st = -2"));

  sys_.Touch("power/wake_unlock");
  Lumxd::Instance().UpdateWakeLock(false);
  EXPECT_FALSE(Lumxd::Instance().wakeLockHeld());
}

// The real event thread: libevent loop, inotify watch of the device root,
// the control device's online/offline handling, and the signal exit. Runs
// the event thread once per process (its base is never freed, by design).
TEST_F(DeviceWatchTest, EventThreadFollowsNodesAndStopsOnSignal) {
  Lumxd& lumxd = Lumxd::Instance();
  lumxd.closeLumxControl();
  dev_.Touch("lum");  // before the watch starts: one node event at a time
  LogCapture log;
  std::thread events([&] { lumxd.EventThread(0); });
  ASSERT_TRUE(WaitUntil([&] { return lumxd.eventsInstalled(); }));

  const std::string node = dev_.Join("zch-lumx_control");
  {
    FakeControlDriver driver(dev_.path());
    ASSERT_TRUE(driver.ok());
    ASSERT_TRUE(WaitUntil([&] { return lumxd.controlFd() >= 0; }));
    EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, node + " online\n"));
    EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, "Opened " + node + "\n"));
    // The service logs its own line after the control device is open: wait
    // for the rescan it starts, which comes later still.
    ASSERT_TRUE(WaitUntil([&] { return log.count("Found 1 tap-out buffer, 1 inject buffer") == 1; }));
    EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, "zch-lumx_control online\n"));

    uint8_t msg[kTapEnableCmdSize] = {};
    EXPECT_EQ(0, lumxd.SendLumxCommand(CMD_LUMX_TAP_ENABLE_ID, reinterpret_cast<CMD_HDR*>(msg), sizeof(msg)));

    driver.RemoveNode();
    ASSERT_TRUE(WaitUntil([&] { return lumxd.controlFd() == -1; }));
    EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, node + " offline\n"));
    ASSERT_TRUE(WaitUntil([&] { return service_->tapOutBufferCount() == 0; }));
    EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, "zch-lumx_control offline\n"));
  }

  // A data node appearing later triggers a rescan through the same path.
  dev_.Touch("zch-lumx_inject5");
  ASSERT_TRUE(WaitUntil([&] { return log.count("Found 1 tap-out buffer, 2 inject buffers") == 1; }));

  kill(getpid(), SIGHUP);
  const bool stopped = WaitUntil([&] { return log.count("Stop EventThread") == 1; });
  if (!stopped) {
    events.detach();
    FAIL() << "event loop did not stop on SIGHUP";
  }
  events.join();
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, "Caught signal. Exiting\n"));
  EXPECT_TRUE(HasEntry(log, ANDROID_LOG_INFO, "Stop EventThread\n"));
  EXPECT_LT(IndexOf(log, "Caught signal. Exiting"), IndexOf(log, "Stop EventThread"));
  EXPECT_EQ(0u, log.count("Stop Main"));
}

}  // namespace
