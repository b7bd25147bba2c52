// Binder objects: classes, local objects and proxies, reference counts, weak
// references, death notifications and the transaction entry point.
#include <android/binder_ibinder.h>
#include <android/binder_ibinder_platform.h>
#include <android/log.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>

#include "connection.h"
#include "internal.h"

namespace lumx_binder {

namespace {

constexpr const char* kTag = "binder";
// Local object ids: constant-initialised so objects may be created during
// static initialisation.
std::atomic<uint64_t> g_next_local_id{1};

constexpr binder_flags_t kFlagPrivateVendor = 0x10000000;
constexpr binder_flags_t kKnownFlags = FLAG_ONEWAY | FLAG_CLEAR_BUF | kFlagPrivateVendor;

}  // namespace

void IncStrong(AIBinder* b) { b->strong.fetch_add(1, std::memory_order_relaxed); }

void DecStrong(AIBinder* b) {
  if (b->strong.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    b->OnLastStrongRef();
    DecWeak(b);
  }
}

bool TryIncStrong(AIBinder* b) {
  int32_t cur = b->strong.load(std::memory_order_relaxed);
  while (cur > 0) {
    if (b->strong.compare_exchange_weak(cur, cur + 1, std::memory_order_acq_rel)) return true;
  }
  return false;
}

void IncWeak(AIBinder* b) { b->weak.fetch_add(1, std::memory_order_relaxed); }

void DecWeak(AIBinder* b) {
  if (b->weak.fetch_sub(1, std::memory_order_acq_rel) == 1) delete b;
}

LocalBinder::LocalBinder(const AIBinder_Class* c, void* ud)
    : AIBinder(c, false), user_data(ud), id(g_next_local_id.fetch_add(1)) {}

void LocalBinder::OnLastStrongRef() {
  const AIBinder_Class* c = clazz.load();
  if (c != nullptr && c->on_destroy != nullptr) c->on_destroy(user_data);
}

ProxyBinder::ProxyBinder(std::shared_ptr<Connection> c, uint64_t rid, std::string desc)
    : AIBinder(nullptr, true), conn(std::move(c)), remote_id(rid), descriptor(std::move(desc)) {}

struct DeathRecipientState {
  explicit DeathRecipientState(AIBinder_DeathRecipient_onBinderDied died) : on_died(died) {}
  const AIBinder_DeathRecipient_onBinderDied on_died;
  std::atomic<AIBinder_DeathRecipient_onBinderUnlinked> on_unlinked{nullptr};
  // Guarded by the runtime's death lock.
  std::vector<std::shared_ptr<DeathLink>> links;
};

namespace {

void RemoveLink(std::vector<std::shared_ptr<DeathLink>>* v, const DeathLink* link) {
  v->erase(std::remove_if(v->begin(), v->end(),
                          [link](const std::shared_ptr<DeathLink>& l) { return l.get() == link; }),
           v->end());
}

// Tells each link's recipient it is unlinked and drops the link's weak
// reference on the proxy.
void FinishLinks(const std::vector<std::shared_ptr<DeathLink>>& links, bool died) {
  for (const auto& link : links) {
    if (died) link->recipient->on_died(link->cookie);
    AIBinder_DeathRecipient_onBinderUnlinked unlinked = link->recipient->on_unlinked.load();
    if (unlinked != nullptr) unlinked(link->cookie);
    DecWeak(link->proxy);
  }
}

}  // namespace

void ProxyBinder::OnLastStrongRef() {
  Runtime* r = rt();
  int64_t count;
  {
    lumx::MutexLock l(&r->mu);
    auto it = r->proxies.find({conn.get(), remote_id});
    if (it != r->proxies.end() && it->second == this) r->proxies.erase(it);
    count = acquired;
  }
  conn->SendRelease(remote_id, count);
  std::vector<std::shared_ptr<DeathLink>> gone;
  {
    lumx::MutexLock l(&r->death_mu);
    gone.swap(links);
    for (const auto& link : gone) RemoveLink(&link->recipient->links, link.get());
  }
  FinishLinks(gone, false);
}

void SendObituaries(ProxyBinder* proxy) {
  Runtime* r = rt();
  std::vector<std::shared_ptr<DeathLink>> fired;
  {
    lumx::MutexLock l(&r->death_mu);
    if (proxy->dead) return;
    proxy->dead = true;
    fired.swap(proxy->links);
    for (const auto& link : fired) RemoveLink(&link->recipient->links, link.get());
  }
  FinishLinks(fired, true);
}

AIBinder* GetOrCreateProxy(const std::shared_ptr<Connection>& conn, uint64_t remote_id,
                           const std::string& descriptor) {
  Runtime* r = rt();
  lumx::MutexLock l(&r->mu);
  auto key = std::make_pair(conn.get(), remote_id);
  auto it = r->proxies.find(key);
  if (it != r->proxies.end() && TryIncStrong(it->second)) {
    ++it->second->acquired;
    return it->second;
  }
  ProxyBinder* p = new ProxyBinder(conn, remote_id, descriptor);
  r->proxies[key] = p;
  return p;
}

}  // namespace lumx_binder


