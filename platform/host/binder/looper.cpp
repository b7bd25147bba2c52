#include "looper.h"

#include <android/log.h>
#include <errno.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>

#include "common/rate_limit.h"
#include "connection.h"
#include "frame.h"
#include "internal.h"

namespace lumx_binder {

namespace {

constexpr const char* kTag = "binder";
constexpr uint64_t kIdMask = (uint64_t{1} << 62) - 1;
// Connections taken per wake of a listener before others get a turn.
constexpr int kAcceptBatch = 64;

lumx::LogRateLimiter g_refuse_log;
lumx::LogRateLimiter g_accept_log;

struct ThreadStart {
  const char* name;
  std::function<void()> fn;
};

void* ThreadMain(void* arg) {
  std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(arg));
  pthread_setname_np(pthread_self(), start->name);
  start->fn();
  return nullptr;
}

}  // namespace

int64_t NowMs() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

bool StartThread(const char* name, std::function<void()> fn) {
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
  // Not inherited: a real-time caller must not make runtime threads
  // real-time.
  pthread_attr_setinheritsched(&attr, PTHREAD_EXPLICIT_SCHED);
  pthread_attr_setschedpolicy(&attr, SCHED_OTHER);
  struct sched_param param = {};
  pthread_attr_setschedparam(&attr, &param);
  // Signals go to the application's own threads, never to runtime ones.
  sigset_t all, old;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &old);
  auto* heap = new ThreadStart{name, std::move(fn)};
  pthread_t t;
  const int rc = pthread_create(&t, &attr, ThreadMain, heap);
  pthread_sigmask(SIG_SETMASK, &old, nullptr);
  pthread_attr_destroy(&attr);
  if (rc != 0) {
    delete heap;
    __android_log_print(ANDROID_LOG_ERROR, kTag, "cannot start a thread: %s", strerror(rc));
    return false;
  }
  return true;
}

Looper::Looper()
    : epfd_(epoll_create1(EPOLL_CLOEXEC)),
      wepfd_(epoll_create1(EPOLL_CLOEXEC)),
      timerfd_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)) {
  TrackFd(epfd_.get());
  TrackFd(wepfd_.get());
  TrackFd(timerfd_.get());
  struct epoll_event ev = {};
  ev.events = EPOLLIN | EPOLLONESHOT;
  ev.data.u64 = Token(kWriteSet, 0);
  epoll_ctl(epfd_.get(), EPOLL_CTL_ADD, wepfd_.get(), &ev);
  ev.data.u64 = Token(kTimer, 0);
  epoll_ctl(epfd_.get(), EPOLL_CTL_ADD, timerfd_.get(), &ev);
}

bool Looper::Add(const std::shared_ptr<Connection>& c, int fd, pid_t peer_pid) {
  {
    lumx::MutexLock l(&mu_);
    conns_[c->id()] = c;
    ++per_peer_[peer_pid];
    peer_of_[c->id()] = peer_pid;
  }
  EnsureReader(true);
  struct epoll_event ev = {};
  ev.events = EPOLLIN | EPOLLONESHOT;
  ev.data.u64 = Token(kConn, c->id());
  if (epoll_ctl(epfd_.get(), EPOLL_CTL_ADD, fd, &ev) == 0) return true;
  Remove(c->id(), fd, false);
  return false;
}

void Looper::Remove(uint64_t id, int fd, bool in_write_set) {
  epoll_ctl(epfd_.get(), EPOLL_CTL_DEL, fd, nullptr);
  if (in_write_set) epoll_ctl(wepfd_.get(), EPOLL_CTL_DEL, fd, nullptr);
  bool unpark;
  {
    lumx::MutexLock l(&mu_);
    conns_.erase(id);
    auto p = peer_of_.find(id);
    if (p != peer_of_.end()) {
      auto n = per_peer_.find(p->second);
      if (n != per_peer_.end() && --n->second <= 0) per_peer_.erase(n);
      peer_of_.erase(p);
    }
    parked_.erase(std::remove(parked_.begin(), parked_.end(), id), parked_.end());
    unpark = !parked_.empty();
  }
  if (unpark) MaybeUnpark();
}

void Looper::Arm(int fd, uint64_t id, bool armed) {
  struct epoll_event ev = {};
  ev.events = armed ? (EPOLLIN | EPOLLONESHOT) : 0;
  ev.data.u64 = Token(kConn, id);
  epoll_ctl(epfd_.get(), EPOLL_CTL_MOD, fd, &ev);
}

void Looper::WatchWritable(int fd, uint64_t id, bool added) {
  struct epoll_event ev = {};
  ev.events = EPOLLOUT | EPOLLONESHOT;
  ev.data.u64 = Token(kConn, id);
  epoll_ctl(wepfd_.get(), added ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd, &ev);
}

