// The host's NDK headers and the ILumx binding declare what the Android 15/16
// headers and the AIDL compiler declare, and nothing that would let host-only
// code through. Most of this is checked by compiling: each use below is the
// one the device header allows, and each static_assert states a difference
// the host headers used to have.
#include <android/binder_auto_utils.h>

// The generated code calls strcmp after including only the NDK headers.
static bool SameDescriptor(const char* a, const char* b) { return strcmp(a, b) == 0; }

#include <aidl/lumx/ILumx.h>
#include <android/binder_ibinder.h>
#include <android/binder_parcel_utils.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using ndk::SpAIBinder;

template <typename T, typename = void>
struct HasRelease : std::false_type {};
template <typename T>
struct HasRelease<T, std::void_t<decltype(std::declval<T&>().release())>> : std::true_type {};
template <typename T, typename = void>
struct HasMemberLess : std::false_type {};
template <typename T>
struct HasMemberLess<T, std::void_t<decltype(&T::operator<)>> : std::true_type {};

// SpAIBinder: no release(), comparisons are free functions (a raw pointer may
// stand on either side), and no move operations (see the test below).
static_assert(!HasRelease<SpAIBinder>::value);
static_assert(!HasMemberLess<SpAIBinder>::value);
static_assert(std::is_same_v<decltype(std::declval<const AIBinder*>() < std::declval<const SpAIBinder&>()), bool>);
static_assert(std::is_same_v<decltype(std::declval<const SpAIBinder&>() == std::declval<const AIBinder*>()), bool>);

// ScopedAResource::get has a non-const and a const form.
using StatusOwner = ndk::impl::ScopedAResource<AStatus*, AStatus_delete, nullptr>;
template <typename T>
using ConstGet = const T (StatusOwner::*)() const;
[[maybe_unused]] AStatus* (StatusOwner::*const kGet)() = &StatusOwner::get;
[[maybe_unused]] const ConstGet<AStatus*> kGetConst = &StatusOwner::get;

// Vector allocators: the one that hands out the buffer takes it as a third
// argument; the external one only sizes the vector; the getter returns T.
[[maybe_unused]] const AParcel_int32ArrayAllocator kAlloc = ndk::AParcel_stdVectorAllocator<int32_t>;
[[maybe_unused]] const AParcel_stringArrayAllocator kExternal = ndk::AParcel_stdVectorExternalAllocator<std::string>;
[[maybe_unused]] int64_t (*const kGetter)(const void*, size_t) = ndk::AParcel_stdVectorGetter<int64_t>;

// The binding: a ParamValue converts only from what its variant holds, and
// the nested callback interface names its delegator.
using aidl::lumx::ILumx;
static_assert(std::is_constructible_v<ILumx::ParamValue, int32_t>);
static_assert(std::is_constructible_v<ILumx::ParamValue, float>);
static_assert(!std::is_constructible_v<ILumx::ParamValue, std::string>);
static_assert(!std::is_constructible_v<ILumx::ParamValue, std::vector<int>>);
static_assert(std::is_same_v<ILumx::IReceiveAudioCallback::DefaultDelegator, ILumx::IReceiveAudioCallbackDelegator>);

binder_status_t NoTransact(AIBinder*, transaction_code_t, const AParcel*, AParcel*) { return STATUS_OK; }
void* NoCreate(void* args) { return args; }
void NoDestroy(void*) {}

AIBinder_Class* TestClass() {
  static AIBinder_Class* clazz = AIBinder_Class_define("lumx.test.IDeclared", NoCreate, NoDestroy, NoTransact);
  return clazz;
}

// The name table may be an array of constant pointers (Android 16 QPR2).
TEST(NdkDeclarations, FunctionNamesTableTakesAConstArray) {
  AIBinder_Class* clazz = TestClass();
  ASSERT_NE(clazz, nullptr);
  EXPECT_TRUE(SameDescriptor(AIBinder_Class_getDescriptor(clazz), "lumx.test.IDeclared"));
  static const char* const kNames[] = {"First", "Second"};
  AIBinder_Class_setTransactionCodeToFunctionNameMap(clazz, kNames, 2);
  EXPECT_STREQ(AIBinder_Class_getFunctionName(clazz, FIRST_CALL_TRANSACTION + 1), "Second");
  EXPECT_EQ(AIBinder_Class_getFunctionName(clazz, FIRST_CALL_TRANSACTION + 2), nullptr);
}

// Without move operations a "moved" SpAIBinder still holds its reference, as
// on a device; code that relied on the source being emptied would leak there.
TEST(NdkDeclarations, MovingAnSpAIBinderCopiesIt) {
  SpAIBinder a(AIBinder_new(TestClass(), nullptr));
  ASSERT_NE(a.get(), nullptr);
  SpAIBinder b(std::move(a));  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(a.get(), b.get());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(AIBinder_debugGetRefCount(b.get()), 2);
  SpAIBinder c;
  c = std::move(b);  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(b.get(), c.get());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(AIBinder_debugGetRefCount(c.get()), 3);
  EXPECT_TRUE(nullptr < c && c != nullptr && a.get() == c);
}

}  // namespace
