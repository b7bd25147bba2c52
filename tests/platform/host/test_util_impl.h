// Inline definitions for test_util.h: proxies, stubs and the test server,
// written the way the NDK AIDL backend writes them.
#pragma once

#include <android/binder_ibinder.h>

#include <condition_variable>

namespace lumx_test {

// ---- ITestCallback ----

inline binder_status_t TestCallbackOnTransact(AIBinder* binder, transaction_code_t code,
                                              const AParcel* in, AParcel* out) {
  auto impl = std::static_pointer_cast<BnTestCallback>(ndk::ICInterface::asInterface(binder));
  if (impl == nullptr) return STATUS_DEAD_OBJECT;
  binder_status_t st = STATUS_UNKNOWN_TRANSACTION;
  switch (code) {
    case ITestCallback::TRANSACTION_onEvent: {
      int32_t v = 0;
      int32_t ret = 0;
      st = ndk::AParcel_readData(in, &v);
      if (st != STATUS_OK) break;
      ndk::ScopedAStatus status = impl->onEvent(v, &ret);
      st = AParcel_writeStatusHeader(out, status.get());
      if (st != STATUS_OK || !status.isOk()) break;
      st = ndk::AParcel_writeData(out, ret);
      break;
    }
    case ITestCallback::TRANSACTION_onOneway: {
      int32_t seq = 0;
      std::vector<uint8_t> payload;
      st = ndk::AParcel_readData(in, &seq);
      if (st != STATUS_OK) break;
      st = ndk::AParcel_readData(in, &payload);
      if (st != STATUS_OK) break;
      ndk::ScopedAStatus status = impl->onOneway(seq, payload);
      st = STATUS_OK;
      break;
    }
  }
  return st;
}

inline AIBinder_Class* const g_test_callback_clazz =
    ndk::ICInterface::defineClass(ITestCallback::descriptor, TestCallbackOnTransact);

inline std::shared_ptr<ITestCallback> ITestCallback::fromBinder(const ndk::SpAIBinder& binder) {
  if (!AIBinder_associateClass(binder.get(), g_test_callback_clazz)) return nullptr;
  std::shared_ptr<ndk::ICInterface> local = ndk::ICInterface::asInterface(binder.get());
  if (local != nullptr) return std::static_pointer_cast<ITestCallback>(local);
  return ndk::SharedRefBase::make<BpTestCallback>(binder);
}

inline binder_status_t ITestCallback::writeToParcel(AParcel* parcel,
                                                    const std::shared_ptr<ITestCallback>& instance) {
  return AParcel_writeStrongBinder(parcel, instance ? instance->asBinder().get() : nullptr);
}

inline binder_status_t ITestCallback::readFromParcel(const AParcel* parcel,
                                                     std::shared_ptr<ITestCallback>* instance) {
  ndk::SpAIBinder binder;
  binder_status_t st = AParcel_readStrongBinder(parcel, binder.getR());
  if (st != STATUS_OK) return st;
  *instance = binder.get() == nullptr ? nullptr : ITestCallback::fromBinder(binder);
  return STATUS_OK;
}

inline ndk::ScopedAStatus BpTestCallback::onEvent(int32_t value, int32_t* ret) {
  ndk::ScopedAParcel in;
  ndk::ScopedAParcel out;
  ndk::ScopedAStatus status;
  binder_status_t st = AIBinder_prepareTransaction(asBinderReference().get(), in.getR());
  if (st == STATUS_OK) st = ndk::AParcel_writeData(in.get(), value);
  if (st == STATUS_OK) {
    st = AIBinder_transact(asBinderReference().get(), TRANSACTION_onEvent, in.getR(), out.getR(), 0);
  }
  if (st == STATUS_OK) {
    st = AParcel_readStatusHeader(out.get(), status.getR());
    if (st == STATUS_OK && !status.isOk()) return status;
  }
  if (st == STATUS_OK) st = ndk::AParcel_readData(out.get(), ret);
  return ndk::ScopedAStatus::fromStatus(st);
}

inline ndk::ScopedAStatus BpTestCallback::onOneway(int32_t seq, const std::vector<uint8_t>& payload) {
  ndk::ScopedAParcel in;
  ndk::ScopedAParcel out;
  binder_status_t st = AIBinder_prepareTransaction(asBinderReference().get(), in.getR());
  if (st == STATUS_OK) st = ndk::AParcel_writeData(in.get(), seq);
  if (st == STATUS_OK) st = ndk::AParcel_writeData(in.get(), payload);
  if (st == STATUS_OK) {
    st = AIBinder_transact(asBinderReference().get(), TRANSACTION_onOneway, in.getR(), out.getR(),
                           FLAG_ONEWAY);
  }
  return ndk::ScopedAStatus::fromStatus(st);
}

inline ndk::SpAIBinder BnTestCallback::createBinder() {
  return ndk::SpAIBinder(AIBinder_new(g_test_callback_clazz, static_cast<void*>(this)));
}

// ---- ITestService ----

inline binder_status_t TestServiceOnTransact(AIBinder* binder, transaction_code_t code,
                                             const AParcel* in, AParcel* out) {
  auto impl = std::static_pointer_cast<BnTestService>(ndk::ICInterface::asInterface(binder));
  if (impl == nullptr) return STATUS_DEAD_OBJECT;
  binder_status_t st = STATUS_UNKNOWN_TRANSACTION;
  ndk::ScopedAStatus status;
  // Reads arguments with `read`, calls, then writes the status header and,
  // on success, the results with `write`.
  auto serve = [&](auto&& read, auto&& call, auto&& write) {
    st = read();
    if (st != STATUS_OK) return;
    status = call();
    st = AParcel_writeStatusHeader(out, status.get());
    if (st != STATUS_OK || !status.isOk()) return;
    st = write();
  };
  switch (code) {
    case ITestService::TRANSACTION_echo: {
      int32_t v = 0, ret = 0;
      serve([&] { return ndk::AParcel_readData(in, &v); }, [&] { return impl->echo(v, &ret); },
            [&] { return ndk::AParcel_writeData(out, ret); });
      break;
    }
    case ITestService::TRANSACTION_echoBinder: {
      ndk::SpAIBinder b, ret;
      serve([&] { return ndk::AParcel_readNullableData(in, &b); },
            [&] { return impl->echoBinder(b, &ret); },
            [&] { return ndk::AParcel_writeNullableData(out, ret); });
      break;
    }
    case ITestService::TRANSACTION_callBackNested:
    case ITestService::TRANSACTION_callBackFromThread: {
      std::shared_ptr<ITestCallback> cb;
      int32_t v = 0, ret = 0;
      serve(
          [&] {
            binder_status_t s = ndk::AParcel_readData(in, &cb);
            return s != STATUS_OK ? s : ndk::AParcel_readData(in, &v);
          },
          [&] {
            return code == ITestService::TRANSACTION_callBackNested
                       ? impl->callBackNested(cb, v, &ret)
                       : impl->callBackFromThread(cb, v, &ret);
          },
          [&] { return ndk::AParcel_writeData(out, ret); });
      break;
    }
    case ITestService::TRANSACTION_storeCallback: {
      std::shared_ptr<ITestCallback> cb;
      bool same = false;
      serve([&] { return ndk::AParcel_readData(in, &cb); },
            [&] { return impl->storeCallback(cb, &same); },
            [&] { return ndk::AParcel_writeData(out, same); });
      break;
    }
    case ITestService::TRANSACTION_fireOneway: {
      int32_t count = 0, size = 0, sent = 0, err = 0;
      serve(
          [&] {
            binder_status_t s = ndk::AParcel_readData(in, &count);
            return s != STATUS_OK ? s : ndk::AParcel_readData(in, &size);
          },
          [&] { return impl->fireOneway(count, size, &sent, &err); },
          [&] {
            binder_status_t s = ndk::AParcel_writeData(out, sent);
            return s != STATUS_OK ? s : ndk::AParcel_writeData(out, err);
          });
      break;
    }
    case ITestService::TRANSACTION_callStored: {
      int32_t v = 0, ret = 0;
      serve([&] { return ndk::AParcel_readData(in, &v); },
            [&] { return impl->callStored(v, &ret); },
            [&] { return ndk::AParcel_writeData(out, ret); });
      break;
    }
    case ITestService::TRANSACTION_block: {
      serve([&] { return STATUS_OK; }, [&] { return impl->block(); }, [&] { return STATUS_OK; });
      break;
    }
    case ITestService::TRANSACTION_newSession: {
      ndk::SpAIBinder ret;
      serve([&] { return STATUS_OK; }, [&] { return impl->newSession(&ret); },
            [&] { return ndk::AParcel_writeData(out, ret); });
      break;
    }
    case ITestService::TRANSACTION_failWith: {
      int32_t c = 0;
      std::string msg;
      serve(
          [&] {
            binder_status_t s = ndk::AParcel_readData(in, &c);
            return s != STATUS_OK ? s : ndk::AParcel_readData(in, &msg);
          },
          [&] { return impl->failWith(c, msg); }, [&] { return STATUS_OK; });
      break;
    }
    case ITestService::TRANSACTION_echoStrings: {
      std::vector<std::string> v, ret;
      std::optional<std::string> extra;
      serve(
          [&] {
            binder_status_t s = ndk::AParcel_readData(in, &v);
            return s != STATUS_OK ? s : ndk::AParcel_readNullableData(in, &extra);
          },
          [&] { return impl->echoStrings(v, extra, &ret); },
          [&] { return ndk::AParcel_writeData(out, ret); });
      break;
    }
  }
  return st;
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

// Client side of one synchronous call: `write` the arguments, transact,
// read the status header and then the results with `read`.
template <typename W, typename R>
ndk::ScopedAStatus CallService(const ndk::SpAIBinder& binder, uint32_t code, W&& write, R&& read) {
  ndk::ScopedAParcel in;
  ndk::ScopedAParcel out;
  binder_status_t st = AIBinder_prepareTransaction(binder.get(), in.getR());
  if (st == STATUS_OK) st = write(in.get());
  if (st == STATUS_OK) st = AIBinder_transact(binder.get(), code, in.getR(), out.getR(), 0);
  if (st != STATUS_OK) return ndk::ScopedAStatus::fromStatus(st);
  ndk::ScopedAStatus status;
  st = AParcel_readStatusHeader(out.get(), status.getR());
  if (st != STATUS_OK) return ndk::ScopedAStatus::fromStatus(st);
  if (!status.isOk()) return status;
  return ndk::ScopedAStatus::fromStatus(read(out.get()));
}

inline ndk::ScopedAStatus BpTestService::echo(int32_t v, int32_t* ret) {
  return CallService(
      asBinderReference(), TRANSACTION_echo, [&](AParcel* p) { return ndk::AParcel_writeData(p, v); },
      [&](const AParcel* p) { return ndk::AParcel_readData(p, ret); });
}

inline ndk::ScopedAStatus BpTestService::echoBinder(const ndk::SpAIBinder& b, ndk::SpAIBinder* ret) {
  return CallService(
      asBinderReference(), TRANSACTION_echoBinder,
      [&](AParcel* p) { return ndk::AParcel_writeNullableData(p, b); },
      [&](const AParcel* p) { return ndk::AParcel_readNullableData(p, ret); });
}

inline ndk::ScopedAStatus BpTestService::callBackNested(const std::shared_ptr<ITestCallback>& cb,
                                                        int32_t v, int32_t* ret) {
  return CallService(
      asBinderReference(), TRANSACTION_callBackNested,
      [&](AParcel* p) {
        binder_status_t s = ndk::AParcel_writeData(p, cb);
        return s != STATUS_OK ? s : ndk::AParcel_writeData(p, v);
      },
      [&](const AParcel* p) { return ndk::AParcel_readData(p, ret); });
}

inline ndk::ScopedAStatus BpTestService::callBackFromThread(const std::shared_ptr<ITestCallback>& cb,
                                                            int32_t v, int32_t* ret) {
  return CallService(
      asBinderReference(), TRANSACTION_callBackFromThread,
      [&](AParcel* p) {
        binder_status_t s = ndk::AParcel_writeData(p, cb);
        return s != STATUS_OK ? s : ndk::AParcel_writeData(p, v);
      },
      [&](const AParcel* p) { return ndk::AParcel_readData(p, ret); });
}

inline ndk::ScopedAStatus BpTestService::storeCallback(const std::shared_ptr<ITestCallback>& cb,
                                                       bool* same) {
  return CallService(
      asBinderReference(), TRANSACTION_storeCallback,
      [&](AParcel* p) { return ndk::AParcel_writeData(p, cb); },
      [&](const AParcel* p) { return ndk::AParcel_readData(p, same); });
}

inline ndk::ScopedAStatus BpTestService::fireOneway(int32_t count, int32_t payload_size,
                                                    int32_t* sent, int32_t* first_error) {
  return CallService(
      asBinderReference(), TRANSACTION_fireOneway,
      [&](AParcel* p) {
        binder_status_t s = ndk::AParcel_writeData(p, count);
        return s != STATUS_OK ? s : ndk::AParcel_writeData(p, payload_size);
      },
      [&](const AParcel* p) {
        binder_status_t s = ndk::AParcel_readData(p, sent);
        return s != STATUS_OK ? s : ndk::AParcel_readData(p, first_error);
      });
}

inline ndk::ScopedAStatus BpTestService::callStored(int32_t v, int32_t* status) {
  return CallService(
      asBinderReference(), TRANSACTION_callStored,
      [&](AParcel* p) { return ndk::AParcel_writeData(p, v); },
      [&](const AParcel* p) { return ndk::AParcel_readData(p, status); });
}

inline ndk::ScopedAStatus BpTestService::block() {
  return CallService(
      asBinderReference(), TRANSACTION_block, [](AParcel*) { return STATUS_OK; },
      [](const AParcel*) { return STATUS_OK; });
}

inline ndk::ScopedAStatus BpTestService::newSession(ndk::SpAIBinder* ret) {
  return CallService(
      asBinderReference(), TRANSACTION_newSession, [](AParcel*) { return STATUS_OK; },
      [&](const AParcel* p) { return ndk::AParcel_readData(p, ret); });
}

inline ndk::ScopedAStatus BpTestService::failWith(int32_t code, const std::string& message) {
  return CallService(
      asBinderReference(), TRANSACTION_failWith,
      [&](AParcel* p) {
        binder_status_t s = ndk::AParcel_writeData(p, code);
        return s != STATUS_OK ? s : ndk::AParcel_writeData(p, message);
      },
      [](const AParcel*) { return STATUS_OK; });
}

inline ndk::ScopedAStatus BpTestService::echoStrings(const std::vector<std::string>& in,
                                                     const std::optional<std::string>& extra,
                                                     std::vector<std::string>* ret) {
  return CallService(
      asBinderReference(), TRANSACTION_echoStrings,
      [&](AParcel* p) {
        binder_status_t s = ndk::AParcel_writeData(p, in);
        return s != STATUS_OK ? s : ndk::AParcel_writeNullableData(p, extra);
      },
      [&](const AParcel* p) { return ndk::AParcel_readData(p, ret); });
}

// ---- the test server ----

// A server-side object whose destruction the test can observe.
inline void* SessionOnCreate(void* args) { return args; }
inline void SessionOnDestroy(void* user_data) {
  static_cast<ServerShared*>(user_data)->sessions_destroyed.fetch_add(1);
}
inline binder_status_t SessionOnTransact(AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
  return STATUS_OK;
}
inline AIBinder_Class* const g_session_clazz = AIBinder_Class_define(
    "lumx.test.ISession", SessionOnCreate, SessionOnDestroy, SessionOnTransact);

inline ServerShared* g_death_shared = nullptr;

inline TestService::~TestService() = default;

inline ndk::ScopedAStatus TestService::echo(int32_t v, int32_t* ret) {
  *ret = v;
  return ndk::ScopedAStatus::ok();
}

inline ndk::ScopedAStatus TestService::echoBinder(const ndk::SpAIBinder& b, ndk::SpAIBinder* ret) {
  *ret = b;
  return ndk::ScopedAStatus::ok();
}

inline ndk::ScopedAStatus TestService::callBackNested(const std::shared_ptr<ITestCallback>& cb,
                                                      int32_t v, int32_t* ret) {
  if (cb == nullptr) return ndk::ScopedAStatus::fromExceptionCode(EX_NULL_POINTER);
  return cb->onEvent(v, ret);
}

inline ndk::ScopedAStatus TestService::callBackFromThread(const std::shared_ptr<ITestCallback>& cb,
                                                          int32_t v, int32_t* ret) {
  if (cb == nullptr) return ndk::ScopedAStatus::fromExceptionCode(EX_NULL_POINTER);
  ndk::ScopedAStatus result;
  std::thread t([&] { result = cb->onEvent(v, ret); });
  t.join();
  return result;
}

inline ndk::ScopedAStatus TestService::storeCallback(const std::shared_ptr<ITestCallback>& cb,
                                                     bool* same) {
  std::lock_guard<std::mutex> l(mu_);
  *same = stored_ != nullptr && cb != nullptr && stored_->asBinder() == cb->asBinder();
  stored_ = cb;
  if (death_.get() == nullptr) {
    g_death_shared = shared_;
    death_.set(AIBinder_DeathRecipient_new([](void* cookie) {
      auto* self = static_cast<TestService*>(cookie);
      {
        std::lock_guard<std::mutex> l(self->mu_);
        self->stored_.reset();  // drop the dead client's object
      }
      g_death_shared->deaths.fetch_add(1);
    }));
  }
  if (cb != nullptr && cb->isRemote()) {
    AIBinder_linkToDeath(cb->asBinder().get(), death_.get(), this);
  }
  return ndk::ScopedAStatus::ok();
}

inline ndk::ScopedAStatus TestService::fireOneway(int32_t count, int32_t payload_size,
                                                  int32_t* sent, int32_t* first_error) {
  std::shared_ptr<ITestCallback> cb;
  {
    std::lock_guard<std::mutex> l(mu_);
    cb = stored_;
  }
  if (cb == nullptr) return ndk::ScopedAStatus::fromExceptionCode(EX_ILLEGAL_STATE);
  *sent = 0;
  *first_error = 0;
  std::thread t([&] {
    std::vector<uint8_t> payload(static_cast<size_t>(payload_size), 0x5a);
    for (int32_t i = 0; i < count; ++i) {
      ndk::ScopedAStatus s = cb->onOneway(i, payload);
      if (!s.isOk()) {
        *first_error = s.getStatus();
        break;
      }
      ++*sent;
    }
  });
  t.join();
  return ndk::ScopedAStatus::ok();
}

inline ndk::ScopedAStatus TestService::callStored(int32_t v, int32_t* status) {
  std::shared_ptr<ITestCallback> cb;
  {
    std::lock_guard<std::mutex> l(mu_);
    cb = stored_;
  }
  if (cb == nullptr) {
    *status = STATUS_NAME_NOT_FOUND;
    return ndk::ScopedAStatus::ok();
  }
  int32_t ret = 0;
  ndk::ScopedAStatus s = cb->onEvent(v, &ret);
  *status = s.getStatus();
  return ndk::ScopedAStatus::ok();
}

inline ndk::ScopedAStatus TestService::block() {
  int now = shared_->active.fetch_add(1) + 1;
  int prev = shared_->max_active.load();
  while (now > prev && !shared_->max_active.compare_exchange_weak(prev, now)) {
  }
  shared_->entered.fetch_add(1);
  while (!shared_->release.load()) usleep(1000);
  shared_->active.fetch_sub(1);
  return ndk::ScopedAStatus::ok();
}

inline ndk::ScopedAStatus TestService::newSession(ndk::SpAIBinder* ret) {
  ret->set(AIBinder_new(g_session_clazz, shared_));
  return ndk::ScopedAStatus::ok();
}

inline ndk::ScopedAStatus TestService::failWith(int32_t code, const std::string& message) {
  return ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(code, message.c_str());
}

inline ndk::ScopedAStatus TestService::echoStrings(const std::vector<std::string>& in,
                                                   const std::optional<std::string>& extra,
                                                   std::vector<std::string>* ret) {
  *ret = in;
  ret->push_back(extra.has_value() ? *extra : "(none)");
  return ndk::ScopedAStatus::ok();
}

[[noreturn]] inline void RunTestServer(const std::string& name, ServerShared* shared,
                                       uint32_t max_threads) {
  ABinderProcess_setThreadPoolMaxThreadCount(max_threads);
  auto service = ndk::SharedRefBase::make<TestService>(shared);
  if (AServiceManager_addService(service->asBinder().get(), name.c_str()) != EX_NONE) _exit(3);
  ABinderProcess_startThreadPool();
  shared->ready.store(1);
  ABinderProcess_joinThreadPool();
  _exit(4);
}

inline std::shared_ptr<ITestService> ConnectTestService(const std::string& name) {
  ndk::SpAIBinder binder;
  WaitUntil([&] {
    binder.set(AServiceManager_checkService(name.c_str()));
    return binder.get() != nullptr;
  });
  return binder.get() == nullptr ? nullptr : ITestService::fromBinder(binder);
}

}  // namespace lumx_test
