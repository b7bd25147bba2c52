// One AF_UNIX stream connection to a peer process, used in both directions:
// either side may call objects of the other, so a client's callback objects
// are called back over the connection the client opened.
//
// Reading: one thread at a time holds the connection's read role: a reader
// thread of the process's looper (looper.h) woken by the socket, or a caller
// waiting for its reply, which reads the socket itself when nobody else does
// (then nobody else is woken for the reply). The holder hands replies to
// their waiting callers, nested call-backs to the thread they belong to, and
// other incoming calls to the thread pool, except that a reader thread runs
// one synchronous call itself when the pool has a free slot.
//
// Writing never blocks: a frame goes out directly when the socket takes it;
// whatever it does not take is queued whole and sent by the looper when the
// socket has room. One-way calls are refused with STATUS_WOULD_BLOCK instead
// of queueing beyond kMaxOnewayQueuedBytes, or when the peer has not started
// kMaxOnewayInFlight bytes of our one-way calls yet. Anything else past
// kMaxQueuedBytes closes the connection: the peer is not reading. Framing is
// never broken because a frame is either refused before its first byte or
// queued to the end.
//
// Closing: only the read-role holder ends a connection (OnDeath); anyone
// else shuts the socket down (Kill), which the looper then reads as the end.
// Calls of a closed connection that have not started are dropped.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "common/thread_annotations.h"
#include "common/unique_fd.h"
#include "frame.h"
#include "internal.h"

namespace lumx_binder {

// One-way calls are refused while the send backlog would pass this.
constexpr size_t kMaxOnewayQueuedBytes = 1u << 20;
// One-way calls in flight (sent, not yet started by the peer) above which
// further one-way calls are refused: the peer acknowledges one-way calls as
// it starts running them, so a slow peer makes our one-way calls fail with
// STATUS_WOULD_BLOCK instead of piling up in its memory.
constexpr size_t kMaxOnewayInFlight = 1u << 20;
// The receiver acknowledges in batches of this size, or when it has run all.
constexpr size_t kAckBatch = 64u << 10;
// Dump transactions whose descriptor a receiver holds (queued or running),
// per connection and per process; past them a dump is answered
// STATUS_WOULD_BLOCK at once and its descriptor closed. Descriptors that
// arrived without a frame that takes them are closed as soon as that is
// known; more than kMaxLooseFds waiting for their frame close the connection.
constexpr int kMaxDumpsPerConnection = 4;
constexpr int kMaxDumpsTotal = 16;
constexpr size_t kMaxLooseFds = 4;

class Connection : public std::enable_shared_from_this<Connection> {
 public:
  // `fd` is connected. `peer_nonce` is known when the caller already read the
  // peer's hello (0: the reader expects it as the first frame).
  static std::shared_ptr<Connection> Create(lumx::unique_fd fd, uint64_t peer_nonce);
  Connection(lumx::unique_fd fd, uint64_t peer_nonce);
  ~Connection();

  // Sends our hello (unless `hello_sent`) and starts watching the socket.
  void Start(bool hello_sent);

  // A transaction on the peer's object `target_id` (0: the context object).
  // Consumes nothing; on success *out is a new parcel (empty for one-way).
  // `attach_fd` (not owned; -1 for none) goes with the frame as SCM_RIGHTS.
  binder_status_t Transact(uint64_t target_id, uint32_t code, const AParcel* in, AParcel** out,
                           uint32_t flags, int attach_fd = -1);

  // Asks the peer for its registered service `name`; a strong reference or null.
  AIBinder* GetService(const std::string& name);

  void SendReply(uint64_t txn_id, binder_status_t status, const AParcel* reply);
  void SendRelease(uint64_t remote_id, int64_t count);

