// lumx-dspsim: simulator of the LUM DSP and its channel driver (see
// README.md next to this file, or --help).
#include <signal.h>

#include <cstdio>
#include <string>

#include "tools/lumx-dspsim/options.h"
#include "tools/lumx-dspsim/simulator.h"

int main(int argc, char** argv) {
  lumx::dspsim::Options options;
  std::string message;
  switch (lumx::dspsim::ParseOptions(argc, argv, &options, &message)) {
    case lumx::dspsim::ParseOutcome::kExit:
      std::fputs(message.c_str(), stdout);
      return 0;
    case lumx::dspsim::ParseOutcome::kError:
      std::fprintf(stderr, "lumx-dspsim: %s\n", message.c_str());
      return 2;
    case lumx::dspsim::ParseOutcome::kRun:
      break;
  }
  // The signals are taken through a signalfd by the simulator's loop; block
  // them before anything else could receive them.
  sigset_t mask;
  sigemptyset(&mask);
  for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGUSR1, SIGUSR2}) sigaddset(&mask, sig);
  sigprocmask(SIG_BLOCK, &mask, nullptr);
  signal(SIGPIPE, SIG_IGN);
  options.handleSignals = true;

  lumx::dspsim::Simulator sim(std::move(options));
  std::string error;
  if (!sim.Start(&error)) {
    std::fprintf(stderr, "lumx-dspsim: %s\n", error.c_str());
    return 1;
  }
  return sim.Run();
}
