// Runs one of the built tools through the shell with its standard output and
// error captured, for the tests that check what a program does as a whole.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
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
  const std::string capture =
      ::testing::TempDir() + "tool_run_" + std::to_string(::getpid()) + "_";
  std::string command = program;
  for (const std::string& a : args) command += " '" + a + "'";
  const int wstatus =
      std::system((command + " >" + capture + "out 2>" + capture + "err").c_str());
  ToolRun run{WIFEXITED(wstatus) ? WEXITSTATUS(wstatus) : -1, slurpFile(capture + "out"),
              slurpFile(capture + "err")};
  std::remove((capture + "out").c_str());
  std::remove((capture + "err").c_str());
  return run;
}

}  // namespace hdsreplay
