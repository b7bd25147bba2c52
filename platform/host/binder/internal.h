// Internal structures of the host binder runtime.
//
// Objects: an AIBinder is either a LocalBinder (an object of this process,
// created by AIBinder_new) or a ProxyBinder (an object of a peer process,
// reached over one Connection). Strong and weak counts work as in libbinder:
// the object's payload goes away with the last strong reference (onDestroy
// for a local object, a RELEASE message for a proxy), the memory with the
// last weak one.
//
// Identity: one AIBinder* per object per process. Proxies are kept in a table
// keyed by (connection, remote id); a local object that comes back from a
// peer is found in that connection's export table and resolves to itself.
//
// Reference accounting across a connection: every time a local object is
// sent, the connection's export entry for it counts one more and holds one
// strong reference; the peer counts how many times its proxy was handed the
// object and returns that count in RELEASE when the proxy dies. When the count
// drops to 0 the export entry and its strong reference go. A dead connection
// releases all its exports at once.
#pragma once

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "common/thread_annotations.h"
#include "common/unique_fd.h"
#include "frame.h"
#include "looper.h"

struct AIBinder_Class {
  std::string descriptor;
  AIBinder_Class_onCreate on_create = nullptr;
  AIBinder_Class_onDestroy on_destroy = nullptr;
  AIBinder_Class_onTransact on_transact = nullptr;
  AIBinder_onDump on_dump = nullptr;
  bool write_token = true;
  std::vector<std::string> function_names;
};

struct AStatus {
  binder_exception_t exception = EX_NONE;
  int32_t error = 0;  // service-specific error or transport status
  std::string message;
};

struct AIBinder {
  AIBinder(const AIBinder_Class* c, bool is_remote) : clazz(c), remote(is_remote) {}
  virtual ~AIBinder() = default;
  AIBinder(const AIBinder&) = delete;
  AIBinder& operator=(const AIBinder&) = delete;

  // Runs when the strong count reaches 0.
  virtual void OnLastStrongRef() = 0;

  std::atomic<int32_t> strong{1};
  // All strong references together hold one weak reference.
  std::atomic<int32_t> weak{1};
  std::atomic<const AIBinder_Class*> clazz;
  const bool remote;
};

namespace lumx_binder {

class Connection;
struct Work;

void IncStrong(AIBinder* b);
void DecStrong(AIBinder* b);
// Adds a strong reference unless the count already reached 0.
bool TryIncStrong(AIBinder* b);
void IncWeak(AIBinder* b);
void DecWeak(AIBinder* b);

class LocalBinder : public AIBinder {
 public:
  LocalBinder(const AIBinder_Class* c, void* user_data);
  void OnLastStrongRef() override;

  void* const user_data;
  const uint64_t id;  // unique in this process, never 0
};

struct DeathLink;

class ProxyBinder : public AIBinder {
 public:
  ProxyBinder(std::shared_ptr<Connection> c, uint64_t remote_id, std::string descriptor);
  void OnLastStrongRef() override;

  const std::shared_ptr<Connection> conn;
  const uint64_t remote_id;
  const std::string descriptor;  // class descriptor of the remote object
  // Times the peer handed us this object; guarded by the runtime's table lock.
  int64_t acquired = 1;
  // Death links and the dead flag; guarded by the runtime's death lock.
  std::vector<std::shared_ptr<DeathLink>> links;
  bool dead = false;
};

// Parcel: data bytes plus the binder objects (held strongly) and descriptors
// written into it. A binder slot in the data is int32 kind (0 null, 1 binder,
// 2 file descriptor) then int32 index into `objects` / `fds`.
constexpr int32_t kSlotNull = 0;
constexpr int32_t kSlotBinder = 1;
constexpr int32_t kSlotFd = 2;

struct ParcelObject {
  int32_t offset;
  AIBinder* binder;  // strong reference owned by the parcel
};
struct ParcelFd {
  int32_t offset;
  lumx::unique_fd fd;
};

}  // namespace lumx_binder

