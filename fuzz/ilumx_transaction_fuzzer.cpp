// Fuzzes every ILumx transaction through the real service object.
//
// One LumxService is created once, as the daemon creates it, and its local
// binder receives the transactions through AIBinder_transact, which runs the
// generated stub's onTransact in this thread: parcel decoding, the service
// operation, the reply encoding. Each input is a short sequence of
// transactions, so a processor can be created, wired, enabled, fed and asked
// about within one input:
//
//   record := code:u8  length:u16le  payload[length]     (at most 16 records)
//
// `code` picks the transaction: 0..32 are the 33 interface operations in
// order, 33 and 34 the stub's getInterfaceVersion and getInterfaceHash, 35..39
// codes just past the interface. The payload becomes the parcel after the
// interface token, as raw 32-bit words (the last one zero-padded), so the
// fuzzer controls every length field, string, union tag and parcelable size.
//
// The environment keeps every operation fast and deterministic:
//  - the device directory holds "lum" and a control node (a pty whose other
//    end echoes every request with status 0, like a DSP that accepts all),
//    so the tap operations answer at once instead of waiting 400 ms for a
//    missing node on every input;
//  - it holds no data nodes, so there are no buffers: StartIo/StopIo walk an
//    empty registry and never reach the 4 s open retry of a missing device
//    (that path is covered by the buffer tests, not here);
//  - the service's start-up scan therefore gives up once, after ~2.5 s;
//  - processors created by one input are deleted before the next, so inputs
//    do not depend on each other and memory stays bounded.
#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <fcntl.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "common/lumx_types.h"
#include "common/unique_fd.h"
#include "support/raw_pty.h"
#include "common/wire.h"
#include "service/lumx_service.h"

namespace {

constexpr size_t kMaxRecords = 16;
constexpr size_t kMaxPayload = 4096;
constexpr uint32_t kNumOps = 33;
// The stub answers these itself (standard AIDL codes).
constexpr uint32_t kGetInterfaceVersion = FIRST_CALL_TRANSACTION + 16777214;
constexpr uint32_t kGetInterfaceHash = FIRST_CALL_TRANSACTION + 16777213;
constexpr uint32_t kNewProcessor = FIRST_CALL_TRANSACTION + 4;
constexpr uint32_t kNewProcessorWithType = FIRST_CALL_TRANSACTION + 5;

// Processors that the use cases create under fixed ids.
constexpr uint32_t kFixedIds[] = {0x70617331 /*pas1*/, 0x61727430 /*art0*/, 0x61727431 /*art1*/,
                                  0x68776165 /*hwae*/};

// The DSP side of the control node: answers each request with its own bytes
// and status 0.
class EchoDsp {
 public:
  bool Start(const std::string& node) {
    std::string name;
    if (!lumx_test::OpenRawPty(&master_, &slave_, &name)) return false;
    if (symlink(name.c_str(), node.c_str()) != 0) return false;
    std::thread([this] { Run(); }).detach();
    return true;
  }

 private:
  void Run() {
    lumx_test::ServeRequests(master_.get(), [this](std::vector<uint8_t>& request) {
      lumx::PutLe16(request.data() + 6, 0);
      size_t off = 0;
      while (off < request.size()) {
        ssize_t w = write(master_.get(), request.data() + off, request.size() - off);
        if (w <= 0) break;
        off += static_cast<size_t>(w);
      }
    });
  }

