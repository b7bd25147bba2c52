// lumx: shell client of the lumxd service. See README.md for usage.
#include <cstdio>
#include <string>
#include <vector>

#include "lumx_cli.h"
#include "lumx_client.h"

int main(int argc, char** argv) {
  using namespace lumx::cli;
  std::vector<std::string> words(argv + 1, argv + argc);
  CommandLine cl;
  std::string error;
  if (!ParseCommandLine(words, &cl, &error)) {
    fprintf(stderr, "lumx: %s\n", error.c_str());
    return kExitUsage;
  }
  switch (cl.mode) {
    case CommandLine::Mode::kHelp: {
      const std::string help = UsageText();
      fwrite(help.data(), 1, help.size(), stdout);
      return kExitOk;
    }
    case CommandLine::Mode::kRelay:
      return RunRelay(cl.relay);
    case CommandLine::Mode::kCall:
      break;
  }
  return RunCall(cl);
}
