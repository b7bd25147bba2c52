// Fuzzes what the DSP answers on the control channel.
//
// The daemon's own code sends the commands (Lumxd::SendLumxCommand and the
// service operations built on it: the paged tap-list walk, TapInfo and its
// rendering, TapEnable, TapSetBlockLength, ConnectTap, ShowGraph); a fake DSP
// on the other end of the control pty answers each request from a script
// taken from the input. Input layout:
//
//   op:u8  a:i32le  b:i32le  c:i32le  script...
//
// `op` picks the operation, a/b/c are its core, tap code and index (or
// opcode and payload seed for a bare command). The script is a sequence of
// reply chunks, consumed request by request; every chunk has the size of the
// request:
//
//   kind:u8 ...   kind % 4 == 0  echo: the request back with the next
//                                 (size - 8) script bytes over its payload
//                                 and an i16 status (the answer the daemon
//                                 takes); ends this request
//                 kind % 4 == 1  stray: the request back carrying another
//                                 opcode (u16 from the script), which the
//                                 daemon skips before waiting on
//                 kind % 4 == 2  late: a reply to another of the five
//                                 commands, full of script bytes, skipped
//                 kind % 4 == 3  raw: `size` script bytes as they come;
//                                 taken if their opcode happens to match
//
// After at most 8 chunks, or when the script runs out, the request is
// answered with its echo and status 0, so no command waits for the 500 ms
// time-out (time-outs, dropped and short replies are timing matters covered
// by the control channel tests; here the content of every byte is fuzzed).
// All chunks of one request go out in one write, a whole number of replies,
// so however the pty hands them over, the daemon's reads of one reply size
// stay aligned on them and a run is reproducible.
//
// The device directory also holds the FIFOs of tap-out/inject buffers 20 and
// 21 (never opened), and two processors are wired to them, so that replies
// naming buffer ids reach the buffer-name lookups of TapInfo, TapList and
// ShowGraph.
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "common/lumx_types.h"
#include "common/unique_fd.h"
#include "support/raw_pty.h"
#include "common/wire.h"
#include "daemon/lumx_control.h"
#include "daemon/lumxd.h"
#include "service/lumx_service.h"

namespace {

constexpr int kMaxChunksPerRequest = 8;
constexpr uint16_t kOpcodes[] = {CMD_LUMX_TAP_ENABLE_ID, CMD_LUMX_TAP_BIND_ID, CMD_LUMX_TAP_LIST_ID,
                                 CMD_LUMX_TAP_INFO_ID, CMD_LUMX_TAP_SET_BLOCK_LEN_ID};
constexpr size_t kSizes[] = {kTapEnableCmdSize, kTapBindCmdSize, kTapListCmdSize, kTapInfoCmdSize,
                             kTapSetBlockLenCmdSize};

// The DSP end of the control pty, answering from the current script.
class ScriptedDsp {
 public:
  bool Start(const std::string& node) {
    std::string name;
    if (!lumx_test::OpenRawPty(&master_, &slave_, &name)) return false;
    if (symlink(name.c_str(), node.c_str()) != 0) return false;
    std::thread([this] { Run(); }).detach();
    return true;
  }

  // Installs the script of one input; Finish() drops what is left and any
  // reply the daemon did not read.
  void Begin(const uint8_t* data, size_t size) {
    std::lock_guard<std::mutex> lock(mu_);
    script_.assign(data, data + size);
    pos_ = 0;
  }
  void Finish() {
    std::lock_guard<std::mutex> lock(mu_);
    script_.clear();
    pos_ = 0;
    tcflush(slave_.get(), TCIFLUSH);
  }

 private:
  // Next script byte, or 0 once the script is used up.
  uint8_t Byte() { return pos_ < script_.size() ? script_[pos_++] : 0; }
  bool More() const { return pos_ < script_.size(); }

  void Send(const std::vector<uint8_t>& bytes) {
    size_t off = 0;
    while (off < bytes.size()) {
      ssize_t w = write(master_.get(), bytes.data() + off, bytes.size() - off);
      if (w <= 0) return;
      off += static_cast<size_t>(w);
    }
  }

  void Answer(const std::vector<uint8_t>& request) {
    std::lock_guard<std::mutex> lock(mu_);
    const size_t size = request.size();
    const uint16_t opcode = lumx::GetLe16(request.data() + 4);
    std::vector<uint8_t> out;
    std::vector<uint8_t> reply;
    for (int chunk = 0; chunk < kMaxChunksPerRequest && More(); ++chunk) {
      const uint8_t kind = Byte() % 4;
      reply = request;
      if (kind == 0) {
        for (size_t i = 8; i < size; ++i) reply[i] = Byte();
        lumx::PutLe16(reply.data() + 6, static_cast<uint16_t>(Byte() | (Byte() << 8)));
        out.insert(out.end(), reply.begin(), reply.end());
        Send(out);
        return;
      }
      if (kind == 1) {
        uint16_t other = static_cast<uint16_t>(Byte() | (Byte() << 8));
        if (other == opcode) other ^= 0x8000;
        lumx::PutLe16(reply.data() + 4, other);
      } else if (kind == 2) {
        uint16_t other = kOpcodes[Byte() % 5];
        if (other == opcode) other = other == CMD_LUMX_TAP_LIST_ID ? CMD_LUMX_TAP_INFO_ID : CMD_LUMX_TAP_LIST_ID;
        for (size_t i = 0; i < size; ++i) reply[i] = Byte();
        lumx::PutLe16(reply.data() + 4, other);
      } else {
        for (size_t i = 0; i < size; ++i) reply[i] = Byte();
        if (lumx::GetLe16(reply.data() + 4) == opcode) {  // the daemon takes it
          out.insert(out.end(), reply.begin(), reply.end());
          Send(out);
          return;
        }
      }
      out.insert(out.end(), reply.begin(), reply.end());
    }
    reply = request;
    lumx::PutLe16(reply.data() + 6, 0);
    out.insert(out.end(), reply.begin(), reply.end());
    Send(out);
  }

