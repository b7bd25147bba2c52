// Shared pieces of the lumx-dspsim tests: request builders, and a fixture
// that runs the simulator on a thread with a control client attached.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "support/daemon_test_util.h"
#include "tools/lumx-dspsim/sim_client.h"
#include "tools/lumx-dspsim/sim_runner.h"
#include "tools/lumx-dspsim/tap_table.h"

namespace lumx::dspsim {

constexpr int kWaitMs = 10000;  // generous: the machine may be loaded

inline std::vector<uint8_t> EnableReq(uint8_t core, const char* code, uint8_t index, uint8_t on,
                                      uint8_t id = 0) {
  std::vector<uint8_t> r = MakeTapRequest(kOpTapEnable, core, code, index, id);
  r[14] = on;
  return r;
}
inline std::vector<uint8_t> BindReq(uint8_t core, const char* code, uint8_t index, uint8_t tapOut,
                                    uint8_t inject, uint8_t id = 0) {
  std::vector<uint8_t> r = MakeTapRequest(kOpTapBind, core, code, index, id);
  r[16] = tapOut;
  r[17] = inject;
  return r;
}
inline std::vector<uint8_t> BlockLenReq(uint8_t core, const char* code, uint8_t index, uint32_t len,
                                        uint8_t id = 0) {
  std::vector<uint8_t> r = MakeTapRequest(kOpTapSetBlockLen, core, code, index, id);
  StoreU32(&r[16], len);
  return r;
}
inline std::vector<uint8_t> ListReq(uint8_t core, uint8_t page, uint8_t id = 0x33) {
  std::vector<uint8_t> r = MakeRequest(kOpTapList, kTapListSize, id);
  r[8] = core;
  r[9] = page;
  return r;
}

// Reads up to `n` packets, giving up when one takes longer than `ms`.
inline std::vector<ReadPacket> ReadSome(TapOutReader* r, size_t n, int ms = kWaitMs) {
  std::vector<ReadPacket> out;
  for (ReadPacket p; out.size() < n && r->Next(ms, &p);) out.push_back(std::move(p));
  return out;
}

class SimTest : public ::testing::Test {
 protected:
  // Starts the simulator; `table` replaces the built-in tap table if given.
  void StartSim(const std::string& table = "", Options o = Options()) {
    ASSERT_FALSE(dir_.path().empty());
    o.devRoot = dir_.path();
    o.statsPath.clear();
    std::string err;
    if (!table.empty()) {
      ASSERT_TRUE(ParseTapTable(table, &o.taps, &err)) << err;
    }
    sim_ = std::make_unique<SimThread>(o);
    ASSERT_TRUE(sim_->Start(&err)) << err;
    ASSERT_TRUE(control_.Open(dir_.File("zch-lumx_control")));
  }
  // Sends a request that must succeed.
  void Command(std::vector<uint8_t> req) {
    ASSERT_TRUE(control_.Exchange(&req, kWaitMs));
    ASSERT_EQ(LoadI16(&req[6]), 0) << "opcode " << LoadU16(&req[4]);
  }
  void BindAndEnable(uint8_t core, const char* code, uint8_t index, uint8_t tapOut, uint8_t inject) {
    Command(BindReq(core, code, index, tapOut, inject));
    Command(EnableReq(core, code, index, 1));
  }
  SimStats Stats() { return sim_->sim().Snapshot(); }
  bool Exists(const std::string& name) const { return access(dir_.File(name).c_str(), F_OK) == 0; }
  static bool WaitFor(const std::function<bool()>& done) { return lumx_test::WaitUntil(done, kWaitMs); }

  TempDir dir_;
  std::unique_ptr<SimThread> sim_;
  ControlClient control_;
};

}  // namespace lumx::dspsim
