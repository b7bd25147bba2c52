// A scripted DSP on the control channel, in-process: the fake control driver
// (a raw pty linked as "zch-lumx_control" in a device directory) answering
// the five tap commands from a small tap table.
//
// Faults are scripted per opcode and core: every matching request is answered
// with the given status until the fault is cleared. Every request is recorded
// so tests can check what was sent, in which order.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/fake_control_driver.h"

namespace lumx::test {

struct FakeTap {
  uint8_t core = 2;
  uint32_t code = 0;
  uint8_t index = 0;
  uint8_t enabled = 0;
  float sampleRate = 48000.0f;
  uint32_t blockLength = 480;
  uint8_t channels = 1;
  uint8_t bitsPerSample = 16;
  uint8_t tapOut = 0xFF;  // bound buffer ids, 0xFF = none
  uint8_t inject = 0xFF;
};

struct FakeRequest {
  uint16_t opcode = 0;
  uint8_t core = 0;
  std::vector<uint8_t> bytes;
};

class FakeDsp {
 public:
  static constexpr uint16_t kTapEnable = 202;
  static constexpr uint16_t kTapBind = 203;
  static constexpr uint16_t kTapList = 204;
  static constexpr uint16_t kTapInfo = 205;
  static constexpr uint16_t kTapSetBlockLen = 206;
  static constexpr int kAnyCore = -1;

  // Creates the control node and the "lum" node in `devRoot` and serves
  // the tap table of UseCaseTaps().
  explicit FakeDsp(const std::string& devRoot);
  ~FakeDsp();
  FakeDsp(const FakeDsp&) = delete;
  FakeDsp& operator=(const FakeDsp&) = delete;

  bool ok() const { return driver_.ok(); }

  void SetTaps(std::vector<FakeTap> taps);
  std::vector<FakeTap> Taps() const;
  // The tap table of a device with the use cases' taps: core 2 "imic".0 and
  // "sspk".0, core 3 "aec0".0, core 4 "vpdl".0 and "vpul".1, all disabled
  // and unbound.
  static std::vector<FakeTap> UseCaseTaps();

  // Answer every request with `opcode` (on `core`, or any core) with `status`.
  void Fail(uint16_t opcode, int16_t status, int core = kAnyCore);
  void ClearFaults();

  // Requests received since construction or the last ClearRequests().
  std::vector<FakeRequest> Requests();
  // Opcodes of those requests, in order.
  std::vector<uint16_t> Opcodes();
  void ClearRequests();

 private:
  lumx_test::FakeControlDriver::Action Answer(const std::vector<uint8_t>& request);
  int16_t Handle(std::vector<uint8_t>& msg);
  FakeTap* Find(uint8_t core, uint32_t code, uint8_t index);

  // Declared before the driver: its thread calls Answer() until it stops.
  mutable std::mutex mu_;
  std::vector<FakeTap> taps_;
  std::map<std::pair<uint16_t, int>, int16_t> faults_;
  size_t firstRequest_ = 0;
  lumx_test::FakeControlDriver driver_;
};

}  // namespace lumx::test
