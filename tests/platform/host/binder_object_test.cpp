// In-process behaviour of the binder C API and C++ helpers: statuses, local
// objects and their reference counts, weak references, classes, argument
// checks of transactions, and the ICInterface/Bn/Bp helpers.
#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>
#include <android/binder_interface_utils.h>
#include <gtest/gtest.h>

#include <sstream>
#include <tuple>

#include "test_util.h"

namespace {

using lumx_test::ITestCallback;
using lumx_test::ITestService;

TEST(StatusTest, KindsCodesAndTexts) {
  EXPECT_FALSE(ndk::ScopedAStatus().isOk()) << "a default-constructed status holds nothing";
  EXPECT_TRUE(ndk::ScopedAStatus::fromExceptionCode(EX_NONE).isOk());
  EXPECT_EQ("No error", ndk::ScopedAStatus::fromStatus(STATUS_OK).getDescription());
  EXPECT_EQ(STATUS_FAILED_TRANSACTION, ndk::ScopedAStatus::fromExceptionCode(EX_TRANSACTION_FAILED).getStatus());
  EXPECT_EQ(STATUS_UNKNOWN_ERROR, ndk::ScopedAStatus::fromStatus(-123456).getStatus()) << "unknown statuses fold";
  EXPECT_EQ(EX_TRANSACTION_FAILED, ndk::ScopedAStatus::fromExceptionCode(-77).getExceptionCode());

  ndk::ScopedAStatus dead = ndk::ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
  EXPECT_EQ(std::make_tuple(false, EX_TRANSACTION_FAILED, STATUS_DEAD_OBJECT, 0, std::string()),
            std::make_tuple(dead.isOk(), dead.getExceptionCode(), dead.getStatus(), dead.getServiceSpecificError(),
                            std::string(dead.getMessage())));
  std::ostringstream os;
  os << dead;
  EXPECT_EQ("Status(-129, EX_TRANSACTION_FAILED): 'DEAD_OBJECT: '", os.str());

  ndk::ScopedAStatus ss = ndk::ScopedAStatus::fromServiceSpecificErrorWithMessage(7, "seven");
  EXPECT_EQ(std::make_tuple(EX_SERVICE_SPECIFIC, 7, STATUS_OK, std::string("seven")),
            std::make_tuple(ss.getExceptionCode(), ss.getServiceSpecificError(), ss.getStatus(),
                            std::string(ss.getMessage())));
  EXPECT_EQ("Status(-8, EX_SERVICE_SPECIFIC): '7: seven'", ss.getDescription());
  ndk::ScopedAStatus moved = std::move(ss);
  EXPECT_EQ(nullptr, ss.get());  // NOLINT(bugprone-use-after-move)
  EXPECT_EQ(7, moved.getServiceSpecificError());
}

struct Counters {
  int created = 0;
  int destroyed = 0;
  int transacts = 0;
  transaction_code_t last_code = 0;
};

void* CountCreate(void* args) {
  static_cast<Counters*>(args)->created++;
  return args;
}
void CountDestroy(void* ud) { static_cast<Counters*>(ud)->destroyed++; }
binder_status_t CountTransact(AIBinder* b, transaction_code_t code, const AParcel* in,
                              AParcel* out) {
  auto* c = static_cast<Counters*>(AIBinder_getUserData(b));
  c->transacts++;
  c->last_code = code;
  int32_t v = 0;
  binder_status_t st = AParcel_readInt32(in, &v);
  if (st != STATUS_OK) return st;
  return AParcel_writeInt32(out, v * 2);
}

AIBinder_Class* CounterClass() {
  static AIBinder_Class* c =
      AIBinder_Class_define("lumx.test.ICounter", CountCreate, CountDestroy, CountTransact);
  return c;
}

TEST(BinderObjectTest, LifecycleAndReferenceCounts) {
  Counters c;
  AIBinder* b = AIBinder_new(CounterClass(), &c);
  ASSERT_NE(nullptr, b);
  EXPECT_EQ(1, c.created);
  EXPECT_EQ(1, AIBinder_debugGetRefCount(b));
  EXPECT_FALSE(AIBinder_isRemote(b));
  EXPECT_TRUE(AIBinder_isAlive(b));
  EXPECT_EQ(&c, AIBinder_getUserData(b));
  EXPECT_EQ(CounterClass(), AIBinder_getClass(b));
  EXPECT_STREQ("lumx.test.ICounter", AIBinder_Class_getDescriptor(CounterClass()));
  EXPECT_EQ(STATUS_OK, AIBinder_ping(b));

  AIBinder_Weak* weak = AIBinder_Weak_new(b);
  AIBinder_Weak* clone = AIBinder_Weak_clone(weak);
  AIBinder_incStrong(b);
  EXPECT_EQ(2, AIBinder_debugGetRefCount(b));
  AIBinder_decStrong(b);
  AIBinder* promoted = AIBinder_Weak_promote(weak);
  EXPECT_EQ(b, promoted);
  AIBinder_decStrong(promoted);
  EXPECT_EQ(0, c.destroyed);
  AIBinder_decStrong(b);
  EXPECT_EQ(1, c.destroyed) << "onDestroy runs with the last strong reference";
  EXPECT_EQ(nullptr, AIBinder_Weak_promote(weak)) << "a weak reference cannot revive it";
  EXPECT_EQ(nullptr, AIBinder_Weak_promote(clone));
  AIBinder_Weak_delete(weak);
  AIBinder_Weak_delete(clone);

  // Null handling.
  AIBinder_incStrong(nullptr);
  AIBinder_decStrong(nullptr);
  EXPECT_EQ(-1, AIBinder_debugGetRefCount(nullptr));
  EXPECT_EQ(nullptr, AIBinder_new(nullptr, nullptr));
  EXPECT_EQ(nullptr, AIBinder_Weak_new(nullptr));
  EXPECT_EQ(nullptr, AIBinder_Weak_promote(nullptr));
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_ping(nullptr));
  EXPECT_FALSE(AIBinder_isRemote(nullptr));
  EXPECT_EQ(nullptr, AIBinder_getUserData(nullptr));
  EXPECT_EQ(nullptr, AIBinder_Class_define(nullptr, CountCreate, CountDestroy, CountTransact));
  EXPECT_EQ(nullptr, AIBinder_Class_define("x", CountCreate, CountDestroy, nullptr));
}

