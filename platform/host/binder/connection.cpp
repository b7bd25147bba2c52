#include "connection.h"

#include <android/log.h>
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

#include "common/rate_limit.h"
#include "looper.h"

namespace lumx_binder {

namespace {

constexpr const char* kTag = "binder";
// What one reader takes from a socket per wake before it lets others go
// first, what it reads at a time, and what it reads at a time while the
// partial-frame budget is spent (enough for any ordinary frame).
constexpr size_t kReadShare = 256u << 10;
constexpr size_t kReadChunk = 64u << 10;
constexpr size_t kTightReadChunk = 4u << 10;

std::atomic<uint64_t> g_next_id{1};

bool InUserRange(uint32_t code) {
  return code >= FIRST_CALL_TRANSACTION && code <= LAST_CALL_TRANSACTION;
}

// Per-thread receive buffer (not on the stack: callers' stacks may be small).
uint8_t* Scratch() {
  thread_local std::unique_ptr<uint8_t[]> buf;
  if (!buf) buf.reset(new uint8_t[kReadChunk]);
  return buf.get();
}

lumx::LogRateLimiter g_close_log[Connection::kCloseCauses];

}  // namespace

std::shared_ptr<Connection> Connection::Create(lumx::unique_fd fd, uint64_t peer_nonce) {
  return std::make_shared<Connection>(std::move(fd), peer_nonce);
}

Connection::Connection(lumx::unique_fd fd, uint64_t peer_nonce)
    : fd_(std::move(fd)),
      id_(g_next_id.fetch_add(1)),
      generation_(CurrentGeneration()),
      peer_nonce_(peer_nonce),
      need_hello_(peer_nonce == 0) {
  TrackFd(fd_.get());
  struct ucred cred;
  socklen_t len = sizeof(cred);
  if (getsockopt(fd_.get(), SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0) {
    peer_pid_ = cred.pid;
    peer_uid_ = cred.uid;
  }
}

Connection::~Connection() {
  // A connection that ended closed its socket then; one that never started
  // still owns it here.
  if (fd_.ok()) UntrackFd(fd_.get());
}

void Connection::Start(bool hello_sent) {
  if (!hello_sent) {
    Frame hello;
    hello.type = kFrameHello;
    hello.target = rt()->nonce;
    hello.code = static_cast<uint32_t>(getpid());
    SendFrame(hello, false);
  }
  if (need_hello_) {
    // The greeting is held to the frame deadline too.
    partial_since_.store(NowMs(), std::memory_order_relaxed);
    rt()->looper.WakeTimer();
  }
  if (!rt()->looper.Add(shared_from_this(), fd_.get(), peer_pid_)) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "cannot watch connection: %s", strerror(errno));
    {
      lumx::MutexLock l(&mu_);
      role_ = kRoleReader;
    }
    OnDeath();  // nobody could read it: fail everything now
  }
}

bool Connection::IsDead() {
  lumx::MutexLock l(&mu_);
  return dead_;
}

void Connection::WorkStarted(size_t bytes, bool oneway) {
  size_t ack = 0;
  {
    lumx::MutexLock l(&mu_);
    const size_t n = bytes < incoming_ ? bytes : incoming_;
    incoming_ -= n;
    rt()->looper.incoming_bytes.fetch_sub(static_cast<int64_t>(n));
    if (oneway) {
      incoming_oneway_ -= bytes < incoming_oneway_ ? bytes : incoming_oneway_;
      to_ack_ += bytes;
      if (to_ack_ >= kAckBatch || incoming_oneway_ == 0) ack = std::exchange(to_ack_, 0);
    }
  }
  if (ack > 0 && !Closing()) {
    Frame f;
    f.type = kFrameAck;
    f.code = static_cast<uint32_t>(ack);
    SendFrame(f, false);
  }
}

void Connection::Kill(CloseCause cause, const char* why) {
  {
    lumx::MutexLock l(&wmu_);
    if (wdead_ || killed_) return;
    killed_ = true;
    closing_.store(true, std::memory_order_release);
    shutdown(fd_.get(), SHUT_RDWR);
  }
  uint64_t held = 0;
  if (g_close_log[cause].Allow(&held)) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "closing connection to pid %d (uid %u): %s",
                        static_cast<int>(peer_pid_), static_cast<unsigned>(peer_uid_), why);
    if (held > 0) {
      __android_log_print(ANDROID_LOG_WARN, kTag, "closing connections (%s): %llu more held back",
                          why, static_cast<unsigned long long>(held));
    }
  }
  // Whoever reads next sees the end; if nobody holds the socket, wake a
  // reader for it (also when it was parked).
  lumx::MutexLock l(&mu_);
  parked_ = false;
  if (role_ == kRoleFree && !closed_) rt()->looper.Arm(fd_.get(), id_, true);
}

