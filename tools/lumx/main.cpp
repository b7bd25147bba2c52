// lumx: shell client of the lumxd service. See README.md for usage.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "lumx_cli.h"
#include "lumx_client.h"

namespace {

int Run(const std::vector<std::string>& words) {
  using namespace lumx::cli;
  CommandLine cl;
  std::string error;
  if (!ParseCommandLine(words, &cl, &error)) {
    ReportFailure(cl, cl.op, error, kExitUsage);
    if (cl.showUsage && !cl.json) fputs(UsageText().c_str(), stderr);
    return kExitUsage;
  }
  switch (cl.mode) {
    case CommandLine::Mode::kHelp: {
      const std::string help = cl.op ? OperationHelp(*cl.op) : UsageText();
      fwrite(help.data(), 1, help.size(), stdout);
      return kExitOk;
    }
    case CommandLine::Mode::kRelay:
      return RunRelay(cl.relay);
    case CommandLine::Mode::kDump:
      return RunDump(cl);
    case CommandLine::Mode::kTop:
      return RunTop(cl);
    case CommandLine::Mode::kGraph:
      return RunGraph(cl);
    case CommandLine::Mode::kVersion:
      return RunVersion(cl);
    case CommandLine::Mode::kCall:
      break;
  }
  return RunCall(cl);
}

}  // namespace

int main(int argc, char** argv) {
  const int rc = Run(std::vector<std::string>(argv + 1, argv + argc));
  if (lumx::cli::LookupAbandoned()) {
    // A service lookup is still blocked on its thread: end without running
    // the runtime's destructors under it.
    fflush(stdout);
    fflush(stderr);
    _exit(rc);
  }
  return rc;
}
