// The socket transport between processes: calls and statuses, object
// identity, call-backs (nested and from plain threads), one-way delivery and
// flow control, the thread-pool bound, and what peer death does on each side.
// Servers run in forked children; the test process is the client.
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>
#include <lumx_host/binder_host.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include "test_util.h"

// The servers of these tests are fork()ed from a process that already has
// runtime threads; ThreadSanitizer must let such children start threads.
#if defined(__has_feature)
#if __has_feature(thread_sanitizer)
extern "C" const char* __tsan_default_options() { return "die_after_fork=0"; }
#endif
#endif

namespace {

using lumx_test::BinderDirScope;
using lumx_test::Child;
using lumx_test::ConnectTestService;
using lumx_test::Gettid;
using lumx_test::ITestCallback;
using lumx_test::ITestService;
using lumx_test::RecordingCallback;
using lumx_test::RunTestServer;
using lumx_test::ServerShared;
using lumx_test::Shared;
using lumx_test::WaitUntil;

// Every child is forked before this process starts runtime threads (children
// that act later wait for `go`): ThreadSanitizer does not support fork() in a
// process that already runs threads.
class BinderIpcTest : public ::testing::Test {
 protected:
  void ForkServer(const std::string& name, uint32_t max_threads = 15) {
    server_ = std::make_unique<Child>([&] { RunTestServer(name, shared_.get(), max_threads); });
  }
  // Waits for the forked server and connects to it.
  std::shared_ptr<ITestService> Connect(const std::string& name) {
    if (!WaitUntil([&] { return shared_->ready.load() == 1; })) {
      ADD_FAILURE() << "server did not start";
      return nullptr;
    }
    return ConnectTestService(name);
  }
  std::shared_ptr<ITestService> StartServer(const std::string& name, uint32_t max_threads = 15) {
    ForkServer(name, max_threads);
    return Connect(name);
  }
  // A child that runs `body` once the test sets go.
  std::unique_ptr<Child> ForkLater(const std::function<void()>& body) {
    return std::make_unique<Child>([this, body] {
      if (!WaitUntil([this] { return go_->load() == 1; }, 60)) _exit(20);
      body();
    });
  }

  BinderDirScope dir_;
  Shared<ServerShared> shared_;
  Shared<std::atomic<int>> go_;
  std::unique_ptr<Child> server_;
};

TEST_F(BinderIpcTest, CallsReturnValuesAndErrorStatuses) {
  auto svc = StartServer("lumx.test.ITestService/basic");
  ASSERT_NE(nullptr, svc);
  EXPECT_TRUE(svc->isRemote());
  EXPECT_EQ(STATUS_OK, AIBinder_ping(svc->asBinder().get()));

  int32_t ret = 0;
  ndk::ScopedAStatus st = svc->echo(-12345, &ret);
  ASSERT_TRUE(st.isOk()) << st.getDescription();
  EXPECT_EQ(-12345, ret);

  st = svc->failWith(17, "no such tap");
  EXPECT_EQ(EX_SERVICE_SPECIFIC, st.getExceptionCode());
  EXPECT_EQ(17, st.getServiceSpecificError());
  EXPECT_STREQ("no such tap", st.getMessage());

  // Codes outside the user range never leave the process; codes the
  // server does not know come back as UNKNOWN_TRANSACTION.
  AIBinder* raw = svc->asBinder().get();
  AParcel* in = nullptr;
  AParcel* reply = nullptr;
  ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(raw, &in));
  EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, AIBinder_transact(raw, 0x01000000, &in, &reply, 0));
  ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(raw, &in));
  EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, AIBinder_transact(raw, 999, &in, &reply, 0));
  // A call whose arguments are missing fails with the stub's read error.
  ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(raw, &in));
  EXPECT_EQ(STATUS_NOT_ENOUGH_DATA,
            AIBinder_transact(raw, ITestService::TRANSACTION_echo, &in, &reply, 0));
  EXPECT_EQ(nullptr, reply);
  // The connection still works.
  EXPECT_TRUE(svc->echo(5, &ret).isOk());
}