struct AParcel {
  AParcel() = default;
  ~AParcel();
  AParcel(const AParcel&) = delete;
  AParcel& operator=(const AParcel&) = delete;

  std::vector<uint8_t> data;
  mutable size_t pos = 0;
  std::vector<lumx_binder::ParcelObject> objects;
  std::vector<lumx_binder::ParcelFd> fds;
  // The binder a prepared transaction parcel belongs to (compared, not owned).
  const AIBinder* owner = nullptr;
  mutable bool sensitive = false;
};

namespace lumx_binder {

// ---- parcel internals shared with the transport ----
// Reads the interface token the transaction was prepared with.
binder_status_t ReadInterfaceToken(const AParcel* p, std::string* descriptor);
binder_status_t WriteInterfaceToken(AParcel* p, const std::string& descriptor);
// Replaces the parcel's contents (used by the transport and the fuzzer).
void ParcelSetData(AParcel* p, std::vector<uint8_t> data);
// Drops every object and descriptor reference (for reuse / deletion).
void ParcelClear(AParcel* p);

// ---- status ----
AStatus* NewStatus(binder_exception_t ex, int32_t error, const char* message);

// ---- threads ----
struct IncomingContext {
  Connection* conn;
  uint64_t sender_token;
  pid_t pid;
  uid_t uid;
};

struct PendingCall {
  bool done = false;
  binder_status_t status = STATUS_OK;
  AParcel* reply = nullptr;
};

// Per-thread state: identity token, the stack of incoming transactions being
// served, and the inbox through which a peer's nested call reaches this
// thread while it waits for a reply.
struct ThreadState {
  ThreadState();
  ~ThreadState();

  const uint64_t token;
  lumx::Mutex mu;
  std::condition_variable cv;
  std::deque<Work*> inbox GUARDED_BY(mu);
  // Thread-confined.
  int wait_depth = 0;
  std::vector<IncomingContext> contexts;
};

ThreadState* CurrentThread();

// An incoming transaction on a local object.
struct Work {
  Work() = default;
  // Gives back the dump slot that a held descriptor takes.
  ~Work();
  Work(const Work&) = delete;
  Work& operator=(const Work&) = delete;

  std::shared_ptr<Connection> conn;
  LocalBinder* target = nullptr;  // strong reference owned by the work item
  uint32_t code = 0;
  uint32_t flags = 0;
  uint64_t txn_id = 0;
  uint64_t sender_token = 0;
  pid_t pid = 0;
  uid_t uid = 0;
  std::unique_ptr<AParcel> data;
  size_t backlog_bytes = 0;  // counted in conn's incoming backlog until started
  lumx::unique_fd fd;        // a dump's descriptor (the caller's, dup'ed to us)
};

// Runs an incoming transaction on the current thread and answers it; one of
// a connection that is closing is dropped instead.
void ExecuteWork(Work* w);
// Drops an incoming transaction that will never run.
void DiscardWork(Work* w);

// Calls the object's onTransact after checking the interface token.
binder_status_t DispatchLocal(LocalBinder* b, transaction_code_t code, const AParcel* in,
                              AParcel* out);
// A dump transaction: reads the arguments and calls the class's onDump with
// `fd` (STATUS_OK without one).
binder_status_t DispatchDump(LocalBinder* b, int fd, const AParcel* in);

// Waits for `call` while serving nested calls routed to this thread; reads
// the reply from `conn` itself when it can.
void WaitForReply(ThreadState* ts, PendingCall* call, Connection* conn);

// Waits on `cv` with `mu` (held) released meanwhile.
void WaitOn(std::condition_variable& cv, lumx::Mutex& mu) REQUIRES(mu);

class ThreadPool {
 public:
  // Queues an incoming call for the pool threads; one-way calls to one object
  // are held back while an earlier one on that object runs.
  void Enqueue(Work* w);
  // A one-way call on `target` finished: release the next one.
  void OnewayDone(LocalBinder* target);
  // Drops every queued call of `conn` (it died): none of them runs.
  void DropWorkOf(const Connection* conn);
  // Takes one of the pool's slots for a call that a reader thread runs
  // itself; false when all are busy (then the call is queued).
  bool TryReserveSlot();
  void ReleaseSlot();
  bool SetMaxThreads(uint32_t n);
  void Start();
  bool Started();
  [[noreturn]] void Join();