struct AIBinder_DeathRecipient {
  std::shared_ptr<lumx_binder::DeathRecipientState> state;
};

struct AIBinder_Weak {
  AIBinder* binder;  // weak reference
};

using lumx_binder::LocalBinder;
using lumx_binder::ProxyBinder;
using lumx_binder::rt;

extern "C" {

// ---- classes ----

AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact) {
  if (interfaceDescriptor == nullptr || onCreate == nullptr || onDestroy == nullptr ||
      onTransact == nullptr) {
    return nullptr;
  }
  AIBinder_Class* c = new AIBinder_Class();
  c->descriptor = interfaceDescriptor;
  c->on_create = onCreate;
  c->on_destroy = onDestroy;
  c->on_transact = onTransact;
  return c;
}

void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) {
  if (clazz != nullptr) clazz->on_dump = onDump;
}

void AIBinder_Class_disableInterfaceTokenHeader(AIBinder_Class* clazz) {
  if (clazz != nullptr) clazz->write_token = false;
}

const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) {
  return clazz == nullptr ? nullptr : clazz->descriptor.c_str();
}

void AIBinder_Class_setTransactionCodeToFunctionNameMap(AIBinder_Class* clazz,
                                                        const char* const* transactionCodeToFunctionMap,
                                                        size_t length) {
  if (clazz == nullptr || transactionCodeToFunctionMap == nullptr) return;
  clazz->function_names.clear();
  for (size_t i = 0; i < length; ++i) {
    const char* name = transactionCodeToFunctionMap[i];
    clazz->function_names.push_back(name == nullptr ? "" : name);
  }
}

const char* AIBinder_Class_getFunctionName(AIBinder_Class* clazz, transaction_code_t code) {
  if (clazz == nullptr || code < FIRST_CALL_TRANSACTION) return nullptr;
  const size_t index = code - FIRST_CALL_TRANSACTION;
  if (index >= clazz->function_names.size()) return nullptr;
  return clazz->function_names[index].c_str();
}

// ---- objects ----

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) {
  if (clazz == nullptr) return nullptr;
  void* user_data = clazz->on_create(args);
  return new LocalBinder(clazz, user_data);
}

bool AIBinder_isRemote(const AIBinder* binder) { return binder != nullptr && binder->remote; }

bool AIBinder_isAlive(const AIBinder* binder) {
  if (binder == nullptr) return false;
  if (!binder->remote) return true;
  const ProxyBinder* p = static_cast<const ProxyBinder*>(binder);
  {
    lumx::MutexLock l(&rt()->death_mu);
    if (p->dead) return false;
  }
  return !p->conn->IsDead();
}

