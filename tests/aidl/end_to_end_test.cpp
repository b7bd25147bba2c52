// ILumx across a real process boundary: a child process serves a BnLumx
// through the host binder runtime and this process calls every operation
// through BpLumx. The child is this test binary started again with
// LUMX_AIDL_TEST_SERVE set; it serves until it is killed.
#include <android/binder_ibinder.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <lumx_host/binder_host.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "aidl/aidl_test_support.h"

extern char** environ;

namespace lumx_aidl_test {
namespace {

constexpr char kServeEnv[] = "LUMX_AIDL_TEST_SERVE";
constexpr char kParentEnv[] = "LUMX_AIDL_TEST_PARENT";

[[noreturn]] void ServeAndExit(const char* instance) {
  // Never outlive the test that started us.
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  const char* parent = getenv(kParentEnv);
  if (parent == nullptr || atoi(parent) != getppid()) _exit(3);
  auto impl = ::ndk::SharedRefBase::make<RecordingLumx>();
  if (AServiceManager_addService(impl->asBinder().get(), instance) != EX_NONE) {
    fprintf(stderr, "aidl test server: cannot register %s\n", instance);
    _exit(2);
  }
  ABinderProcess_startThreadPool();
  ABinderProcess_joinThreadPool();
  _exit(0);
}

// Gives every run of this binary its own binder runtime directory, so the
// services it registers never meet another test's; in the child started by
// ChildServer, serves instead of running tests.
class AidlTestEnvironment : public ::testing::Environment {
 public:
  void SetUp() override {
    if (const char* instance = getenv(kServeEnv)) ServeAndExit(instance);
    char tmpl[] = "/tmp/lumx-aidl-test-XXXXXX";
    if (mkdtemp(tmpl) == nullptr) return perror("mkdtemp");
    dir_ = tmpl;
    setenv("LUMX_BINDER_DIR", dir_.c_str(), 1);
  }
  void TearDown() override {
    std::error_code ec;
    if (!dir_.empty()) std::filesystem::remove_all(dir_, ec);
  }

 private:
  std::string dir_;
};

::testing::Environment* const kAidlEnvironment = ::testing::AddGlobalTestEnvironment(new AidlTestEnvironment);

// The serving child; killed and reaped on destruction.
class ChildServer {
 public:
  explicit ChildServer(const std::string& instance) {
    std::vector<std::string> env;
    for (char** e = environ; *e != nullptr; ++e) env.emplace_back(*e);
    env.push_back(std::string(kServeEnv) + "=" + instance);
    env.push_back(std::string(kParentEnv) + "=" + std::to_string(getpid()));
    std::vector<char*> envp;
    for (std::string& s : env) envp.push_back(s.data());
    envp.push_back(nullptr);
    std::string exe = "/proc/self/exe";
    std::string filter = "--gtest_filter=AidlEndToEnd.*";
    char* argv[] = {exe.data(), filter.data(), nullptr};

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // gtest's banner would only clutter the parent's output; errors still show.
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    if (posix_spawn(&pid_, exe.c_str(), &actions, nullptr, argv, envp.data()) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
  }
  ~ChildServer() {
    if (pid_ <= 0) return;
    kill(pid_, SIGKILL);
    int status;
    waitpid(pid_, &status, 0);
  }
  bool Running() const {
    if (pid_ <= 0) return false;
    int status;
    return waitpid(pid_, &status, WNOHANG) == 0;
  }

 private:
  pid_t pid_ = -1;
};

// Waits (generously) for `instance` to answer.
::ndk::SpAIBinder WaitForService(const std::string& instance, const ChildServer& child) {
  auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (std::chrono::steady_clock::now() < deadline) {
    ::ndk::SpAIBinder b(AServiceManager_checkService(instance.c_str()));
    if (b.get() != nullptr) return b;
    if (!child.Running()) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return ::ndk::SpAIBinder();
}

template <typename I>
void ExpectVersionAndHash(I& remote) {
  int32_t version = 0;
  std::string hash;
  ASSERT_TRUE(remote.getInterfaceVersion(&version).isOk());
  ASSERT_TRUE(remote.getInterfaceHash(&hash).isOk());
  EXPECT_EQ(2, version);
  EXPECT_EQ(ILumx::hash, hash);
}

TEST(AidlEndToEnd, EveryOperationArrivesIntactThroughTheProxy) {
  const std::string instance = std::string(ILumx::descriptor) + "/aidl-e2e";
  ChildServer child(instance);
  ASSERT_TRUE(child.Running());
  ABinderProcess_startThreadPool();  // the server calls our callback back

  ::ndk::SpAIBinder binder = WaitForService(instance, child);
  ASSERT_NE(nullptr, binder.get()) << "the child never registered " << instance;
  std::shared_ptr<ILumx> lumx = ILumx::fromBinder(binder);
  ASSERT_NE(nullptr, lumx);
  ASSERT_TRUE(lumx->isRemote());

  CallContext ctx;
  ctx.callback = ::ndk::SharedRefBase::make<RecordingCallback>();
  ctx.serverCallsBack = true;
  ASSERT_EQ(33u, ClientCalls().size());
  for (const auto& [name, call] : ClientCalls()) EXPECT_TRUE(call(*lumx, CodeOf("ILumx", name), ctx)) << name;

  ExpectVersionAndHash(*lumx);

  // A service-side error comes back as the status alone: the results stay
  // untouched.
  CommandResult untouched;
  untouched.strList = {"before"};
  ::ndk::ScopedAStatus st = lumx->NewProcessor(12345, &untouched);
  EXPECT_FALSE(st.isOk());
  EXPECT_EQ(EX_SERVICE_SPECIFIC, st.getExceptionCode());
  EXPECT_EQ(CodeOf("ILumx", "NewProcessor"), st.getServiceSpecificError());
  EXPECT_NE(std::string::npos, std::string(st.getMessage()).find("NewProcessor: arguments differ"));
  EXPECT_EQ(std::vector<std::string>{"before"}, untouched.strList);
}

TEST(AidlEndToEnd, CallbackProxyReachesTheClientObject) {
  // The callback registered as a service of this process and reached through
  // its socket: the other end sees a BpReceiveAudioCallback, as the daemon does.
  auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
  const std::string instance = std::string(IReceiveAudioCallback::descriptor) + "/aidl-e2e";
  ASSERT_EQ(EX_NONE, AServiceManager_addService(cb->asBinder().get(), instance.c_str()));
  ABinderProcess_startThreadPool();
  ::ndk::SpAIBinder remote(lumx_host::ConnectToServiceSocket(instance.c_str()));
  ASSERT_NE(nullptr, remote.get());
  std::shared_ptr<IReceiveAudioCallback> proxy = IReceiveAudioCallback::fromBinder(remote);
  ASSERT_NE(nullptr, proxy);
  EXPECT_TRUE(proxy->isRemote());

  ExpectVersionAndHash(*proxy);

  const int c = CodeOf("IReceiveAudioCallback", "ReceiveAudio");
  for (int s = 0; s < 3; ++s) EXPECT_TRUE(proxy->ReceiveAudio(Gen<AudioPacket>(c, s)).isOk());
  ASSERT_TRUE(cb->WaitFor(3));
  EXPECT_EQ((std::vector<AudioPacket>{Gen<AudioPacket>(c, 0), Gen<AudioPacket>(c, 1), Gen<AudioPacket>(c, 2)}),
            cb->Packets())
      << "in order";

  // The interface checks the descriptor: an ILumx view of it is refused.
  EXPECT_EQ(nullptr, ILumx::fromBinder(remote));
}

}  // namespace
}  // namespace lumx_aidl_test
