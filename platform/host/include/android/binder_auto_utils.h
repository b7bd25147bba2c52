// RAII owners for the C objects of the binder NDK (host build of the
// header-only helpers of the same name): SpAIBinder, ScopedAParcel,
// ScopedAStatus, ScopedAIBinder_DeathRecipient, ScopedAIBinder_Weak,
// ScopedFileDescriptor.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>

#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <ostream>
#include <string>

namespace ndk {

namespace internal {
// Prints "file:line: msg" and aborts; the helpers' equivalent of bionic's
// __assert, which glibc does not have with that signature.
[[noreturn]] static inline void assertFailed(const char* file, int line, const char* msg) {
  fprintf(stderr, "%s:%d: %s\n", file, line, msg);
  fflush(stderr);
  abort();
}
}  // namespace internal

// Owns one strong reference to an AIBinder.
class SpAIBinder {
 public:
  SpAIBinder() : mBinder(nullptr) {}
  SpAIBinder(std::nullptr_t) : SpAIBinder() {}  // NOLINT(google-explicit-constructor)
  // Adopts a reference the caller already owns (no incStrong).
  explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}
  SpAIBinder(const SpAIBinder& other) : mBinder(nullptr) { *this = other; }
  SpAIBinder(SpAIBinder&& other) noexcept : mBinder(other.release()) {}
  ~SpAIBinder() { set(nullptr); }

  SpAIBinder& operator=(const SpAIBinder& other) {
    if (this == &other) return *this;
    AIBinder_incStrong(other.mBinder);
    set(other.mBinder);
    return *this;
  }
  SpAIBinder& operator=(SpAIBinder&& other) noexcept {
    if (this != &other) set(other.release());
    return *this;
  }

  // Drops the old reference (if any) and adopts `binder`.
  void set(AIBinder* binder) {
    AIBinder* old = mBinder;
    mBinder = binder;
    if (old != nullptr) AIBinder_decStrong(old);
  }

  AIBinder* get() const { return mBinder; }
  // For out-parameters of the C API; the slot must be empty.
  AIBinder** getR() { return &mBinder; }
  // Gives up the reference without dropping it.
  AIBinder* release() {
    AIBinder* b = mBinder;
    mBinder = nullptr;
    return b;
  }

#define SP_AIBINDER_COMPARE(_op_)                                                        \
  bool operator _op_(const SpAIBinder& rhs) const { return get() _op_ rhs.get(); }       \
  bool operator _op_(const AIBinder* rhs) const { return get() _op_ rhs; }               \
  bool operator _op_(std::nullptr_t) const { return get() _op_ static_cast<AIBinder*>(nullptr); }
  SP_AIBINDER_COMPARE(!=)
  SP_AIBINDER_COMPARE(<)
  SP_AIBINDER_COMPARE(<=)
  SP_AIBINDER_COMPARE(==)
  SP_AIBINDER_COMPARE(>)
  SP_AIBINDER_COMPARE(>=)
#undef SP_AIBINDER_COMPARE

 private:
  AIBinder* mBinder;
};

namespace impl {

// Move-only owner of a resource T released with Destroy, empty value DEFAULT.
template <typename T, void (*Destroy)(T), T DEFAULT>
class ScopedAResource {
 public:
  explicit ScopedAResource(T t = DEFAULT) : mT(t) {}
  ~ScopedAResource() { set(DEFAULT); }

  T get() const { return mT; }
  T* getR() { return &mT; }

  // Releases the held resource and takes `t`.
  void set(T t) {
    T old = mT;
    mT = t;
    if (old != DEFAULT) Destroy(old);
  }
  T release() {
    T a = mT;
    mT = DEFAULT;
    return a;
  }

  ScopedAResource(const ScopedAResource&) = delete;
  ScopedAResource& operator=(const ScopedAResource&) = delete;
  ScopedAResource(ScopedAResource&& other) noexcept : mT(other.release()) {}
  ScopedAResource& operator=(ScopedAResource&& other) noexcept {
    if (this != &other) set(other.release());
    return *this;
  }

 private:
  T mT;
};

}  // namespace impl

class ScopedAParcel : public impl::ScopedAResource<AParcel*, AParcel_delete, nullptr> {
 public:
  explicit ScopedAParcel(AParcel* a = nullptr) : ScopedAResource(a) {}
  ~ScopedAParcel() {}
  ScopedAParcel(ScopedAParcel&&) = default;
  ScopedAParcel& operator=(ScopedAParcel&&) = default;
};

