// A configuration with guard settings merged in, for --guards FILE and --mask:
// the base configuration (--config, --motion-res or the default) with the
// "guards" object of FILE (or FILE itself when it is a bare guards object) and
// each --mask polygon appended to its "masks", and each --guard KEY=VALUE set
// in it (checked by the library, as any configuration). Written to a temporary file that
// goes with the object. The replay's thread only.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace hdsreplay {

class GuardedConfig {
 public:
  // Throws std::runtime_error naming the file that cannot be read, parsed or
  // written.
  GuardedConfig(const std::string& basePath, const std::string& guardsPath,
                const std::vector<std::vector<double>>& masks,
                const std::vector<std::pair<std::string, std::string>>& keys);
  ~GuardedConfig();
  GuardedConfig(const GuardedConfig&) = delete;
  GuardedConfig& operator=(const GuardedConfig&) = delete;

  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace hdsreplay