  bool IsDead();
  // Dead or being closed: its calls are not run any more.
  bool Closing() const { return closing_.load(std::memory_order_acquire); }
  // A received call of `bytes` starts running (or is dropped): it leaves
  // the incoming backlog, and a one-way call is acknowledged.
  void WorkStarted(size_t bytes, bool oneway);
  // Why a connection is cut off; each cause is logged at most once a second.
  enum CloseCause { kCloseNotReading, kCloseTooFast, kCloseDeadline, kCloseProtocol, kCloseCauses };
  // Shuts the socket down; the looper then ends the connection. `why` is
  // logged.
  void Kill(CloseCause cause, const char* why);
  // A dump's descriptor is no longer held (its work item is gone).
  void ReleaseDumpSlot();
  pid_t peer_pid() const { return peer_pid_; }
  uid_t peer_uid() const { return peer_uid_; }
  uint64_t id() const { return id_; }

  // The looper woke for the socket: read what it holds. May hand back one
  // synchronous call to run on this thread.
  void OnReadable(Work** inline_work);
  // The looper saw room in the socket: send what waits.
  void OnWritable();
  // The frame deadline passed for the frame in progress (ms since it began,
  // 0 if none).
  int64_t PartialSince() const { return partial_since_.load(std::memory_order_relaxed); }
  // Over the partial-frame budget it was parked; re-arm it.
  void Unpark();

  // Reads the socket while waiting for the reply to `call`, if no other
  // thread reads it now; returns false (without reading) otherwise. Stops
  // when the call is answered or a nested call arrived for this thread.
  bool ReadAsCaller(ThreadState* ts, PendingCall* call);

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
    lumx::unique_fd fd;  // sent with the first byte, then closed
  };
  // A descriptor received and not yet taken by its frame: it came with
  // stream bytes [begin, end) (one recvmsg).
  struct LooseFd {
    lumx::unique_fd fd;
    uint64_t begin;
    uint64_t end;
  };

 private:
  // Who reads the socket: nobody, a reader thread or a waiting caller.
  static constexpr int kRoleFree = 0;
  static constexpr int kRoleReader = 1;
  static constexpr int kRoleCaller = 2;
  enum class ReadResult { kNeedMore, kInline, kCallerDone, kYield, kBroken };

  // Reads and handles what the socket holds now (up to a fair share); may
  // pick one synchronous call to run on this thread (kInline).
  ReadResult ReadBatch(Work** inline_work);
  // Takes what recv returned into the decoder and keeps the partial-frame
  // figures up to date.
  void Received(const uint8_t* data, size_t n);
  // recv() that also takes descriptors the peer sent (into loose_fds_). A
  // peer whose descriptors do not fit, or that sends more than kMaxLooseFds
  // waiting for their frames, breaks the protocol: -1 with errno EPROTO.
  ssize_t Receive(int fd, uint8_t* buf, size_t max, int flags);
  // Before a frame of `size` bytes that starts at stream offset `start` is
  // handled: descriptors that came with earlier frames are closed, and the
  // one that came with this frame's first byte, if any, is put in
  // frame_fd_. Linux hands a recvmsg() the descriptors of the last message
  // it reads from and stops there, and the sender sends a frame that
  // carries one in a message of its own, starting at the frame: so the
  // frame is the last one that starts within that recvmsg's bytes.
  void TakeFrameFd(uint64_t start, uint64_t size);
  // A dump with a held descriptor may be queued (per-connection and
  // process limits); false when one more would pass them.
  bool ReserveDumpSlot();
  void UpdatePartial();
  // Gives the socket back and re-arms it (unless it has to wait for the
  // partial-frame budget).
  void ReleaseReadRole();
  // Handles the complete frames in decoder_.
  ReadResult HandleBuffered(Work** inline_work, ThreadState* caller, PendingCall* call);
  // Handles one decoded frame; false on a protocol violation or a broken
  // bound (close_reason_ says which). May hand back a synchronous call to
  // run on the reading thread.
  bool HandleFrame(Frame&& f, Work** inline_work);
  bool HandleTransact(Frame&& f, Work** inline_work);
  bool HandleReply(Frame&& f);
  bool HandleRelease(const Frame& f);
  // Ends the connection; called by the read-role holder only.
  void OnDeath();