TEST_F(BinderIpcTest, ObjectsKeepTheirIdentityAcrossProcesses) {
  auto svc = StartServer("lumx.test.ITestService/identity");
  ASSERT_NE(nullptr, svc);
  auto cb = ndk::SharedRefBase::make<RecordingCallback>();

  // Our object sent out and back is our original local object.
  ndk::SpAIBinder back;
  ASSERT_TRUE(svc->echoBinder(cb->asBinder(), &back).isOk());
  EXPECT_EQ(cb->asBinder().get(), back.get());
  EXPECT_FALSE(AIBinder_isRemote(back.get()));
  EXPECT_EQ(cb.get(), ITestCallback::fromBinder(back).get());

  // The server sees one proxy for our object, whatever call brought it.
  bool same = true;
  ASSERT_TRUE(svc->storeCallback(cb, &same).isOk());
  EXPECT_FALSE(same);
  ASSERT_TRUE(svc->storeCallback(cb, &same).isOk());
  EXPECT_TRUE(same);
  auto other = ndk::SharedRefBase::make<RecordingCallback>();
  ASSERT_TRUE(svc->storeCallback(other, &same).isOk());
  EXPECT_FALSE(same);

  // A server object we hold and send back is the same proxy here.
  ndk::SpAIBinder session;
  ASSERT_TRUE(svc->newSession(&session).isOk());
  ASSERT_NE(nullptr, session.get());
  EXPECT_TRUE(AIBinder_isRemote(session.get()));
  ndk::SpAIBinder session_back;
  ASSERT_TRUE(svc->echoBinder(session, &session_back).isOk());
  EXPECT_EQ(session.get(), session_back.get());

  // The service looked up again is the same proxy too.
  ndk::SpAIBinder again(AServiceManager_checkService("lumx.test.ITestService/identity"));
  EXPECT_EQ(svc->asBinder().get(), again.get());

  // Releasing the last reference to the session lets the server free it.
  session.set(nullptr);
  session_back.set(nullptr);
  EXPECT_TRUE(WaitUntil([&] { return shared_->sessions_destroyed.load() == 1; }));
}

TEST_F(BinderIpcTest, CallBacksNestedAndFromPlainServerThreads) {
  auto svc = StartServer("lumx.test.ITestService/nested");
  ASSERT_NE(nullptr, svc);
  auto cb = ndk::SharedRefBase::make<RecordingCallback>();
  for (bool fromThread : {false, true}) {
    SCOPED_TRACE(fromThread ? "from a plain server thread" : "on the serving thread");
    int32_t ret = 0;
    ndk::ScopedAStatus st = svc->callBack(cb, 41, fromThread, &ret);
    ASSERT_TRUE(st.isOk()) << st.getDescription();
    EXPECT_EQ(42, ret);
    if (fromThread) {
      EXPECT_NE(Gettid(), cb->last_tid.load()) << "served by the pool while this thread waited";
    } else {
      EXPECT_EQ(Gettid(), cb->last_tid.load()) << "the call-back ran on the calling thread";
    }
    // Two levels: the call-back calls the server again while the server
    // waits for the call-back.
    cb->reenter = svc;
    st = svc->callBack(cb, 7, fromThread, &ret);
    cb->reenter.reset();
    ASSERT_TRUE(st.isOk()) << st.getDescription();
    EXPECT_EQ(70, ret);
  }
}

