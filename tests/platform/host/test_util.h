// Helpers for the host platform tests: temporary directories, forked child
// processes, shared memory between them, and a small binder interface pair
// (ITestService / ITestCallback) with proxies and stubs written the way the
// NDK AIDL backend writes them.
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
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <chrono>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

namespace lumx_test {

// A fresh directory under /tmp, removed with its contents at scope end.
class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/lumx-platform-test-XXXXXX";
    path_ = mkdtemp(tmpl) != nullptr ? tmpl : "";
  }
  ~TempDir() {
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
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

inline pid_t Gettid() { return static_cast<pid_t>(syscall(SYS_gettid)); }

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
// Parcel helpers of the proxies and stubs below: binders travel nullable,
// everything else as AParcel_writeData/readData do.

inline binder_status_t WriteArg(AParcel* p, const ndk::SpAIBinder& b) { return ndk::AParcel_writeNullableData(p, b); }
inline binder_status_t ReadArg(const AParcel* p, ndk::SpAIBinder* b) { return ndk::AParcel_readNullableData(p, b); }
// AIDL has no unsigned scalars, so the generic helpers take none; the C API does.
inline binder_status_t WriteArg(AParcel* p, uint32_t v) { return AParcel_writeUint32(p, v); }
inline binder_status_t ReadArg(const AParcel* p, uint32_t* v) { return AParcel_readUint32(p, v); }
inline binder_status_t WriteArg(AParcel* p, uint64_t v) { return AParcel_writeUint64(p, v); }
inline binder_status_t ReadArg(const AParcel* p, uint64_t* v) { return AParcel_readUint64(p, v); }
template <typename T>
binder_status_t WriteArg(AParcel* p, const T& v) {
  return ndk::AParcel_writeData(p, v);
}
template <typename T>
binder_status_t ReadArg(const AParcel* p, T* v) {
  return ndk::AParcel_readData(p, v);
}
template <typename... T>
binder_status_t WriteArgs(AParcel* p, const T&... v) {
  (void)p;  // unused when there is nothing to write or read
  binder_status_t st = STATUS_OK;
  ((st = st == STATUS_OK ? WriteArg(p, v) : st), ...);
  return st;
}
template <typename... T>
binder_status_t ReadArgs(const AParcel* p, T*... v) {
  (void)p;  // unused when there is nothing to write or read
  binder_status_t st = STATUS_OK;
  ((st = st == STATUS_OK ? ReadArg(p, v) : st), ...);
  return st;
}

// Client side of one call: writes `in`, transacts, and (unless one-way)
// reads the status header and then `out`.
template <typename... In, typename... Out>
ndk::ScopedAStatus Transact(const ndk::SpAIBinder& binder, uint32_t code, binder_flags_t flags,
                            const std::tuple<const In&...>& in, Out*... out) {
  ndk::ScopedAParcel data, reply;
  binder_status_t st = AIBinder_prepareTransaction(binder.get(), data.getR());
  if (st == STATUS_OK) st = std::apply([&](const In&... v) { return WriteArgs(data.get(), v...); }, in);
  if (st == STATUS_OK) st = AIBinder_transact(binder.get(), code, data.getR(), reply.getR(), flags);
  if (st != STATUS_OK || (flags & FLAG_ONEWAY)) return ndk::ScopedAStatus::fromStatus(st);
  ndk::ScopedAStatus status;
  st = AParcel_readStatusHeader(reply.get(), status.getR());
  if (st != STATUS_OK) return ndk::ScopedAStatus::fromStatus(st);
  if (!status.isOk()) return status;
  return ndk::ScopedAStatus::fromStatus(ReadArgs(reply.get(), out...));
}
template <typename... In>
std::tuple<const In&...> Args(const In&... v) {
  return std::tuple<const In&...>(v...);
}

// Server side of one call: reads `in`, runs `call`, writes the status header
// and (if the call succeeded) `out`.
template <typename... In, typename F, typename... Out>
binder_status_t Serve(const AParcel* data, AParcel* reply, std::tuple<In&...> in, F&& call, const Out&... out) {
  binder_status_t st = std::apply([&](In&... v) { return ReadArgs(data, &v...); }, in);
  if (st != STATUS_OK) return st;
  ndk::ScopedAStatus status = call();
  if (reply == nullptr) return STATUS_OK;  // one-way
  st = AParcel_writeStatusHeader(reply, status.get());
  return st != STATUS_OK || !status.isOk() ? st : WriteArgs(reply, out...);
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
  static binder_status_t writeToParcel(AParcel* parcel, const std::shared_ptr<ITestCallback>& instance) {
    return AParcel_writeStrongBinder(parcel, instance ? instance->asBinder().get() : nullptr);
  }
  static binder_status_t readFromParcel(const AParcel* parcel, std::shared_ptr<ITestCallback>* instance) {
    ndk::SpAIBinder binder;
    binder_status_t st = AParcel_readStrongBinder(parcel, binder.getR());
    if (st == STATUS_OK) *instance = binder.get() == nullptr ? nullptr : fromBinder(binder);
    return st;
  }
};

class BpTestCallback : public ndk::BpCInterface<ITestCallback> {
 public:
  explicit BpTestCallback(const ndk::SpAIBinder& binder) : BpCInterface(binder) {}
  ndk::ScopedAStatus onEvent(int32_t value, int32_t* ret) override {
    return Transact(asBinderReference(), TRANSACTION_onEvent, 0, Args(value), ret);
  }
  ndk::ScopedAStatus onOneway(int32_t seq, const std::vector<uint8_t>& payload) override {
    return Transact(asBinderReference(), TRANSACTION_onOneway, FLAG_ONEWAY, Args(seq, payload));
  }
};

class BnTestCallback : public ndk::BnCInterface<ITestCallback> {
 protected:
  ndk::SpAIBinder createBinder() override;
};

inline binder_status_t TestCallbackOnTransact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                                              AParcel* out) {
  auto impl = std::static_pointer_cast<BnTestCallback>(ndk::ICInterface::asInterface(binder));
  if (impl == nullptr) return STATUS_DEAD_OBJECT;
  int32_t v = 0, ret = 0;
  std::vector<uint8_t> payload;
  switch (code) {
    case ITestCallback::TRANSACTION_onEvent:
      return Serve(in, out, std::tie(v), [&] { return impl->onEvent(v, &ret); }, ret);
    case ITestCallback::TRANSACTION_onOneway:
      return Serve(in, nullptr, std::tie(v, payload), [&] { return impl->onOneway(v, payload); });
  }
  return STATUS_UNKNOWN_TRANSACTION;
}

