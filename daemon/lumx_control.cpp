// The DSP control channel: one request/reply exchange at a time over the
// control device.
#include <errno.h>
#include <fcntl.h>
#include <sys/select.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "common/clock.h"
#include "common/dev_root.h"
#include "common/lumx_log.h"
#include "common/wire.h"
#include "daemon/lumxd.h"

namespace {

constexpr int kNodeTests = 5;           // tests of the node, four sleeps between
constexpr useconds_t kNodeWaitUs = 100000;
// A hung-up node reads as end of file at once, for ever.
constexpr useconds_t kHangUpPauseUs = 10000;
// Reads that answer nothing: a late answer to an earlier command, or stale
// bytes queued in the driver (at most what its buffer holds, 4 KiB, which is
// 256 of the smallest message), are read past at once. More than that means
// the node keeps sending junk: each further read waits this long first, so a
// stream of junk costs a hundred reads within the budget, not a busy core.
constexpr int kUnmatchedFreeReads = 256;
constexpr int64_t kUnmatchedPauseUs = 5000;

int64_t MonotonicUs() { return lumx::MonotonicNowNs() / 1000; }


}  // namespace

void Lumxd::openLumxControl() {
  setControlFd(-1);

  const std::string path = LumxDevPath("zch-lumx_control");
  bool found = false;
  for (int test = 1; test <= kNodeTests; ++test) {
    if (access(path.c_str(), F_OK) == 0) {
      found = true;
      break;
    }
    if (test < kNodeTests) usleep(kNodeWaitUs);
  }
  if (!found) {
    LUMX_LOGE("Cannot find %s\n", path.c_str());
    fprintf(stderr, "ERROR: Cannot find %s\n", path.c_str());
    return;
  }

  // O_NOCTTY: the node may be a terminal-like device (the host simulator's is
  // a pty), which must never become the daemon's controlling terminal.
  int fd = open(path.c_str(), O_RDWR | O_NONBLOCK | O_NOCTTY);
  if (fd < 0) {
    const int err = errno;
    LUMX_LOGE("Failed to open %s: %s", path.c_str(), strerror(err));
    fprintf(stderr, "ERROR: Failed to open %s: %s", path.c_str(), strerror(err));
    return;
  }
  setControlFd(fd);
  LUMX_LOGI("Opened %s\n", path.c_str());
}

