// Clients that would exhaust a service (replies never read, calls faster than
// they run, calls left behind, frames that never finish, too many
// connections) are cut off alone; only our own uid or root may serve us, and
// the binder directory must be ours; the threads the runtime starts never
// inherit real-time scheduling.
#include <android/binder_manager.h>
#include <gtest/gtest.h>
#include <lumx_host/binder_host.h>
#include <lumx_host/log_capture.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "raw_peer.h"
#include "test_util.h"

namespace {

using lumx_test::Child;
using lumx_test::Frame;
using lumx_test::ITestService;
using lumx_test::RawPeer;
using lumx_test::Shared;
using lumx_test::ServerShared;
using lumx_test::StringBytes;
using lumx_test::WaitUntil;

int64_t IncomingBytes() { return lumx_binder::rt()->looper.incoming_bytes.load(); }

std::vector<uint8_t> Ints(std::vector<uint8_t> head, std::initializer_list<int32_t> v, size_t pad_to = 0) {
  for (int32_t x : v) head.insert(head.end(), reinterpret_cast<uint8_t*>(&x), reinterpret_cast<uint8_t*>(&x) + 4);
  if (head.size() < pad_to) head.resize(pad_to, 0);
  return head;
}

using BinderBoundsTest = lumx_test::LocalServiceTest;

TEST_F(BinderBoundsTest, PeersThatDoNotKeepUpAreCutOffAndTheirQueuedCallsNeverRun) {
  const struct {
    const char* what;
    bool oneway;
    const char* logged;
  } cases[] = {
      {"replies never read", false, "it does not read ("},
      {"one-way calls faster than they run", true, "calls arrive faster than they run (4 MiB waiting)"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    shared_.entered.store(0);
    shared_.release.store(false);
    uint64_t id = 0;
    std::unique_ptr<RawPeer> peer = Greeted(&id);
    Frame f;
    if (c.oneway) {
      // The first one-way call holds its object; the rest queue behind it.
      ASSERT_TRUE(peer->Send(peer->Transaction(id, ITestService::TRANSACTION_block, token_, true)));
      ASSERT_TRUE(WaitUntil([&] { return shared_.entered.load() == 1; }));
      f = peer->Transaction(id, ITestService::TRANSACTION_block, Ints(token_, {}, 64 << 10), true);
    } else {
      // Each answer carries its 64 KiB message back.
      std::vector<uint8_t> args = Ints(token_, {7});
      std::vector<uint8_t> msg = StringBytes(std::string(64 << 10, 'm'));
      args.insert(args.end(), msg.begin(), msg.end());
      f = peer->Transaction(id, ITestService::TRANSACTION_failWith, args);
    }
    const std::vector<uint8_t> bytes = lumx_test::Encode(f);
    int sent = 0;
    while (sent < 400 && peer->Send(bytes)) ++sent;  // 25 MiB, unless cut off first
    EXPECT_TRUE(peer->Closed());
    EXPECT_LT(sent, 400);
    EXPECT_TRUE(WaitUntil([&] { return log_.contains(c.logged); }));
    // Nothing queued of the closed connection is left to run.
    EXPECT_TRUE(WaitUntil([] { return IncomingBytes() == 0; }));
    shared_.release.store(true);
    EXPECT_TRUE(WaitUntil([&] { return shared_.active.load() == 0; }));
    EXPECT_EQ(c.oneway ? 1 : 0, shared_.entered.load());
    EXPECT_TRUE(ServiceWorks());
  }
}

TEST_F(BinderBoundsTest, CallsOfAClientThatLeftAreDroppedNotRun) {
  uint64_t id = 0;
  std::unique_ptr<RawPeer> peer = Greeted(&id);
  for (int i = 0; i < 40; ++i) {
    ASSERT_TRUE(peer->Send(peer->Transaction(id, ITestService::TRANSACTION_block, token_)));
  }
  // The pool is full of blocked calls and the rest wait for it.
  ASSERT_TRUE(WaitUntil([&] { return IncomingBytes() > 0 && shared_.entered.load() > 0; }));
  peer.reset();
  ASSERT_TRUE(WaitUntil([] { return IncomingBytes() == 0; }));
  shared_.release.store(true);
  ASSERT_TRUE(WaitUntil([&] { return shared_.active.load() == 0; }));
  EXPECT_TRUE(ServiceWorks());
  // Only those the pool had taken ran: the others went with the client.
  EXPECT_LT(shared_.entered.load(), 40);
}

TEST_F(BinderBoundsTest, GreetingsAndFramesMustArriveWholeWithinFiveSeconds) {
  RawPeer silent(path_);  // never greets
  uint64_t id = 0;
  std::unique_ptr<RawPeer> half = Greeted(&id);
  std::unique_ptr<RawPeer> idle = Greeted(&id);
  std::vector<uint8_t> bytes = lumx_test::Encode(half->Transaction(id, ITestService::TRANSACTION_echo, Ints(token_, {1})));
  bytes.pop_back();
  ASSERT_TRUE(half->Send(bytes));
  EXPECT_TRUE(silent.Closed());
  EXPECT_TRUE(half->Closed());
  EXPECT_TRUE(log_.contains("a frame did not arrive whole within 5 s"));
  // A connection that sends only whole frames may idle as long as it likes.
  EXPECT_EQ(STATUS_OK, idle->Call(id, ITestService::TRANSACTION_echo, Ints(token_, {2})));
}

TEST_F(BinderBoundsTest, ConnectionsPerProcessAreLimitedAndTheNextOneIsToldWhy) {
  std::vector<std::unique_ptr<RawPeer>> peers;
  Frame first;
  int greeted = 0;
  while (peers.size() < 300) {
    peers.push_back(std::make_unique<RawPeer>(path_));
    if (!peers.back()->Hello(&first)) break;
    ++greeted;
  }
  EXPECT_EQ(lumx_binder::kFrameRefuse, first.type);
  EXPECT_EQ(1u, first.code) << "too many from this process";
  EXPECT_EQ(256u, first.target);
  EXPECT_LE(greeted, 256);
  EXPECT_GT(greeted, 200) << "few other connections of this process exist";
  EXPECT_EQ(nullptr, lumx_host::ConnectToServiceSocket(name_.c_str()));
  EXPECT_TRUE(log_.contains(": pid " + std::to_string(getpid()) +
                            " refused the connection: this process has too many connections open to it (limit 256)"));
  peers.clear();
  EXPECT_TRUE(WaitUntil([&] { return ServiceWorks(); }));
}

long ThreadsOf(pid_t pid) {
  FILE* f = fopen(("/proc/" + std::to_string(pid) + "/status").c_str(), "r");
  char line[128];
  long n = -1;
  while (f != nullptr && fgets(line, sizeof(line), f) != nullptr) sscanf(line, "Threads: %ld", &n);
  if (f != nullptr) fclose(f);
  return n;
}

TEST(BinderIdleTest, AThousandIdleConnectionsCostNoThreadsAndOthersAreServed) {
  struct rlimit lim;
  getrlimit(RLIMIT_NOFILE, &lim);
  if (lim.rlim_max != RLIM_INFINITY && lim.rlim_max < 1200) GTEST_SKIP() << "descriptor limit below 1200";
  lumx_test::BinderDirScope dir;
  const std::string name = "lumx.test.ITestService/idle";
  Shared<ServerShared> shared;
  Child server([&] { lumx_test::RunTestServer(name, shared.get(), 1); });
  ASSERT_TRUE(WaitUntil([&] { return shared->ready.load() == 1; }));
  const long threads = ThreadsOf(server.pid());
  // Four processes of 250 (one process may hold 256).
  Shared<std::atomic<int>> greeted, done;
  std::vector<std::unique_ptr<Child>> idlers;
  for (int k = 0; k < 4; ++k) {
    idlers.push_back(std::make_unique<Child>([&] {
      std::vector<std::unique_ptr<RawPeer>> peers;
      for (int i = 0; i < 250; ++i) {
        peers.push_back(std::make_unique<RawPeer>(lumx_host::ServiceSocketPath(name.c_str())));
        if (peers.back()->Hello()) greeted->fetch_add(1);
      }
      done->fetch_add(1);
      pause();
    }));
  }
  ASSERT_TRUE(WaitUntil([&] { return done->load() == 4; }));
  EXPECT_EQ(1000, greeted->load());
  EXPECT_LE(ThreadsOf(server.pid()), threads + 2) << "no thread per connection";
  auto svc = lumx_test::ConnectTestService(name);
  ASSERT_NE(nullptr, svc);
  int32_t ret = 0;
  EXPECT_TRUE(svc->echo(3, &ret).isOk());
}

TEST(BinderDirectoryTest, TheDirectoryAndTheSocketPathMustBeOurs) {
  lumx_test::TempDir root;
  const std::string r = root.path();
  const std::string sock = "/lumx.test.ITestService%2Fplanted";
  ASSERT_EQ(0, mkdir((r + "/private").c_str(), 0700));
  ASSERT_EQ(0, symlink((r + "/private").c_str(), (r + "/link").c_str()));
  ASSERT_EQ(0, mkdir((r + "/open").c_str(), 0700));
  ASSERT_EQ(0, chmod((r + "/open").c_str(), 0755));
  ASSERT_EQ(0, close(creat((r + "/file").c_str(), 0600)));
  ASSERT_EQ(0, mkdir((r + "/theirs").c_str(), 0700));
  const bool root_user = geteuid() == 0;
  if (root_user) {
    ASSERT_EQ(0, chown((r + "/theirs").c_str(), 65534, 65534));
  }
  for (const char* d : {"/planted-link", "/planted-file"}) ASSERT_EQ(0, mkdir((r + d).c_str(), 0700));
  ASSERT_EQ(0, symlink("/dev/null", (r + "/planted-link" + sock).c_str()));
  ASSERT_EQ(0, close(creat((r + "/planted-file" + sock).c_str(), 0600)));
  const std::string me = std::to_string(geteuid());
  const struct {
    std::string dir, logged;
  } cases[] = {
      {r + "/link", "binder directory " + r + "/link is a symbolic link"},
      {r + "/open", "binder directory " + r + "/open has mode 0755: group or others have access (it must be 0700)"},
      {r + "/file", "binder directory " + r + "/file is not a directory"},
      {r + "/theirs", "binder directory " + r + "/theirs belongs to uid 65534, not to uid " + me},
      {r + "/planted-link", r + "/planted-link" + sock + " is a symbolic link"},
      {r + "/planted-file", r + "/planted-file" + sock + " exists and is not a socket"},
  };
  ServerShared shared;  // nothing registers: the service goes with the test
  auto service = ndk::SharedRefBase::make<lumx_test::TestService>(&shared);
  for (const auto& c : cases) {
    if (!root_user && c.dir == r + "/theirs") continue;  // only root can give a directory away
    SCOPED_TRACE(c.dir);
    lumx_host::LogCapture log;
    log.setEcho(false);
    setenv("LUMX_BINDER_DIR", c.dir.c_str(), 1);
    EXPECT_EQ(EX_ILLEGAL_STATE, AServiceManager_addService(service->asBinder().get(), "lumx.test.ITestService/planted"));
    EXPECT_EQ((std::vector<std::string>{"addService(lumx.test.ITestService/planted): " + c.logged}),
              log.messages("binder"));
  }
  // A directory the runtime makes itself is private.
  setenv("LUMX_BINDER_DIR", (r + "/made").c_str(), 1);
  EXPECT_EQ(r + "/made", lumx_host::BinderRuntimeDir());
  auto made = ndk::SharedRefBase::make<lumx_test::TestService>(new ServerShared());  // kept by the registry
  EXPECT_EQ(EX_NONE, AServiceManager_addService(made->asBinder().get(), "lumx.test.ITestService/made"));
  struct stat st;
  ASSERT_EQ(0, stat((r + "/made").c_str(), &st));
  EXPECT_EQ(0700u, st.st_mode & 0777u);
  // The default: under $XDG_RUNTIME_DIR when set, else in /tmp per uid.
  unsetenv("LUMX_BINDER_DIR");
  const char* xdg = getenv("XDG_RUNTIME_DIR");
  const std::string saved = xdg != nullptr ? xdg : "";
  setenv("XDG_RUNTIME_DIR", r.c_str(), 1);
  EXPECT_EQ(r + "/lumx-binder", lumx_host::BinderRuntimeDir());
  unsetenv("XDG_RUNTIME_DIR");
  EXPECT_EQ("/tmp/lumx-binder-" + me, lumx_host::BinderRuntimeDir());
  if (xdg != nullptr) setenv("XDG_RUNTIME_DIR", saved.c_str(), 1);
}

TEST(BinderIdentityTest, OnlyOurUidOrRootMayServeAndCallersAreKnown) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root to run a service as another user (uid 65534)";
  lumx_test::TempDir root;
  ASSERT_EQ(0, chmod(root.path().c_str(), 01777));
  const std::string dir = root.path() + "/nobody";
  const std::string name = "lumx.test.ITestService/nobody";
  setenv("LUMX_BINDER_DIR", dir.c_str(), 1);
  Shared<ServerShared> shared;
  Child nobody([&] {
    if (setgid(65534) != 0 || setuid(65534) != 0) _exit(9);
    lumx_test::RunTestServer(name, shared.get());
  });
  ASSERT_TRUE(WaitUntil([&] { return shared->ready.load() == 1; }));
  lumx_host::LogCapture log;
  log.setEcho(false);
  EXPECT_EQ(nullptr, AServiceManager_checkService(name.c_str()));
  auto service = ndk::SharedRefBase::make<lumx_test::TestService>(shared.get());
  EXPECT_EQ(EX_ILLEGAL_STATE, AServiceManager_addService(service->asBinder().get(), name.c_str()));
  const std::string sock = lumx_host::ServiceSocketPath(name.c_str());
  EXPECT_EQ((std::vector<std::string>{
                name + ": refusing " + sock + ": it is served by uid 65534 (pid " + std::to_string(nobody.pid()) +
                    "), not by uid 0 or root",
                "addService(" + name + "): binder directory " + dir + " belongs to uid 65534, not to uid 0"}),
            log.messages("binder"));

  // A service of ours records who calls it.
  lumx_test::BinderDirScope own;
  Shared<ServerShared> mine;
  Child server([&] { lumx_test::RunTestServer("lumx.test.ITestService/who", mine.get()); });
  ASSERT_TRUE(WaitUntil([&] { return mine->ready.load() == 1; }));
  auto svc = lumx_test::ConnectTestService("lumx.test.ITestService/who");
  ASSERT_NE(nullptr, svc);
  int32_t ret = 0;
  ASSERT_TRUE(svc->echo(5, &ret).isOk());
  EXPECT_EQ(getpid(), mine->caller_pid.load());
  EXPECT_EQ(0, mine->caller_uid.load());
}

TEST(BinderThreadsTest, RuntimeThreadsNeverInheritRealtimeScheduling) {
  lumx_test::BinderDirScope dir;
  Shared<ServerShared> shared;
  Child server([&] { lumx_test::RunTestServer("lumx.test.ITestService/rt", shared.get()); });
  ASSERT_TRUE(WaitUntil([&] { return shared->ready.load() == 1; }));
  // A fresh process whose only thread is real-time: every runtime thread is
  // started because of it (the reader on the first lookup, and whatever a
  // one-way call larger than the socket takes).
  Child client([] {
    struct sched_param p = {};
    p.sched_priority = 2;
    if (sched_setscheduler(0, SCHED_FIFO, &p) != 0) _exit(77);
    auto svc = lumx_test::ConnectTestService("lumx.test.ITestService/rt");
    if (svc == nullptr) _exit(10);
    const std::vector<uint8_t> big(512 << 10, 1);
    ndk::ScopedAStatus st =
        lumx_test::Transact(svc->asBinder(), ITestService::TRANSACTION_echo, FLAG_ONEWAY, lumx_test::Args(7, big));
    int32_t ret = 0;
    if (!st.isOk() || !svc->echo(8, &ret).isOk()) _exit(11);
    // The runtime's threads, by name (a sanitizer may have threads too).
    DIR* d = opendir("/proc/self/task");
    int runtime = 0;
    while (struct dirent* e = readdir(d)) {
      const pid_t tid = static_cast<pid_t>(atoi(e->d_name));
      if (tid <= 0) continue;
      char name[32] = {};
      FILE* f = fopen(("/proc/self/task/" + std::to_string(tid) + "/comm").c_str(), "r");
      if (f == nullptr || fgets(name, sizeof(name), f) == nullptr || strncmp(name, "binder:", 7) != 0) {
        if (f != nullptr) fclose(f);
        continue;
      }
      fclose(f);
      ++runtime;
      if (sched_getscheduler(tid) != SCHED_OTHER) _exit(12);
    }
    closedir(d);
    _exit(runtime > 0 ? 0 : 13);
  });
  const int rc = client.Wait();
  if (rc == 77) GTEST_SKIP() << "SCHED_FIFO not permitted here";
  EXPECT_EQ(0, rc) << "12: a runtime thread runs real-time";
}

}  // namespace