inline AIBinder_Class* const g_test_callback_clazz =
    ndk::ICInterface::defineClass(ITestCallback::descriptor, TestCallbackOnTransact);

inline std::shared_ptr<ITestCallback> ITestCallback::fromBinder(const ndk::SpAIBinder& binder) {
  if (!AIBinder_associateClass(binder.get(), g_test_callback_clazz)) return nullptr;
  std::shared_ptr<ndk::ICInterface> local = ndk::ICInterface::asInterface(binder.get());
  if (local != nullptr) return std::static_pointer_cast<ITestCallback>(local);
  return ndk::SharedRefBase::make<BpTestCallback>(binder);
}

inline ndk::SpAIBinder BnTestCallback::createBinder() {
  return ndk::SpAIBinder(AIBinder_new(g_test_callback_clazz, static_cast<void*>(this)));
}

// ---------------------------------------------------------------------------
// ITestService: the server object.
class ITestService : public ndk::ICInterface {
 public:
  static inline const char* descriptor = "lumx.test.ITestService";
  enum : uint32_t {
    TRANSACTION_echo = FIRST_CALL_TRANSACTION + 0,
    TRANSACTION_echoBinder,
    TRANSACTION_callBack,
    TRANSACTION_storeCallback,
    TRANSACTION_fireOneway,
    TRANSACTION_callStored,
    TRANSACTION_block,
    TRANSACTION_newSession,
    TRANSACTION_failWith,
  };