TEST(BinderObjectTest, TransactChecksArgumentsInOrderAndAlwaysConsumesTheParcel) {
  Counters c;
  ndk::SpAIBinder b(AIBinder_new(CounterClass(), &c));
  ndk::SpAIBinder other(AIBinder_new(CounterClass(), &c));

  AParcel* in = nullptr;
  AParcel* out = reinterpret_cast<AParcel*>(0x1);
  ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(b.get(), &in));
  EXPECT_EQ(STATUS_UNKNOWN_TRANSACTION, AIBinder_transact(b.get(), 0, &in, &out, 0));
  EXPECT_EQ(nullptr, in);
  EXPECT_EQ(nullptr, out);

  ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(b.get(), &in));
  EXPECT_EQ(STATUS_BAD_VALUE, AIBinder_transact(b.get(), 1, &in, &out, 0x40));
  EXPECT_EQ(nullptr, in);

  ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(b.get(), &in));
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_transact(b.get(), 1, &in, nullptr, 0));
  EXPECT_EQ(nullptr, in);

  ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(other.get(), &in));
  EXPECT_EQ(STATUS_BAD_VALUE, AIBinder_transact(b.get(), 1, &in, &out, 0))
      << "a parcel prepared for another binder";

  AParcel* loose = AParcel_create();
  EXPECT_EQ(STATUS_BAD_VALUE, AIBinder_transact(b.get(), 1, &loose, &out, 0));
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_prepareTransaction(nullptr, &in));
  EXPECT_EQ(0, c.transacts);

  // A local call runs right here, token checked, reply positioned at 0.
  ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(b.get(), &in));
  AParcel_writeInt32(in, 21);
  ASSERT_EQ(STATUS_OK, AIBinder_transact(b.get(), 5, &in, &out, 0));
  int32_t v = 0;
  ASSERT_EQ(STATUS_OK, AParcel_readInt32(out, &v));
  EXPECT_EQ(42, v);
  AParcel_delete(out);
  EXPECT_EQ(5u, c.last_code);

  // The transaction's status is what onTransact returned.
  ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(b.get(), &in));
  EXPECT_EQ(STATUS_NOT_ENOUGH_DATA, AIBinder_transact(b.get(), 5, &in, &out, 0));
  EXPECT_EQ(nullptr, out);
}

