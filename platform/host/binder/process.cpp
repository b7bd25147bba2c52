// The process-wide runtime: its lazily created state (renewed in a fork()
// child), per-thread state, the thread pool and the execution of incoming
// transactions.
#include <android/binder_process.h>
#include <android/log.h>
#include <fcntl.h>
#include <pthread.h>
#include <sys/random.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <mutex>

#include "connection.h"
#include "internal.h"

namespace lumx_binder {

namespace {

pthread_mutex_t g_init_mu = PTHREAD_MUTEX_INITIALIZER;
std::atomic<Runtime*> g_rt{nullptr};
std::atomic<uint64_t> g_generation{1};
std::atomic<uint64_t> g_next_token{1};
bool g_atfork_registered = false;  // guarded by g_init_mu

// Descriptors owned by the runtime, stored as fd + 1 (0 = free slot).
constexpr int kMaxTrackedFds = 4096;
std::atomic<int> g_fds[kMaxTrackedFds];

void AtForkChild() {
  // The parent's connections and listeners belong to the parent: close our
  // copies so the peers still see the parent's death, and start afresh. The
  // old state is abandoned (its locks may have been held by threads that do
  // not exist here).
  for (auto& slot : g_fds) {
    int v = slot.exchange(0);
    if (v > 0) close(v - 1);
  }
  g_generation.fetch_add(1);
  g_rt.store(nullptr);
  pthread_mutex_init(&g_init_mu, nullptr);
}

uint64_t NewNonce() {
  uint64_t n = 0;
  if (getrandom(&n, sizeof(n), GRND_NONBLOCK) != sizeof(n)) {
    struct timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    n = (static_cast<uint64_t>(getpid()) << 40) ^ static_cast<uint64_t>(ts.tv_nsec) ^
        (static_cast<uint64_t>(ts.tv_sec) << 20);
  }
  return n == 0 ? 1 : n;
}

}  // namespace

Runtime::Runtime() : nonce(NewNonce()) {}

Runtime* rt() {
  Runtime* r = g_rt.load(std::memory_order_acquire);
  if (r != nullptr) return r;
  pthread_mutex_lock(&g_init_mu);
  r = g_rt.load(std::memory_order_acquire);
  if (r == nullptr) {
    if (!g_atfork_registered) {
      pthread_atfork(nullptr, nullptr, AtForkChild);
      g_atfork_registered = true;
    }
    // Never deleted: pool and reader threads may use it until the process ends.
    r = new Runtime();
    g_rt.store(r, std::memory_order_release);
  }
  pthread_mutex_unlock(&g_init_mu);
  return r;
}

uint64_t CurrentGeneration() { return g_generation.load(std::memory_order_relaxed); }

void TrackFd(int fd) {
  if (fd < 0) return;
  for (auto& slot : g_fds) {
    int expected = 0;
    if (slot.compare_exchange_strong(expected, fd + 1)) return;
  }
}

void UntrackFd(int fd) {
  if (fd < 0) return;
  for (auto& slot : g_fds) {
    int expected = fd + 1;
    if (slot.compare_exchange_strong(expected, 0)) return;
  }
}

// ---- threads ----

ThreadState::ThreadState() : token(g_next_token.fetch_add(1)) {}
ThreadState::~ThreadState() = default;

ThreadState* CurrentThread() {
  thread_local std::unique_ptr<ThreadState> state;
  if (!state) state.reset(new ThreadState());
  return state.get();
}

void WaitOn(std::condition_variable& cv, lumx::Mutex& mu) {
  std::unique_lock<std::mutex> lock(mu.native(), std::adopt_lock);
  cv.wait(lock);
  lock.release();
}

binder_status_t DispatchLocal(LocalBinder* b, transaction_code_t code, const AParcel* in,
                              AParcel* out) {
  const AIBinder_Class* c = b->clazz.load();
  if (c->write_token) {
    std::string descriptor;
    if (ReadInterfaceToken(in, &descriptor) != STATUS_OK || descriptor != c->descriptor) {
      return STATUS_BAD_TYPE;
    }
  }
  return c->on_transact(b, code, in, out);
}

binder_status_t DispatchDump(LocalBinder* b, int fd, const AParcel* in) {
  int32_t count = 0;
  if (AParcel_readInt32(in, &count) != STATUS_OK || count < 0) return STATUS_BAD_VALUE;
  // Each argument takes at least a word of the frame.
  if (static_cast<size_t>(count) > in->data.size() / 4) return STATUS_BAD_VALUE;
  std::vector<std::string> args(static_cast<size_t>(count));
  for (std::string& arg : args) {
    binder_status_t st = AParcel_readString(in, &arg, [](void* data, int32_t length, char** buffer) {
      if (length < 0) return false;  // a null argument
      std::string* text = static_cast<std::string*>(data);
      text->resize(static_cast<size_t>(length));
      *buffer = &(*text)[0];
      return true;
    });
    if (st != STATUS_OK) return STATUS_BAD_VALUE;
    // The allocator sized it with the terminator, which is not text.
    if (!arg.empty() && arg.back() == '\0') arg.pop_back();
  }
  std::vector<const char*> argv;
  argv.reserve(args.size());
  for (const std::string& arg : args) argv.push_back(arg.c_str());
  const AIBinder_Class* c = b->clazz.load();
  if (c == nullptr || c->on_dump == nullptr) return STATUS_OK;
  return c->on_dump(b, fd, argv.data(), static_cast<uint32_t>(argv.size()));
}

void DiscardWork(Work* w) {
  if (w->backlog_bytes > 0) w->conn->WorkStarted(w->backlog_bytes, (w->flags & FLAG_ONEWAY) != 0);
  LocalBinder* target = w->target;
  delete w;
  DecStrong(target);
}

void ExecuteWork(Work* w) {
  const bool oneway = (w->flags & FLAG_ONEWAY) != 0;
  if (w->conn->Closing()) {
    // Its caller is gone or being cut off: the answer would go nowhere.
    LocalBinder* target = w->target;
    IncStrong(target);
    DiscardWork(w);
    if (oneway) rt()->pool.OnewayDone(target);
    DecStrong(target);
    return;
  }
  if (w->backlog_bytes > 0) w->conn->WorkStarted(w->backlog_bytes, oneway);
  ThreadState* ts = CurrentThread();
  ts->contexts.push_back(IncomingContext{w->conn.get(), w->sender_token, w->pid, w->uid});
  binder_status_t st;
  {
    AParcel reply;
    w->data->pos = 0;
    st = w->code == kDumpTransaction ? DispatchDump(w->target, w->fd.get(), w->data.get())
                                     : DispatchLocal(w->target, w->code, w->data.get(), &reply);
    // The caller's copy of the descriptor goes before the answer does.
    if (w->fd.ok()) {
      w->fd.reset();
      w->conn->ReleaseDumpSlot();
    }
    ts->contexts.pop_back();
    if ((w->flags & FLAG_ONEWAY) == 0) w->conn->SendReply(w->txn_id, st, &reply);
  }
  LocalBinder* target = w->target;
  delete w;
  if (oneway) rt()->pool.OnewayDone(target);
  DecStrong(target);
}

void WaitForReply(ThreadState* ts, PendingCall* call, Connection* conn) {
  ++ts->wait_depth;
  for (;;) {
    ts->mu.lock();
    if (!ts->inbox.empty()) {
      Work* w = ts->inbox.front();
      ts->inbox.pop_front();
      ts->mu.unlock();
      ExecuteWork(w);
      continue;
    }
    if (call->done) {
      ts->mu.unlock();
      break;
    }
    ts->mu.unlock();
    // Read the reply ourselves if the socket is free: saves waking a reader
    // thread that would then wake us.
    if (conn != nullptr && conn->ReadAsCaller(ts, call)) continue;
    ts->mu.lock();
    while (!call->done && ts->inbox.empty()) WaitOn(ts->cv, ts->mu);
    ts->mu.unlock();
  }
  std::deque<Work*> leftovers;
  {
    lumx::MutexLock l(&ts->mu);
    if (--ts->wait_depth == 0) leftovers.swap(ts->inbox);
  }
  // Calls routed here that nobody can serve on this thread any more.
  for (Work* w : leftovers) rt()->pool.Enqueue(w);
}

// ---- thread pool ----

void ThreadPool::Enqueue(Work* w) {
  lumx::MutexLock l(&mu_);
  if ((w->flags & FLAG_ONEWAY) != 0) {
    auto it = async_.find(w->target);
    if (it != async_.end()) {
      it->second.push_back(w);  // runs after the one-way call in progress
      return;
    }
    async_.emplace(w->target, std::deque<Work*>());
  }
  PushLocked(w);
}

void ThreadPool::OnewayDone(LocalBinder* target) {
  lumx::MutexLock l(&mu_);
  auto it = async_.find(target);
  if (it == async_.end()) return;
  if (it->second.empty()) {
    async_.erase(it);
    return;
  }
  Work* next = it->second.front();
  it->second.pop_front();
  PushLocked(next);
}

void ThreadPool::DropWorkOf(const Connection* conn) {
  std::vector<Work*> dropped;
  {
    lumx::MutexLock l(&mu_);
    // One-way calls waiting behind another first, so that none of them is
    // released into the queue below.
    for (auto& entry : async_) {
      std::deque<Work*>& waiting = entry.second;
      for (auto it = waiting.begin(); it != waiting.end();) {
        if ((*it)->conn.get() == conn) {
          dropped.push_back(*it);
          it = waiting.erase(it);
        } else {
          ++it;
        }
      }
    }
    std::deque<Work*> keep;
    for (Work* w : queue_) {
      if (w->conn.get() != conn) {
        keep.push_back(w);
        continue;
      }
      dropped.push_back(w);
      if ((w->flags & FLAG_ONEWAY) == 0) continue;
      // It held its object's one-way turn: the next one-way call goes.
      auto it = async_.find(w->target);
      if (it == async_.end()) continue;
      if (it->second.empty()) {
        async_.erase(it);
      } else {
        keep.push_back(it->second.front());
        it->second.pop_front();
      }
    }
    queue_.swap(keep);
    if (!queue_.empty()) cv_.notify_all();
  }
  for (Work* w : dropped) DiscardWork(w);
}

void ThreadPool::PushLocked(Work* w) {
  queue_.push_back(w);
  if (queue_.size() > idle_) {
    if (!started_ && joined_ == 0) {
      // Nobody serves this process yet: start the pool implicitly.
      started_ = true;
      SpawnLocked();
    } else if (extra_ < max_extra_) {
      ++extra_;
      SpawnLocked();
    }
  }
  cv_.notify_one();
}

void ThreadPool::SpawnLocked() {
  ++idle_;
  if (!StartThread("binder:pool", [this] { Loop(); })) --idle_;
}

bool ThreadPool::TryReserveSlot() {
  lumx::MutexLock l(&mu_);
  if (!started_ && joined_ == 0) {
    // Nobody serves this process yet: start the pool implicitly.
    started_ = true;
    SpawnLocked();
  }
  if (executing_ >= CapacityLocked()) return false;
  ++executing_;
  return true;
}

void ThreadPool::ReleaseSlot() {
  lumx::MutexLock l(&mu_);
  --executing_;
  if (!queue_.empty()) cv_.notify_one();
}

bool ThreadPool::SetMaxThreads(uint32_t n) {
  lumx::MutexLock l(&mu_);
  if (started_explicitly_ || joined_ > 0) return false;
  max_extra_ = n;
  return true;
}

void ThreadPool::Start() {
  lumx::MutexLock l(&mu_);
  started_explicitly_ = true;
  if (started_) return;  // an implicit start already made the thread
  started_ = true;
  SpawnLocked();
}

bool ThreadPool::Started() {
  lumx::MutexLock l(&mu_);
  return started_explicitly_;
}

void ThreadPool::Join() {
  {
    lumx::MutexLock l(&mu_);
    ++joined_;
    ++idle_;
  }
  Loop();
}

void ThreadPool::Loop() {
  mu_.lock();
  for (;;) {
    while (queue_.empty() || executing_ >= CapacityLocked()) WaitOn(cv_, mu_);
    Work* w = queue_.front();
    queue_.pop_front();
    --idle_;
    ++executing_;
    mu_.unlock();
    ExecuteWork(w);
    mu_.lock();
    ++idle_;
    --executing_;
    if (!queue_.empty()) cv_.notify_one();
  }
}

}  // namespace lumx_binder

using lumx_binder::rt;

extern "C" {

void ABinderProcess_startThreadPool(void) { rt()->pool.Start(); }

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) {
  return rt()->pool.SetMaxThreads(numThreads);
}

bool ABinderProcess_isThreadPoolStarted(void) { return rt()->pool.Started(); }

void ABinderProcess_joinThreadPool(void) { rt()->pool.Join(); }

}  // extern "C"