TEST_F(BinderIpcTest, OnewayCallsArriveInOrderOneAtATimeAndNeverBlockTheCaller) {
  auto svc = StartServer("lumx.test.ITestService/oneway");
  ASSERT_NE(nullptr, svc);
  auto cb = ndk::SharedRefBase::make<RecordingCallback>();
  bool same = false;
  ASSERT_TRUE(svc->storeCallback(cb, &same).isOk());

  // A normal burst: everything is delivered, in order, never overlapping.
  int32_t sent = 0, err = 0;
  ASSERT_TRUE(svc->fireOneway(300, 256, &sent, &err).isOk());
  EXPECT_EQ(300, sent);
  EXPECT_EQ(0, err);
  ASSERT_TRUE(WaitUntil([&] { return cb->Received() == 300; }));

  // A stuck receiver: the sender's one-way calls start failing with
  // WOULD_BLOCK instead of blocking or piling up without bound.
  cb->Hold(true);
  ASSERT_TRUE(svc->fireOneway(1000000, 1024, &sent, &err).isOk());
  EXPECT_EQ(STATUS_WOULD_BLOCK, err);
  EXPECT_GT(sent, 10);
  EXPECT_LT(sent, 1000000);
  cb->Hold(false);
  const size_t expected = 300 + static_cast<size_t>(sent);
  ASSERT_TRUE(WaitUntil([&] { return cb->Received() == expected; }));

  {
    std::lock_guard<std::mutex> l(cb->mu);
    for (size_t i = 0; i < cb->seqs.size(); ++i) {
      const int32_t want = i < 300 ? static_cast<int32_t>(i) : static_cast<int32_t>(i - 300);
      ASSERT_EQ(want, cb->seqs[i]) << "at " << i;
    }
  }
  EXPECT_FALSE(cb->overlapped.load()) << "one-way calls to one object ran concurrently";

  // Once the receiver caught up, one-way calls go through again.
  EXPECT_TRUE(WaitUntil([&] {
    return svc->fireOneway(1, 16, &sent, &err).isOk() && sent == 1;
  }));
}

TEST_F(BinderIpcTest, ThreadPoolBoundsConcurrentIncomingCalls) {
  // Max 1 extra thread, plus the started thread, plus the joined thread.
  auto svc = StartServer("lumx.test.ITestService/pool", 1);
  ASSERT_NE(nullptr, svc);
  std::vector<std::thread> callers;
  std::atomic<int> ok{0};
  for (int i = 0; i < 6; ++i) {
    callers.emplace_back([&] {
      if (svc->block().isOk()) ok.fetch_add(1);
    });
  }
  ASSERT_TRUE(WaitUntil([&] { return shared_->entered.load() == 3; }));
  // Give the other three every chance to (wrongly) start.
  std::this_thread::sleep_for(std::chrono::milliseconds(300));
  EXPECT_EQ(3, shared_->max_active.load());
  EXPECT_EQ(3, shared_->entered.load());
  shared_->release.store(true);
  for (auto& t : callers) t.join();
  EXPECT_EQ(6, ok.load());
  EXPECT_EQ(6, shared_->entered.load());
  EXPECT_EQ(3, shared_->max_active.load());
}

std::atomic<int> g_died{0}, g_unlinked{0};

TEST_F(BinderIpcTest, ServerDeathGivesDeadObjectAndFiresTheRecipientOnce) {
  auto svc = StartServer("lumx.test.ITestService/death");
  ASSERT_NE(nullptr, svc);
  g_died = g_unlinked = 0;
  ndk::ScopedAIBinder_DeathRecipient recipient(
      AIBinder_DeathRecipient_new([](void* cookie) { g_died += *static_cast<int*>(cookie); }));
  AIBinder_DeathRecipient_setOnUnlinked(recipient.get(), [](void*) { g_unlinked++; });
  static int one = 1;
  AIBinder* raw = svc->asBinder().get();
  ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(raw, recipient.get(), &one));
  EXPECT_TRUE(AIBinder_isAlive(raw));

  server_->Kill();
  ASSERT_TRUE(WaitUntil([] { return g_unlinked.load() == 1; }));
  EXPECT_EQ(1, g_died.load());
  int32_t ret = 0;
  ndk::ScopedAStatus st = svc->echo(1, &ret);
  EXPECT_EQ(EX_TRANSACTION_FAILED, st.getExceptionCode());
  EXPECT_EQ(STATUS_DEAD_OBJECT, st.getStatus());
  EXPECT_FALSE(AIBinder_isAlive(raw));
  EXPECT_EQ(STATUS_DEAD_OBJECT, AIBinder_ping(raw));
  EXPECT_EQ(STATUS_NAME_NOT_FOUND, AIBinder_unlinkToDeath(raw, recipient.get(), &one))
      << "the link went away when it fired";
  EXPECT_EQ(STATUS_DEAD_OBJECT, AIBinder_linkToDeath(raw, recipient.get(), &one));
  EXPECT_EQ(1, g_died.load());
  EXPECT_EQ(2, g_unlinked.load()) << "the refused link is reported unlinked as well";
}

