// C++ base classes for binder interfaces (host build of the header-only
// helpers of the same name): SharedRefBase, ICInterface, BnCInterface,
// BpCInterface.
#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <assert.h>
#include <stdio.h>
#include <stdlib.h>

#include <cstdlib>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace ndk {

// Base of every interface object. Objects are created with make<T>(...) and
// owned through std::shared_ptr; ref() hands out further owners.
class SharedRefBase {
 public:
  SharedRefBase() {}
  virtual ~SharedRefBase() {
    std::call_once(mFlagThis, [&]() {
      fprintf(stderr, "%s:%d: SharedRefBase: no ref created during lifetime\n", __FILE__, __LINE__);
      abort();
    });
    if (ref() != nullptr) {
      fprintf(stderr,
              "%s:%d: SharedRefBase: destructed but still able to lock weak_ptr. Is this object "
              "double-owned?\n",
              __FILE__, __LINE__);
      abort();
    }
  }

  // The owning shared_ptr; the first call creates it.
  std::shared_ptr<SharedRefBase> ref() {
    std::shared_ptr<SharedRefBase> thiz = mThis.lock();
    std::call_once(mFlagThis, [&]() {
      mThis = thiz = std::shared_ptr<SharedRefBase>(this, [](SharedRefBase* p) { delete p; });
    });
    return thiz;
  }

  template <typename CHILD>
  std::shared_ptr<CHILD> ref() {
    return std::static_pointer_cast<CHILD>(ref());
  }

  template <class T, class... Args>
  static std::shared_ptr<T> make(Args&&... args) {
    T* t = new T(std::forward<Args>(args)...);
    return t->template ref<T>();
  }

  static void operator delete(void* p) { std::free(p); }

 private:
  // Only make<T>() may allocate one.
  static void* operator new(size_t s) { return std::malloc(s); }

  std::once_flag mFlagThis;
  std::weak_ptr<SharedRefBase> mThis;
};

// Base of every binder interface (the generated I<Name> derives from it).
class ICInterface : public SharedRefBase {
 public:
  ICInterface() {}
  virtual ~ICInterface() {}

  // The binder object of this interface: the local object for a Bn, the
  // remote proxy for a Bp.
  virtual SpAIBinder asBinder() = 0;
  virtual bool isRemote() = 0;

  // Dumps nothing unless overridden.
  virtual inline binder_status_t dump(int fd, const char** args, uint32_t numArgs);

  // Defines the class of an interface whose local objects are made by
  // BnCInterface::createBinder (AIBinder_new(clazz, this)).
  // The 4-argument form also names the transaction codes (for traces).
  static inline AIBinder_Class* defineClass(const char* interfaceDescriptor,
                                            AIBinder_Class_onTransact onTransact,
                                            const char** codeToFunction, size_t functionCount);
  static inline AIBinder_Class* defineClass(const char* interfaceDescriptor,
                                            AIBinder_Class_onTransact onTransact);

  // The implementation behind a local object of such a class, or null.
  static inline std::shared_ptr<ICInterface> asInterface(AIBinder* binder);

 private:
  class ICInterfaceData {
   public:
    std::shared_ptr<ICInterface> interface;

    static inline std::shared_ptr<ICInterface> getInterface(AIBinder* binder);
    static inline void* onCreate(void* args);
    static inline void onDestroy(void* userData);
    static inline binder_status_t onDump(AIBinder* binder, int fd, const char** args,
                                         uint32_t numArgs);
  };
};

// Local (server-side) half of an interface.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
 public:
  BnCInterface() {}
  virtual ~BnCInterface() {}

  // The same AIBinder while anybody holds it; a new one after it died.
  SpAIBinder asBinder() override final;
  bool isRemote() override final { return false; }

  static std::string makeServiceName(std::string_view instance) {
    std::string name(INTERFACE::descriptor);
    name += "/";
    name += instance;
    return name;
  }

 protected:
  // Makes a new local AIBinder for this object.
  virtual SpAIBinder createBinder() = 0;

 private:
  std::mutex mMutex;  // guards mWeakBinder
  ScopedAIBinder_Weak mWeakBinder;
};

// Remote (client-side) half of an interface.
template <typename INTERFACE>
class BpCInterface : public INTERFACE {
 public:
  explicit BpCInterface(const SpAIBinder& binder) : mBinder(binder) {}
  virtual ~BpCInterface() {}

  SpAIBinder asBinder() override final;
  const SpAIBinder& asBinderReference() { return mBinder; }
  bool isRemote() override final { return AIBinder_isRemote(mBinder.get()); }

