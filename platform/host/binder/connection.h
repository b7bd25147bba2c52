// One AF_UNIX stream connection to a peer process, used in both directions:
// either side may call objects of the other, so a client's callback objects
// are called back over the connection the client opened.
//
// Reading: one thread at a time reads the socket. Idle reader threads wait in
// epoll_wait on the connection's epoll instance (socket registered one-shot,
// so one of them wakes per burst of data). A reader hands replies to their
// waiting callers, nested call-backs to the thread they belong to, and other
// incoming calls to the thread pool, except that it runs one synchronous call
// itself when the pool has a free slot (after making sure another reader
// waits). A thread waiting for a reply reads the socket itself when no reader
// has it, so in the common case nobody else is woken for the reply.
//
// Writing never blocks: a frame goes out directly when the socket takes it;
// whatever the socket does not take is queued whole and drained by a writer
// thread (started the first time that happens). One-way calls fail with
// STATUS_WOULD_BLOCK instead of blocking: when that queue passes
// kMaxQueuedBytes, or when the peer has not started kMaxOnewayInFlight bytes
// of our one-way calls yet. Framing is never broken because a frame is either
// refused before its first byte or queued to the end.
#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "common/thread_annotations.h"
#include "common/unique_fd.h"
#include "frame.h"
#include "internal.h"

namespace lumx_binder {

// Send backlog above which one-way calls are refused.
constexpr size_t kMaxQueuedBytes = 1u << 20;
// One-way calls in flight (sent, not yet started by the peer) above which
// further one-way calls are refused: the peer acknowledges one-way calls as
// it starts running them, so a slow peer makes our one-way calls fail with
// STATUS_WOULD_BLOCK instead of piling up in its memory.
constexpr size_t kMaxOnewayInFlight = 1u << 20;
// The receiver acknowledges in batches of this size, or when it has run all.
constexpr size_t kAckBatch = 64u << 10;

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  // `fd` is connected. `peer_nonce` is known when the caller already read the
  // peer's hello (0: the reader expects it as the first frame).
  static std::shared_ptr<Connection> Create(lumx::unique_fd fd, uint64_t peer_nonce);
  ~Connection();

  // Sends our hello (unless `hello_sent`) and starts the reader thread.
  void Start(bool hello_sent);

  // A transaction on the peer's object `target_id` (0: the context object).
  // Consumes nothing; on success *out is a new parcel (empty for one-way).
  binder_status_t Transact(uint64_t target_id, uint32_t code, const AParcel* in, AParcel** out,
                           uint32_t flags);

  // Asks the peer for its registered service `name`; a strong reference or null.
  AIBinder* GetService(const std::string& name);

  void SendReply(uint64_t txn_id, binder_status_t status, const AParcel* reply);
  void SendRelease(uint64_t remote_id, int64_t count);

  bool IsDead();
  // A received one-way call of `bytes` started running.
  void ReleaseBacklog(size_t bytes);
  pid_t peer_pid() const { return peer_pid_; }
  uid_t peer_uid() const { return peer_uid_; }

  struct Export {
    LocalBinder* binder;  // one strong reference while count > 0
    int64_t count;
  };
  struct Waiter {
    ThreadState* ts;
    int depth;
  };
  struct OutBuf {
    std::vector<uint8_t> bytes;
    size_t off = 0;
  };

  // Reads the socket while waiting for the reply to `call`, if no other
  // thread reads it now; returns false (without reading) otherwise. Stops
  // when the call is answered or a nested call arrived for this thread.
  bool ReadAsCaller(ThreadState* ts, PendingCall* call);

  Connection(lumx::unique_fd fd, uint64_t peer_nonce);

 private:
  // Who reads the socket: nobody, the background reader or a waiting caller.
  static constexpr int kRoleFree = 0;
  static constexpr int kRoleReader = 1;
  static constexpr int kRoleCaller = 2;
  enum class ReadResult { kNeedMore, kInline, kCallerDone, kBroken };