  virtual ndk::ScopedAStatus echo(int32_t v, int32_t* ret) = 0;
  virtual ndk::ScopedAStatus echoBinder(const ndk::SpAIBinder& b, ndk::SpAIBinder* ret) = 0;
  virtual ndk::ScopedAStatus callBack(const std::shared_ptr<ITestCallback>& cb, int32_t v, bool fromThread,
                                      int32_t* ret) = 0;
  virtual ndk::ScopedAStatus storeCallback(const std::shared_ptr<ITestCallback>& cb, bool* same) = 0;
  virtual ndk::ScopedAStatus fireOneway(int32_t count, int32_t payload_size, int32_t* sent, int32_t* first_error) = 0;
  virtual ndk::ScopedAStatus callStored(int32_t v, int32_t* status) = 0;
  virtual ndk::ScopedAStatus block() = 0;
  virtual ndk::ScopedAStatus newSession(ndk::SpAIBinder* ret) = 0;
  virtual ndk::ScopedAStatus failWith(int32_t code, const std::string& message) = 0;

  static std::shared_ptr<ITestService> fromBinder(const ndk::SpAIBinder& binder);
};

class BpTestService : public ndk::BpCInterface<ITestService> {
 public:
  explicit BpTestService(const ndk::SpAIBinder& binder) : BpCInterface(binder) {}
  ndk::ScopedAStatus echo(int32_t v, int32_t* ret) override { return Call(TRANSACTION_echo, Args(v), ret); }
  ndk::ScopedAStatus echoBinder(const ndk::SpAIBinder& b, ndk::SpAIBinder* ret) override {
    return Call(TRANSACTION_echoBinder, Args(b), ret);
  }
  ndk::ScopedAStatus callBack(const std::shared_ptr<ITestCallback>& cb, int32_t v, bool fromThread,
                              int32_t* ret) override {
    return Call(TRANSACTION_callBack, Args(cb, v, fromThread), ret);
  }
  ndk::ScopedAStatus storeCallback(const std::shared_ptr<ITestCallback>& cb, bool* same) override {
    return Call(TRANSACTION_storeCallback, Args(cb), same);
  }
  ndk::ScopedAStatus fireOneway(int32_t count, int32_t size, int32_t* sent, int32_t* first_error) override {
    return Call(TRANSACTION_fireOneway, Args(count, size), sent, first_error);
  }
  ndk::ScopedAStatus callStored(int32_t v, int32_t* status) override {
    return Call(TRANSACTION_callStored, Args(v), status);
  }
  ndk::ScopedAStatus block() override { return Call(TRANSACTION_block, Args()); }
  ndk::ScopedAStatus newSession(ndk::SpAIBinder* ret) override { return Call(TRANSACTION_newSession, Args(), ret); }
  ndk::ScopedAStatus failWith(int32_t code, const std::string& message) override {
    return Call(TRANSACTION_failWith, Args(code, message));
  }

 private:
  template <typename... In, typename... Out>
  ndk::ScopedAStatus Call(uint32_t code, const std::tuple<const In&...>& in, Out*... out) {
    return Transact(asBinderReference(), code, 0, in, out...);
  }
};

class BnTestService : public ndk::BnCInterface<ITestService> {
 protected:
  ndk::SpAIBinder createBinder() override;
};

inline binder_status_t TestServiceOnTransact(AIBinder* binder, transaction_code_t code, const AParcel* in,
                                             AParcel* out) {
  auto impl = std::static_pointer_cast<BnTestService>(ndk::ICInterface::asInterface(binder));
  if (impl == nullptr) return STATUS_DEAD_OBJECT;
  int32_t a = 0, b = 0, c = 0, d = 0;
  bool flag = false;
  ndk::SpAIBinder obj, ret;
  std::shared_ptr<ITestCallback> cb;
  std::string msg;
  switch (code) {
    case ITestService::TRANSACTION_echo:
      return Serve(in, out, std::tie(a), [&] { return impl->echo(a, &b); }, b);
    case ITestService::TRANSACTION_echoBinder:
      return Serve(in, out, std::tie(obj), [&] { return impl->echoBinder(obj, &ret); }, ret);
    case ITestService::TRANSACTION_callBack:
      return Serve(in, out, std::tie(cb, a, flag), [&] { return impl->callBack(cb, a, flag, &b); }, b);
    case ITestService::TRANSACTION_storeCallback:
      return Serve(in, out, std::tie(cb), [&] { return impl->storeCallback(cb, &flag); }, flag);
    case ITestService::TRANSACTION_fireOneway:
      return Serve(in, out, std::tie(a, b), [&] { return impl->fireOneway(a, b, &c, &d); }, c, d);
    case ITestService::TRANSACTION_callStored:
      return Serve(in, out, std::tie(a), [&] { return impl->callStored(a, &b); }, b);
    case ITestService::TRANSACTION_block:
      return Serve(in, out, std::tie(), [&] { return impl->block(); });
    case ITestService::TRANSACTION_newSession:
      return Serve(in, out, std::tie(), [&] { return impl->newSession(&ret); }, ret);
    case ITestService::TRANSACTION_failWith:
      return Serve(in, out, std::tie(a, msg), [&] { return impl->failWith(a, msg); });
  }
  return STATUS_UNKNOWN_TRANSACTION;
}