// ---- reading ----

void Connection::OnReadable(Work** inline_work) {
  {
    lumx::MutexLock l(&mu_);
    if (dead_ || role_ != kRoleFree) return;
    role_ = kRoleReader;
  }
  if (ReadBatch(inline_work) == ReadResult::kBroken) {
    if (*inline_work != nullptr) {
      // Its caller is gone with the connection.
      DiscardWork(*inline_work);
      rt()->pool.ReleaseSlot();
      *inline_work = nullptr;
    }
    OnDeath();
    return;
  }
  ReleaseReadRole();
}

void Connection::Received(const uint8_t* data, size_t n) { decoder_.Append(data, n); }

ssize_t Connection::Receive(int fd, uint8_t* buf, size_t max, int flags) {
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int) * kMaxLooseFds)];
  iovec iov = {buf, max};
  msghdr msg = {};
  msg.msg_iov = &iov;
  msg.msg_iovlen = 1;
  msg.msg_control = control;
  msg.msg_controllen = sizeof control;
  const ssize_t n = recvmsg(fd, &msg, flags | MSG_CMSG_CLOEXEC);
  if (n < 0) return n;
  const uint64_t begin = rx_total_;
  rx_total_ += static_cast<uint64_t>(n);
  if (msg.msg_controllen > 0) {
    for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c != nullptr; c = CMSG_NXTHDR(&msg, c)) {
      if (c->cmsg_level != SOL_SOCKET || c->cmsg_type != SCM_RIGHTS) continue;
      const size_t count = (c->cmsg_len - CMSG_LEN(0)) / sizeof(int);
      for (size_t i = 0; i < count; ++i) {
        int received;
        memcpy(&received, CMSG_DATA(c) + i * sizeof(int), sizeof received);
        loose_fds_.push_back(LooseFd{lumx::unique_fd(received), begin, rx_total_});
      }
    }
  }
  // The kernel closed what did not fit; either way the peer sends
  // descriptors no frame of this transport carries.
  if ((msg.msg_flags & MSG_CTRUNC) != 0 || loose_fds_.size() > kMaxLooseFds) {
    loose_fds_.clear();
    errno = EPROTO;
    return -1;
  }
  return n;
}

void Connection::TakeFrameFd(uint64_t start, uint64_t size) {
  frame_fd_.reset();
  while (!loose_fds_.empty()) {
    LooseFd& f = loose_fds_.front();
    if (f.end <= start) {
      // It came with bytes before this frame: a frame that takes none.
      loose_fds_.pop_front();
      continue;
    }
    if (f.begin <= start && f.end <= start + size) {
      frame_fd_ = std::move(f.fd);
      loose_fds_.pop_front();
    }
    // Otherwise it belongs to a frame that starts later.
    return;
  }
}

bool Connection::ReserveDumpSlot() {
  Looper& lp = rt()->looper;
  lumx::MutexLock l(&mu_);
  if (dumps_held_ >= kMaxDumpsPerConnection) return false;
  if (lp.dumps_held.fetch_add(1) >= kMaxDumpsTotal) {
    lp.dumps_held.fetch_sub(1);
    return false;
  }
  ++dumps_held_;
  return true;
}

void Connection::ReleaseDumpSlot() {
  rt()->looper.dumps_held.fetch_sub(1);
  lumx::MutexLock l(&mu_);
  --dumps_held_;
}

void Connection::UpdatePartial() {
  Looper& lp = rt()->looper;
  const size_t now_held = decoder_.buffered();
  if (now_held != partial_counted_) {
    lp.partial_bytes.fetch_add(static_cast<int64_t>(now_held) - static_cast<int64_t>(partial_counted_));
    partial_counted_ = now_held;
  }
  if (now_held == 0 && !need_hello_) {
    partial_since_.store(0, std::memory_order_relaxed);
  } else if (partial_since_.load(std::memory_order_relaxed) == 0) {
    partial_since_.store(NowMs(), std::memory_order_relaxed);
    lp.WakeTimer();
  }
}

void Connection::ReleaseReadRole() {
  UpdatePartial();
  Looper& lp = rt()->looper;
  const bool park = decoder_.buffered() > 0 && !Closing() &&
                    lp.partial_bytes.load() > static_cast<int64_t>(kMaxPartialBytesTotal);
  {
    // Re-armed under the lock: once the role is free, the next reader may
    // find the peer gone and close the descriptor.
    lumx::MutexLock l(&mu_);
    role_ = kRoleFree;
    parked_ = park;
    if (!park && !closed_) lp.Arm(fd_.get(), id_, true);
  }
  if (park) lp.Park(id_);
}

