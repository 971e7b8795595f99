// A tool stopped by a signal leaves what it left before it started. Ctrl-C
// (SIGINT), SIGTERM and SIGHUP only mark the run as interrupted; the tool's
// loops ask once a frame (or while waiting for its child processes) and throw
// Interrupted, which unwinds the run as any failure does: outputs written
// under temporary names are removed, files from earlier runs stay as they were.
#pragma once

#include <stdexcept>

namespace hdsreplay {

class Interrupted : public std::runtime_error {
 public:
  explicit Interrupted(int signal);
  int signal() const { return signal_; }
  // What a shell expects of a program a signal stopped.
  int exitStatus() const { return 128 + signal_; }

 private:
  int signal_;
};

// Installs the handlers, except for a signal the tool was started ignoring.
// Blocking calls of the main thread (waitpid) return early with EINTR instead
// of resuming, so that the tool notices at once.
void stopOnSignals();
// The signal that asked the run to stop; 0 while none did.
int interruption();
// Throws Interrupted once a signal asked the run to stop.
void throwIfInterrupted();
// A tool's answer to a run that threw: the message under the tool's name on
// standard error, and the exit status, 1 or, when a signal stopped the run
// (whatever failed on the way out), 128 + the signal.
int reportFailure(const char* tool, const std::exception& e);

}  // namespace hdsreplay