bool Looper::AddListener(int fd) {
  // A serving process takes a descriptor per connection: raise the soft
  // limit (never past the hard one) so kMaxConnections fit beside the
  // process's own descriptors.
  struct rlimit lim;
  const rlim_t want = static_cast<rlim_t>(kMaxConnections + kReservedFds);
  if (getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_cur != RLIM_INFINITY && lim.rlim_cur < want) {
    lim.rlim_cur = lim.rlim_max == RLIM_INFINITY || lim.rlim_max > want ? want : lim.rlim_max;
    setrlimit(RLIMIT_NOFILE, &lim);
  }
  struct epoll_event ev = {};
  ev.events = EPOLLIN | EPOLLONESHOT;
  ev.data.u64 = Token(kListener, static_cast<uint64_t>(fd));
  if (epoll_ctl(epfd_.get(), EPOLL_CTL_ADD, fd, &ev) != 0) return false;
  EnsureReader(true);
  return true;
}

void Looper::Park(uint64_t id) {
  {
    lumx::MutexLock l(&mu_);
    parked_.push_back(id);
    parked_count_.store(static_cast<int>(parked_.size()), std::memory_order_relaxed);
  }
  // The bytes that filled the budget may have gone meanwhile.
  MaybeUnpark();
}

void Looper::MaybeUnpark() {
  if (parked_count_.load(std::memory_order_relaxed) == 0 ||
      partial_bytes.load() > static_cast<int64_t>(kMaxPartialBytesTotal)) {
    return;
  }
  std::vector<uint64_t> ids;
  {
    lumx::MutexLock l(&mu_);
    ids.swap(parked_);
    parked_count_.store(0, std::memory_order_relaxed);
  }
  for (uint64_t id : ids) {
    std::shared_ptr<Connection> c = Find(id);
    if (c != nullptr) c->Unpark();
  }
}

void Looper::WakeTimer() {
  lumx::MutexLock l(&mu_);
  ++timer_wakes_;
  if (timer_armed_) return;
  struct itimerspec its = {};
  its.it_value.tv_sec = 1;
  its.it_interval.tv_sec = 1;
  timerfd_settime(timerfd_.get(), 0, &its, nullptr);
  timer_armed_ = true;
}

std::shared_ptr<Connection> Looper::Find(uint64_t id) {
  lumx::MutexLock l(&mu_);
  auto it = conns_.find(id);
  return it == conns_.end() ? nullptr : it->second;
}

int Looper::ConnectionLimit() {
  struct rlimit lim;
  int limit = kMaxConnections;
  if (getrlimit(RLIMIT_NOFILE, &lim) == 0 && lim.rlim_cur != RLIM_INFINITY) {
    const int64_t by_fds = static_cast<int64_t>(lim.rlim_cur) - kReservedFds;
    if (by_fds < limit) limit = by_fds < 1 ? 1 : static_cast<int>(by_fds);
  }
  return limit;
}

void Looper::EnsureReader(bool any) {
  {
    lumx::MutexLock l(&mu_);
    if (waiting_ > 0 || (any && threads_ > 0)) return;
    ++waiting_;  // counted for the new thread, so nobody starts a second one
    ++threads_;
  }
  if (!StartThread("binder:io", [this] { ReaderLoop(); })) {
    lumx::MutexLock l(&mu_);
    --waiting_;
    --threads_;
  }
}

void Looper::ReaderLoop() {
  bool counted = true;
  for (;;) {
    if (!counted) {
      lumx::MutexLock l(&mu_);
      if (waiting_ >= kMaxIdleReaders) {
        --threads_;
        return;  // enough others wait
      }
      ++waiting_;
    }
    counted = false;
    struct epoll_event ev;
    const int n = epoll_wait(epfd_.get(), &ev, 1, -1);
    const int err = errno;
    const uint64_t id = ev.data.u64 & kIdMask;
    const Kind kind = static_cast<Kind>(ev.data.u64 >> 62);
    std::shared_ptr<Connection> c;
    {
      lumx::MutexLock l(&mu_);
      --waiting_;
      if (n > 0 && kind == kConn) {
        auto it = conns_.find(id);
        if (it != conns_.end()) c = it->second;
      }
    }
    if (n <= 0) {
      if (n < 0 && err != EINTR) usleep(1000);  // never spin on a broken epoll
      continue;
    }
    switch (kind) {
      case kConn: {
        if (c == nullptr) break;
        Work* w = nullptr;
        c->OnReadable(&w);
        if (w != nullptr) {
          // Run the call here; another thread watches the sockets.
          EnsureReader(false);
          c.reset();
          ExecuteWork(w);
          rt()->pool.ReleaseSlot();
        }
        break;
      }
      case kListener:
        OnListener(static_cast<int>(id));
        break;
      case kWriteSet:
        OnWritable();
        break;
      case kTimer:
        OnTimer();
        break;
    }
  }
}

