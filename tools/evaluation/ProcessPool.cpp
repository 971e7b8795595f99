#include "tools/evaluation/ProcessPool.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <map>

#include "tools/output/Interruption.h"

extern char** environ;

namespace hdsreplay {

namespace {

using Clock = std::chrono::steady_clock;

// Starts `job`; its pid, or -1 when it could not be started.
pid_t start(const Job& job) {
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, STDOUT_FILENO, job.outPath.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&files, STDERR_FILENO, job.errPath.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<char*> argv;
  for (const std::string& a : job.argv) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = -1;
  if (posix_spawnp(&pid, argv[0], &files, nullptr, argv.data(), environ) != 0) pid = -1;
  posix_spawn_file_actions_destroy(&files);
  return pid;
}

// A stopped grid stops its replays too (a SIGTERM sent to the grid alone
// reaches none of them) and waits for each to remove its temporaries.
void stopAll(std::map<pid_t, std::pair<size_t, Clock::time_point>>& running) {
  for (const auto& [pid, job] : running) ::kill(pid, SIGTERM);
  for (const auto& [pid, job] : running) {
    int wstatus = 0;
    while (::waitpid(pid, &wstatus, 0) < 0 && errno == EINTR) {
    }
  }
  running.clear();
}

}  // namespace

void runJobs(std::vector<Job>& jobs, int parallel,
             const std::function<void(const Job&, size_t)>& onDone) {
  std::map<pid_t, std::pair<size_t, Clock::time_point>> running;  // pid: (job, start)
  size_t next = 0, finished = 0;
  while (finished < jobs.size()) {
    if (interruption()) {
      stopAll(running);
      throwIfInterrupted();
    }
    while (next < jobs.size() && static_cast<int>(running.size()) < parallel) {
      const pid_t pid = start(jobs[next]);
      if (pid < 0) {
        jobs[next].status = 127;
        onDone(jobs[next], ++finished);
      } else {
        running[pid] = {next, Clock::now()};
      }
      ++next;
    }
    if (running.empty()) continue;
    int wstatus = 0;
    const pid_t pid = ::waitpid(-1, &wstatus, 0);
    if (pid < 0 && errno == EINTR) continue;
    if (pid < 0) {  // no children left to wait for: none of ours can still end
      for (const auto& [lost, job] : running) onDone(jobs[job.first], ++finished);
      return;
    }
    const auto it = running.find(pid);
    if (it == running.end()) continue;  // not one of ours
    Job& job = jobs[it->second.first];
    job.status = WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : 128 + WTERMSIG(wstatus);
    job.seconds = std::chrono::duration<double>(Clock::now() - it->second.second).count();
    running.erase(it);
    onDone(job, ++finished);
  }
}

}  // namespace hdsreplay