  // Turns a parcel into frame objects + data, exporting our local objects.
  // On failure nothing stays exported.
  binder_status_t Flatten(const AParcel* p, Frame* f, std::vector<LocalBinder*>* exported);
  void Unexport(const std::vector<LocalBinder*>& exported);
  // Builds a parcel from a received frame, taking references on its objects.
  binder_status_t Unflatten(Frame&& f, std::unique_ptr<AParcel>* out);

  // Sends one encoded frame (see the class comment), with `attach_fd`
  // (not owned, -1 for none) on its first byte.
  // A one-way call (`oneway`) may be refused; everything else is queued.
  binder_status_t SendBytes(std::vector<uint8_t>&& bytes, bool oneway, int attach_fd = -1);
  // send() of bytes[off, size); with the descriptor when `fd` >= 0.
  ssize_t SendSome(const uint8_t* data, size_t size, int fd);
  binder_status_t SendFrame(const Frame& f, bool oneway);
  void ReplyError(uint64_t txn_id, binder_status_t status);
  // Sends from the backlog while the socket takes it.
  void DrainLocked() REQUIRES(wmu_);

  // Closed by the read-role holder once the connection is dead.
  lumx::unique_fd fd_;
  const uint64_t id_;
  // Process generation at creation; a fork() child never touches the
  // connections it inherited.
  const uint64_t generation_;
  pid_t peer_pid_ = 0;
  uid_t peer_uid_ = 0;
  uint64_t peer_nonce_;  // written by the reader before it publishes anything

  // Owned by whichever thread holds the read role (handed over under mu_).
  FrameDecoder decoder_;
  bool need_hello_;
  size_t partial_counted_ = 0;  // decoder bytes counted in the looper's total
  const char* close_reason_ = nullptr;
  CloseCause close_cause_ = kCloseProtocol;
  uint64_t rx_total_ = 0;  // stream bytes received so far
  std::deque<LooseFd> loose_fds_;
  lumx::unique_fd frame_fd_;  // the descriptor of the frame being handled

  std::atomic<bool> closing_{false};
  std::atomic<int64_t> partial_since_{0};

  lumx::Mutex mu_;
  bool dead_ GUARDED_BY(mu_) = false;
  // txn id -> the call and the thread waiting for it.
  std::unordered_map<uint64_t, std::pair<PendingCall*, ThreadState*>> pending_ GUARDED_BY(mu_);
  std::unordered_map<uint64_t, Waiter> waiters_ GUARDED_BY(mu_);
  std::unordered_map<uint64_t, Export> exports_ GUARDED_BY(mu_);
  // Received calls not yet started (bytes), of which one-way ones; one-way
  // bytes started but not acknowledged.
  size_t incoming_ GUARDED_BY(mu_) = 0;
  size_t incoming_oneway_ GUARDED_BY(mu_) = 0;
  size_t to_ack_ GUARDED_BY(mu_) = 0;
  int role_ GUARDED_BY(mu_) = kRoleFree;
  int dumps_held_ GUARDED_BY(mu_) = 0;
  bool parked_ GUARDED_BY(mu_) = false;
  bool closed_ GUARDED_BY(mu_) = false;  // descriptor closed (after death)

  lumx::Mutex wmu_;
  bool wdead_ GUARDED_BY(wmu_) = false;
  bool killed_ GUARDED_BY(wmu_) = false;
  bool in_write_set_ GUARDED_BY(wmu_) = false;
  std::deque<OutBuf> sendq_ GUARDED_BY(wmu_);
  size_t queued_ GUARDED_BY(wmu_) = 0;
  size_t oneway_in_flight_ GUARDED_BY(wmu_) = 0;
};

}  // namespace lumx_binder