binder_status_t AIBinder_ping(AIBinder* binder) {
  if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
  if (!binder->remote) return STATUS_OK;
  ProxyBinder* p = static_cast<ProxyBinder*>(binder);
  AParcel in;
  AParcel* out = nullptr;
  binder_status_t st = p->conn->Transact(p->remote_id, lumx_binder::kPingTransaction, &in, &out, 0);
  AParcel_delete(out);
  return st;
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
  if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
  if (binder->remote) {
    // The object's process writes to (its copy of) `fd`; this returns once
    // it has finished.
    if (fd < 0) return STATUS_BAD_VALUE;
    if (numArgs > 0 && args == nullptr) return STATUS_UNEXPECTED_NULL;
    AParcel in;
    binder_status_t st = AParcel_writeInt32(&in, static_cast<int32_t>(numArgs));
    for (uint32_t i = 0; st == STATUS_OK && i < numArgs; ++i) {
      if (args[i] == nullptr) return STATUS_UNEXPECTED_NULL;
      st = AParcel_writeString(&in, args[i], static_cast<int32_t>(strlen(args[i])));
    }
    if (st != STATUS_OK) return st;
    ProxyBinder* p = static_cast<ProxyBinder*>(binder);
    AParcel* out = nullptr;
    st = p->conn->Transact(p->remote_id, lumx_binder::kDumpTransaction, &in, &out, 0, fd);
    AParcel_delete(out);
    return st;
  }
  const AIBinder_Class* c = binder->clazz.load();
  if (c == nullptr || c->on_dump == nullptr) return STATUS_OK;
  return c->on_dump(binder, fd, args, numArgs);
}

void AIBinder_incStrong(AIBinder* binder) {
  if (binder != nullptr) lumx_binder::IncStrong(binder);
}

void AIBinder_decStrong(AIBinder* binder) {
  if (binder == nullptr) {
    __android_log_print(ANDROID_LOG_ERROR, lumx_binder::kTag, "AIBinder_decStrong: null binder");
    return;
  }
  lumx_binder::DecStrong(binder);
}

int32_t AIBinder_debugGetRefCount(AIBinder* binder) {
  if (binder == nullptr) return -1;
  return binder->strong.load();
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
  if (binder == nullptr || clazz == nullptr) return false;
  if (!binder->remote) return binder->clazz.load() == clazz;
  ProxyBinder* p = static_cast<ProxyBinder*>(binder);
  if (p->descriptor != clazz->descriptor) return false;
  // The first class associated with a proxy stays its class.
  const AIBinder_Class* expected = nullptr;
  binder->clazz.compare_exchange_strong(expected, clazz);
  return true;
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) {
  return binder == nullptr ? nullptr : binder->clazz.load();
}

void* AIBinder_getUserData(AIBinder* binder) {
  if (binder == nullptr || binder->remote) return nullptr;
  return static_cast<LocalBinder*>(binder)->user_data;
}

uid_t AIBinder_getCallingUid(void) {
  lumx_binder::ThreadState* ts = lumx_binder::CurrentThread();
  return ts->contexts.empty() ? getuid() : ts->contexts.back().uid;
}

pid_t AIBinder_getCallingPid(void) {
  lumx_binder::ThreadState* ts = lumx_binder::CurrentThread();
  return ts->contexts.empty() ? getpid() : ts->contexts.back().pid;
}

bool AIBinder_isHandlingTransaction(void) {
  return !lumx_binder::CurrentThread()->contexts.empty();
}

bool AIBinder_lt(const AIBinder* lhs, const AIBinder* rhs) { return lhs < rhs; }

// ---- transactions ----

binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) {
  if (binder == nullptr || in == nullptr) return STATUS_UNEXPECTED_NULL;
  const AIBinder_Class* c = binder->clazz.load();
  if (c == nullptr) return STATUS_INVALID_OPERATION;
  AParcel* p = new AParcel();
  p->owner = binder;
  if (c->write_token) {
    binder_status_t st = lumx_binder::WriteInterfaceToken(p, c->descriptor);
    if (st != STATUS_OK) {
      delete p;
      return st;
    }
  }
  *in = p;
  return STATUS_OK;
}

binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) {
  if (in == nullptr) return STATUS_UNEXPECTED_NULL;
  std::unique_ptr<AParcel> request(*in);
  *in = nullptr;
  if (out != nullptr) *out = nullptr;
  if (code < FIRST_CALL_TRANSACTION || code > LAST_CALL_TRANSACTION) {
    return STATUS_UNKNOWN_TRANSACTION;
  }
  if ((flags & ~lumx_binder::kKnownFlags) != 0) return STATUS_BAD_VALUE;
  if (binder == nullptr || request == nullptr || out == nullptr) return STATUS_UNEXPECTED_NULL;
  if (request->owner != binder) return STATUS_BAD_VALUE;

  if (!binder->remote) {
    // A call on an object of this process runs right here.
    std::unique_ptr<AParcel> reply(new AParcel());
    request->pos = 0;
    binder_status_t st =
        lumx_binder::DispatchLocal(static_cast<LocalBinder*>(binder), code, request.get(), reply.get());
    if (st != STATUS_OK) return st;
    if ((flags & FLAG_ONEWAY) != 0) lumx_binder::ParcelClear(reply.get());
    reply->pos = 0;
    *out = reply.release();
    return STATUS_OK;
  }
  ProxyBinder* p = static_cast<ProxyBinder*>(binder);
  return p->conn->Transact(p->remote_id, code, request.get(), out, flags);
}