inline AIBinder_Class* const g_test_service_clazz =
    ndk::ICInterface::defineClass(ITestService::descriptor, TestServiceOnTransact);

inline std::shared_ptr<ITestService> ITestService::fromBinder(const ndk::SpAIBinder& binder) {
  if (!AIBinder_associateClass(binder.get(), g_test_service_clazz)) return nullptr;
  std::shared_ptr<ndk::ICInterface> local = ndk::ICInterface::asInterface(binder.get());
  if (local != nullptr) return std::static_pointer_cast<ITestService>(local);
  return ndk::SharedRefBase::make<BpTestService>(binder);
}

inline ndk::SpAIBinder BnTestService::createBinder() {
  return ndk::SpAIBinder(AIBinder_new(g_test_service_clazz, static_cast<void*>(this)));
}

// State shared between a forked server and the test.
struct ServerShared {
  std::atomic<int> active{0};
  std::atomic<int> max_active{0};
  std::atomic<int> entered{0};
  std::atomic<bool> release{false};
  std::atomic<int> deaths{0};
  std::atomic<int> sessions_destroyed{0};
  std::atomic<int> ready{0};
  // Who made the last echo call, as the server saw it.
  std::atomic<int> caller_pid{-1};
  std::atomic<int> caller_uid{-1};
};

