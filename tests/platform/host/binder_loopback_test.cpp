// Both ends of the socket transport in one process, so the threading of
// calls and call-backs also runs under ThreadSanitizer without fork().
#include <gtest/gtest.h>

#include "raw_peer.h"

namespace {

using LoopbackTest = lumx_test::LocalServiceTest;

TEST_F(LoopbackTest, LookupOfOwnServiceIsTheLocalObject) {
  ndk::SpAIBinder b(AServiceManager_checkService(name_.c_str()));
  EXPECT_EQ(service_->asBinder().get(), b.get());
  EXPECT_FALSE(AIBinder_isRemote(b.get()));
  auto svc = Remote();
  ASSERT_NE(nullptr, svc);
  EXPECT_NE(b.get(), svc->asBinder().get());
}

TEST_F(LoopbackTest, ConcurrentCallersCallBacksAndIdentity) {
  auto svc = Remote();
  ASSERT_NE(nullptr, svc);
  std::vector<std::thread> threads;
  std::atomic<int> good{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      auto cb = ndk::SharedRefBase::make<lumx_test::RecordingCallback>();
      for (int i = 0; i < 50; ++i) {
        int32_t ret = 0;
        if (!svc->echo(t * 1000 + i, &ret).isOk() || ret != t * 1000 + i) return;
        if (!svc->callBack(cb, i, false, &ret).isOk() || ret != i + 1) return;
        if (cb->last_tid.load() != lumx_test::Gettid()) return;
        if (!svc->callBack(cb, i, true, &ret).isOk() || ret != i + 1) return;
        ndk::SpAIBinder back;
        if (!svc->echoBinder(cb->asBinder(), &back).isOk() || back != cb->asBinder()) return;
      }
      good.fetch_add(1);
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(4, good.load());
}

}  // namespace