void Looper::Refuse(int fd, uint32_t reason, pid_t pid, uid_t uid, int count, int limit) {
  Frame f;
  f.type = kFrameRefuse;
  f.code = reason;
  f.target = static_cast<uint64_t>(limit);
  std::vector<uint8_t> bytes;
  EncodeFrame(f, &bytes);
  (void)!send(fd, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
  close(fd);
  uint64_t held = 0;
  if (g_refuse_log.Allow(&held)) {
    if (reason == kRefuseTooManyFromPeer) {
      __android_log_print(ANDROID_LOG_WARN, kTag,
                          "refusing a connection from pid %d (uid %u): it has %d open (limit %d)",
                          static_cast<int>(pid), static_cast<unsigned>(uid), count, limit);
    } else {
      __android_log_print(ANDROID_LOG_WARN, kTag,
                          "refusing a connection from pid %d (uid %u): %d connections open (limit %d)",
                          static_cast<int>(pid), static_cast<unsigned>(uid), count, limit);
    }
    if (held > 0) {
      __android_log_print(ANDROID_LOG_WARN, kTag, "refusing connections: %llu more held back",
                          static_cast<unsigned long long>(held));
    }
  }
}

void Looper::OnListener(int lfd) {
  for (int i = 0; i < kAcceptBatch; ++i) {
    int c = accept4(lfd, nullptr, nullptr, SOCK_CLOEXEC);
    if (c < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK) break;
      if (errno == EINTR || errno == ECONNABORTED || errno == EPROTO) continue;
      const int err = errno;
      uint64_t held = 0;
      if (g_accept_log.Allow(&held)) {
        __android_log_print(ANDROID_LOG_ERROR, kTag, "accept: %s; new connections wait a second",
                            strerror(err));
      }
      // Out of descriptors or memory: let existing connections go first;
      // the timer takes the listener up again.
      {
        lumx::MutexLock l(&mu_);
        paused_listeners_.push_back(lfd);
      }
      WakeTimer();
      return;
    }
    struct ucred cred = {};
    socklen_t len = sizeof(cred);
    getsockopt(c, SOL_SOCKET, SO_PEERCRED, &cred, &len);
    int total, from_peer;
    {
      lumx::MutexLock l(&mu_);
      total = static_cast<int>(conns_.size());
      auto it = per_peer_.find(cred.pid);
      from_peer = it == per_peer_.end() ? 0 : it->second;
    }
    const int limit = ConnectionLimit();
    if (from_peer >= kMaxConnectionsPerPeer) {
      Refuse(c, kRefuseTooManyFromPeer, cred.pid, cred.uid, from_peer, kMaxConnectionsPerPeer);
      continue;
    }
    if (total >= limit) {
      Refuse(c, kRefuseTooMany, cred.pid, cred.uid, total, limit);
      continue;
    }
    std::shared_ptr<Connection> conn = Connection::Create(lumx::unique_fd(c), 0);
    conn->Start(false);
  }
  struct epoll_event ev = {};
  ev.events = EPOLLIN | EPOLLONESHOT;
  ev.data.u64 = Token(kListener, static_cast<uint64_t>(lfd));
  epoll_ctl(epfd_.get(), EPOLL_CTL_MOD, lfd, &ev);
}

void Looper::OnWritable() {
  struct epoll_event evs[32];
  int n;
  do {
    n = epoll_wait(wepfd_.get(), evs, 32, 0);
    for (int i = 0; i < n; ++i) {
      std::shared_ptr<Connection> c = Find(evs[i].data.u64 & kIdMask);
      if (c != nullptr) c->OnWritable();
    }
  } while (n == 32);
  struct epoll_event ev = {};
  ev.events = EPOLLIN | EPOLLONESHOT;
  ev.data.u64 = Token(kWriteSet, 0);
  epoll_ctl(epfd_.get(), EPOLL_CTL_MOD, wepfd_.get(), &ev);
}

void Looper::OnTimer() {
  uint64_t expirations;
  (void)!read(timerfd_.get(), &expirations, sizeof(expirations));
  std::vector<std::shared_ptr<Connection>> conns;
  std::vector<int> listeners;
  uint64_t wakes;
  {
    lumx::MutexLock l(&mu_);
    wakes = timer_wakes_;
    conns.reserve(conns_.size());
    for (auto& e : conns_) conns.push_back(e.second);
    listeners.swap(paused_listeners_);
  }
  const int64_t now = NowMs();
  bool pending = false;
  for (const std::shared_ptr<Connection>& c : conns) {
    const int64_t since = c->PartialSince();
    if (since == 0) continue;
    if (now - since >= kFrameDeadlineMs) {
      c->Kill(Connection::kCloseDeadline, "a frame did not arrive whole within 5 s");
    } else {
      pending = true;
    }
  }
  conns.clear();
  for (int fd : listeners) {
    struct epoll_event ev = {};
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.u64 = Token(kListener, static_cast<uint64_t>(fd));
    epoll_ctl(epfd_.get(), EPOLL_CTL_MOD, fd, &ev);
  }
  {
    lumx::MutexLock l(&mu_);
    // Stops when nothing is left to watch and nobody asked meanwhile.
    if (!pending && paused_listeners_.empty() && wakes == timer_wakes_) {
      struct itimerspec off = {};
      timerfd_settime(timerfd_.get(), 0, &off, nullptr);
      timer_armed_ = false;
    }
  }
  struct epoll_event ev = {};
  ev.events = EPOLLIN | EPOLLONESHOT;
  ev.data.u64 = Token(kTimer, 0);
  epoll_ctl(epfd_.get(), EPOLL_CTL_MOD, timerfd_.get(), &ev);
}

}  // namespace lumx_binder
