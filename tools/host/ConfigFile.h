// The configuration file a replay initialises the library with: one written
// for --motion-res (removed again when this object goes), else --config, else
// the default. The constructor checks that the file can be read, so that a
// missing one is reported with the reason rather than as a rejected one.
#pragma once

#include <string>

#include "tools/options/ReplayOptions.h"

namespace hdsreplay {

// The configuration beside the binary (the build tree copies it there), else
// the installed one, found relative to the binary (bin/../share/hdsml) so that
// an installed tree works wherever it is; that place is named in the error
// when neither exists.
std::string defaultConfigPath();

class ConfigFile {
 public:
  // Throws std::runtime_error when the file cannot be written or read.
  explicit ConfigFile(const ReplayOptions& options);
  ~ConfigFile();
  ConfigFile(const ConfigFile&) = delete;
  ConfigFile& operator=(const ConfigFile&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
  bool temporary_ = false;  // written here for --motion-res, removed on destruction
};

}  // namespace hdsreplay
