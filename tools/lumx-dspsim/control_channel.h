// The control node: a pseudo-terminal in raw mode whose slave is linked under
// the control device's name. A process that opens the link read-write and
// non-blocking gets the slave; each write() it makes is one request, and each
// reply is written to the master in one write(), so one read() of the
// request's size returns it. The simulator keeps its own slave descriptor
// open so the pty stays alive while no client has it open.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "common/unique_fd.h"

namespace lumx::dspsim {

// Splits buffered request bytes into messages. The bytes are split at the
// size fields (offset 2) only when those fields chain exactly through them;
// otherwise they form one message. Bytes that are only the beginning of one
// request (fewer than 8, or fewer than its size field says) are left waiting
// for the rest unless `final` is set. Returns the number of bytes consumed
// into `spans` (offset, length).
size_t FrameRequests(const uint8_t* data, size_t len, bool final,
                     std::vector<std::pair<size_t, size_t>>* spans);

class ControlChannel {
 public:
  // How long an incomplete request may wait for the rest of its bytes.
  static constexpr int64_t kFragmentWaitNs = 20'000'000;

  ControlChannel() = default;
  ~ControlChannel() { Close(); }
  ControlChannel(const ControlChannel&) = delete;
  ControlChannel& operator=(const ControlChannel&) = delete;

  // Creates the pty and the link `linkPath` to its slave.
  bool Open(const std::string& linkPath, std::string* error);
  // Removes the link and closes both ends (clients see a hang-up).
  void Close();

  bool isOpen() const { return master_.ok(); }
  int fd() const { return master_.get(); }
  const std::string& slavePath() const { return slavePath_; }

  // Reads what the master holds and appends complete requests to `out`.
  void ReadRequests(int64_t nowNs, std::vector<std::vector<uint8_t>>* out);
  // Absolute time at which a waiting incomplete request is given up on and
  // handled as it is; 0 when nothing waits.
  int64_t fragmentDeadline() const { return fragmentDeadline_; }
  void FlushFragment(std::vector<std::vector<uint8_t>>* out);

  // Writes one reply in one call; false if it could not be written whole.
  bool WriteReply(const uint8_t* data, size_t len);

 private:
  void Frame(bool final, std::vector<std::vector<uint8_t>>* out);

  lumx::unique_fd master_;
  lumx::unique_fd slave_;
  std::string linkPath_;
  std::string slavePath_;
  std::vector<uint8_t> rx_;
  int64_t fragmentDeadline_ = 0;
};

}  // namespace lumx::dspsim