 private:
  void PushLocked(Work* w) REQUIRES(mu_);
  void SpawnLocked() REQUIRES(mu_);
  // Calls that may run at once: the started thread, the joined threads and
  // the extra threads.
  uint32_t CapacityLocked() REQUIRES(mu_) {
    return (started_ ? 1u : 0u) + joined_ + max_extra_;
  }
  [[noreturn]] void Loop();

  lumx::Mutex mu_;
  std::condition_variable cv_;
  std::deque<Work*> queue_ GUARDED_BY(mu_);
  std::unordered_map<LocalBinder*, std::deque<Work*>> async_ GUARDED_BY(mu_);
  uint32_t max_extra_ GUARDED_BY(mu_) = 15;
  bool started_ GUARDED_BY(mu_) = false;
  // Started by the application (not implicitly by an early incoming call):
  // from then on the maximum is fixed.
  bool started_explicitly_ GUARDED_BY(mu_) = false;
  uint32_t extra_ GUARDED_BY(mu_) = 0;
  uint32_t joined_ GUARDED_BY(mu_) = 0;
  uint32_t idle_ GUARDED_BY(mu_) = 0;
  uint32_t executing_ GUARDED_BY(mu_) = 0;  // calls running, on pool or reader threads
};

// ---- death notification ----
struct DeathRecipientState;
struct DeathLink {
  std::shared_ptr<DeathRecipientState> recipient;
  ProxyBinder* proxy;  // weak reference owned by the link
  void* cookie;
};
// Fires the death recipients of `proxy` (once).
void SendObituaries(ProxyBinder* proxy);

// ---- the process-wide runtime ----
class Runtime {
 public:
  Runtime();

  const uint64_t nonce;  // identifies this process instance to peers
  std::atomic<uint64_t> next_txn{1};

  // Proxy table and connection map.
  lumx::Mutex mu;
  std::map<std::pair<Connection*, uint64_t>, ProxyBinder*> proxies GUARDED_BY(mu);
  std::unordered_map<uint64_t, std::weak_ptr<Connection>> peers GUARDED_BY(mu);

  // Guards every death link and ProxyBinder::dead.
  lumx::Mutex death_mu;

  ThreadPool pool;
  Looper looper;

  // Service registry: name -> local object (strong reference).
  lumx::Mutex services_mu;
  std::map<std::string, AIBinder*> services GUARDED_BY(services_mu);
  std::map<std::string, int> listeners GUARDED_BY(services_mu);  // name -> listening fd
};

// The runtime of this process (created on first use; a fork() child starts
// with a fresh one).
Runtime* rt();

// Bumped in a fork() child: objects of an older generation are inert there.
uint64_t CurrentGeneration();

// Remembers descriptors the runtime owns, so that a fork() child can close
// them (a child must not keep a parent's connections alive).
void TrackFd(int fd);
void UntrackFd(int fd);

// Proxy for `remote_id` on `conn`, counting one more acquisition: an existing
// live proxy or a new one. Returns a strong reference.
AIBinder* GetOrCreateProxy(const std::shared_ptr<Connection>& conn, uint64_t remote_id,
                           const std::string& descriptor);

// ---- service sockets ----
std::string RuntimeDir();
std::string SocketPathFor(const std::string& dir, const std::string& instance);
bool ValidServiceName(const char* name);
// Connects to the socket of `instance` and asks for the object; null if
// nothing answers. `hello_timeout_ms` bounds the wait for the peer's hello.
AIBinder* LookupOverSocket(const std::string& instance, int hello_timeout_ms);

}  // namespace lumx_binder
