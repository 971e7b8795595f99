#include "tools/output/Interruption.h"

#include <signal.h>

#include <atomic>
#include <cstdio>
#include <string>

namespace hdsreplay {

namespace {

// Written by the handler, which may do nothing else safely.
std::atomic<int> stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "the handler must not take a lock");

void onSignal(int signal) { stopSignal.store(signal); }

std::string describe(int signal) {
  switch (signal) {
    case SIGINT:
      return "SIGINT";
    case SIGTERM:
      return "SIGTERM";
    case SIGHUP:
      return "SIGHUP";
    default:
      return "signal " + std::to_string(signal);
  }
}

}  // namespace

Interrupted::Interrupted(int signal)
    : std::runtime_error("stopped by " + describe(signal) +
                         " before the end: its outputs were not written"),
      signal_(signal) {}

void stopOnSignals() {
  struct sigaction action {};
  action.sa_handler = onSignal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: a waiting waitpid returns to look
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    // A signal ignored from the start stays ignored: nohup, or a job a
    // script started in the background, is meant not to hear it.
    struct sigaction before {};
    if (sigaction(signal, nullptr, &before) == 0 && before.sa_handler == SIG_IGN) continue;
    sigaction(signal, &action, nullptr);
  }
}

int interruption() { return stopSignal.load(); }

void throwIfInterrupted() {
  if (const int signal = interruption()) throw Interrupted(signal);
}

int reportFailure(const char* tool, const std::exception& e) {
  std::fflush(stdout);
  if (const int signal = interruption()) {
    const Interrupted stopped(signal);
    std::fprintf(stderr, "%s: %s\n", tool, stopped.what());
    return stopped.exitStatus();
  }
  std::fprintf(stderr, "%s: %s\n", tool, e.what());
  return 1;
}

}  // namespace hdsreplay
