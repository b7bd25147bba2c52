// Helpers for the host platform tests: temporary directories, forked child
// processes, shared memory between them, and a small binder interface pair
// (ITestService / ITestCallback) written the way generated NDK code is.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_interface_utils.h>
#include <android/binder_manager.h>
#include <android/binder_parcel_utils.h>
#include <android/binder_process.h>
#include <dirent.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <optional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace lumx_test {

// A fresh directory under /tmp, removed with its contents at scope end.
class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/lumx-platform-test-XXXXXX";
    char* p = mkdtemp(tmpl);
    path_ = p != nullptr ? p : "";
  }
  ~TempDir() {
    if (!path_.empty()) {
      std::string cmd = "rm -rf '" + path_ + "'";
      if (system(cmd.c_str()) != 0) {
      }
    }
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// Points the binder runtime at a private directory for one test.
class BinderDirScope {
 public:
  BinderDirScope() { setenv("LUMX_BINDER_DIR", dir_.path().c_str(), 1); }
  ~BinderDirScope() { unsetenv("LUMX_BINDER_DIR"); }
  const std::string& path() const { return dir_.path(); }

 private:
  TempDir dir_;
};

// Memory shared with forked children (zero-initialised).
template <typename T>
class Shared {
 public:
  Shared() {
    void* p = mmap(nullptr, sizeof(T), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ptr_ = new (p) T();
  }
  ~Shared() {
    ptr_->~T();
    munmap(ptr_, sizeof(T));
  }
  T* operator->() const { return ptr_; }
  T* get() const { return ptr_; }

 private:
  T* ptr_;
};

// A forked child running `body`; killed and reaped at scope end.
class Child {
 public:
  explicit Child(const std::function<void()>& body) {
    pid_ = fork();
    if (pid_ == 0) {
      body();
      _exit(0);
    }
  }
  ~Child() { Kill(); }
  pid_t pid() const { return pid_; }
  void Kill() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
      pid_ = -1;
    }
  }
  // Waits for a normal exit; returns the exit status (or -1).
  int Wait() {
    int status = 0;
    if (pid_ <= 0 || waitpid(pid_, &status, 0) != pid_) return -1;
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
};

// Polls `cond` every few milliseconds for up to `seconds`.
inline bool WaitUntil(const std::function<bool()>& cond, double seconds = 20.0) {
  auto deadline = std::chrono::steady_clock::now() +
                  std::chrono::milliseconds(static_cast<int64_t>(seconds * 1000));
  while (!cond()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

inline int CountOpenFds(pid_t pid) {
  std::string path = "/proc/" + std::to_string(pid) + "/fd";
  DIR* d = opendir(path.c_str());
  if (d == nullptr) return -1;
  int n = 0;
  while (readdir(d) != nullptr) ++n;
  closedir(d);
  return n - 2;
}

// ---------------------------------------------------------------------------
// ITestCallback: the client's callback object.
class ITestCallback : public ndk::ICInterface {
 public:
  static inline const char* descriptor = "lumx.test.ITestCallback";
  static constexpr uint32_t TRANSACTION_onEvent = FIRST_CALL_TRANSACTION + 0;
  static constexpr uint32_t TRANSACTION_onOneway = FIRST_CALL_TRANSACTION + 1;

  // Synchronous: returns a value computed by the client.
  virtual ndk::ScopedAStatus onEvent(int32_t value, int32_t* ret) = 0;
  // One-way: a sequence number and a payload.
  virtual ndk::ScopedAStatus onOneway(int32_t seq, const std::vector<uint8_t>& payload) = 0;

  static std::shared_ptr<ITestCallback> fromBinder(const ndk::SpAIBinder& binder);
  static binder_status_t writeToParcel(AParcel* parcel,
                                       const std::shared_ptr<ITestCallback>& instance);
  static binder_status_t readFromParcel(const AParcel* parcel,
                                        std::shared_ptr<ITestCallback>* instance);
};

class BpTestCallback : public ndk::BpCInterface<ITestCallback> {
 public:
  explicit BpTestCallback(const ndk::SpAIBinder& binder) : BpCInterface(binder) {}
  ndk::ScopedAStatus onEvent(int32_t value, int32_t* ret) override;
  ndk::ScopedAStatus onOneway(int32_t seq, const std::vector<uint8_t>& payload) override;
};

class BnTestCallback : public ndk::BnCInterface<ITestCallback> {
 protected:
  ndk::SpAIBinder createBinder() override;
};

// ---------------------------------------------------------------------------
// ITestService: the server object.
class ITestService : public ndk::ICInterface {
 public:
  static inline const char* descriptor = "lumx.test.ITestService";
  enum : uint32_t {
    TRANSACTION_echo = FIRST_CALL_TRANSACTION + 0,
    TRANSACTION_echoBinder,
    TRANSACTION_callBackNested,
    TRANSACTION_callBackFromThread,
    TRANSACTION_storeCallback,
    TRANSACTION_fireOneway,
    TRANSACTION_callStored,
    TRANSACTION_block,
    TRANSACTION_newSession,
    TRANSACTION_failWith,
    TRANSACTION_echoStrings,
  };

  virtual ndk::ScopedAStatus echo(int32_t v, int32_t* ret) = 0;
  virtual ndk::ScopedAStatus echoBinder(const ndk::SpAIBinder& b, ndk::SpAIBinder* ret) = 0;
  // Calls cb->onEvent(v) on the binder thread serving this call.
  virtual ndk::ScopedAStatus callBackNested(const std::shared_ptr<ITestCallback>& cb, int32_t v,
                                            int32_t* ret) = 0;
  // Calls cb->onEvent(v) from a plain thread of the server and waits for it.
  virtual ndk::ScopedAStatus callBackFromThread(const std::shared_ptr<ITestCallback>& cb,
                                                int32_t v, int32_t* ret) = 0;
  // Keeps cb and watches it for death; returns whether it is the same
  // object as the one stored before.
  virtual ndk::ScopedAStatus storeCallback(const std::shared_ptr<ITestCallback>& cb,
                                           bool* same) = 0;
  // From a plain server thread, makes `count` one-way calls on the stored
  // callback with `payload_size` bytes each; returns how many succeeded
  // (they stop at the first failure, whose status goes to *first_error).
  virtual ndk::ScopedAStatus fireOneway(int32_t count, int32_t payload_size, int32_t* sent,
                                        int32_t* first_error) = 0;
  // Calls the stored callback synchronously; the binder status of that call.
  virtual ndk::ScopedAStatus callStored(int32_t v, int32_t* status) = 0;
  // Blocks until released through the shared state.
  virtual ndk::ScopedAStatus block() = 0;
  // A new server-side object handed to the caller.
  virtual ndk::ScopedAStatus newSession(ndk::SpAIBinder* ret) = 0;
  // Fails with a service-specific error carrying a message.
  virtual ndk::ScopedAStatus failWith(int32_t code, const std::string& message) = 0;
  virtual ndk::ScopedAStatus echoStrings(const std::vector<std::string>& in,
                                         const std::optional<std::string>& extra,
                                         std::vector<std::string>* ret) = 0;

  static std::shared_ptr<ITestService> fromBinder(const ndk::SpAIBinder& binder);
};

class BpTestService : public ndk::BpCInterface<ITestService> {
 public:
  explicit BpTestService(const ndk::SpAIBinder& binder) : BpCInterface(binder) {}
  ndk::ScopedAStatus echo(int32_t v, int32_t* ret) override;
  ndk::ScopedAStatus echoBinder(const ndk::SpAIBinder& b, ndk::SpAIBinder* ret) override;
  ndk::ScopedAStatus callBackNested(const std::shared_ptr<ITestCallback>& cb, int32_t v,
                                    int32_t* ret) override;
  ndk::ScopedAStatus callBackFromThread(const std::shared_ptr<ITestCallback>& cb, int32_t v,
                                        int32_t* ret) override;
  ndk::ScopedAStatus storeCallback(const std::shared_ptr<ITestCallback>& cb, bool* same) override;
  ndk::ScopedAStatus fireOneway(int32_t count, int32_t payload_size, int32_t* sent,
                                int32_t* first_error) override;
  ndk::ScopedAStatus callStored(int32_t v, int32_t* status) override;
  ndk::ScopedAStatus block() override;
  ndk::ScopedAStatus newSession(ndk::SpAIBinder* ret) override;
  ndk::ScopedAStatus failWith(int32_t code, const std::string& message) override;
  ndk::ScopedAStatus echoStrings(const std::vector<std::string>& in,
                                 const std::optional<std::string>& extra,
                                 std::vector<std::string>* ret) override;
};

class BnTestService : public ndk::BnCInterface<ITestService> {
 protected:
  ndk::SpAIBinder createBinder() override;
};

// State shared between a forked server and the test.
struct ServerShared {
  std::atomic<int> active{0};
  std::atomic<int> max_active{0};
  std::atomic<int> entered{0};
  std::atomic<bool> release{false};
  std::atomic<int> deaths{0};
  std::atomic<int> sessions_destroyed{0};
  std::atomic<int> ready{0};
};

// The server implementation used by the forked server processes.
class TestService : public BnTestService {
 public:
  explicit TestService(ServerShared* shared) : shared_(shared) {}
  ~TestService() override;

  ndk::ScopedAStatus echo(int32_t v, int32_t* ret) override;
  ndk::ScopedAStatus echoBinder(const ndk::SpAIBinder& b, ndk::SpAIBinder* ret) override;
  ndk::ScopedAStatus callBackNested(const std::shared_ptr<ITestCallback>& cb, int32_t v,
                                    int32_t* ret) override;
  ndk::ScopedAStatus callBackFromThread(const std::shared_ptr<ITestCallback>& cb, int32_t v,
                                        int32_t* ret) override;
  ndk::ScopedAStatus storeCallback(const std::shared_ptr<ITestCallback>& cb, bool* same) override;
  ndk::ScopedAStatus fireOneway(int32_t count, int32_t payload_size, int32_t* sent,
                                int32_t* first_error) override;
  ndk::ScopedAStatus callStored(int32_t v, int32_t* status) override;
  ndk::ScopedAStatus block() override;
  ndk::ScopedAStatus newSession(ndk::SpAIBinder* ret) override;
  ndk::ScopedAStatus failWith(int32_t code, const std::string& message) override;
  ndk::ScopedAStatus echoStrings(const std::vector<std::string>& in,
                                 const std::optional<std::string>& extra,
                                 std::vector<std::string>* ret) override;

 private:
  ServerShared* shared_;
  std::mutex mu_;
  std::shared_ptr<ITestCallback> stored_;
  ndk::ScopedAIBinder_DeathRecipient death_;
};

// Body of a forked server process: registers a TestService under `name`
// with the given pool configuration and serves forever.
[[noreturn]] void RunTestServer(const std::string& name, ServerShared* shared,
                                uint32_t max_threads = 15);

// Looks the test service up (waiting for it) and wraps it.
std::shared_ptr<ITestService> ConnectTestService(const std::string& name);

}  // namespace lumx_test

#include "test_util_impl.h"
