// The whole system in child processes, for system tests: lumx-dspsim on a
// private device directory, lumxd on it (private binder and sysfs roots), and
// the lumx tool to drive it, all from the build directory under test
// ($LUMX_BUILD_DIR, else the configured one).
//
// Every wait is bounded by a generous limit; the destructor stops what is
// still running (daemon first, then the simulator) and removes the directory.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/daemon_process.h"
#include "support/daemon_test_util.h"

namespace lumx::test {

struct LumxRun {
  int exitCode = -1;
  std::string out;
  std::string err;
};

class SystemStack {
 public:
  SystemStack();
  ~SystemStack();
  SystemStack(const SystemStack&) = delete;
  SystemStack& operator=(const SystemStack&) = delete;

  // False (with a reason in error()) when a binary is missing.
  bool BinariesFound();
  const std::string& error() const { return error_; }

  const std::string& dir() const { return dir_.path(); }
  std::string devRoot() const { return dir_.Join("dev"); }
  std::string Path(const std::string& name) const { return dir_.Join(name); }

  // Starts the simulator with `args` besides the device root, ready file
  // and statistics file, and waits until its nodes exist.
  bool StartSimulator(const std::vector<std::string>& args = {});
  // Starts lumxd and waits until it answers Ping.
  bool StartDaemon();

  // Runs `lumx args...` to completion.
  LumxRun Lumx(const std::vector<std::string>& args, int timeoutMs = 60000);
  // Starts `lumx args...` in the background; output goes to the files
  // Path(name + ".out") and Path(name + ".err").
  bool StartLumx(lumx_test::Subprocess* child, const std::string& name, const std::vector<std::string>& args);

  // Asks the simulator for fresh statistics and returns the JSON document.
  std::string SimulatorStats();
  // Stops lumxd (SIGTERM) and the simulator (SIGINT, final statistics);
  // returns the simulator's final statistics.
  std::string Stop();

  lumx_test::Subprocess& daemon() { return daemon_; }
  lumx_test::Subprocess& simulator() { return sim_; }
  // Tails of the children's logs, for failure messages.
  std::string Logs() const;

 private:
  lumx_test::TempDir dir_{"lumx_system"};
  std::string error_;
  std::string lumxd_;
  std::string lumx_;
  std::string dspsim_;
  std::vector<std::pair<std::string, std::string>> env_;
  lumx_test::Subprocess sim_;
  lumx_test::Subprocess daemon_;
  bool simRunning_ = false;
  bool daemonRunning_ = false;
};

// A number from the statistics of one node ("zch-lumx_inject20"), searched
// in that node's own object; -1 when absent. Nested objects of the node
// (latency_us) are searched too, so "p50" works.
double StreamStat(const std::string& statsJson, const std::string& node, const std::string& key);
// A number anywhere in a flat JSON object; -1 when absent.
double JsonNumber(const std::string& json, const std::string& key);

}  // namespace lumx::test