void Connection::Unpark() {
  lumx::MutexLock l(&mu_);
  if (!parked_) return;
  parked_ = false;
  if (role_ == kRoleFree && !closed_) rt()->looper.Arm(fd_.get(), id_, true);
}

Connection::ReadResult Connection::HandleBuffered(Work** inline_work, ThreadState* caller,
                                                  PendingCall* call) {
  Frame f;
  DecodeStatus st;
  uint64_t start = rx_total_ - decoder_.buffered();
  while ((st = decoder_.Next(&f)) == DecodeStatus::kOk) {
    TakeFrameFd(start, f.wire_size);
    start += f.wire_size;
    if (Closing()) return ReadResult::kBroken;  // nothing more of a closed peer runs
    if (need_hello_) {
      if (f.type != kFrameHello || f.target == 0) {
        close_reason_ = "no greeting";
        break;
      }
      need_hello_ = false;
      peer_nonce_ = f.target;
      Runtime* r = rt();
      if (peer_nonce_ != r->nonce) {
        lumx::MutexLock l(&r->mu);
        auto it = r->peers.find(peer_nonce_);
        if (it == r->peers.end() || it->second.expired()) r->peers[peer_nonce_] = shared_from_this();
      }
      continue;
    }
    if (!HandleFrame(std::move(f), inline_work)) {
      if (close_reason_ == nullptr) close_reason_ = "protocol error";
      break;
    }
    if (inline_work != nullptr && *inline_work != nullptr) return ReadResult::kInline;
    if (caller != nullptr) {
      lumx::MutexLock l(&caller->mu);
      if (call->done || !caller->inbox.empty()) return ReadResult::kCallerDone;
    }
  }
  frame_fd_.reset();  // a frame that did not take its descriptor
  if (st == DecodeStatus::kError) close_reason_ = decoder_.error();
  if (close_reason_ != nullptr) {
    char why[128];
    snprintf(why, sizeof(why), "%s", close_reason_);
    Kill(close_cause_, why);
    return ReadResult::kBroken;
  }
  return Closing() ? ReadResult::kBroken : ReadResult::kNeedMore;
}