int32_t Lumxd::SendLumxCommand(uint16_t opcode, CMD_HDR* cmd, size_t size) {
  LUMX_LOGI("%s: send opcode 0x%x\n", "SendLumxCommand", opcode);
  lumx::MutexLock lock(&commandMutex);
  controlStats_.commands.Add();

  // Every message carries at least the header; anything shorter cannot be
  // stamped, let alone answered.
  if (cmd == nullptr || size < kCmdHdrSize) return -1;
  uint8_t* msg = reinterpret_cast<uint8_t*>(cmd);

  lumx::PutLe16(msg + kCmdHdrOpcodeOffset, opcode);
  msg[kCmdHdrIdOffset] = static_cast<uint8_t>(nextCommandId & 0xff);
  ++nextCommandId;
  msg[0] = 0;
  lumx::PutLe16(msg + kCmdHdrSizeOffset, static_cast<uint16_t>(size & 0xffff));

  ssize_t written = write(controlFd_.get(), msg, size);
  if (written != static_cast<ssize_t>(size)) {
    controlStats_.lastError.Record(written < 0 ? -errno : -EIO, lumx::MonotonicNowNs());
    LUMX_LOGE("%s: Error sending opcode 0x%x, status %ld, expected %lu", "SendLumxCommand", opcode,
              static_cast<long>(written), static_cast<unsigned long>(size));
    LUMX_LOGE("%s: Trying again\n", "SendLumxCommand");
    // The driver may have restarted under us: one fresh open, one resend of
    // the same message (same id).
    setControlFd(-1);
    controlStats_.reopens.Add();
    openLumxControl();
    if (controlFd_.get() == -1) return -1;
    written = write(controlFd_.get(), msg, size);
    if (written != static_cast<ssize_t>(size)) {
      LUMX_LOGE("%s: Error sending opcode 0x%x, status %ld, expected %lu", "SendLumxCommand", opcode,
                static_cast<long>(written), static_cast<unsigned long>(size));
      return -1;
    }
  }

  if (controlFd_.get() < 0) return -1;
  const int fd = controlFd_.get();

  // One budget for the whole exchange. select() alone spends only the time
  // spent waiting inside it; a device that stays readable without ever giving
  // a whole reply (a hung-up node reads as end of file) would then let the
  // loop run on, so the budget is kept as a deadline on the monotonic clock.
  fd_set readSet;
  FD_ZERO(&readSet);
  const int64_t deadlineUs = MonotonicUs() + kCommandReplyTimeoutUs;
  struct timeval timeout = {0, kCommandReplyTimeoutUs};
  int32_t failure;
  bool waited = false;
  int unmatched = 0;
  auto timedOut = [&] {
    controlStats_.timeouts.Add();
    controlStats_.lastError.Record(-ETIMEDOUT, lumx::MonotonicNowNs());
    LUMX_LOGW("%s: timeout for opcode 0x%x", "waitForLumxCommandResponse", opcode);
    return -1;
  };
  // Counts a read that answered nothing and, past the free ones of this
  // exchange, pauses (within what is left of the budget) before the next.
  auto unmatchedRead = [&] {
    controlStats_.unmatchedReplies.Add();
    if (++unmatched <= kUnmatchedFreeReads) return;
    const int64_t leftUs = deadlineUs - MonotonicUs();
    if (leftUs > 0) usleep(static_cast<useconds_t>(leftUs < kUnmatchedPauseUs ? leftUs : kUnmatchedPauseUs));
  };
  for (;;) {
    if (waited) {
      const int64_t leftUs = deadlineUs - MonotonicUs();
      if (leftUs <= 0) return timedOut();
      timeout.tv_sec = static_cast<time_t>(leftUs / 1000000);
      timeout.tv_usec = static_cast<suseconds_t>(leftUs % 1000000);
    }
    waited = true;
    int ready;
    if (fd + 2 > FD_SETSIZE) {
      // The descriptor does not fit a select set; treat it as the wait
      // failure select itself would report.
      ready = -1;
      errno = EINVAL;
    } else {
      FD_SET(controlFd_.get(), &readSet);
      ready = select(fd + 2, &readSet, nullptr, nullptr, &timeout);
    }
    if (ready == -1) {
      const int err = errno;
      LUMX_LOGW("select err %d", err);
      if (err == EAGAIN || err == EINTR) continue;
      failure = -err;
      break;
    }
    if (ready == 0) return timedOut();
    if (!FD_ISSET(controlFd_.get(), &readSet)) continue;

    const ssize_t got = read(controlFd_.get(), msg, size);
    if (got != static_cast<ssize_t>(size)) {
      const int err = errno;
      if (got == -1) {
        LUMX_LOGE("wrong data sz %d", static_cast<int>(got));
        LUMX_LOGE("read err %d", err);
        failure = -err;
        break;
      }
      // A node that keeps giving bytes could repeat this without end.
      LUMX_LOGE_LIMITED(wrongSizeLog_, "wrong data sz", "wrong data sz %d", static_cast<int>(got));
      if (got == 0) {
        // End of file: the node has hung up (the DSP is restarting) and
        // stays readable. Pause before waiting again rather than spin on it.
        usleep(kHangUpPauseUs);
      } else {
        unmatchedRead();
      }
      continue;
    }

    const uint16_t replyOpcode = lumx::GetLe16(msg + kCmdHdrOpcodeOffset);
    if (replyOpcode != opcode) {
      // Only the opcode is matched; the id byte is not compared, so a late
      // reply to an earlier command of the same opcode is taken.
      LUMX_LOGE_LIMITED(mismatchLog_, "mismatch reply id", "mismatch reply id %u opcode 0x%x",
                        static_cast<unsigned>(replyOpcode), opcode);
      unmatchedRead();
      continue;
    }
    const int16_t status = static_cast<int16_t>(lumx::GetLe16(msg + kCmdHdrStatusOffset));
    if (status != 0) LUMX_LOGE("LUM opcode 0x%x reply status %d", opcode, status);
    LUMX_LOGI("LUM reply OK");
    return status;
  }

  controlStats_.lastError.Record(failure, lumx::MonotonicNowNs());
  LUMX_LOGI("LUM reply OK");
  return failure;
}