  lumx::unique_fd master_;
  lumx::unique_fd slave_;
};

struct Harness {
  std::shared_ptr<LumxService> service;
  // The service's own local binder. The stub keeps only a weak reference to
  // it, so the strong one held here keeps it alive.
  ::ndk::SpAIBinder binderRef;
  AIBinder* binder = nullptr;
  EchoDsp dsp;
};

Harness* gHarness = nullptr;
std::string* gRoot = nullptr;

// libFuzzer ends a time-limited run through exit(); the directory's few
// entries go with it. (A crash leaves it behind next to the artifact.)
void RemoveTempDir() {
  if (gRoot == nullptr) return;
  const std::string& r = *gRoot;
  for (const char* f : {"/dev/zch-lumx_control", "/dev/lum", "/sysfs/power/wake_lock",
                        "/sysfs/power/wake_unlock"}) {
    unlink((r + f).c_str());
  }
  for (const char* d : {"/sysfs/power", "/sysfs", "/dev", "/binder", ""}) rmdir((r + d).c_str());
}

std::string MakeDir(const std::string& path) {
  mkdir(path.c_str(), 0755);
  return path;
}

void Touch(const std::string& path) { lumx::unique_fd fd(open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644)); }

uint32_t Le32(const uint8_t* p, size_t n) {
  uint8_t w[4] = {0, 0, 0, 0};
  memcpy(w, p, n < 4 ? n : 4);
  return lumx::GetLe32(w);
}

void DeleteProcessor(uint32_t id) {
  CommandResult r;
  gHarness->service->DeleteProcessor(static_cast<int32_t>(id), &r);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  char tmpl[] = "/tmp/lumx_ilumx_fuzz.XXXXXX";
  if (mkdtemp(tmpl) == nullptr) abort();
  const std::string root = tmpl;
  gRoot = new std::string(root);
  const std::string dev = MakeDir(root + "/dev");
  const std::string sysfs = MakeDir(root + "/sysfs");
  MakeDir(sysfs + "/power");
  Touch(sysfs + "/power/wake_lock");
  Touch(sysfs + "/power/wake_unlock");
  setenv("LUMX_DEV_ROOT", dev.c_str(), 1);
  setenv("LUMX_SYSFS_ROOT", sysfs.c_str(), 1);
  // The runtime creates its private directory itself.
  setenv("LUMX_BINDER_DIR", (root + "/binder").c_str(), 1);
  // Thousands of calls per second would otherwise each log several lines.
  setenv("LUMX_LOG_LEVEL", "S", 0);
  Touch(dev + "/lum");

  gHarness = new Harness();
  if (!gHarness->dsp.Start(dev + "/zch-lumx_control")) abort();
  gHarness->service = ::ndk::SharedRefBase::make<LumxService>();
  gHarness->binderRef = gHarness->service->asBinder();
  gHarness->binder = gHarness->binderRef.get();
  atexit(RemoveTempDir);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::set<uint32_t> created;
  size_t pos = 0;
  for (size_t rec = 0; rec < kMaxRecords && pos + 3 <= size; ++rec) {
    const uint8_t sel = data[pos] % 40;
    size_t len = lumx::GetLe16(data + pos + 1);
    pos += 3;
    if (len > kMaxPayload) len = kMaxPayload;
    if (len > size - pos) len = size - pos;
    const uint8_t* payload = data + pos;
    pos += len;

    uint32_t code;
    if (sel < kNumOps) {
      code = FIRST_CALL_TRANSACTION + sel;
    } else if (sel == 33) {
      code = kGetInterfaceVersion;
    } else if (sel == 34) {
      code = kGetInterfaceHash;
    } else {
      code = FIRST_CALL_TRANSACTION + kNumOps + (sel - 35);
    }
    if ((code == kNewProcessor || code == kNewProcessorWithType) && len > 0) {
      created.insert(Le32(payload, len));
    }

    AParcel* in = nullptr;
    if (AIBinder_prepareTransaction(gHarness->binder, &in) != STATUS_OK) abort();
    for (size_t off = 0; off < len; off += 4) {
      AParcel_writeInt32(in, static_cast<int32_t>(Le32(payload + off, len - off)));
    }
    AParcel* out = nullptr;
    AIBinder_transact(gHarness->binder, code, &in, &out, 0);
    AParcel_delete(out);
  }
  for (uint32_t id : created) DeleteProcessor(id);
  for (uint32_t id : kFixedIds) DeleteProcessor(id);
  return 0;
}
