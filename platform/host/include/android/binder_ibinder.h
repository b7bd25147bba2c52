// Binder objects, classes, transactions, weak references and death
// notifications (libbinder_ndk C API, host build).
//
// On the host, binder objects that leave the process travel over AF_UNIX
// stream sockets (see binder_manager.h for how services are found and
// binder_process.h for which threads serve incoming calls). Host limits:
//   - a transaction (or reply) larger than 1 MiB on the wire fails with
//     STATUS_FAILED_TRANSACTION, as a too-large transaction does on Android;
//   - objects and parcels cross one connection: an object received from one
//     process cannot be sent on to a third one (STATUS_INVALID_OPERATION), and
//     file descriptors cannot be sent in a parcel (STATUS_FDS_NOT_ALLOWED);
//   - AIBinder_dump on a proxy passes the descriptor to the object's process
//     (SCM_RIGHTS) and returns once its onDump has returned; the descriptor
//     must be valid (STATUS_BAD_VALUE otherwise);
//   - a process keeps one connection per peer process, open until the peer
//     exits.
#pragma once

#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>
#include <sys/types.h>

#include <android/binder_parcel.h>
#include <android/binder_status.h>

__BEGIN_DECLS

typedef uint32_t transaction_code_t;
typedef uint32_t binder_flags_t;

// Codes a client may send with AIBinder_transact.
enum {
  FIRST_CALL_TRANSACTION = 0x00000001,
  LAST_CALL_TRANSACTION = 0x00ffffff,
};

// The call returns as soon as it is queued; no reply.
enum { FLAG_ONEWAY = 0x01 };

struct AIBinder;
typedef struct AIBinder AIBinder;

struct AIBinder_Weak;
typedef struct AIBinder_Weak AIBinder_Weak;

struct AIBinder_Class;
typedef struct AIBinder_Class AIBinder_Class;

struct AIBinder_DeathRecipient;
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

typedef void* (*AIBinder_Class_onCreate)(void* args);
typedef void (*AIBinder_Class_onDestroy)(void* userData);
typedef binder_status_t (*AIBinder_Class_onTransact)(AIBinder* binder, transaction_code_t code,
                                                     const AParcel* in, AParcel* out);
typedef binder_status_t (*AIBinder_onDump)(AIBinder* binder, int fd, const char** args,
                                           uint32_t numArgs);

// Defines a binder class. Safe to call during static initialisation. The class
// lives until the process exits.
AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact) __INTRODUCED_IN(29)
    __attribute__((warn_unused_result));
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) __INTRODUCED_IN(29);
void AIBinder_Class_disableInterfaceTokenHeader(AIBinder_Class* clazz) __INTRODUCED_IN(33);
const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) __INTRODUCED_IN(31);
// The table is read during the call (the class keeps a copy of the names).
void AIBinder_Class_setTransactionCodeToFunctionNameMap(
    AIBinder_Class* clazz, const char* const* transactionCodeToFunctionMap, size_t length)
    __INTRODUCED_IN(36);
const char* AIBinder_Class_getFunctionName(AIBinder_Class* clazz, transaction_code_t code)
    __INTRODUCED_IN(36);

// Creates a local object: calls clazz->onCreate(args) and returns the object
// with one strong reference.
AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) __INTRODUCED_IN(29)
    __attribute__((warn_unused_result));

bool AIBinder_isRemote(const AIBinder* binder) __INTRODUCED_IN(29);
bool AIBinder_isAlive(const AIBinder* binder) __INTRODUCED_IN(29);
binder_status_t AIBinder_ping(AIBinder* binder) __INTRODUCED_IN(29);
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs)
    __INTRODUCED_IN(29);

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) __INTRODUCED_IN(29);
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) __INTRODUCED_IN(29);

uid_t AIBinder_getCallingUid(void) __INTRODUCED_IN(29);
pid_t AIBinder_getCallingPid(void) __INTRODUCED_IN(29);
bool AIBinder_isHandlingTransaction(void) __INTRODUCED_IN(33);

void AIBinder_incStrong(AIBinder* binder) __INTRODUCED_IN(29);
void AIBinder_decStrong(AIBinder* binder) __INTRODUCED_IN(29);
int32_t AIBinder_debugGetRefCount(AIBinder* binder) __INTRODUCED_IN(29);

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) __INTRODUCED_IN(29);
const AIBinder_Class* AIBinder_getClass(AIBinder* binder) __INTRODUCED_IN(29);
void* AIBinder_getUserData(AIBinder* binder) __INTRODUCED_IN(29);

// Allocates a parcel for a transaction to `binder` and writes the interface
// token of its class into it.
binder_status_t AIBinder_prepareTransaction(AIBinder* binder, AParcel** in) __INTRODUCED_IN(29);

// Sends a transaction. Always takes ownership of *in. Synchronous calls block
// until the remote onTransact returns; FLAG_ONEWAY calls return once queued
// (and fail with STATUS_WOULD_BLOCK rather than block when the peer does not
// keep up). A dead peer gives STATUS_DEAD_OBJECT.
binder_status_t AIBinder_transact(AIBinder* binder, transaction_code_t code, AParcel** in,
                                  AParcel** out, binder_flags_t flags) __INTRODUCED_IN(29);

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) __INTRODUCED_IN(29)
    __attribute__((warn_unused_result));
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) __INTRODUCED_IN(29);
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) __INTRODUCED_IN(29);
AIBinder_Weak* AIBinder_Weak_clone(const AIBinder_Weak* weak) __INTRODUCED_IN(31);
bool AIBinder_lt(const AIBinder* lhs, const AIBinder* rhs) __INTRODUCED_IN(31);
bool AIBinder_Weak_lt(const AIBinder_Weak* lhs, const AIBinder_Weak* rhs) __INTRODUCED_IN(31);

typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);
typedef void (*AIBinder_DeathRecipient_onBinderUnlinked)(void* cookie);

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(AIBinder_DeathRecipient_onBinderDied onBinderDied)
    __INTRODUCED_IN(29) __attribute__((warn_unused_result));
void AIBinder_DeathRecipient_setOnUnlinked(AIBinder_DeathRecipient* recipient,
                                           AIBinder_DeathRecipient_onBinderUnlinked onUnlinked)
    __INTRODUCED_IN(33);
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) __INTRODUCED_IN(29);

__END_DECLS
