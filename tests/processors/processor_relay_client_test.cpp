// The relay's client delivery: stalled, dead and hung clients, allocation
// and priority of the packet path.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "lumx_host/log_capture.h"
#include "processors/audio_relay_processor.h"
#include "support/processor_test_util.h"

#include "support/alloc_counter.h"

namespace {

using namespace ::lumx::test::processor;  // NOLINT(build/namespaces)

// Runs `fn` on a thread of its own: whether it ended within 10 s. On return
// `held` is released and the thread has ended.
bool EndsInTime(const std::function<void()>& fn, RecordingCallback* held) {
  auto done = std::async(std::launch::async, fn);
  const bool ended = done.wait_for(std::chrono::seconds(10)) == std::future_status::ready;
  held->Release();
  done.wait();
  return ended;
}

class ProcessorRelayClientTest : public ::testing::Test {
 protected:
  void SetUp() override {
    capture_.setEcho(false);
    buffers_.Wire(relay_.get());
    buffers_.SetTapFormat(48000, 1, 2);
    ASSERT_EQ(0, relay_->Enable(true));
  }

  std::shared_ptr<RecordingCallback> Client() {
    auto cb = ::ndk::SharedRefBase::make<RecordingCallback>();
    relay_->RegisterReceiveAudioCallback(cb);
    return cb;
  }

  // Block number k: 4800 samples of the value k. Allocates nothing.
  int Block(int k) {
    for (size_t i = 0; i < in_.size(); ++i) in_[i] = static_cast<uint8_t>(i % 2 == 0 ? k & 0xff : k >> 8);
    return relay_->ProcessBlock(in_.data(), in_.size(), out_.data(), out_.size());
  }

  static std::vector<int> Ids(const std::shared_ptr<RecordingCallback>& client) {
    std::vector<int> ids;
    for (const AudioPacket& p : client->all()) ids.push_back(Samples16(p.data.data(), 1)[0]);
    return ids;
  }

  ::lumx_host::LogCapture capture_;
  WiredBuffers buffers_;
  std::unique_ptr<AudioRelayProcessor> relay_ = std::make_unique<AudioRelayProcessor>(0x61726c31);  // "arl1"
  std::vector<uint8_t> in_ = std::vector<uint8_t>(9600);
  std::vector<uint8_t> out_ = std::vector<uint8_t>(9600);
};

// A client stopped inside a call for 10 s (1000 blocks of 10 ms) gets, when
// it resumes, the two newest blocks after the one it was taking; 997 are
// dropped and counted; every block meanwhile injects silence without failing
// and without allocating.
TEST_F(ProcessorRelayClientTest, StalledClientGetsAtMostThreeStaleBlocksAndCostsNoAllocation) {
  auto client = Client();
  client->Hold();
  int failures = 0;
  uint64_t allocations = 0;
  ASSERT_TRUE(EndsInTime([&] {
    lumx::test::StartCountingThisThread();
    failures += Block(1) != 0;
    allocations += lumx::test::StopCountingAllocations();
    client->WaitFor(1);
    lumx::test::StartCountingThisThread();
    for (int k = 2; k <= 1000; ++k) failures += Block(k) != 0;
    allocations += lumx::test::StopCountingAllocations();
  }, client.get())) << "the I/O thread waited for a stopped client";
  EXPECT_EQ(0, failures);
  EXPECT_EQ(std::vector<uint8_t>(9600, 0), out_);
  if (lumx::test::AllocationCounterWorks()) {
    EXPECT_EQ(0u, allocations) << "ProcessBlock allocated";
  }

  ASSERT_TRUE(client->WaitFor(3));  // caught up: a new block drops nothing
  ASSERT_EQ(0, Block(1001));
  ASSERT_TRUE(client->WaitFor(4));
  EXPECT_EQ(getpid(), relay_->clientStats().pid);  // registered directly, not through binder
  relay_->RegisterReceiveAudioCallback(nullptr);
  EXPECT_EQ((std::vector<int>{1, 999, 1000, 1001}), Ids(client));
  const RelayClientStats s = relay_->clientStats();
  EXPECT_EQ((std::vector<uint64_t>{0, 4, 0, 997, 0}), (std::vector<uint64_t>{s.registered, s.sent, s.failed, s.dropped,
                                                                           s.queued}));
  EXPECT_TRUE(capture_.contains("arl1 ReceiveAudio: client too slow, 997 oldest blocks dropped"));
}

// A dead client never fails the block (the I/O thread would log each one):
// the relay logs one line a second for it, with the count.
TEST_F(ProcessorRelayClientTest, DeadClientLogsAtMostOnceASecond) {
  auto client = Client();
  client->FailWith(STATUS_DEAD_OBJECT);
  capture_.clear();
  const auto start = std::chrono::steady_clock::now();
  for (int k = 1; k <= 100; ++k) {
    ASSERT_EQ(0, Block(k));
    ASSERT_TRUE(client->WaitFor(k));
  }
  relay_->RegisterReceiveAudioCallback(nullptr);
  const auto elapsed = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - start);
  const auto messages = capture_.messages();
  EXPECT_EQ("arl1 ReceiveAudio: client is dead, 1 blocks not delivered", messages.at(0));
  EXPECT_LE(std::count_if(messages.begin(), messages.end(),
                          [](const std::string& m) { return m.find("client is dead") != std::string::npos; }),
            1 + elapsed.count());
  EXPECT_EQ(100u, relay_->clientStats().failed);
}

// The sender runs at SCHED_OTHER even when everything, the registration
// included, happens on a SCHED_FIFO thread.
TEST_F(ProcessorRelayClientTest, SenderRunsAtNormalPriorityUnderARealTimeThread) {
  std::shared_ptr<RecordingCallback> client;
  bool realtime = false;
  std::thread([&] {
    const sched_param sp{2};
    realtime = pthread_setschedparam(pthread_self(), SCHED_FIFO, &sp) == 0;
    if (!realtime) return;
    client = Client();
    Block(1);
  }).join();
  if (!realtime) GTEST_SKIP() << "this process may not use SCHED_FIFO (needs CAP_SYS_NICE or RLIMIT_RTPRIO)";
  ASSERT_TRUE(client->WaitFor(1));
  EXPECT_EQ(SCHED_OTHER, client->policies().at(0));
}

// A client stuck in a call holds up neither the I/O thread, nor registering
// another client (which then gets the blocks), nor deleting the relay.
TEST_F(ProcessorRelayClientTest, HungClientHoldsUpNeitherReplacementNorDeletion) {
  auto stuck = Client();
  stuck->Hold();
  std::shared_ptr<RecordingCallback> next;
  ASSERT_TRUE(EndsInTime([&] {
    Block(1);
    stuck->WaitFor(1);
    next = Client();
    Block(2);
    next->WaitFor(1);
    relay_.reset();
  }, stuck.get()));
  EXPECT_EQ((std::vector<int>{1}), Ids(stuck));
  EXPECT_EQ((std::vector<int>{2}), Ids(next));
  // The stuck call's thread lets go of the client once the call returns.
  for (int i = 0; i < 2000 && stuck.use_count() > 1; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(1, stuck.use_count());
}

}  // namespace
