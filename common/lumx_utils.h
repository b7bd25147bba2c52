// Small helpers shared by every part of the daemon.
#pragma once

#include <signal.h>

#include <cstdint>
#include <string>

#include "common/lumx_types.h"

// Puts the calling thread under SCHED_FIFO priority 2. Returns 0, or the
// failing call's status after logging it (tag "lumx_utils"). Called first
// thing by every buffer I/O thread; without the privilege the thread simply
// streams at normal priority.
int32_t SetThreadRealtimePriority();

// The name the service is registered under: ILumx::descriptor + "/default".
// Built once; the pointer stays valid for the life of the process.
const char* LumxDescriptor();

// Logs the outcome of one interface operation under the operation's name;
// every operation calls it just before returning.
void print_aidl_return(const char* func, const CommandResult* result);

// Text of a four-character code (processor id or type, tap code): the bytes
// from the most significant down, ended early by a zero byte, and without a
// character the code ends inside (which no binder string may carry).
std::string FourCcToString(uint32_t code);

// Names of the use cases and parameter ids as results and logs print them;
// values outside the tables print as decimal numbers.
std::string UseCaseToString(UseCase useCase);
std::string ParameterIdToString(ParameterId id);

// SIGINT and SIGHUP. Only the event thread takes them (either ends its loop);
// every other thread has them blocked, so a signal never cuts short the wait
// of a real-time or worker thread.
sigset_t LoopSignals();

// Blocks LoopSignals() in the calling thread for its scope. A thread started
// inside the scope inherits the mask, so a thread that the event thread
// starts has them blocked from its first instruction.
class ScopedLoopSignalsBlocked {
 public:
  ScopedLoopSignalsBlocked();
  ~ScopedLoopSignalsBlocked();
  ScopedLoopSignalsBlocked(const ScopedLoopSignalsBlocked&) = delete;
  ScopedLoopSignalsBlocked& operator=(const ScopedLoopSignalsBlocked&) = delete;

 private:
  sigset_t previous_;
};