class ScopedAStatus : public impl::ScopedAResource<AStatus*, AStatus_delete, nullptr> {
 public:
  explicit ScopedAStatus(AStatus* a = nullptr) : ScopedAResource(a) {}
  ~ScopedAStatus() {}
  ScopedAStatus(ScopedAStatus&&) = default;
  ScopedAStatus& operator=(ScopedAStatus&&) = default;

  // False for an empty (default-constructed) status.
  bool isOk() const { return get() != nullptr && AStatus_isOk(get()); }
  binder_exception_t getExceptionCode() const { return AStatus_getExceptionCode(get()); }
  int32_t getServiceSpecificError() const { return AStatus_getServiceSpecificError(get()); }
  binder_status_t getStatus() const { return AStatus_getStatus(get()); }
  const char* getMessage() const { return AStatus_getMessage(get()); }

  std::string getDescription() const {
    const char* cStr = AStatus_getDescription(get());
    std::string ret = cStr;
    AStatus_deleteDescription(cStr);
    return ret;
  }

  static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
  static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
    return ScopedAStatus(AStatus_fromExceptionCode(exception));
  }
  static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                    const char* message) {
    return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
  }
  static ScopedAStatus fromServiceSpecificError(int32_t serviceSpecific) {
    return ScopedAStatus(AStatus_fromServiceSpecificError(serviceSpecific));
  }
  static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t serviceSpecific,
                                                           const char* message) {
    return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, message));
  }
  static ScopedAStatus fromStatus(binder_status_t status) {
    return ScopedAStatus(AStatus_fromStatus(status));
  }
};

static inline std::ostream& operator<<(std::ostream& os, const ScopedAStatus& status) {
  return os << status.getDescription();
}

class ScopedAIBinder_DeathRecipient
    : public impl::ScopedAResource<AIBinder_DeathRecipient*, AIBinder_DeathRecipient_delete,
                                   nullptr> {
 public:
  explicit ScopedAIBinder_DeathRecipient(AIBinder_DeathRecipient* a = nullptr)
      : ScopedAResource(a) {}
  ~ScopedAIBinder_DeathRecipient() {}
  ScopedAIBinder_DeathRecipient(ScopedAIBinder_DeathRecipient&&) = default;
  ScopedAIBinder_DeathRecipient& operator=(ScopedAIBinder_DeathRecipient&&) = default;
};

class ScopedAIBinder_Weak
    : public impl::ScopedAResource<AIBinder_Weak*, AIBinder_Weak_delete, nullptr> {
 public:
  explicit ScopedAIBinder_Weak(AIBinder_Weak* a = nullptr) : ScopedAResource(a) {}
  ~ScopedAIBinder_Weak() {}
  ScopedAIBinder_Weak(ScopedAIBinder_Weak&&) = default;
  ScopedAIBinder_Weak& operator=(ScopedAIBinder_Weak&&) = default;

  // A strong reference, or an empty one if the object is gone.
  SpAIBinder promote() const { return SpAIBinder(AIBinder_Weak_promote(get())); }
};

namespace internal {
static inline void closeWithError(int fd) {
  if (fd == -1) return;
  int ret = close(fd);
  if (ret != 0) {
    perror("ndk::ScopedFileDescriptor: close");
  }
}
}  // namespace internal

class ScopedFileDescriptor : public impl::ScopedAResource<int, internal::closeWithError, -1> {
 public:
  explicit ScopedFileDescriptor(int a = -1) : ScopedAResource(a) {}
  ~ScopedFileDescriptor() {}
  ScopedFileDescriptor(ScopedFileDescriptor&&) = default;
  ScopedFileDescriptor& operator=(ScopedFileDescriptor&&) = default;

  ScopedFileDescriptor dup() const { return ScopedFileDescriptor(::dup(get())); }

  bool operator!=(const ScopedFileDescriptor& rhs) const { return get() != rhs.get(); }
  bool operator<(const ScopedFileDescriptor& rhs) const { return get() < rhs.get(); }
  bool operator<=(const ScopedFileDescriptor& rhs) const { return get() <= rhs.get(); }
  bool operator==(const ScopedFileDescriptor& rhs) const { return get() == rhs.get(); }
  bool operator>(const ScopedFileDescriptor& rhs) const { return get() > rhs.get(); }
  bool operator>=(const ScopedFileDescriptor& rhs) const { return get() >= rhs.get(); }
};

}  // namespace ndk
