// The dump transaction over the socket transport: the caller's descriptor and
// arguments reach the service's dump() on another thread, the caller returns
// once the output is written, and the frames a raw peer may send are held to
// the transport's rules (no descriptor, a stray descriptor, too many dumps).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <lumx_host/binder_host.h>
#include <sys/syscall.h>

#include <string>
#include <vector>

#include "platform/host/binder/connection.h"
#include "raw_peer.h"
#include "test_util.h"

namespace {

pid_t Gettid() { return static_cast<pid_t>(syscall(SYS_gettid)); }

// Writes "<tid>|arg|arg|...\n" (each argument in order) and, while `hold` is
// set, waits before returning its status.
class DumpingService : public lumx_test::TestService {
 public:
  DumpingService() : TestService(&shared_) {}
  binder_status_t dump(int fd, const char** args, uint32_t n) override {
    std::string text = std::to_string(Gettid());
    for (uint32_t i = 0; i < n; ++i) text += std::string("|") + args[i];
    text += "\n";
    if (write(fd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) return STATUS_UNKNOWN_ERROR;
    ++dumps;
    while (hold.load()) usleep(1000);
    return status.load();
  }
  lumx_test::ServerShared shared_;
  std::atomic<int> dumps{0};
  std::atomic<bool> hold{false};
  std::atomic<binder_status_t> status{STATUS_OK};
};

class BinderDumpTest : public ::testing::Test {
 protected:
  void SetUp() override {
    static int n = 0;
    name_ = "lumx.test.ITestService/dump" + std::to_string(++n);
    service_ = ndk::SharedRefBase::make<DumpingService>();
    ASSERT_EQ(EX_NONE, AServiceManager_addService(service_->asBinder().get(), name_.c_str()));
    proxy_.set(lumx_host::ConnectToServiceSocket(name_.c_str()));
    ASSERT_TRUE(AIBinder_isRemote(proxy_.get()));
    ASSERT_EQ(0, pipe2(pipe_, O_CLOEXEC | O_NONBLOCK));
  }
  void TearDown() override {
    service_->hold = false;
    close(pipe_[0]);
    if (pipe_[1] >= 0) close(pipe_[1]);
  }
  // What the pipe holds now, without waiting.
  std::string Drain() {
    std::string out;
    char buf[4096];
    ssize_t n;
    while ((n = read(pipe_[0], buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
    return out;
  }

  lumx_test::BinderDirScope dir_;
  std::string name_;
  std::shared_ptr<DumpingService> service_;
  ndk::SpAIBinder proxy_;
  int pipe_[2] = {-1, -1};
};

TEST_F(BinderDumpTest, ProxyCarriesDescriptorAndArgumentsAndWaitsForTheWriting) {
  struct Case {
    std::vector<const char*> args;
    binder_status_t returned;
    std::string written;  // after the writer's thread id
  };
  const Case cases[] = {
      {{}, STATUS_OK, "\n"},
      {{"--json", "two words", ""}, STATUS_OK, "|--json|two words|\n"},
      {{"--reset"}, STATUS_BAD_VALUE, "|--reset\n"},
  };
  for (const Case& c : cases) {
    service_->status = c.returned;
    EXPECT_EQ(c.returned, AIBinder_dump(proxy_.get(), pipe_[1], const_cast<const char**>(c.args.data()),
                                        static_cast<uint32_t>(c.args.size())));
    // Already there: the call returned after the service wrote.
    const std::string out = Drain();
    const size_t bar = out.find_first_of("|\n");
    ASSERT_NE(bar, std::string::npos) << out;
    EXPECT_EQ(c.written, out.substr(bar));
    EXPECT_NE(std::to_string(Gettid()), out.substr(0, bar)) << "runs on a pool thread";
  }
  EXPECT_EQ(STATUS_BAD_VALUE, AIBinder_dump(proxy_.get(), -1, nullptr, 0));
  EXPECT_EQ(3, service_->dumps.load());
}

TEST_F(BinderDumpTest, RawFramesFollowTheDescriptorRules) {
  lumx_test::RawPeer peer(lumx_host::ServiceSocketPath(name_.c_str()));
  ASSERT_TRUE(peer.connected());
  ASSERT_TRUE(peer.Hello());
  const uint64_t id = peer.ServiceId(name_);
  const std::vector<uint8_t> noArgs = {0, 0, 0, 0};
  lumx_binder::Frame reply;

  // Without a descriptor: refused, dump() not run.
  EXPECT_EQ(STATUS_BAD_VALUE, peer.Call(id, lumx_binder::kDumpTransaction, noArgs));
  // A descriptor on a frame that takes none is closed by the service: with
  // our write end closed too, the pipe reads as ended.
  int spare[2];
  ASSERT_EQ(0, pipe2(spare, O_CLOEXEC));
  ASSERT_TRUE(peer.SendWithFd(peer.Transaction(id, lumx_binder::kPingTransaction, {}), spare[1]));
  ASSERT_TRUE(peer.Recv(&reply));
  EXPECT_EQ(STATUS_OK, static_cast<int32_t>(reply.code));
  close(spare[1]);
  char byte;
  EXPECT_EQ(0, read(spare[0], &byte, 1));
  close(spare[0]);
  EXPECT_EQ(0, service_->dumps.load());

  // Four dumps may hold descriptors on one connection; the fifth is turned
  // away at once while they run, and the four finish once let go.
  service_->hold = true;
  for (int i = 0; i < lumx_binder::kMaxDumpsPerConnection + 1; ++i) {
    ASSERT_TRUE(peer.SendWithFd(peer.Transaction(id, lumx_binder::kDumpTransaction, noArgs), pipe_[1]));
  }
  ASSERT_TRUE(peer.Recv(&reply));
  EXPECT_EQ(STATUS_WOULD_BLOCK, static_cast<int32_t>(reply.code));
  service_->hold = false;
  for (int i = 0; i < lumx_binder::kMaxDumpsPerConnection; ++i) {
    ASSERT_TRUE(peer.Recv(&reply));
    EXPECT_EQ(STATUS_OK, static_cast<int32_t>(reply.code));
  }
  EXPECT_EQ(lumx_binder::kMaxDumpsPerConnection, service_->dumps.load());
}

}  // namespace