Connection::ReadResult Connection::ReadBatch(Work** inline_work) {
  const int fd = fd_.get();
  uint8_t* buf = Scratch();
  size_t share = kReadShare;
  for (;;) {
    ReadResult r = HandleBuffered(inline_work, nullptr, nullptr);
    if (r == ReadResult::kBroken) return r;
    if (r == ReadResult::kInline) {
      // The other complete frames are handled now: the next reader only
      // wakes for new bytes.
      if (HandleBuffered(nullptr, nullptr, nullptr) == ReadResult::kBroken) {
        return ReadResult::kBroken;
      }
      return ReadResult::kInline;
    }
    UpdatePartial();
    if (share == 0) return ReadResult::kYield;
    size_t max = kReadChunk;
    if (rt()->looper.partial_bytes.load() > static_cast<int64_t>(kMaxPartialBytesTotal)) {
      // Over the budget: a frame in progress waits (it is parked when the
      // role goes back); a new one may still start with a small read.
      if (decoder_.buffered() > 0) return ReadResult::kYield;
      max = kTightReadChunk;
    }
    ssize_t n = Receive(fd, buf, max, MSG_DONTWAIT);
    if (n > 0) {
      Received(buf, static_cast<size_t>(n));
      share -= static_cast<size_t>(n) < share ? static_cast<size_t>(n) : share;
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return ReadResult::kNeedMore;
    return ReadResult::kBroken;  // peer closed or socket error
  }
}

bool Connection::ReadAsCaller(ThreadState* ts, PendingCall* call) {
  {
    lumx::MutexLock l(&mu_);
    if (role_ != kRoleFree || dead_ || need_hello_ || parked_) return false;
    role_ = kRoleCaller;
    // Nobody else is woken for the bytes we are about to read.
    rt()->looper.Arm(fd_.get(), id_, false);
  }
  const int fd = fd_.get();
  uint8_t* buf = Scratch();
  for (;;) {
    ReadResult r = HandleBuffered(nullptr, ts, call);
    if (r == ReadResult::kBroken) {
      shutdown(fd, SHUT_RDWR);  // a reader thread sees it and cleans up
      break;
    }
    if (r == ReadResult::kCallerDone) break;
    {
      // The reply may have been read by another thread before we got here.
      lumx::MutexLock l(&ts->mu);
      if (call->done || !ts->inbox.empty()) break;
    }
    UpdatePartial();
    ssize_t n = Receive(fd, buf, kReadChunk, 0);
    if (n > 0) {
      Received(buf, static_cast<size_t>(n));
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    break;  // end of stream: a reader thread handles the death
  }
  // Complete frames read along with ours are handled before the socket goes
  // back (reader threads only wake for new bytes).
  if (HandleBuffered(nullptr, nullptr, nullptr) == ReadResult::kBroken) shutdown(fd, SHUT_RDWR);
  ReleaseReadRole();
  return true;
}

bool Connection::HandleFrame(Frame&& f, Work** inline_work) {
  switch (f.type) {
    case kFrameTransact:
      return HandleTransact(std::move(f), inline_work);
    case kFrameReply:
      return HandleReply(std::move(f));
    case kFrameRelease:
      return HandleRelease(f);
    case kFrameAck: {
      lumx::MutexLock l(&wmu_);
      oneway_in_flight_ -= f.code < oneway_in_flight_ ? f.code : oneway_in_flight_;
      return true;
    }
    default:
      return false;  // a second hello, or a refusal after the greeting
  }
}

binder_status_t Connection::Unflatten(Frame&& f, std::unique_ptr<AParcel>* out) {
  auto p = std::make_unique<AParcel>();
  binder_status_t st = STATUS_OK;
  std::shared_ptr<Connection> self = shared_from_this();
  // Every object of the peer is taken (and later released) even when another
  // one is bad, so the peer's reference counts stay exact.
  for (const WireObject& o : f.objects) {
    AIBinder* b = nullptr;
    if (o.kind == kObjectSenderLocal) {
      b = GetOrCreateProxy(self, o.id, o.descriptor);
    } else {
      lumx::MutexLock l(&mu_);
      auto it = exports_.find(o.id);
      if (it != exports_.end()) {
        b = it->second.binder;
        IncStrong(b);
      }
    }
    if (b == nullptr) {
      st = STATUS_BAD_VALUE;
      continue;
    }
    p->objects.push_back(ParcelObject{static_cast<int32_t>(o.offset), b});
  }
  p->data = std::move(f.data);
  *out = std::move(p);
  return st;
}

bool Connection::HandleTransact(Frame&& f, Work** inline_work) {
  const bool oneway = (f.flags & FLAG_ONEWAY) != 0;
  const uint64_t txn = f.txn_id;
  const uint64_t target = f.target;
  const uint32_t code = f.code;
  const uint32_t flags = f.flags;
  const uint64_t sender_token = f.sender_token;
  const uint64_t route_token = f.route_token;
  const uint32_t wire_size = f.wire_size;
  if (!oneway && txn == 0) return false;

  // A one-way call that never runs is acknowledged at once, or the sender's
  // credit would shrink for good.
  auto ack_dropped = [&] {
    {
      lumx::MutexLock l(&mu_);
      incoming_ += wire_size;
      incoming_oneway_ += wire_size;
    }
    rt()->looper.incoming_bytes.fetch_add(wire_size);
    WorkStarted(wire_size, true);
  };

  std::unique_ptr<AParcel> data;
  binder_status_t st = Unflatten(std::move(f), &data);
  if (oneway && (st != STATUS_OK || target == 0)) {
    ack_dropped();
    return true;
  }
  if (st != STATUS_OK) {
    ReplyError(txn, st);
    return true;
  }

  if (target == 0) {
    // The context object: service lookups by name.
    if (oneway || code != kGetServiceTransaction) {
      if (!oneway) ReplyError(txn, STATUS_UNKNOWN_TRANSACTION);
      return true;
    }
    std::string name;
    if (ReadInterfaceToken(data.get(), &name) != STATUS_OK) {
      ReplyError(txn, STATUS_BAD_VALUE);
      return true;
    }
    AIBinder* b = nullptr;
    {
      Runtime* r = rt();
      lumx::MutexLock l(&r->services_mu);
      auto it = r->services.find(name);
      if (it != r->services.end()) {
        b = it->second;
        IncStrong(b);
      }
    }
    AParcel reply;
    AParcel_writeStrongBinder(&reply, b);
    if (b != nullptr) DecStrong(b);
    SendReply(txn, STATUS_OK, &reply);
    return true;
  }

  LocalBinder* b = nullptr;
  {
    lumx::MutexLock l(&mu_);
    auto it = exports_.find(target);
    if (it != exports_.end()) {
      b = it->second.binder;
      IncStrong(b);
    }
  }
  const bool dump = code == kDumpTransaction;
  if (b == nullptr || code == kPingTransaction || (!InUserRange(code) && !dump)) {
    if (b != nullptr) DecStrong(b);
    if (oneway) {
      ack_dropped();
    } else if (b == nullptr) {
      ReplyError(txn, STATUS_BAD_VALUE);
    } else if (code == kPingTransaction) {
      AParcel empty;
      SendReply(txn, STATUS_OK, &empty);
    } else {
      ReplyError(txn, STATUS_UNKNOWN_TRANSACTION);
    }
    return true;
  }

  if (dump && (oneway || !frame_fd_.ok() || !ReserveDumpSlot())) {
    // A dump answers once its output is written: never one-way. Without
    // its descriptor there is nothing to write to; past the limits, the
    // descriptor is not kept.
    const bool had_fd = frame_fd_.ok();
    DecStrong(b);
    frame_fd_.reset();
    if (oneway) {
      ack_dropped();
    } else {
      ReplyError(txn, had_fd ? STATUS_WOULD_BLOCK : STATUS_BAD_VALUE);
    }
    return true;
  }

  Work* w = new Work;
  if (dump) w->fd = std::move(frame_fd_);
  w->conn = shared_from_this();
  w->target = b;
  w->code = code;
  w->flags = flags;
  w->txn_id = txn;
  w->sender_token = sender_token;
  w->pid = oneway ? 0 : peer_pid_;
  w->uid = peer_uid_;
  w->data = std::move(data);

  if (!oneway && route_token != 0) {
    // A call-back made while the peer serves a call of our thread
    // `route_token`: that thread, which waits for its reply, runs it.
    lumx::MutexLock l(&mu_);
    auto it = waiters_.find(route_token);
    if (it != waiters_.end()) {
      ThreadState* ts = it->second.ts;
      lumx::MutexLock tl(&ts->mu);
      ts->inbox.push_back(w);
      ts->cv.notify_all();
      return true;
    }
  }
  if (!oneway && inline_work != nullptr && rt()->pool.TryReserveSlot()) {
    // Run it on this thread (saves a thread switch per call); the looper
    // makes sure another thread watches the sockets first.
    *inline_work = w;
    return true;
  }
  // Queued for the pool: counted until it starts.
  Looper& lp = rt()->looper;
  size_t mine;
  {
    lumx::MutexLock l(&mu_);
    incoming_ += wire_size;
    if (oneway) incoming_oneway_ += wire_size;
    mine = incoming_;
  }
  w->backlog_bytes = wire_size;
  const int64_t total = lp.incoming_bytes.fetch_add(wire_size) + wire_size;
  if (mine > kMaxIncomingBytes ||
      (mine > wire_size && total > static_cast<int64_t>(kMaxIncomingBytesTotal))) {
    DiscardWork(w);
    close_cause_ = kCloseTooFast;
    close_reason_ = mine > kMaxIncomingBytes
                        ? "calls arrive faster than they run (4 MiB waiting)"
                        : "calls arrive faster than they run (process total over 64 MiB)";
    return false;
  }
  rt()->pool.Enqueue(w);
  return true;
}

bool Connection::HandleReply(Frame&& f) {
  const uint64_t txn = f.txn_id;
  binder_status_t status = static_cast<binder_status_t>(f.code);
  std::unique_ptr<AParcel> reply;
  binder_status_t st = Unflatten(std::move(f), &reply);
  PendingCall* call = nullptr;
  ThreadState* ts = nullptr;
  {
    lumx::MutexLock l(&mu_);
    auto it = pending_.find(txn);
    if (it == pending_.end()) return true;  // nobody waits for it (stale or bogus)
    call = it->second.first;
    ts = it->second.second;
    pending_.erase(it);
  }
  if (status == STATUS_OK && st != STATUS_OK) status = st;
  lumx::MutexLock l(&ts->mu);
  call->status = status;
  call->reply = status == STATUS_OK ? reply.release() : nullptr;
  call->done = true;
  ts->cv.notify_all();
  return true;
}

bool Connection::HandleRelease(const Frame& f) {
  LocalBinder* drop = nullptr;
  {
    lumx::MutexLock l(&mu_);
    auto it = exports_.find(f.target);
    if (it == exports_.end()) return true;  // the peer's bookkeeping is off; nothing to undo
    it->second.count -= static_cast<int64_t>(f.code);
    if (it->second.count <= 0) {
      drop = it->second.binder;
      exports_.erase(it);
    }
  }
  if (drop != nullptr) DecStrong(drop);
  return true;
}

void Connection::OnDeath() {
  closing_.store(true, std::memory_order_release);
  Looper& lp = rt()->looper;
  bool in_write_set;
  {
    lumx::MutexLock l(&wmu_);
    wdead_ = true;
    shutdown(fd_.get(), SHUT_RDWR);
    sendq_.clear();
    lp.queued_bytes.fetch_sub(static_cast<int64_t>(queued_));
    queued_ = 0;
    in_write_set = in_write_set_;
    in_write_set_ = false;
  }
  std::unordered_map<uint64_t, std::pair<PendingCall*, ThreadState*>> pending;
  std::unordered_map<uint64_t, Export> exports;
  loose_fds_.clear();
  frame_fd_.reset();
  {
    lumx::MutexLock l(&mu_);
    dead_ = true;
    parked_ = false;
    pending.swap(pending_);
    exports.swap(exports_);
  }
  lp.partial_bytes.fetch_sub(static_cast<int64_t>(partial_counted_));
  partial_counted_ = 0;
  partial_since_.store(0, std::memory_order_relaxed);
  lp.Remove(id_, fd_.get(), in_write_set);
  // What the peer asked for and nobody started is not run any more.
  rt()->pool.DropWorkOf(this);

  for (auto& entry : pending) {
    ThreadState* ts = entry.second.second;
    lumx::MutexLock l(&ts->mu);
    entry.second.first->status = STATUS_DEAD_OBJECT;
    entry.second.first->done = true;
    ts->cv.notify_all();
  }

  Runtime* r = rt();
  std::vector<ProxyBinder*> proxies;
  {
    lumx::MutexLock l(&r->mu);
    auto it = r->peers.find(peer_nonce_);
    if (it != r->peers.end()) {
      std::shared_ptr<Connection> c = it->second.lock();
      if (c == nullptr || c.get() == this) r->peers.erase(it);
    }
    for (auto pit = r->proxies.lower_bound({this, 0});
         pit != r->proxies.end() && pit->first.first == this; ++pit) {
      if (TryIncStrong(pit->second)) proxies.push_back(pit->second);
    }
  }
  for (ProxyBinder* p : proxies) {
    SendObituaries(p);
    DecStrong(p);
  }
  // The objects the peer held are released; their owners may now free them.
  for (auto& e : exports) DecStrong(e.second.binder);

  // We hold the read role and the writers saw wdead_: nobody uses the
  // descriptor any more.
  lumx::MutexLock l(&mu_);
  lumx::MutexLock wl(&wmu_);
  closed_ = true;
  UntrackFd(fd_.get());
  fd_.reset();
}

// ---- writing ----

binder_status_t Connection::Flatten(const AParcel* p, Frame* f,
                                    std::vector<LocalBinder*>* exported) {
  if (!p->fds.empty()) return STATUS_FDS_NOT_ALLOWED;
  f->objects.reserve(p->objects.size());
  for (const ParcelObject& o : p->objects) {
    WireObject w;
    w.offset = static_cast<uint32_t>(o.offset);
    if (!o.binder->remote) {
      LocalBinder* lb = static_cast<LocalBinder*>(o.binder);
      w.kind = kObjectSenderLocal;
      w.id = lb->id;
      const AIBinder_Class* c = lb->clazz.load();
      if (c != nullptr) w.descriptor = c->descriptor;
      bool dead = false;
      {
        lumx::MutexLock l(&mu_);
        if (dead_) {
          dead = true;
        } else {
          Export& e = exports_[lb->id];
          if (e.count == 0) {
            e.binder = lb;
            IncStrong(lb);
          }
          ++e.count;
        }
      }
      if (dead) {
        Unexport(*exported);
        exported->clear();
        return STATUS_DEAD_OBJECT;
      }
      exported->push_back(lb);
    } else {
      ProxyBinder* pb = static_cast<ProxyBinder*>(o.binder);
      if (pb->conn.get() != this) {
        // An object of a third process cannot be forwarded over this
        // transport.
        Unexport(*exported);
        exported->clear();
        return STATUS_INVALID_OPERATION;
      }
      w.kind = kObjectReceiverLocal;
      w.id = pb->remote_id;
    }
    f->objects.push_back(std::move(w));
  }
  return STATUS_OK;
}

void Connection::Unexport(const std::vector<LocalBinder*>& exported) {
  std::vector<LocalBinder*> drop;
  {
    lumx::MutexLock l(&mu_);
    for (LocalBinder* lb : exported) {
      auto it = exports_.find(lb->id);
      if (it == exports_.end()) continue;
      if (--it->second.count <= 0) {
        drop.push_back(it->second.binder);
        exports_.erase(it);
      }
    }
  }
  for (LocalBinder* lb : drop) DecStrong(lb);
}

void Connection::DrainLocked() {
  Looper& lp = rt()->looper;
  while (!sendq_.empty()) {
    OutBuf& b = sendq_.front();
    ssize_t n = SendSome(b.bytes.data() + b.off, b.bytes.size() - b.off, b.off == 0 ? b.fd.get() : -1);
    if (n > 0) {
      b.fd.reset();
      b.off += static_cast<size_t>(n);
      queued_ -= static_cast<size_t>(n);
      lp.queued_bytes.fetch_sub(n);
      if (b.off == b.bytes.size()) sendq_.pop_front();
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    shutdown(fd_.get(), SHUT_RDWR);  // the peer is gone; the reader cleans up
    return;
  }
}

void Connection::OnWritable() {
  lumx::MutexLock l(&wmu_);
  if (wdead_) return;
  DrainLocked();
  if (!sendq_.empty()) rt()->looper.WatchWritable(fd_.get(), id_, true);
}

ssize_t Connection::SendSome(const uint8_t* data, size_t size, int fd) {
  if (fd < 0) return send(fd_.get(), data, size, MSG_DONTWAIT | MSG_NOSIGNAL);
  iovec iov = {const_cast<uint8_t*>(data), size};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))];
  memset(control, 0, sizeof control);
  msghdr msg = {};
  msg.msg_iov = &iov;
  msg.msg_iovlen = 1;
  msg.msg_control = control;
  msg.msg_controllen = sizeof control;
  cmsghdr* c = CMSG_FIRSTHDR(&msg);
  c->cmsg_level = SOL_SOCKET;
  c->cmsg_type = SCM_RIGHTS;
  c->cmsg_len = CMSG_LEN(sizeof(int));
  memcpy(CMSG_DATA(c), &fd, sizeof fd);
  // The descriptor goes with the first byte of what is sent now, and the
  // frame starts here: the receiver matches the two that way.
  return sendmsg(fd_.get(), &msg, MSG_DONTWAIT | MSG_NOSIGNAL);
}

