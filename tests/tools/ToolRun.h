// Runs one of the built tools through the shell with its standard output and
// error captured, for the tests that check what a program does as a whole;
// or starts one as a process that a test can signal.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

namespace hdsreplay {

struct ToolRun {
  int status = -1;  // the exit status; -1 when killed by a signal
  std::string out, err;
};

inline std::string slurpFile(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

// `program` is one of the HDS_*_COMMAND definitions (under a cross build, with
// its emulator); each argument is quoted for the shell.
inline ToolRun runTool(const std::string& program, const std::vector<std::string>& args) {
  const std::string capture = ::testing::TempDir() + "tool_run_" + std::to_string(::getpid()) + "_";
  std::string command = program;
  for (const std::string& a : args) command += " '" + a + "'";
  const int wstatus = std::system((command + " >" + capture + "out 2>" + capture + "err").c_str());
  ToolRun run{WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1, slurpFile(capture + "out"),
              slurpFile(capture + "err")};
  std::remove((capture + "out").c_str());
  std::remove((capture + "err").c_str());
  return run;
}

// Asks `done` every 10 ms until it holds or `limit` has passed; whether it held.
inline bool waitUntil(const std::function<bool()>& done, std::chrono::seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  while (!done()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return true;
}

// A tool running on its own, standard output and error to `logPath`, in a
// process group of its own. The shell execs the command, so the pid is the
// tool's (or its emulator's).
class ToolProcess {
 public:
  ToolProcess(const std::string& program, const std::vector<std::string>& args,
              const std::string& logPath) {
    std::string command = "exec " + program;
    for (const std::string& a : args) command += " '" + a + "'";
    command += " >'" + logPath + "' 2>&1";
    pid_ = ::fork();
    if (pid_ == 0) {
      ::setpgid(0, 0);
      ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
      ::_exit(127);
    }
  }
  // One still running when the test ends is killed with all it started: no
  // failed test leaves processes behind.
  ~ToolProcess() {
    if (pid_ <= 0 || ended_) return;
    ::kill(-pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;

  // To the tool alone, not to what it started.
  void signal(int number) const { ::kill(pid_, number); }

  // Its exit status once it ends within `limit`, -1 when a signal killed it;
  // nothing while it is still running.
  std::optional<int> wait(std::chrono::seconds limit) {
    int wstatus = 0;
    if (!waitUntil([&] { return ::waitpid(pid_, &wstatus, WNOHANG) == pid_; }, limit)) return {};
    ended_ = true;
    return WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1;
  }

 private:
  pid_t pid_ = -1;
  bool ended_ = false;
};

}  // namespace hdsreplay
