// Child processes for process-level tests (lumxd, lumx-dspsim, lumx): spawn
// with a given environment and output files, signal, wait with a generous
// limit, and kill on destruction.
#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

namespace lumx_test {

class Subprocess {
 public:
  Subprocess() = default;
  ~Subprocess();
  Subprocess(const Subprocess&) = delete;
  Subprocess& operator=(const Subprocess&) = delete;

  // Starts `path` with `args` (argv[0] is added) and the current environment
  // plus `env`. Standard output and error go to the given files (created or
  // truncated); an empty name means /dev/null.
  bool Start(const std::string& path, const std::vector<std::string>& args,
             const std::vector<std::pair<std::string, std::string>>& env, const std::string& stdoutPath,
             const std::string& stderrPath);

  pid_t pid() const { return pid_; }
  bool Signal(int sig);
  // True once the child has ended; its wait status goes to *status.
  bool WaitExit(int timeoutMs, int* status);
  bool Running();

 private:
  pid_t pid_ = -1;
  bool reaped_ = false;
  int status_ = 0;
};

// A binary of this build: $LUMX_BUILD_DIR/<relative>, else the configured
// build directory. Empty if it does not exist.
std::string BuildBinary(const std::string& relative);

// Runs a program to completion (bounded by timeoutMs) and returns its exit
// code, -1 if it could not run or did not end; output is collected.
int RunToCompletion(const std::string& path, const std::vector<std::string>& args,
                    const std::vector<std::pair<std::string, std::string>>& env, std::string* out,
                    std::string* err, int timeoutMs = 30000);

}  // namespace lumx_test
