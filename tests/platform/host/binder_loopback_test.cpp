// Both ends of the socket transport in one process (a service of this
// process reached through its socket), so the threading of calls, call-backs
// and one-way delivery also runs under ThreadSanitizer without fork().
#include <gtest/gtest.h>
#include <lumx_host/binder_host.h>
#include <sys/syscall.h>

#include <condition_variable>

#include "test_util.h"

namespace {

pid_t Gettid() { return static_cast<pid_t>(syscall(SYS_gettid)); }

class LoopCallback : public lumx_test::BnTestCallback {
 public:
  ndk::ScopedAStatus onEvent(int32_t v, int32_t* ret) override {
    tid = Gettid();
    *ret = v * 3;
    return ndk::ScopedAStatus::ok();
  }
  ndk::ScopedAStatus onOneway(int32_t seq, const std::vector<uint8_t>&) override {
    std::lock_guard<std::mutex> l(mu);
    seqs.push_back(seq);
    return ndk::ScopedAStatus::ok();
  }
  size_t count() {
    std::lock_guard<std::mutex> l(mu);
    return seqs.size();
  }
  std::atomic<pid_t> tid{0};
  std::mutex mu;
  std::vector<int32_t> seqs;
};

class LoopbackTest : public ::testing::Test {
 protected:
  void SetUp() override {
    static int n = 0;
    name_ = "lumx.test.ITestService/loop" + std::to_string(++n);
    auto service = ndk::SharedRefBase::make<lumx_test::TestService>(new lumx_test::ServerShared());
    ASSERT_EQ(EX_NONE, AServiceManager_addService(service->asBinder().get(), name_.c_str()));
    local_ = service->asBinder();
    ndk::SpAIBinder b(lumx_host::ConnectToServiceSocket(name_.c_str()));
    ASSERT_TRUE(AIBinder_isRemote(b.get()));
    svc_ = lumx_test::ITestService::fromBinder(b);
    ASSERT_NE(nullptr, svc_);
  }

  lumx_test::BinderDirScope dir_;
  std::string name_;
  ndk::SpAIBinder local_;
  std::shared_ptr<lumx_test::ITestService> svc_;
};

TEST_F(LoopbackTest, LookupOfOwnServiceIsTheLocalObject) {
  ndk::SpAIBinder b(AServiceManager_checkService(name_.c_str()));
  EXPECT_EQ(local_.get(), b.get());
  EXPECT_FALSE(AIBinder_isRemote(b.get()));
  EXPECT_NE(local_.get(), svc_->asBinder().get());
}

TEST_F(LoopbackTest, ConcurrentCallersCallBacksAndIdentity) {
  std::vector<std::thread> threads;
  std::atomic<int> good{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      auto cb = ndk::SharedRefBase::make<LoopCallback>();
      for (int i = 0; i < 50; ++i) {
        int32_t ret = 0;
        if (!svc_->echo(t * 1000 + i, &ret).isOk() || ret != t * 1000 + i) return;
        if (!svc_->callBack(cb, i, false, &ret).isOk() || ret != 3 * i) return;
        if (cb->tid.load() != Gettid()) return;
        if (!svc_->callBack(cb, i, true, &ret).isOk() || ret != 3 * i) return;
        ndk::SpAIBinder back;
        if (!svc_->echoBinder(cb->asBinder(), &back).isOk() || back != cb->asBinder()) return;
      }
      good.fetch_add(1);
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(4, good.load());
}

TEST_F(LoopbackTest, OnewayDeliveryInOrder) {
  auto cb = ndk::SharedRefBase::make<LoopCallback>();
  bool same = false;
  ASSERT_TRUE(svc_->storeCallback(cb, &same).isOk());
  int32_t sent = 0, err = 0;
  ASSERT_TRUE(svc_->fireOneway(500, 100, &sent, &err).isOk());
  EXPECT_EQ(500, sent);
  ASSERT_TRUE(lumx_test::WaitUntil([&] { return cb->count() == 500; }));
  std::lock_guard<std::mutex> l(cb->mu);
  for (int i = 0; i < 500; ++i) ASSERT_EQ(i, cb->seqs[static_cast<size_t>(i)]);
}

}  // namespace
