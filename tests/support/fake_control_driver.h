// A scripted stand-in for the DSP channel driver's control device.
//
// It opens a pty pair, puts it in raw mode and symlinks the slave as
// <devRoot>/zch-lumx_control (next to a plain "lum" file), so that the daemon
// opens it exactly as it opens the real node. A thread on the master side
// reads each request (framed by the size in its header), records its bytes
// and answers according to a script: one Action per request in order, then
// the default handler.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/unique_fd.h"

namespace lumx_test {

class FakeControlDriver {
 public:
  // What to do with one request. The default answers at once with the
  // request echoed back (same size, same opcode) and status 0.
  struct Action {
    int16_t status = 0;
    // Sleep this long before answering.
    int delayMs = 0;
    // Give no answer at all.
    bool silent = false;
    // Wait until Release() is called before answering.
    bool holdUntilReleased = false;
    // When >= 0: first send a full-size reply that carries this opcode.
    int otherOpcodeFirst = -1;
    // Sleep this long between that other reply and the real one.
    int delayBetweenMs = 0;
    // When >= 0: answer with this many bytes of the reply instead.
    int wrongSize = -1;
    // Edits the reply (payload and header) before it is sent; the status
    // above is written first, so `fill` may override it.
    std::function<void(const std::vector<uint8_t>& request, std::vector<uint8_t>& reply)> fill;
  };
  using Handler = std::function<Action(const std::vector<uint8_t>& request)>;

  // Creates "lum" (unless createLum is false) and the control node in devRoot.
  explicit FakeControlDriver(const std::string& devRoot, bool createLum = true);
  ~FakeControlDriver();

  FakeControlDriver(const FakeControlDriver&) = delete;
  FakeControlDriver& operator=(const FakeControlDriver&) = delete;

  bool ok() const { return ok_; }
  const std::string& nodePath() const { return nodePath_; }

  // Scripting.
  void Queue(const Action& action);
  void SetDefault(Handler handler);
  void Release();

  // Unlinks the node, for device-watch tests.
  void RemoveNode();

  // Every request received so far, in order.
  std::vector<std::vector<uint8_t>> Requests();
  // Waits (generously) until n requests were answered or deliberately ignored.
  bool WaitHandled(size_t n, int timeoutMs = 10000);

 private:
  void Run();
  void Answer(const std::vector<uint8_t>& request, const Action& action);
  void WriteAll(const std::vector<uint8_t>& bytes);

  std::string devRoot_;
  std::string nodePath_;
  std::string slavePath_;
  bool ok_ = false;
  lumx::unique_fd master_;
  lumx::unique_fd slaveKeepAlive_;
  lumx::unique_fd stopPipeRead_;
  lumx::unique_fd stopPipeWrite_;
  std::thread thread_;

  std::mutex mu_;
  std::condition_variable cv_;
  std::deque<Action> script_;
  Handler default_;
  std::vector<std::vector<uint8_t>> requests_;
  size_t handled_ = 0;
  bool released_ = false;
  bool stopping_ = false;
};

// Builds an answer that echoes the request with the given status.
FakeControlDriver::Action Status(int16_t status);

}  // namespace lumx_test
