// Android system log (host build of liblog's <android/log.h>).
//
// On the host every call that passes the priority filter writes one line to
// stderr in logcat's "threadtime" layout:
//   "MM-DD HH:MM:SS.mmm  PID   TID P TAG     : message"
// (printf "%s %5d %5d %c %-8s: %s\n"; P is one of V D I W E F; a trailing
// newline in the message is not doubled). The minimum priority comes from $LUMX_LOG_LEVEL, read at every
// call: a letter V/D/I/W/E/F/S (any case) or a priority number 2..8; unset or
// invalid means verbose (everything). Messages are truncated to 1023 bytes.
// Tests can observe the entries in-process with lumx_host::LogCapture
// (<lumx_host/log_capture.h>).
#pragma once

#include <stdarg.h>
#include <sys/cdefs.h>

__BEGIN_DECLS

typedef enum android_LogPriority {
  ANDROID_LOG_UNKNOWN = 0,
  ANDROID_LOG_DEFAULT,  // only for SetMinPriority()
  ANDROID_LOG_VERBOSE,
  ANDROID_LOG_DEBUG,
  ANDROID_LOG_INFO,
  ANDROID_LOG_WARN,
  ANDROID_LOG_ERROR,
  ANDROID_LOG_FATAL,
  ANDROID_LOG_SILENT,  // only for SetMinPriority(); must be last
} android_LogPriority;

// Return 1 when written, -EPERM when filtered out by priority.
int __android_log_write(int prio, const char* tag, const char* text);
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((__format__(printf, 3, 4)));
int __android_log_vprint(int prio, const char* tag, const char* fmt, va_list ap)
    __attribute__((__format__(printf, 3, 0)));

// Logs at fatal priority (the condition, or the formatted message) and aborts.
void __android_log_assert(const char* cond, const char* tag, const char* fmt, ...)
    __attribute__((__noreturn__)) __attribute__((__format__(printf, 3, 4)));

__END_DECLS