  void Run() {
    lumx_test::ServeRequests(master_.get(), [this](std::vector<uint8_t>& request) { Answer(request); });
  }

  lumx::unique_fd master_;
  lumx::unique_fd slave_;
  std::mutex mu_;
  std::vector<uint8_t> script_;
  size_t pos_ = 0;
};

struct Harness {
  std::shared_ptr<LumxService> service;
  ScriptedDsp dsp;
};

Harness* gHarness = nullptr;
std::string* gRoot = nullptr;

std::string MakeDir(const std::string& path) {
  mkdir(path.c_str(), 0755);
  return path;
}

void Touch(const std::string& path) { lumx::unique_fd fd(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644)); }

const char* kNodes[] = {"/dev/zch-lumx_control", "/dev/lum",           "/dev/zch-lumx_tapout20",
                        "/dev/zch-lumx_tapout21", "/dev/zch-lumx_inject20", "/dev/zch-lumx_inject21",
                        "/sysfs/power/wake_lock", "/sysfs/power/wake_unlock"};

void RemoveTempDir() {
  if (gRoot == nullptr) return;
  for (const char* f : kNodes) unlink((*gRoot + f).c_str());
  for (const char* d : {"/sysfs/power", "/sysfs", "/dev", "/binder", ""}) rmdir((*gRoot + d).c_str());
}

int32_t I32(const uint8_t* p) { return static_cast<int32_t>(lumx::GetLe32(p)); }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char tmpl[] = "/tmp/lumx_control_fuzz.XXXXXX";
  if (mkdtemp(tmpl) == nullptr) abort();
  gRoot = new std::string(tmpl);
  const std::string dev = MakeDir(*gRoot + "/dev");
  const std::string sysfs = MakeDir(*gRoot + "/sysfs");
  MakeDir(sysfs + "/power");
  Touch(sysfs + "/power/wake_lock");
  Touch(sysfs + "/power/wake_unlock");
  setenv("LUMX_DEV_ROOT", dev.c_str(), 1);
  setenv("LUMX_SYSFS_ROOT", sysfs.c_str(), 1);
  // The runtime creates its private directory itself.
  setenv("LUMX_BINDER_DIR", (*gRoot + "/binder").c_str(), 1);
  setenv("LUMX_LOG_LEVEL", "S", 0);
  Touch(dev + "/lum");
  for (const char* name : {"zch-lumx_tapout20", "zch-lumx_tapout21", "zch-lumx_inject20", "zch-lumx_inject21"}) {
    if (mkfifo((dev + "/" + name).c_str(), 0644) != 0) abort();
  }
  atexit(RemoveTempDir);

  gHarness = new Harness();
  if (!gHarness->dsp.Start(dev + "/zch-lumx_control")) abort();
  gHarness->service = ::ndk::SharedRefBase::make<LumxService>();
  LumxService* s = gHarness->service.get();
  CommandResult r;
  s->NewProcessorWithType(0x70617331 /*pas1*/, 0x70617373 /*pass*/, &r);
  s->Connect(0x70617331, 20, 20, &r);
  s->ProcessorEnable(0x70617331, true, &r);
  s->NewProcessorWithType(0x61727430 /*art0*/, 0x6172656c /*arel*/, &r);
  s->Connect(0x61727430, 21, 21, &r);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 13) return 0;
  const uint8_t op = data[0] % 8;
  const int32_t a = I32(data + 1);
  const int32_t b = I32(data + 5);
  const int32_t c = I32(data + 9);
  LumxService* s = gHarness->service.get();
  gHarness->dsp.Begin(data + 13, size - 13);
  CommandResult r;
  switch (op) {
    case 0:
      s->TapList(a, &r);
      break;
    case 1:
      s->TapInfo(a, b, c, &r);
      break;
    case 2:
      s->TapEnable(a, b, c, (a ^ c) & 1, &r);
      break;
    case 3:
      s->TapSetBlockLength(a, b, c & 0xff, c, &r);
      break;
    case 4:
      s->ConnectTap(a, b, c & 0xff, (c >> 8) & 0xff, (c >> 16) & 0xff, &r);
      break;
    case 5:
      s->ShowGraph(&r);
      break;
    case 6: {
      // One bare command of any of the five kinds, payload from a/b/c.
      const size_t k = static_cast<uint32_t>(a) % 5;
      alignas(8) uint8_t cmd[64] = {};
      lumx::PutLe32(cmd + 8, static_cast<uint32_t>(b));
      lumx::PutLe32(cmd + 12, static_cast<uint32_t>(c));
      Lumxd::Instance().SendLumxCommand(kOpcodes[k], reinterpret_cast<CMD_HDR*>(cmd), kSizes[k]);
      break;
    }
    default: {
      std::vector<LumxTapDetailedInfo> taps;
      s->getLumxTapPoints(a, taps);
      std::string text;
      for (const LumxTapDetailedInfo& t : taps) s->sprintTapInfo(t, text);
      break;
    }
  }
  gHarness->dsp.Finish();
  return 0;
}