binder_status_t Connection::SendBytes(std::vector<uint8_t>&& bytes, bool oneway, int attach_fd) {
  if (generation_ != CurrentGeneration()) return STATUS_DEAD_OBJECT;
  Looper& lp = rt()->looper;
  char why[96];
  bool kill = false;
  {
    lumx::MutexLock l(&wmu_);
    if (wdead_ || killed_) return STATUS_DEAD_OBJECT;
    const size_t size = bytes.size();
    if (oneway) {
      if (queued_ > 0 && queued_ + size > kMaxOnewayQueuedBytes) return STATUS_WOULD_BLOCK;
      if (oneway_in_flight_ > 0 && oneway_in_flight_ + size > kMaxOnewayInFlight) {
        return STATUS_WOULD_BLOCK;
      }
      oneway_in_flight_ += size;
    }
    size_t off = 0;
    if (sendq_.empty()) {
      while (off < size) {
        ssize_t n = SendSome(bytes.data() + off, size - off, off == 0 ? attach_fd : -1);
        if (n > 0) {
          off += static_cast<size_t>(n);
          continue;
        }
        if (n < 0 && errno == EINTR) continue;
        if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
        // The peer is gone; the reader notices and cleans up.
        shutdown(fd_.get(), SHUT_RDWR);
        if (oneway) oneway_in_flight_ -= size;
        return STATUS_DEAD_OBJECT;
      }
      if (off == size) return STATUS_OK;
    }
    const size_t rest = size - off;
    if (queued_ + rest > kMaxQueuedBytes ||
        (queued_ > 0 && lp.queued_bytes.load() + static_cast<int64_t>(rest) >
                            static_cast<int64_t>(kMaxQueuedBytesTotal))) {
      if (oneway) oneway_in_flight_ -= size;
      snprintf(why, sizeof(why), "it does not read (%zu bytes queued for it%s)", queued_ + rest,
               queued_ + rest > kMaxQueuedBytes ? "" : ", process total over 64 MiB");
      kill = true;
    } else {
      OutBuf b;
      if (off == 0 && attach_fd >= 0) {
        // Sent later, by whoever drains the queue: keep a copy until then.
        b.fd.reset(fcntl(attach_fd, F_DUPFD_CLOEXEC, 0));
        if (!b.fd.ok()) {
          if (oneway) oneway_in_flight_ -= size;
          return STATUS_FAILED_TRANSACTION;
        }
      }
      b.bytes = std::move(bytes);
      b.off = off;
      sendq_.push_back(std::move(b));
      queued_ += rest;
      lp.queued_bytes.fetch_add(static_cast<int64_t>(rest));
      if (sendq_.size() == 1) {
        lp.WatchWritable(fd_.get(), id_, in_write_set_);
        in_write_set_ = true;
      }
      return STATUS_OK;
    }
  }
  if (kill) Kill(kCloseNotReading, why);
  return STATUS_DEAD_OBJECT;
}

