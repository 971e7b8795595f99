#include "tools/host/ConfigFile.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#ifndef HDS_REPLAY_DATA_DIR
#define HDS_REPLAY_DATA_DIR "../share/hdsml"
#endif

namespace hdsreplay {

namespace fs = std::filesystem;

std::string defaultConfigPath() {
  constexpr const char* kDefaultConfigName = "hdsml-default.json";
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (ec) return kDefaultConfigName;
  const fs::path beside = exe.parent_path() / kDefaultConfigName;
  if (fs::exists(beside, ec)) return beside.string();
  return (exe.parent_path() / HDS_REPLAY_DATA_DIR / kDefaultConfigName).lexically_normal().string();
}

ConfigFile::ConfigFile(const ReplayOptions& o) : path_(o.configPath) {
  if (o.motionWidth > 0) {
    path_ =
        (fs::temp_directory_path() / ("hds-replay-" + std::to_string(::getpid()) + "-config.json"))
            .string();
    temporary_ = true;
    std::ofstream out(path_);
    out << "{\n  \"vantor\": {\n    \"motionResW\": " << o.motionWidth
        << ",\n    \"motionResH\": " << o.motionHeight << "\n  }\n}\n";
    if (!out) throw std::runtime_error("cannot write a temporary configuration to " + path_);
  } else if (path_.empty()) {
    path_ = defaultConfigPath();
  }
  if (FILE* f = std::fopen(path_.c_str(), "r"))
    std::fclose(f);
  else
    throw std::runtime_error("cannot read configuration '" + path_ + "': " + std::strerror(errno));
}

ConfigFile::~ConfigFile() {
  if (temporary_) std::remove(path_.c_str());
}

}  // namespace hdsreplay
