// Binder thread pool of the process (host build of the libbinder_ndk API).
//
// Incoming transactions (calls from other processes on this process's local
// objects) run on pool threads, or directly on the thread that read them off
// the connection (which saves a thread switch); either way they count against
// the same bound. The pool is made of:
//   - one thread started by ABinderProcess_startThreadPool(),
//   - every thread that sits in ABinderProcess_joinThreadPool(),
//   - up to N extra threads spawned on demand while all pool threads are busy,
//     N being the last value given to ABinderProcess_setThreadPoolMaxThreadCount
//     before the pool started (default 15).
// So at most N + (1 if started) + (number of joined threads) incoming calls run
// at the same time; e.g. max 1, start, join: at most 3. Further calls queue in
// arrival order.
//
// Death notifications (AIBinder_DeathRecipient) are delivered on the thread
// that noticed the peer's death, a reader thread of that connection.
//
// Exceptions to that bound, as with the kernel driver: a call that the peer
// makes while it is itself serving one of our synchronous calls (a nested
// call-back) runs on our thread that is waiting for that call's reply, not on
// the pool. Calls to an object of this process made from this process run on
// the calling thread.
//
// One-way calls to one object run one at a time, in the order they arrived.
//
// A process that receives a call before it has started its pool gets its one
// started thread implicitly, so a client that passes callback objects works
// with or without starting the pool. That does not count as starting it:
// setThreadPoolMaxThreadCount still works until startThreadPool or
// joinThreadPool is called (a service registered before configuring its pool
// may already be receiving calls).
#pragma once

#include <stdbool.h>
#include <stdint.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

void ABinderProcess_startThreadPool(void);
// Returns false once startThreadPool or joinThreadPool was called.
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);
bool ABinderProcess_isThreadPoolStarted(void);
// Makes the calling thread a pool thread; does not return.
void ABinderProcess_joinThreadPool(void);

__END_DECLS
