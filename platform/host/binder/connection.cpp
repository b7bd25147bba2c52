#include "connection.h"

#include <android/log.h>
#include <errno.h>
#include <poll.h>
#include <sys/epoll.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <utility>

namespace lumx_binder {

namespace {

constexpr const char* kTag = "binder";

bool InUserRange(uint32_t code) {
  return code >= FIRST_CALL_TRANSACTION && code <= LAST_CALL_TRANSACTION;
}

}  // namespace

std::shared_ptr<Connection> Connection::Create(lumx::unique_fd fd, uint64_t peer_nonce) {
  return std::make_shared<Connection>(std::move(fd), peer_nonce);
}

Connection::Connection(lumx::unique_fd fd, uint64_t peer_nonce)
    : fd_(std::move(fd)),
      epfd_(epoll_create1(EPOLL_CLOEXEC)),
      generation_(CurrentGeneration()),
      peer_nonce_(peer_nonce),
      need_hello_(peer_nonce == 0) {
  TrackFd(fd_.get());
  TrackFd(epfd_.get());
  struct ucred cred;
  socklen_t len = sizeof(cred);
  if (getsockopt(fd_.get(), SOL_SOCKET, SO_PEERCRED, &cred, &len) == 0) {
    peer_pid_ = cred.pid;
    peer_uid_ = cred.uid;
  }
}

Connection::~Connection() {
  // The reader stopped the writer and closed the socket when the connection
  // died; a connection that never started still owns its socket here.
  lumx::MutexLock l(&wmu_);
  if (fd_.ok()) UntrackFd(fd_.get());
  if (epfd_.ok()) UntrackFd(epfd_.get());
}

void Connection::Start(bool hello_sent) {
  if (!hello_sent) {
    Frame hello;
    hello.type = kFrameHello;
    hello.target = rt()->nonce;
    hello.code = static_cast<uint32_t>(getpid());
    SendFrame(hello, false);
  }
  struct epoll_event ev = {};
  ev.events = EPOLLIN | EPOLLONESHOT;
  ev.data.fd = fd_.get();
  if (!epfd_.ok() || epoll_ctl(epfd_.get(), EPOLL_CTL_ADD, fd_.get(), &ev) != 0) {
    __android_log_print(ANDROID_LOG_ERROR, kTag, "cannot watch connection: %s", strerror(errno));
    OnDeath();  // nobody could read it: fail everything now
    return;
  }
  std::shared_ptr<Connection> self = shared_from_this();
  std::thread([self] { self->ReaderThread(); }).detach();
}

bool Connection::IsDead() {
  lumx::MutexLock l(&mu_);
  return dead_;
}

void Connection::ReleaseBacklog(size_t bytes) {
  size_t ack = 0;
  {
    lumx::MutexLock l(&mu_);
    incoming_backlog_ -= bytes < incoming_backlog_ ? bytes : incoming_backlog_;
    to_ack_ += bytes;
    if (to_ack_ >= kAckBatch || incoming_backlog_ == 0) ack = std::exchange(to_ack_, 0);
  }
  if (ack > 0) {
    Frame f;
    f.type = kFrameAck;
    f.code = static_cast<uint32_t>(ack);
    SendFrame(f, false);
  }
}

// ---- reading ----

void Connection::ReaderThread() {
  for (;;) {
    {
      lumx::MutexLock l(&mu_);
      if (dead_) break;
      ++epoll_waiters_;
    }
    struct epoll_event ev;
    const int n = epoll_wait(epfd_.get(), &ev, 1, -1);
    const int err = errno;
    {
      lumx::MutexLock l(&mu_);
      --epoll_waiters_;
      if (dead_) {
        readers_cv_.notify_all();
        break;
      }
      // A caller reading its reply has the socket; it re-arms when done.
      if (n <= 0 || role_ != kRoleFree) {
        if (n < 0 && err != EINTR) usleep(1000);  // never spin on a broken epoll
        continue;
      }
      role_ = kRoleReader;
    }
    Work* inline_work = nullptr;
    if (ReadBatch(&inline_work) == ReadResult::kBroken) {
      if (inline_work != nullptr) {
        ExecuteWork(inline_work);
        rt()->pool.ReleaseSlot();
      }
      OnDeath();
      break;
    }
    if (inline_work != nullptr) EnsureSpareReader();
    ReleaseReadRole();
    if (inline_work != nullptr) {
      // Run the call here; the other reader threads watch the socket.
      ExecuteWork(inline_work);
      rt()->pool.ReleaseSlot();
    }
  }
}

void Connection::EnsureSpareReader() {
  {
    lumx::MutexLock l(&mu_);
    if (epoll_waiters_ > 0 || dead_) return;
  }
  std::shared_ptr<Connection> self = shared_from_this();
  std::thread([self] { self->ReaderThread(); }).detach();
}

void Connection::ArmLocked(bool armed) {
  if (closed_) return;
  struct epoll_event ev = {};
  ev.events = armed ? (EPOLLIN | EPOLLONESHOT) : 0;
  ev.data.fd = fd_.get();
  epoll_ctl(epfd_.get(), EPOLL_CTL_MOD, fd_.get(), &ev);
}

void Connection::ReleaseReadRole() {
  // Re-armed under the lock: once the role is free, the next reader may find
  // the peer gone and close the descriptors.
  lumx::MutexLock l(&mu_);
  role_ = kRoleFree;
  ArmLocked(true);
}

Connection::ReadResult Connection::HandleBuffered(Work** inline_work, ThreadState* caller,
                                                  PendingCall* call) {
  Frame f;
  DecodeStatus st;
  while ((st = decoder_.Next(&f)) == DecodeStatus::kOk) {
    if (need_hello_) {
      if (f.type != kFrameHello || f.target == 0) {
        __android_log_print(ANDROID_LOG_WARN, kTag, "closing connection to pid %d: no greeting",
                            static_cast<int>(peer_pid_));
        return ReadResult::kBroken;
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
      __android_log_print(ANDROID_LOG_WARN, kTag, "closing connection to pid %d: protocol error",
                          static_cast<int>(peer_pid_));
      return ReadResult::kBroken;
    }
    if (inline_work != nullptr && *inline_work != nullptr) return ReadResult::kInline;
    if (caller != nullptr) {
      lumx::MutexLock l(&caller->mu);
      if (call->done || !caller->inbox.empty()) return ReadResult::kCallerDone;
    }
  }
  if (st == DecodeStatus::kError) {
    __android_log_print(ANDROID_LOG_WARN, kTag, "closing connection to pid %d: %s",
                        static_cast<int>(peer_pid_), decoder_.error());
    return ReadResult::kBroken;
  }
  return ReadResult::kNeedMore;
}

Connection::ReadResult Connection::ReadBatch(Work** inline_work) {
  const int fd = fd_.get();
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
    size_t max = 0;
    uint8_t* dst = decoder_.WritableArea(&max);
    ssize_t n = recv(fd, dst, max, MSG_DONTWAIT);
    if (n > 0) {
      decoder_.Commit(static_cast<size_t>(n));
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
    if (role_ != kRoleFree || dead_ || need_hello_) return false;
    role_ = kRoleCaller;
    // Nobody else is woken for the bytes we are about to read.
    ArmLocked(false);
  }
  const int fd = fd_.get();
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
    size_t max = 0;
    uint8_t* dst = decoder_.WritableArea(&max);
    ssize_t n = recv(fd, dst, max, 0);
    if (n > 0) {
      decoder_.Commit(static_cast<size_t>(n));
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
      return false;  // a second hello
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

  std::unique_ptr<AParcel> data;
  binder_status_t st = Unflatten(std::move(f), &data);
  if (oneway && (st != STATUS_OK || target == 0)) {
    // Dropped one-way calls are acknowledged too, or the sender's credit
    // would shrink for good.
    {
      lumx::MutexLock l(&mu_);
      incoming_backlog_ += wire_size;
    }
    ReleaseBacklog(wire_size);
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
  if (b == nullptr || code == kPingTransaction || !InUserRange(code)) {
    if (b != nullptr) DecStrong(b);
    if (oneway) {
      {
        lumx::MutexLock l(&mu_);
        incoming_backlog_ += wire_size;
      }
      ReleaseBacklog(wire_size);
    } else if (b == nullptr) {
      ReplyError(txn, STATUS_BAD_VALUE);
    } else {
      if (code == kPingTransaction) {
        AParcel empty;
        SendReply(txn, STATUS_OK, &empty);
      } else {
        ReplyError(txn, STATUS_UNKNOWN_TRANSACTION);
      }
    }
    return true;
  }

  Work* w = new Work;
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
  if (oneway) {
    w->backlog_bytes = wire_size;
    lumx::MutexLock l(&mu_);
    incoming_backlog_ += w->backlog_bytes;
  } else if (inline_work != nullptr && rt()->pool.TryReserveSlot()) {
    // Run it on this thread (saves a thread switch per call); the caller
    // hands the socket to another reader first.
    *inline_work = w;
    return true;
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
  std::thread writer;
  {
    lumx::MutexLock l(&wmu_);
    wdead_ = true;
    shutdown(fd_.get(), SHUT_RDWR);
    wcv_.notify_all();
    writer = std::move(writer_);
  }
  if (writer.joinable()) writer.join();
  {
    lumx::MutexLock l(&wmu_);
    sendq_.clear();
    queued_ = 0;
  }

  std::unordered_map<uint64_t, std::pair<PendingCall*, ThreadState*>> pending;
  std::unordered_map<uint64_t, Export> exports;
  {
    lumx::MutexLock l(&mu_);
    dead_ = true;
    pending.swap(pending_);
    exports.swap(exports_);
  }
  {
    // Wake every reader thread waiting in epoll (the socket is shut down,
    // so it stays readable) and wait until none is in there. Readers busy
    // running a call see dead_ when they come back and never touch the
    // descriptors again.
    lumx::MutexLock l(&mu_);
    struct epoll_event ev = {};
    ev.events = EPOLLIN;
    ev.data.fd = fd_.get();
    epoll_ctl(epfd_.get(), EPOLL_CTL_MOD, fd_.get(), &ev);
    while (epoll_waiters_ > 0) WaitOn(readers_cv_, mu_);
  }
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

  lumx::MutexLock l(&mu_);
  lumx::MutexLock wl(&wmu_);
  closed_ = true;
  UntrackFd(fd_.get());
  UntrackFd(epfd_.get());
  fd_.reset();
  epfd_.reset();
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

binder_status_t Connection::SendBytes(std::vector<uint8_t>&& bytes, bool oneway) {
  if (generation_ != CurrentGeneration()) return STATUS_DEAD_OBJECT;
  lumx::MutexLock l(&wmu_);
  if (wdead_) return STATUS_DEAD_OBJECT;
  const size_t size = bytes.size();
  if (oneway) {
    if (queued_ > 0 && queued_ + size > kMaxQueuedBytes) return STATUS_WOULD_BLOCK;
    if (oneway_in_flight_ > 0 && oneway_in_flight_ + size > kMaxOnewayInFlight) {
      return STATUS_WOULD_BLOCK;
    }
    oneway_in_flight_ += size;
  }
  size_t off = 0;
  if (sendq_.empty()) {
    while (off < size) {
      ssize_t n = send(fd_.get(), bytes.data() + off, size - off, MSG_DONTWAIT | MSG_NOSIGNAL);
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
  OutBuf b;
  b.bytes = std::move(bytes);
  b.off = off;
  sendq_.push_back(std::move(b));
  queued_ += size - off;
  if (!writer_.joinable()) writer_ = std::thread([this] { WriterLoop(); });
  wcv_.notify_all();
  return STATUS_OK;
}

void Connection::WriterLoop() {
  wmu_.lock();
  for (;;) {
    while (!wdead_ && sendq_.empty()) WaitOn(wcv_, wmu_);
    if (wdead_) break;
    OutBuf& b = sendq_.front();
    const uint8_t* p = b.bytes.data() + b.off;
    const size_t left = b.bytes.size() - b.off;
    const int fd = fd_.get();
    wmu_.unlock();
    struct pollfd pfd = {fd, POLLOUT, 0};
    poll(&pfd, 1, -1);
    ssize_t n = send(fd, p, left, MSG_DONTWAIT | MSG_NOSIGNAL);
    const int err = errno;
    wmu_.lock();
    if (n > 0) {
      b.off += static_cast<size_t>(n);
      queued_ -= static_cast<size_t>(n);
      if (b.off == b.bytes.size()) sendq_.pop_front();
    } else if (n < 0 && err != EAGAIN && err != EWOULDBLOCK && err != EINTR) {
      shutdown(fd, SHUT_RDWR);
      while (!wdead_) WaitOn(wcv_, wmu_);
      break;
    }
  }
  wmu_.unlock();
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
                                     AParcel** out, uint32_t flags) {
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
    st = SendBytes(std::move(bytes), true);
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
    if (dead_) {
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

  st = SendBytes(std::move(bytes), false);
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