TEST_F(BinderIpcTest, UnlinkAndRecipientDeletionReportUnlinkedOnce) {
  auto svc = StartServer("lumx.test.ITestService/unlink");
  ASSERT_NE(nullptr, svc);
  g_died = g_unlinked = 0;
  AIBinder_DeathRecipient* r = AIBinder_DeathRecipient_new([](void*) { g_died++; });
  AIBinder_DeathRecipient_setOnUnlinked(r, [](void*) { g_unlinked++; });
  AIBinder* raw = svc->asBinder().get();
  int a = 0, b = 0;
  ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(raw, r, &a));
  ASSERT_EQ(STATUS_OK, AIBinder_linkToDeath(raw, r, &b));
  EXPECT_EQ(STATUS_OK, AIBinder_unlinkToDeath(raw, r, &a));
  EXPECT_EQ(STATUS_NAME_NOT_FOUND, AIBinder_unlinkToDeath(raw, r, &a));
  EXPECT_EQ(1, g_unlinked.load());
  AIBinder_DeathRecipient_delete(r);
  EXPECT_EQ(2, g_unlinked.load());
  server_->Kill();
  int32_t ret;
  EXPECT_FALSE(svc->echo(1, &ret).isOk());
  EXPECT_EQ(0, g_died.load()) << "no link was left to fire";
}

TEST_F(BinderIpcTest, KilledClientReleasesItsObjectsAndTheServerServesOthers) {
  const std::string name = "lumx.test.ITestService/client-death";
  ForkServer(name);
  std::unique_ptr<Child> client = ForkLater([&] {
    auto svc = ConnectTestService(name);
    if (svc == nullptr) _exit(10);
    ndk::SpAIBinder session;
    if (!svc->newSession(&session).isOk()) _exit(11);
    auto cb = ndk::SharedRefBase::make<RecordingCallback>();
    bool same;
    if (!svc->storeCallback(cb, &same).isOk()) _exit(12);
    (void)svc->block();  // killed in here
    _exit(13);
  });
  auto svc = Connect(name);
  ASSERT_NE(nullptr, svc);
  int32_t ret = 0;
  ASSERT_TRUE(svc->echo(1, &ret).isOk());
  const int baseline_fds = lumx_test::CountOpenFds(server_->pid());
  go_->store(1);

  ASSERT_TRUE(WaitUntil([&] { return shared_->entered.load() == 1; }));
  client->Kill();

  // The server noticed: the death recipient on the stored call-back fired,
  // and the session object the client held was released.
  ASSERT_TRUE(WaitUntil([&] { return shared_->deaths.load() == 1; }));
  ASSERT_TRUE(WaitUntil([&] { return shared_->sessions_destroyed.load() == 1; }));

  // Other clients are served, also while the dead client's call still runs.
  ASSERT_TRUE(svc->echo(8, &ret).isOk());
  EXPECT_EQ(8, ret);
  int32_t status = 0;
  ASSERT_TRUE(svc->callStored(1, &status).isOk());
  EXPECT_EQ(STATUS_NAME_NOT_FOUND, status) << "the dead client's call-back was dropped";

  // The blocked call finishes; its answer goes nowhere; no descriptor stays.
  shared_->release.store(true);
  EXPECT_TRUE(
      WaitUntil([&] { return lumx_test::CountOpenFds(server_->pid()) == baseline_fds; }))
      << "server has " << lumx_test::CountOpenFds(server_->pid()) << " fds, " << baseline_fds
      << " before the client came";
  ASSERT_TRUE(svc->echo(9, &ret).isOk());
}