// A server-side object whose destruction the test can observe.
inline AIBinder_Class* const g_session_clazz = AIBinder_Class_define(
    "lumx.test.ISession", [](void* args) { return args; },
    [](void* shared) { static_cast<ServerShared*>(shared)->sessions_destroyed.fetch_add(1); },
    [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t { return STATUS_OK; });

// The server of the tests. callBack calls cb->onEvent on the serving thread
// or from a plain thread it waits for; storeCallback keeps cb, watches it for
// death and tells whether it is the object stored before; fireOneway makes
// `count` one-way calls on the stored callback from a plain thread, stopping
// at the first failure; callStored returns the status of a synchronous call
// on it; block waits for `release`; newSession hands out a new object whose
// destruction is counted; failWith returns a service-specific error.
class TestService : public BnTestService {
 public:
  explicit TestService(ServerShared* shared) : shared_(shared) {}

  ndk::ScopedAStatus echo(int32_t v, int32_t* ret) override {
    shared_->caller_pid.store(AIBinder_getCallingPid());
    shared_->caller_uid.store(static_cast<int>(AIBinder_getCallingUid()));
    *ret = v;
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus echoBinder(const ndk::SpAIBinder& b, ndk::SpAIBinder* ret) override {
    *ret = b;
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus callBack(const std::shared_ptr<ITestCallback>& cb, int32_t v, bool fromThread,
                              int32_t* ret) override {
    if (cb == nullptr) return ndk::ScopedAStatus::fromExceptionCode(EX_NULL_POINTER);
    if (!fromThread) return cb->onEvent(v, ret);
    ndk::ScopedAStatus result;
    std::thread([&] { result = cb->onEvent(v, ret); }).join();
    return result;
  }
  ndk::ScopedAStatus storeCallback(const std::shared_ptr<ITestCallback>& cb, bool* same) override {
    std::lock_guard<std::mutex> l(mu_);
    *same = stored_ != nullptr && cb != nullptr && stored_->asBinder() == cb->asBinder();
    stored_ = cb;
    if (death_.get() == nullptr) {
      death_.set(AIBinder_DeathRecipient_new([](void* cookie) {
        auto* self = static_cast<TestService*>(cookie);
        std::lock_guard<std::mutex> l(self->mu_);
        self->stored_.reset();  // drop the dead client's object
        self->shared_->deaths.fetch_add(1);
      }));
    }
    if (cb != nullptr && cb->isRemote()) AIBinder_linkToDeath(cb->asBinder().get(), death_.get(), this);
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus fireOneway(int32_t count, int32_t payload_size, int32_t* sent, int32_t* first_error) override {
    std::shared_ptr<ITestCallback> cb = Stored();
    if (cb == nullptr) return ndk::ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE);
    *sent = 0;
    *first_error = 0;
    std::thread([&] {
      std::vector<uint8_t> payload(static_cast<size_t>(payload_size), 0x5a);
      for (int32_t i = 0; i < count; ++i, ++*sent) {
        ndk::ScopedAStatus s = cb->onOneway(i, payload);
        if (!s.isOk()) {
          *first_error = s.getStatus();
          break;
        }
      }
    }).join();
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus callStored(int32_t v, int32_t* status) override {
    std::shared_ptr<ITestCallback> cb = Stored();
    int32_t ret = 0;
    *status = cb == nullptr ? STATUS_NAME_NOT_FOUND : cb->onEvent(v, &ret).getStatus();
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus block() override {
    int now = shared_->active.fetch_add(1) + 1;
    int prev = shared_->max_active.load();
    while (now > prev && !shared_->max_active.compare_exchange_weak(prev, now)) {
    }
    shared_->entered.fetch_add(1);
    while (!shared_->release.load()) usleep(1000);
    shared_->active.fetch_sub(1);
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus newSession(ndk::SpAIBinder* ret) override {
    ret->set(AIBinder_new(g_session_clazz, shared_));
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus failWith(int32_t code, const std::string& message) override {
    return ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(code, message.c_str());
  }

 private:
  std::shared_ptr<ITestCallback> Stored() {
    std::lock_guard<std::mutex> l(mu_);
    return stored_;
  }

  ServerShared* shared_;
  std::mutex mu_;
  std::shared_ptr<ITestCallback> stored_;
  ndk::ScopedAIBinder_DeathRecipient death_;
};

// A client callback: onEvent answers v + 1 (or, with `reenter` set, what
// the service echoes for v * 10); onOneway records the sequence numbers,
// waits while `hold` is set, and notes any overlap of two calls.
class RecordingCallback : public BnTestCallback {
 public:
  ndk::ScopedAStatus onEvent(int32_t v, int32_t* ret) override {
    last_tid = Gettid();
    if (reenter != nullptr) return reenter->echo(v * 10, ret);
    *ret = v + 1;
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus onOneway(int32_t seq, const std::vector<uint8_t>&) override {
    if (running.fetch_add(1) > 0) overlapped = true;
    {
      std::unique_lock<std::mutex> l(mu);
      cv.wait(l, [this] { return !hold; });
      seqs.push_back(seq);
    }
    running.fetch_sub(1);
    return ndk::ScopedAStatus::ok();
  }
  size_t Received() {
    std::lock_guard<std::mutex> l(mu);
    return seqs.size();
  }
  void Hold(bool on) {
    std::lock_guard<std::mutex> l(mu);
    hold = on;
    cv.notify_all();
  }

  std::atomic<pid_t> last_tid{0};
  std::shared_ptr<ITestService> reenter;
  std::mutex mu;
  std::condition_variable cv;
  bool hold = false;
  std::vector<int32_t> seqs;
  std::atomic<int> running{0};
  std::atomic<bool> overlapped{false};
};

// Body of a forked server process: registers a TestService under `name`
// with the given pool configuration and serves forever.
[[noreturn]] inline void RunTestServer(const std::string& name, ServerShared* shared, uint32_t max_threads = 15) {
  ABinderProcess_setThreadPoolMaxThreadCount(max_threads);
  auto service = ndk::SharedRefBase::make<TestService>(shared);
  if (AServiceManager_addService(service->asBinder().get(), name.c_str()) != EX_NONE) _exit(3);
  ABinderProcess_startThreadPool();
  shared->ready.store(1);
  ABinderProcess_joinThreadPool();
  _exit(4);
}

// Looks the test service up (waiting for it) and wraps it.
inline std::shared_ptr<ITestService> ConnectTestService(const std::string& name) {
  ndk::SpAIBinder binder;
  WaitUntil([&] {
    binder.set(AServiceManager_checkService(name.c_str()));
    return binder.get() != nullptr;
  });
  return binder.get() == nullptr ? nullptr : ITestService::fromBinder(binder);
}

}  // namespace lumx_test
