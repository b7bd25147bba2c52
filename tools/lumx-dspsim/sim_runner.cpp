#include "tools/lumx-dspsim/sim_runner.h"

#include <ftw.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

namespace lumx::dspsim {

bool SimThread::Start(std::string* error) {
  if (!sim_.Start(error)) return false;
  thread_ = std::thread([this] { sim_.Run(); });
  return true;
}

void SimThread::Stop() {
  if (!thread_.joinable()) return;
  sim_.RequestStop();
  thread_.join();
}

TempDir::TempDir() {
  const char* base = getenv("TMPDIR");
  std::string tmpl =
      std::string(base != nullptr && *base != '\0' ? base : "/tmp") + "/lumx-dspsim-XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) != nullptr) path_ = buf.data();
}

TempDir::~TempDir() {
  if (path_.empty()) return;
  nftw(
      path_.c_str(),
      [](const char* p, const struct stat*, int, struct FTW*) { return ::remove(p); }, 16,
      FTW_DEPTH | FTW_PHYS);
}

}  // namespace lumx::dspsim
