// The process's binder I/O: one epoll instance watches every socket of the
// runtime (connections and service listeners), so an idle connection costs a
// descriptor and a few hundred bytes, never a thread.
//
// Reader threads share the epoll instance as leader and followers: every
// socket is registered one-shot, so one waiting thread wakes per burst of
// data. A thread that reads a synchronous call it may run (a free slot of
// the thread pool) makes sure another thread waits in epoll before it runs
// the call itself, so the sockets stay watched without anybody being woken
// for it. Threads therefore number at most one more than the calls running
// at once.
//
// Sockets whose send backlog waits for room are watched for writability in a
// second epoll instance nested in the first; a timer checks the frame
// deadline and re-arms listeners paused for lack of descriptors.
//
// Every thread the runtime starts runs under SCHED_OTHER with all signals
// blocked, whatever the thread that caused it to start (a real-time thread,
// a thread that takes signals).
#pragma once

#include <sys/types.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "common/thread_annotations.h"
#include "common/unique_fd.h"

namespace lumx_binder {

class Connection;
struct Work;

// ---- bounds (platform/host/README.md) ----
// Bytes queued for one peer (replies, calls, one-way calls) that its socket
// has not taken yet. Past this the peer is not reading: the connection is
// closed with a log line.
constexpr size_t kMaxQueuedBytes = 4u << 20;
// The same over all connections of the process; a connection that already
// has a backlog is closed when a frame would push the total past this.
constexpr size_t kMaxQueuedBytesTotal = 64u << 20;
// Bytes of calls received from one peer that have not started to run. Past
// this the peer sends faster than its calls run: the connection is closed.
constexpr size_t kMaxIncomingBytes = 4u << 20;
constexpr size_t kMaxIncomingBytesTotal = 64u << 20;
// Bytes held in frames still arriving, over all connections. Past this,
// connections in the middle of a frame are read no further until others
// complete or time out (their bytes wait in the kernel).
constexpr size_t kMaxPartialBytesTotal = 8u << 20;
// A frame (and a new connection's greeting) must arrive whole within this.
constexpr int kFrameDeadlineMs = 5000;
// Connections one peer process may hold open to this process; the next one
// is refused with a reason the client logs.
constexpr int kMaxConnectionsPerPeer = 256;
// Connections of the process in all; fewer if the descriptor limit minus
// kReservedFds is lower, so the process keeps descriptors for its own work.
// A process that registers a service raises its soft descriptor limit (up
// to the hard one) to fit them.
constexpr int kMaxConnections = 2048;
constexpr int kReservedFds = 64;
// Reader threads that may wait idle; more end when their call is done. (A
// new one is started only while none waits, so they never outnumber the
// calls running at once by more than one; keeping some spares saves
// starting threads for every burst of calls.)
constexpr int kMaxIdleReaders = 16;

// Starts a detached thread named `name` (at most 15 characters) running `fn`
// under SCHED_OTHER priority 0 with every signal blocked. False (logged) if
// the system refuses.
bool StartThread(const char* name, std::function<void()> fn);

int64_t NowMs();

class Looper {
 public:
  Looper();

  // Registers a connection for reading; false if it cannot be watched.
  bool Add(const std::shared_ptr<Connection>& c, int fd, pid_t peer_pid) EXCLUDES(mu_);
  // Forgets a dead connection (its descriptor stays open for the caller).
  void Remove(uint64_t id, int fd, bool in_write_set) EXCLUDES(mu_);
  // Re-arms the connection's socket for reading (`armed`) or disarms it.
  void Arm(int fd, uint64_t id, bool armed);
  // Watches `fd` for room to write (one-shot); `added` says whether it is
  // already in the write set.
  void WatchWritable(int fd, uint64_t id, bool added);
  // A service listener: accepted connections start here.
  bool AddListener(int fd);

  // A connection read into the middle of a frame while the total was over
  // kMaxPartialBytesTotal: re-armed once frames complete or connections go.
  void Park(uint64_t id) EXCLUDES(mu_);
  // Re-arms the parked connections if the budget has room again.
  void MaybeUnpark() EXCLUDES(mu_);
  // The frame deadline needs checking.
  void WakeTimer() EXCLUDES(mu_);

  std::atomic<int64_t> partial_bytes{0};
  std::atomic<int64_t> queued_bytes{0};
  std::atomic<int64_t> incoming_bytes{0};
  std::atomic<int> dumps_held{0};

 private:
  enum Kind : uint64_t { kConn = 0, kListener = 1, kWriteSet = 2, kTimer = 3 };
  static uint64_t Token(Kind k, uint64_t id) { return (static_cast<uint64_t>(k) << 62) | id; }

  // Starts a reader thread if none waits in epoll (`any`: if none exists;
  // a busy one comes back soon unless it runs a call, and a thread that
  // runs a call first makes sure another one waits).
  void EnsureReader(bool any) EXCLUDES(mu_);
  void ReaderLoop() EXCLUDES(mu_);
  void OnListener(int fd) EXCLUDES(mu_);
  void Refuse(int fd, uint32_t reason, pid_t pid, uid_t uid, int count, int limit);
  void OnWritable() EXCLUDES(mu_);
  void OnTimer() EXCLUDES(mu_);
  int ConnectionLimit();
  std::shared_ptr<Connection> Find(uint64_t id) EXCLUDES(mu_);

  lumx::unique_fd epfd_;
  lumx::unique_fd wepfd_;
  lumx::unique_fd timerfd_;

  lumx::Mutex mu_;
  std::unordered_map<uint64_t, std::shared_ptr<Connection>> conns_ GUARDED_BY(mu_);
  std::unordered_map<pid_t, int> per_peer_ GUARDED_BY(mu_);
  std::unordered_map<uint64_t, pid_t> peer_of_ GUARDED_BY(mu_);
  std::vector<uint64_t> parked_ GUARDED_BY(mu_);
  std::atomic<int> parked_count_{0};
  std::vector<int> paused_listeners_ GUARDED_BY(mu_);
  // Reader threads in (or about to enter) epoll_wait, and all of them.
  int waiting_ GUARDED_BY(mu_) = 0;
  int threads_ GUARDED_BY(mu_) = 0;
  bool timer_armed_ GUARDED_BY(mu_) = false;
  uint64_t timer_wakes_ GUARDED_BY(mu_) = 0;
};

}  // namespace lumx_binder