  // Body of the reader threads. Idle ones wait in epoll_wait on the
  // connection's epoll instance, where the socket is registered one-shot:
  // the kernel wakes exactly one of them per burst of data, and it re-arms
  // the socket when it gives it back. A reader that takes a synchronous call
  // runs it itself after making sure another reader waits (spawning one if
  // needed), so the socket stays watched without waking anybody.
  void ReaderThread();
  void EnsureSpareReader();
  // Reads and handles what the socket holds now; may pick one synchronous
  // call to run on this thread (kInline).
  ReadResult ReadBatch(Work** inline_work);
  void ArmLocked(bool armed) REQUIRES(mu_);
  // Gives the socket back and re-arms it.
  void ReleaseReadRole();
  // Handles the complete frames in decoder_.
  ReadResult HandleBuffered(Work** inline_work, ThreadState* caller, PendingCall* call);
  void WriterLoop();
  // Handles one decoded frame; false on a protocol violation. May hand back
  // a synchronous call to run on the reading thread.
  bool HandleFrame(Frame&& f, Work** inline_work);
  bool HandleTransact(Frame&& f, Work** inline_work);
  bool HandleReply(Frame&& f);
  bool HandleRelease(const Frame& f);
  void OnDeath();

  // Turns a parcel into frame objects + data, exporting our local objects.
  // On failure nothing stays exported.
  binder_status_t Flatten(const AParcel* p, Frame* f, std::vector<LocalBinder*>* exported);
  void Unexport(const std::vector<LocalBinder*>& exported);
  // Builds a parcel from a received frame, taking references on its objects.
  binder_status_t Unflatten(Frame&& f, std::unique_ptr<AParcel>* out);

  // Sends one encoded frame (see the class comment).
  // A one-way call (`oneway`) may be refused; everything else is queued.
  binder_status_t SendBytes(std::vector<uint8_t>&& bytes, bool oneway);
  binder_status_t SendFrame(const Frame& f, bool oneway);
  void ReplyError(uint64_t txn_id, binder_status_t status);

  // Closed by the reader once the connection is dead and the writer stopped.
  lumx::unique_fd fd_;
  lumx::unique_fd epfd_;
  // Process generation at creation; a fork() child never touches the
  // connections it inherited.
  const uint64_t generation_;
  pid_t peer_pid_ = 0;
  uid_t peer_uid_ = 0;
  uint64_t peer_nonce_;  // written by the reader before it publishes anything

  // Owned by whichever thread holds the read role (handed over under mu_).
  FrameDecoder decoder_;
  bool need_hello_;

  lumx::Mutex mu_;
  bool dead_ GUARDED_BY(mu_) = false;
  // txn id -> the call and the thread waiting for it.
  std::unordered_map<uint64_t, std::pair<PendingCall*, ThreadState*>> pending_ GUARDED_BY(mu_);
  std::unordered_map<uint64_t, Waiter> waiters_ GUARDED_BY(mu_);
  std::unordered_map<uint64_t, Export> exports_ GUARDED_BY(mu_);
  // Received one-way bytes not yet started, and started but not acknowledged.
  size_t incoming_backlog_ GUARDED_BY(mu_) = 0;
  size_t to_ack_ GUARDED_BY(mu_) = 0;
  int role_ GUARDED_BY(mu_) = kRoleFree;
  bool closed_ GUARDED_BY(mu_) = false;  // descriptors closed (after death)
  // Reader threads in (or about to enter) epoll_wait.
  int epoll_waiters_ GUARDED_BY(mu_) = 0;
  std::condition_variable readers_cv_;

  lumx::Mutex wmu_;
  std::condition_variable wcv_;
  bool wdead_ GUARDED_BY(wmu_) = false;
  std::deque<OutBuf> sendq_ GUARDED_BY(wmu_);
  size_t queued_ GUARDED_BY(wmu_) = 0;
  size_t oneway_in_flight_ GUARDED_BY(wmu_) = 0;
  std::thread writer_ GUARDED_BY(wmu_);
};

}  // namespace lumx_binder
