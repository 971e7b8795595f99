// Keeps a tool's outputs away from its inputs, and from being left half
// written. OutputGuard knows what the tool reads and checks each output before
// anything is read: not one of the inputs (the same file, however it is
// named), not a folder that holds one, in a folder that exists and can be
// written. AtomicOutput writes an output under a temporary name beside it and
// renames it into place only when the run succeeds; one that is never committed
// leaves nothing behind. One thread.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace hdsreplay {

class OutputGuard {
 public:
  // A file or folder the tool reads; `what` names it in messages ("camera
  // log"). Paths that do not exist are not recorded.
  void input(const std::string& path, const std::string& what);
  // Throws std::runtime_error "cannot write WHAT 'PATH': ..." when `path` is
  // an input or a folder that holds one, is already another output, or its
  // folder does not exist or cannot be written. A `folder` output (of PNGs,
  // say) is created with the folders above it: the nearest that exists must
  // be writable. Empty paths pass.
  void output(const std::string& path, const std::string& what, bool folder = false);

 private:
  struct Named {
    std::string path, what;
  };
  std::vector<Named> inputs_, outputs_;
};

class AtomicOutput {
 public:
  // Creates nothing: the writer creates temporary(), a file or a folder.
  explicit AtomicOutput(std::string path);
  // Removes the temporary unless committed.
  ~AtomicOutput();
  AtomicOutput(const AtomicOutput&) = delete;
  AtomicOutput& operator=(const AtomicOutput&) = delete;

  const std::string& path() const { return path_; }
  // Beside path(), with its extension kept (the writers choose the format by
  // it): DIR/.NAME.partial-PID.EXT.
  const std::string& temporary() const { return temporary_; }
  // Moves the temporary into place: a file replaces path(); a folder's files
  // move into path() when it already exists. Throws std::runtime_error.
  void commit();

 private:
  const std::string path_;
  const std::string temporary_;
  bool committed_ = false;
};

// A run's outputs, committed together once it has succeeded.
class PendingOutputs {
 public:
  // The name to write `path` under until commitAll(); empty for an empty path.
  std::string add(const std::string& path);
  void commitAll();

 private:
  std::vector<std::unique_ptr<AtomicOutput>> outputs_;
};

}  // namespace hdsreplay