binder_status_t Connection::SendFrame(const Frame& f, bool oneway) {
  std::vector<uint8_t> bytes;
  if (!EncodeFrame(f, &bytes)) return STATUS_FAILED_TRANSACTION;
  return SendBytes(std::move(bytes), oneway);
}

void Connection::SendReply(uint64_t txn_id, binder_status_t status, const AParcel* reply) {
  Frame f;
  f.type = kFrameReply;
  f.txn_id = txn_id;
  f.code = static_cast<uint32_t>(status);
  std::vector<LocalBinder*> exported;
  std::vector<uint8_t> bytes;
  bool encoded = false;
  if (status == STATUS_OK && reply != nullptr) {
    binder_status_t st = Flatten(reply, &f, &exported);
    if (st == STATUS_OK) {
      encoded = EncodeFrameWithData(f, reply->data.data(), reply->data.size(), &bytes);
      if (!encoded) st = STATUS_FAILED_TRANSACTION;  // reply too large
    }
    if (st != STATUS_OK) {
      Unexport(exported);
      exported.clear();
      f.objects.clear();
      f.code = static_cast<uint32_t>(st);
    }
  }
  if (!encoded) {
    bytes.clear();
    EncodeFrame(f, &bytes);
  }
  if (SendBytes(std::move(bytes), false) != STATUS_OK) Unexport(exported);
}

