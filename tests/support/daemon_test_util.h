// Small helpers for the daemon runtime's tests: temporary directories,
// scoped environment variables and waiting on a condition.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace lumx_test {

// A fresh directory under $TMPDIR (or /tmp), removed with its contents.
class TempDir {
 public:
  explicit TempDir(const char* prefix = "lumx-test");
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string Join(const std::string& name) const { return path_ + "/" + name; }
  // Creates an empty regular file (and returns its path).
  std::string Touch(const std::string& name) const;
  bool Remove(const std::string& name) const;

 private:
  std::string path_;
};

// Sets (or, with nullptr, unsets) an environment variable for a scope.
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value);
  ~ScopedEnv();
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  std::string old_;
  bool hadOld_;
};

// Polls `done` every few milliseconds until it holds or `timeoutMs` passes.
// Timeouts are generous and only bound a wait; nothing asserts on speed.
bool WaitUntil(const std::function<bool()>& done, int timeoutMs = 20000);

std::string ReadFileText(const std::string& path);
bool WriteFileText(const std::string& path, const std::string& text);
void RemoveTree(const std::string& path);

}  // namespace lumx_test
