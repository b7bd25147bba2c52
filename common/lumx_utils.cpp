#include "common/lumx_utils.h"

#include <android/log.h>
#include <errno.h>
#include <pthread.h>
#include <sched.h>

#include <mutex>

#include "common/lumx_log.h"
#include "common/utf8_text.h"

int32_t SetThreadRealtimePriority() {
  struct sched_param param = {};
  param.sched_priority = 2;
  int status = sched_setscheduler(0, SCHED_FIFO, &param);
  if (status != 0) {
    // The pid in this line is always 0: the call targets the calling thread.
    __android_log_print(ANDROID_LOG_ERROR, "lumx_utils", "%s failed. status %d, errno %d, pid %u",
                        "common/lumx_utils", status, errno, 0u);
  }
  return status;
}

const char* LumxDescriptor() {
  static std::once_flag once;
  static std::string* name = nullptr;
  std::call_once(once, [] {
    static std::string instance = std::string(::aidl::lumx::ILumx::descriptor) + "/default";
    name = &instance;
  });
  return name->c_str();
}

void print_aidl_return(const char* func, const CommandResult* result) {
  const int status = static_cast<uint8_t>(result->status);
  if (status != 0) {
    if (result->strList.empty()) {
      const char* word;
      switch (status) {
        case 1: word = "ERROR"; break;
        case 2: word = "INVALID PROCESSOR"; break;
        case 3: word = "INVALID PARAMETER"; break;
        case 4: word = "INVALID_VALUE"; break;
        default: word = "Unknown error"; break;
      }
      LUMX_LOGE("%s: %s", func, word);
    } else {
      LUMX_LOGE("%s: %s", func, result->toString().c_str());
    }
  } else if (!result->strList.empty()) {
    LUMX_LOGI("%s: %s", func, result->toString().c_str());
  }
}

std::string FourCcToString(uint32_t code) {
  char text[5];
  text[0] = static_cast<char>((code >> 24) & 0xff);
  text[1] = static_cast<char>((code >> 16) & 0xff);
  text[2] = static_cast<char>((code >> 8) & 0xff);
  text[3] = static_cast<char>(code & 0xff);
  text[4] = '\0';
  // A client's code may end inside a character (0x41c30000 is "A" and half
  // of an "é"); that half would make the whole answer unsendable.
  return std::string(text, lumx::Utf8CutLength(text, strlen(text)));
}

std::string UseCaseToString(UseCase useCase) { return ::aidl::lumx::toString(useCase); }

std::string ParameterIdToString(ParameterId id) { return ::aidl::lumx::toString(id); }

sigset_t LoopSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGHUP);
  return set;
}

ScopedLoopSignalsBlocked::ScopedLoopSignalsBlocked() {
  const sigset_t loop = LoopSignals();
  pthread_sigmask(SIG_BLOCK, &loop, &previous_);
}

ScopedLoopSignalsBlocked::~ScopedLoopSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