TEST_F(BinderIpcTest, WaitForServiceWaitsForALateRegistration) {
  const std::string name = "lumx.test.ITestService/late";
  EXPECT_EQ(nullptr, AServiceManager_checkService(name.c_str()));
  server_ = std::make_unique<Child>([&] {
    usleep(300 * 1000);
    RunTestServer(name, shared_.get());
  });
  ndk::SpAIBinder b(AServiceManager_waitForService(name.c_str()));
  ASSERT_NE(nullptr, b.get());
  auto svc = ITestService::fromBinder(b);
  ASSERT_NE(nullptr, svc);
  int32_t ret = 0;
  EXPECT_TRUE(svc->echo(3, &ret).isOk());
  EXPECT_TRUE(AServiceManager_isDeclared(name.c_str()));
  EXPECT_FALSE(AServiceManager_isDeclared("lumx.test.nothing"));
}

TEST_F(BinderIpcTest, SocketFilesPermissionsAndStaleSockets) {
  const std::string name = "lumx.test.ITestService/stale";
  const std::string path = lumx_host::ServiceSocketPath(name.c_str());
  EXPECT_EQ(dir_.path() + "/lumx.test.ITestService%2Fstale", path);

  // A socket file left behind by a dead server.
  {
    int fd = socket(AF_UNIX, SOCK_STREAM, 0);
    struct sockaddr_un addr = {};
    addr.sun_family = AF_UNIX;
    strncpy(addr.sun_path, path.c_str(), sizeof(addr.sun_path) - 1);
    ASSERT_EQ(0, bind(fd, reinterpret_cast<struct sockaddr*>(&addr), sizeof(addr)));
    close(fd);
  }
  // (Only a refused connect: no runtime thread starts here.)
  EXPECT_EQ(nullptr, AServiceManager_checkService(name.c_str()));
  ForkServer(name);
  Shared<ServerShared> other;
  std::unique_ptr<Child> second = ForkLater([&] { RunTestServer(name, other.get()); });
  auto svc = Connect(name);
  ASSERT_NE(nullptr, svc) << "a stale socket must not block registration";
  int32_t ret = 0;
  EXPECT_TRUE(svc->echo(1, &ret).isOk());

  struct stat st;
  ASSERT_EQ(0, stat(path.c_str(), &st));
  EXPECT_EQ(0600u, st.st_mode & 0777u);
  EXPECT_TRUE(S_ISSOCK(st.st_mode));

  // A live server's socket is not taken over.
  go_->store(1);
  EXPECT_EQ(3, second->Wait()) << "registration refused while the first server lives";
  EXPECT_TRUE(svc->echo(2, &ret).isOk());
}

TEST(ThreadPoolConfigTest, ImplicitStartDoesNotFixTheMaximum) {
  BinderDirScope dir;
  // A fresh process: calls arriving before the pool is configured (here our
  // own service reached through its socket) must not lock the maximum.
  Child child([] {
    auto service = ndk::SharedRefBase::make<lumx_test::TestService>(new ServerShared());
    if (AServiceManager_addService(service->asBinder().get(), "lumx.test.ITestService/cfg") !=
        EX_NONE) {
      _exit(10);
    }
    ndk::SpAIBinder b(lumx_host::ConnectToServiceSocket("lumx.test.ITestService/cfg"));
    auto svc = ITestService::fromBinder(b);
    int32_t ret = 0;
    if (svc == nullptr || !svc->echo(4, &ret).isOk() || ret != 4) _exit(11);
    if (ABinderProcess_isThreadPoolStarted()) _exit(12);
    if (!ABinderProcess_setThreadPoolMaxThreadCount(1)) _exit(13);
    ABinderProcess_startThreadPool();
    if (!ABinderProcess_isThreadPoolStarted()) _exit(14);
    if (ABinderProcess_setThreadPoolMaxThreadCount(3)) _exit(15);
    if (!svc->echo(5, &ret).isOk() || ret != 5) _exit(16);
    _exit(0);
  });
  EXPECT_EQ(0, child.Wait());
}

}  // namespace