void Connection::ReplyError(uint64_t txn_id, binder_status_t status) {
  SendReply(txn_id, status, nullptr);
}

void Connection::SendRelease(uint64_t remote_id, int64_t count) {
  Frame f;
  f.type = kFrameRelease;
  f.target = remote_id;
  f.code = count > 0xffffffffLL ? 0xffffffffu : static_cast<uint32_t>(count);
  SendFrame(f, false);
}

binder_status_t Connection::Transact(uint64_t target_id, uint32_t code, const AParcel* in,
                                     AParcel** out, uint32_t flags, int attach_fd) {
  ThreadState* ts = CurrentThread();
  const bool oneway = (flags & FLAG_ONEWAY) != 0;
  Frame f;
  f.type = kFrameTransact;
  f.target = target_id;
  f.code = code;
  f.flags = flags;
  f.sender_token = ts->token;
  if (!oneway) {
    // If this thread is serving a call from this peer, the peer's thread that
    // made it waits for us: route our call to that thread.
    for (auto it = ts->contexts.rbegin(); it != ts->contexts.rend(); ++it) {
      if (it->conn == this) {
        f.route_token = it->sender_token;
        break;
      }
    }
  }
  std::vector<LocalBinder*> exported;
  binder_status_t st = Flatten(in, &f, &exported);
  if (st != STATUS_OK) return st;
  f.txn_id = oneway ? 0 : rt()->next_txn.fetch_add(1);
  std::vector<uint8_t> bytes;
  if (!EncodeFrameWithData(f, in->data.data(), in->data.size(), &bytes)) {
    Unexport(exported);
    return STATUS_FAILED_TRANSACTION;  // larger than a frame may be
  }

  if (oneway) {
    st = SendBytes(std::move(bytes), true, attach_fd);
    if (st != STATUS_OK) {
      Unexport(exported);
      return st;
    }
    *out = new AParcel;
    return STATUS_OK;
  }

  PendingCall call;
  {
    lumx::MutexLock l(&mu_);
    if (dead_ || Closing()) {
      st = STATUS_DEAD_OBJECT;
    } else {
      pending_[f.txn_id] = {&call, ts};
      Waiter& w = waiters_[ts->token];
      w.ts = ts;
      ++w.depth;
    }
  }
  if (st != STATUS_OK) {
    Unexport(exported);
    return st;
  }
  auto drop_waiter = [this, ts] {
    lumx::MutexLock l(&mu_);
    auto it = waiters_.find(ts->token);
    if (it != waiters_.end() && --it->second.depth <= 0) waiters_.erase(it);
  };

  st = SendBytes(std::move(bytes), false, attach_fd);
  if (st != STATUS_OK) {
    bool still_pending;
    {
      lumx::MutexLock l(&mu_);
      still_pending = pending_.erase(f.txn_id) > 0;
    }
    // If the connection died meanwhile, its cleanup owns the call: wait
    // for it to finish with it.
    if (!still_pending) WaitForReply(ts, &call, nullptr);
    drop_waiter();
    Unexport(exported);
    delete call.reply;
    return st;
  }
  WaitForReply(ts, &call, this);
  drop_waiter();
  if (call.status != STATUS_OK) {
    delete call.reply;
    return call.status;
  }
  call.reply->pos = 0;
  *out = call.reply;
  return STATUS_OK;
}

AIBinder* Connection::GetService(const std::string& name) {
  AParcel in;
  WriteInterfaceToken(&in, name);
  AParcel* out = nullptr;
  if (Transact(0, kGetServiceTransaction, &in, &out, 0) != STATUS_OK) return nullptr;
  AIBinder* b = nullptr;
  if (AParcel_readStrongBinder(out, &b) != STATUS_OK) b = nullptr;
  AParcel_delete(out);
  return b;
}

}  // namespace lumx_binder

namespace lumx_binder {

Work::~Work() {
  if (fd.ok()) conn->ReleaseDumpSlot();
}

}  // namespace lumx_binder
