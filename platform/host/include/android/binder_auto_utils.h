// RAII owners for the C objects of the binder NDK (host build of the
// header-only helpers of the same name): SpAIBinder, ScopedAParcel,
// ScopedAStatus, ScopedAIBinder_DeathRecipient, ScopedAIBinder_Weak,
// ScopedFileDescriptor.
//
// Declares exactly what the Android 15/16 header declares, so that code that
// builds here builds on a device: SpAIBinder has no move operations and no
// release() (a move is a copy: one more reference, then one less), its
// comparisons are free functions, and the owners' set() always hands the old
// value to the deleter, null and -1 included.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>

#include <assert.h>
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <syslog.h>
#include <unistd.h>

#include <cstddef>
#include <iostream>
#include <string>

namespace ndk {

// Owns one strong reference to an AIBinder.
class SpAIBinder {
 public:
  SpAIBinder() : mBinder(nullptr) {}
  // Adopts a reference the caller already owns (no incStrong).
  explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}
  SpAIBinder(std::nullptr_t) : SpAIBinder() {}  // NOLINT(google-explicit-constructor)
  SpAIBinder(const SpAIBinder& other) { *this = other; }
  ~SpAIBinder() { set(nullptr); }

  SpAIBinder& operator=(const SpAIBinder& other) {
    if (this == &other) return *this;
    AIBinder_incStrong(other.mBinder);
    set(other.mBinder);
    return *this;
  }

  // Drops the old reference (if any) and adopts `binder`. Two threads
  // setting one SpAIBinder at once is a caller's bug; it ends the process.
  void set(AIBinder* binder) {
    AIBinder* old = *const_cast<AIBinder* volatile*>(&mBinder);
    if (old != nullptr) AIBinder_decStrong(old);
    if (old != *const_cast<AIBinder* volatile*>(&mBinder)) {
      fprintf(stderr, "%s:%d: SpAIBinder: race detected\n", __FILE__, __LINE__);
      abort();
    }
    mBinder = binder;
  }

  AIBinder* get() const { return mBinder; }
  // For out-parameters of the C API; the slot must be empty.
  AIBinder** getR() { return &mBinder; }

 private:
  AIBinder* mBinder = nullptr;
};

#define SP_AIBINDER_COMPARE(_op_)                                                  \
  static inline bool operator _op_(const SpAIBinder& lhs, const SpAIBinder& rhs) { \
    return lhs.get() _op_ rhs.get();                                               \
  }                                                                                \
  static inline bool operator _op_(const SpAIBinder& lhs, const AIBinder* rhs) {   \
    return lhs.get() _op_ rhs;                                                     \
  }                                                                                \
  static inline bool operator _op_(const AIBinder* lhs, const SpAIBinder& rhs) {   \
    return lhs _op_ rhs.get();                                                     \
  }
SP_AIBINDER_COMPARE(!=)
SP_AIBINDER_COMPARE(<)
SP_AIBINDER_COMPARE(<=)
SP_AIBINDER_COMPARE(==)
SP_AIBINDER_COMPARE(>)
SP_AIBINDER_COMPARE(>=)
#undef SP_AIBINDER_COMPARE

namespace impl {

// Move-only owner of a resource T released with Destroy, empty value DEFAULT.
template <typename T, void (*Destroy)(T), T DEFAULT>
class ScopedAResource {
 public:
  explicit ScopedAResource(T t = DEFAULT) : mT(t) {}
  ~ScopedAResource() { set(DEFAULT); }

  // Releases the held resource (Destroy sees DEFAULT too) and takes `t`.
  void set(T t) {
    Destroy(mT);
    mT = t;
  }

  T get() { return mT; }
  const T get() const { return mT; }

  // Gives up the resource without releasing it.
  [[nodiscard]] T release() {
    T a = mT;
    mT = DEFAULT;
    return a;
  }

  T* getR() { return &mT; }

  ScopedAResource(const ScopedAResource&) = delete;
  ScopedAResource& operator=(const ScopedAResource&) = delete;
  ScopedAResource(ScopedAResource&& other) noexcept : mT(other.mT) { other.mT = DEFAULT; }
  ScopedAResource& operator=(ScopedAResource&& other) noexcept {
    set(other.mT);
    other.mT = DEFAULT;
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

  bool operator!=(const ScopedAParcel& rhs) const { return get() != rhs.get(); }
  bool operator<(const ScopedAParcel& rhs) const { return get() < rhs.get(); }
  bool operator<=(const ScopedAParcel& rhs) const { return get() <= rhs.get(); }
  bool operator==(const ScopedAParcel& rhs) const { return get() == rhs.get(); }
  bool operator>(const ScopedAParcel& rhs) const { return get() > rhs.get(); }
  bool operator>=(const ScopedAParcel& rhs) const { return get() >= rhs.get(); }
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

// inline, not static: a static deleter would give every class built on it
// internal linkage in each translation unit.
inline void closeWithError(int fd) {
  if (fd == -1) return;
  int ret = close(fd);
  if (ret != 0) {
    syslog(LOG_ERR, "Could not close FD %d: %s", fd, strerror(errno));
  }
}

}  // namespace internal

class ScopedFileDescriptor : public impl::ScopedAResource<int, internal::closeWithError, -1> {
 public:
  ScopedFileDescriptor() : ScopedFileDescriptor(-1) {}
  explicit ScopedFileDescriptor(int a) : ScopedAResource(a) {}
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