  binder_status_t dump(int fd, const char** args, uint32_t numArgs) override {
    return AIBinder_dump(asBinder().get(), fd, args, numArgs);
  }

 private:
  SpAIBinder mBinder;
};

// ---- inline definitions ----

binder_status_t ICInterface::dump(int /*fd*/, const char** /*args*/, uint32_t /*numArgs*/) {
  return STATUS_OK;
}

AIBinder_Class* ICInterface::defineClass(const char* interfaceDescriptor,
                                         AIBinder_Class_onTransact onTransact) {
  return defineClass(interfaceDescriptor, onTransact, nullptr, 0);
}

AIBinder_Class* ICInterface::defineClass(const char* interfaceDescriptor,
                                         AIBinder_Class_onTransact onTransact,
                                         const char** codeToFunction, size_t functionCount) {
  AIBinder_Class* clazz = AIBinder_Class_define(interfaceDescriptor, ICInterfaceData::onCreate,
                                                ICInterfaceData::onDestroy, onTransact);
  if (clazz == nullptr) return nullptr;
  // Registered whether or not the interface overrides dump(); the default is harmless.
  AIBinder_Class_setOnDump(clazz, ICInterfaceData::onDump);
  if (codeToFunction != nullptr) {
    AIBinder_Class_setTransactionCodeToFunctionNameMap(clazz, codeToFunction, functionCount);
  }
  return clazz;
}

std::shared_ptr<ICInterface> ICInterface::asInterface(AIBinder* binder) {
  return ICInterfaceData::getInterface(binder);
}

std::shared_ptr<ICInterface> ICInterface::ICInterfaceData::getInterface(AIBinder* binder) {
  if (binder == nullptr) return nullptr;
  void* userData = AIBinder_getUserData(binder);
  if (userData == nullptr) return nullptr;
  return static_cast<ICInterfaceData*>(userData)->interface;
}

void* ICInterface::ICInterfaceData::onCreate(void* args) {
  std::shared_ptr<ICInterface> interface = static_cast<ICInterface*>(args)->ref<ICInterface>();
  ICInterfaceData* data = new ICInterfaceData{interface};
  return static_cast<void*>(data);
}

void ICInterface::ICInterfaceData::onDestroy(void* userData) {
  delete static_cast<ICInterfaceData*>(userData);
}

binder_status_t ICInterface::ICInterfaceData::onDump(AIBinder* binder, int fd, const char** args,
                                                     uint32_t numArgs) {
  std::shared_ptr<ICInterface> interface = getInterface(binder);
  if (interface != nullptr) {
    return interface->dump(fd, args, numArgs);
  }
  return STATUS_DEAD_OBJECT;
}

template <typename INTERFACE>
SpAIBinder BnCInterface<INTERFACE>::asBinder() {
  std::lock_guard<std::mutex> l(mMutex);

  SpAIBinder binder;
  if (mWeakBinder.get() != nullptr) {
    binder.set(AIBinder_Weak_promote(mWeakBinder.get()));
  }
  if (binder.get() == nullptr) {
    binder = createBinder();
    mWeakBinder.set(AIBinder_Weak_new(binder.get()));
  }
  return binder;
}

template <typename INTERFACE>
SpAIBinder BpCInterface<INTERFACE>::asBinder() {
  return mBinder;
}

}  // namespace ndk

// std::make_shared and std::make_unique of a SharedRefBase would give the
// object a second, independent owner; only SharedRefBase::make<T>() may
// create one. These overloads turn such a call into a compile error, as on a
// device.
namespace ndk::internal {
template <typename T, typename = void>
struct is_complete_type : std::false_type {};
template <typename T>
struct is_complete_type<T, decltype(void(sizeof(T)))> : std::true_type {};
}  // namespace ndk::internal

namespace std {
template <typename T, typename... Args,
          std::enable_if_t<ndk::internal::is_complete_type<T>::value, bool> = true,
          std::enable_if_t<std::is_base_of<ndk::SharedRefBase, T>::value, bool> = true>
shared_ptr<T> make_shared(Args...) {
  static_assert(!std::is_base_of<ndk::SharedRefBase, T>::value);
}
template <typename T, typename... Args,
          std::enable_if_t<ndk::internal::is_complete_type<T>::value, bool> = true,
          std::enable_if_t<std::is_base_of<ndk::SharedRefBase, T>::value, bool> = true>
unique_ptr<T> make_unique(Args...) {
  static_assert(!std::is_base_of<ndk::SharedRefBase, T>::value);
}
}  // namespace std
