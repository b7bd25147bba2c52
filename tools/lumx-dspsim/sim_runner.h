// Runs a Simulator on a thread of its own, for tests, benchmarks and
// programs that embed the simulator; plus a scratch directory that removes
// itself.
#pragma once

#include <memory>
#include <string>
#include <thread>

#include "tools/lumx-dspsim/simulator.h"

namespace lumx::dspsim {

class SimThread {
 public:
  explicit SimThread(Options options) : sim_(std::move(options)) {}
  ~SimThread() { Stop(); }
  SimThread(const SimThread&) = delete;
  SimThread& operator=(const SimThread&) = delete;

  // Creates the nodes (on the calling thread), then serves on a new thread.
  bool Start(std::string* error);
  // Stops the loop and joins it; the nodes are gone afterwards.
  void Stop();

  Simulator& sim() { return sim_; }

 private:
  Simulator sim_;
  std::thread thread_;
};

// mkdtemp() under $TMPDIR (or /tmp); removed with its contents on
// destruction.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

}  // namespace lumx::dspsim
