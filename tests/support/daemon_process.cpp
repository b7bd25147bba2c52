#include "support/daemon_process.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <thread>

#include "support/daemon_test_util.h"

extern char** environ;

namespace lumx_test {

Subprocess::~Subprocess() {
  if (pid_ > 0 && !reaped_) {
    kill(pid_, SIGKILL);
    int status;
    WaitExit(30000, &status);
  }
}

bool Subprocess::Start(const std::string& path, const std::vector<std::string>& args,
                       const std::vector<std::pair<std::string, std::string>>& env, const std::string& stdoutPath,
                       const std::string& stderrPath) {
  std::vector<std::string> argvStore;
  argvStore.push_back(path);
  argvStore.insert(argvStore.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& a : argvStore) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);

  std::vector<std::string> envStore;
  for (char** e = environ; *e != nullptr; ++e) {
    const std::string entry = *e;
    bool overridden = false;
    for (const auto& kv : env) overridden |= entry.compare(0, kv.first.size() + 1, kv.first + "=") == 0;
    if (!overridden) envStore.push_back(entry);
  }
  for (const auto& kv : env) envStore.push_back(kv.first + "=" + kv.second);
  std::vector<char*> envp;
  for (auto& e : envStore) envp.push_back(const_cast<char*>(e.c_str()));
  envp.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 1, stdoutPath.empty() ? "/dev/null" : stdoutPath.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, stderrPath.empty() ? "/dev/null" : stderrPath.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  // The child starts with default dispositions and nothing blocked, whatever
  // handlers this test process installed.
  sigset_t none;
  sigemptyset(&none);
  sigset_t defaults;
  sigfillset(&defaults);
  sigdelset(&defaults, SIGKILL);
  sigdelset(&defaults, SIGSTOP);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &defaults);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  const int rc = posix_spawn(&pid_, path.c_str(), &actions, &attr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attr);
  if (rc != 0) {
    pid_ = -1;
    return false;
  }
  reaped_ = false;
  return true;
}

bool Subprocess::Signal(int sig) { return pid_ > 0 && !reaped_ && kill(pid_, sig) == 0; }

bool Subprocess::WaitExit(int timeoutMs, int* status) {
  if (pid_ <= 0) return false;
  if (!reaped_) {
    const bool ended = WaitUntil(
        [&] {
          const pid_t r = waitpid(pid_, &status_, WNOHANG);
          return r == pid_ || r < 0;
        },
        timeoutMs);
    if (!ended) return false;
    reaped_ = true;
  }
  *status = status_;
  return true;
}

bool Subprocess::Running() {
  if (pid_ <= 0 || reaped_) return false;
  const pid_t r = waitpid(pid_, &status_, WNOHANG);
  if (r == pid_ || r < 0) {
    reaped_ = true;
    return false;
  }
  return true;
}

std::string BuildBinary(const std::string& relative) {
  std::vector<std::string> roots;
  if (const char* dir = getenv("LUMX_BUILD_DIR")) roots.push_back(dir);
#ifdef LUMX_BINARY_DIR
  roots.push_back(LUMX_BINARY_DIR);
#endif
  for (const std::string& root : roots) {
    const std::string path = root + "/" + relative;
    if (access(path.c_str(), X_OK) == 0) return path;
  }
  return "";
}

int RunToCompletion(const std::string& path, const std::vector<std::string>& args,
                    const std::vector<std::pair<std::string, std::string>>& env, std::string* out, std::string* err,
                    int timeoutMs) {
  TempDir dir("lumx-run");
  Subprocess child;
  if (!child.Start(path, args, env, dir.Join("out"), dir.Join("err"))) return -1;
  int status = 0;
  if (!child.WaitExit(timeoutMs, &status)) return -1;
  if (out != nullptr) *out = ReadFileText(dir.Join("out"));
  if (err != nullptr) *err = ReadFileText(dir.Join("err"));
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace lumx_test
