// Runs commands as child processes, at most `parallel` at once, each with its
// standard output and error written to files of its own, and waits for all of
// them. Used from one thread; a callback hears of each one that ends.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace hdsreplay {

struct Job {
  std::vector<std::string> argv;  // argv[0] is looked up on PATH when it has no slash
  std::string outPath, errPath;
  int status = -1;  // exit status; 128 + the signal when killed; 127 when it could not start
  double seconds = 0;
};

void runJobs(std::vector<Job>& jobs, int parallel,
             const std::function<void(const Job& job, size_t finished)>& onDone);

}  // namespace hdsreplay