TEST(BinderObjectTest, InterfaceTokenMismatchIsBadType) {
  static AIBinder_Class* same_name =
      AIBinder_Class_define("lumx.test.Other", CountCreate, CountDestroy, CountTransact);
  Counters c;
  ndk::SpAIBinder b(AIBinder_new(CounterClass(), &c));
  AParcel* in = nullptr;
  AParcel* out = nullptr;
  ASSERT_EQ(STATUS_OK, AIBinder_prepareTransaction(b.get(), &in));
  // Overwrite the token with another descriptor.
  AParcel_setDataPosition(in, 0);
  AParcel_writeString(in, "lumx.test.Other", 15);
  EXPECT_EQ(STATUS_BAD_TYPE, AIBinder_transact(b.get(), 1, &in, &out, 0));
  EXPECT_EQ(0, c.transacts);
  EXPECT_FALSE(AIBinder_associateClass(b.get(), same_name));
  EXPECT_TRUE(AIBinder_associateClass(b.get(), CounterClass()));
}

using Callback = lumx_test::RecordingCallback;

TEST(InterfaceTest, BnKeepsOneBinderWhileHeldAndFromBinderGivesTheLocalObject) {
  std::shared_ptr<Callback> cb = ndk::SharedRefBase::make<Callback>();
  EXPECT_FALSE(cb->isRemote());
  ndk::SpAIBinder b1 = cb->asBinder();
  ndk::SpAIBinder b2 = cb->asBinder();
  EXPECT_EQ(b1.get(), b2.get());
  EXPECT_EQ(b1, b2);

  std::shared_ptr<ITestCallback> back = ITestCallback::fromBinder(b1);
  EXPECT_EQ(cb.get(), back.get()) << "a local object is used directly, not through a proxy";
  // The wrong interface is refused.
  EXPECT_EQ(nullptr, ITestService::fromBinder(b1));

  // The binder keeps the implementation alive; the implementation only
  // holds a weak reference to the binder.
  std::weak_ptr<Callback> weak_cb = cb;
  AIBinder* raw = b1.get();
  cb.reset();
  back.reset();
  EXPECT_FALSE(weak_cb.expired());
  b2.set(nullptr);
  int32_t ret = 0;
  auto impl = std::static_pointer_cast<Callback>(ndk::ICInterface::asInterface(raw));
  ASSERT_NE(nullptr, impl);
  EXPECT_TRUE(impl->onEvent(1, &ret).isOk());
  EXPECT_EQ(2, ret);
  impl.reset();
  b1.set(nullptr);
  EXPECT_TRUE(weak_cb.expired()) << "dropping the last binder frees the implementation";

  std::shared_ptr<Callback> fresh = ndk::SharedRefBase::make<Callback>();
  EXPECT_NE(nullptr, fresh->asBinder().get());
  EXPECT_EQ("lumx.test.ITestCallback/default",
            lumx_test::BnTestCallback::makeServiceName("default"));
}

TEST(InterfaceTest, LocalCallThroughAProxyObjectStillWorks) {
  // A Bp wrapping a local binder goes through AIBinder_transact and the stub.
  std::shared_ptr<Callback> cb = ndk::SharedRefBase::make<Callback>();
  auto bp = ndk::SharedRefBase::make<lumx_test::BpTestCallback>(cb->asBinder());
  int32_t ret = 0;
  ndk::ScopedAStatus st = bp->onEvent(41, &ret);
  EXPECT_TRUE(st.isOk()) << st.getDescription();
  EXPECT_EQ(42, ret);
  EXPECT_FALSE(bp->isRemote());
  EXPECT_EQ(STATUS_OK, bp->dump(-1, nullptr, 0));
}

TEST(DeathRecipientTest, LocalBindersCannotBeWatched) {
  static int unlinked;
  unlinked = 0;
  ndk::ScopedAIBinder_DeathRecipient r(AIBinder_DeathRecipient_new([](void*) {}));
  AIBinder_DeathRecipient_setOnUnlinked(r.get(), [](void*) { unlinked++; });
  std::shared_ptr<Callback> cb = ndk::SharedRefBase::make<Callback>();
  EXPECT_EQ(STATUS_INVALID_OPERATION, AIBinder_linkToDeath(cb->asBinder().get(), r.get(), nullptr));
  EXPECT_EQ(1, unlinked) << "a failed link is still reported unlinked";
  EXPECT_EQ(STATUS_UNEXPECTED_NULL, AIBinder_linkToDeath(nullptr, r.get(), nullptr));
  EXPECT_EQ(nullptr, AIBinder_DeathRecipient_new(nullptr));
}

TEST(ProcessTest, CallingIdentityOutsideATransactionIsOurOwn) {
  EXPECT_EQ(getpid(), AIBinder_getCallingPid());
  EXPECT_EQ(getuid(), AIBinder_getCallingUid());
  EXPECT_FALSE(AIBinder_isHandlingTransaction());
}

}  // namespace
