#include "tools/host/StdoutRedirect.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace hdsreplay {

StdoutRedirect::StdoutRedirect(const std::string& target) {
  if (target == "-") return;
  const std::string file = target.empty() ? "/dev/null" : target;
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0)
    throw std::runtime_error("cannot write library log '" + file + "': " + std::strerror(errno));
  std::fflush(stdout);
  saved_ = ::dup(STDOUT_FILENO);
  ::dup2(fd, STDOUT_FILENO);
  ::close(fd);
}

void StdoutRedirect::restore() {
  if (saved_ < 0) return;
  std::fflush(stdout);
  ::dup2(saved_, STDOUT_FILENO);
  ::close(saved_);
  saved_ = -1;
}

}  // namespace hdsreplay
