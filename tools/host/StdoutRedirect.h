// Points file descriptor 1 somewhere else while the library runs: the library
// prints its lifecycle and per-decision lines with printf/puts, which would break
// the progress bar and bury the summary. Restored on destruction. One thread.
#pragma once

#include <string>

namespace hdsreplay {

class StdoutRedirect {
 public:
  // `target`: a file; empty discards the output; "-" leaves standard output alone.
  // Throws std::runtime_error when the file cannot be created.
  explicit StdoutRedirect(const std::string& target);
  ~StdoutRedirect() { restore(); }
  StdoutRedirect(const StdoutRedirect&) = delete;
  StdoutRedirect& operator=(const StdoutRedirect&) = delete;

  void restore();

 private:
  int saved_ = -1;  // the original standard output while redirected
};

}  // namespace hdsreplay
