#include "tools/output/OutputGuard.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;

// The same file or folder: the same device and inode, whatever the names.
bool sameFile(const std::string& a, const std::string& b) {
  struct stat sa {}, sb {};
  return ::stat(a.c_str(), &sa) == 0 && ::stat(b.c_str(), &sb) == 0 && sa.st_dev == sb.st_dev &&
         sa.st_ino == sb.st_ino;
}

// The folder a path lies in; "." for a bare name.
std::string folderOf(const std::string& path) {
  const fs::path parent = fs::path(path).parent_path();
  return parent.empty() ? "." : parent.string();
}

std::string temporaryBeside(const std::string& path) {
  fs::path p(path);
  while (!p.empty() && !p.has_filename()) p = p.parent_path();  // "out/" names the folder out
  const std::string name = "." + p.stem().string() + ".partial-" + std::to_string(::getpid()) +
                           p.extension().string();
  return (p.parent_path() / name).string();
}

}  // namespace

void OutputGuard::input(const std::string& path, const std::string& what) {
  std::error_code ec;
  if (!path.empty() && fs::exists(path, ec)) inputs_.push_back({path, what});
}

void OutputGuard::output(const std::string& path, const std::string& what, bool folder) {
  if (path.empty()) return;
  const auto refuse = [&](const std::string& why) {
    return std::runtime_error("cannot write " + what + " '" + path + "': " + why);
  };
  for (const Named& in : inputs_) {
    if (sameFile(path, in.path))
      throw refuse("it is the " + in.what + " '" + in.path + "' this run reads");
    if (sameFile(path, folderOf(in.path)))
      throw refuse("it is the folder of the " + in.what + " '" + in.path + "' this run reads");
  }
  for (const Named& out : outputs_)
    if (out.path == path || sameFile(path, out.path))
      throw refuse("the " + out.what + " is written there too");
  std::string parent = folderOf(path);
  std::error_code ec;
  while (folder && !fs::exists(parent, ec) && parent != ".")
    parent = folderOf(fs::path(parent).lexically_normal().string());
  if (!fs::is_directory(parent, ec)) throw refuse("no folder '" + parent + "'");
  if (::access(parent.c_str(), W_OK | X_OK) != 0)
    throw refuse("folder '" + parent + "': " + std::strerror(errno));
  if (fs::is_directory(path, ec) && ::access(path.c_str(), W_OK | X_OK) != 0)
    throw refuse(std::strerror(errno));
  outputs_.push_back({path, what});
}

AtomicOutput::AtomicOutput(std::string path)
    : path_(std::move(path)), temporary_(temporaryBeside(path_)) {}

AtomicOutput::~AtomicOutput() {
  if (committed_) return;
  std::error_code ec;
  fs::remove_all(temporary_, ec);
}

void AtomicOutput::commit() {
  std::error_code ec;
  const auto fail = [&](const std::string& why) {
    return std::runtime_error("cannot move '" + temporary_ + "' to '" + path_ + "': " + why);
  };
  if (!fs::exists(temporary_, ec)) throw fail("it was never written");
  if (fs::is_directory(temporary_, ec) && fs::is_directory(path_, ec)) {
    for (const fs::directory_entry& e : fs::directory_iterator(temporary_)) {
      fs::rename(e.path(), fs::path(path_) / e.path().filename(), ec);
      if (ec) throw fail(ec.message());
    }
    fs::remove(temporary_, ec);
  } else {
    fs::rename(temporary_, path_, ec);
    if (ec) throw fail(ec.message());
  }
  committed_ = true;
}

std::string PendingOutputs::add(const std::string& path) {
  if (path.empty()) return path;
  outputs_.push_back(std::make_unique<AtomicOutput>(path));
  return outputs_.back()->temporary();
}

void PendingOutputs::commitAll() {
  for (const auto& out : outputs_) out->commit();
}

}  // namespace hdsreplay