// ---- weak references ----

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
  if (binder == nullptr) return nullptr;
  lumx_binder::IncWeak(binder);
  return new AIBinder_Weak{binder};
}

void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) {
  if (weakBinder == nullptr) return;
  lumx_binder::DecWeak(weakBinder->binder);
  delete weakBinder;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) {
  if (weakBinder == nullptr) return nullptr;
  return lumx_binder::TryIncStrong(weakBinder->binder) ? weakBinder->binder : nullptr;
}

AIBinder_Weak* AIBinder_Weak_clone(const AIBinder_Weak* weak) {
  if (weak == nullptr) return nullptr;
  lumx_binder::IncWeak(weak->binder);
  return new AIBinder_Weak{weak->binder};
}

bool AIBinder_Weak_lt(const AIBinder_Weak* lhs, const AIBinder_Weak* rhs) {
  if (lhs == nullptr || rhs == nullptr) return lhs < rhs;
  return lhs->binder < rhs->binder;
}

// ---- death notification ----

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(AIBinder_DeathRecipient_onBinderDied onBinderDied) {
  if (onBinderDied == nullptr) return nullptr;
  return new AIBinder_DeathRecipient{
      std::make_shared<lumx_binder::DeathRecipientState>(onBinderDied)};
}

void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked) {
  if (recipient != nullptr) recipient->state->on_unlinked.store(onUnlinked);
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
  if (recipient == nullptr) return;
  std::vector<std::shared_ptr<lumx_binder::DeathLink>> gone;
  {
    lumx::MutexLock l(&rt()->death_mu);
    gone.swap(recipient->state->links);
    for (const auto& link : gone) lumx_binder::RemoveLink(&link->proxy->links, link.get());
  }
  lumx_binder::FinishLinks(gone, false);
  delete recipient;
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
  if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
  AIBinder_DeathRecipient_onBinderUnlinked unlinked = recipient->state->on_unlinked.load();
  if (!binder->remote) {
    if (unlinked != nullptr) unlinked(cookie);
    return STATUS_INVALID_OPERATION;
  }
  ProxyBinder* p = static_cast<ProxyBinder*>(binder);
  bool dead;
  {
    lumx::MutexLock l(&rt()->death_mu);
    dead = p->dead || p->conn->IsDead();
    if (!dead) {
      auto link = std::make_shared<lumx_binder::DeathLink>();
      link->recipient = recipient->state;
      link->proxy = p;
      link->cookie = cookie;
      lumx_binder::IncWeak(p);
      p->links.push_back(link);
      recipient->state->links.push_back(link);
    }
  }
  if (dead) {
    if (unlinked != nullptr) unlinked(cookie);
    return STATUS_DEAD_OBJECT;
  }
  return STATUS_OK;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
  if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
  if (!binder->remote) return STATUS_INVALID_OPERATION;
  ProxyBinder* p = static_cast<ProxyBinder*>(binder);
  std::vector<std::shared_ptr<lumx_binder::DeathLink>> gone;
  {
    lumx::MutexLock l(&rt()->death_mu);
    for (const auto& link : p->links) {
      if (link->recipient == recipient->state && link->cookie == cookie) {
        gone.push_back(link);
        break;
      }
    }
    if (!gone.empty()) {
      lumx_binder::RemoveLink(&p->links, gone[0].get());
      lumx_binder::RemoveLink(&recipient->state->links, gone[0].get());
    }
  }
  if (gone.empty()) return STATUS_NAME_NOT_FOUND;
  lumx_binder::FinishLinks(gone, false);
  return STATUS_OK;
}

}  // extern "C"
