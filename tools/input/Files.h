// Small helpers for the files a user names: their type by extension, and a
// whole text file read at once.
#pragma once

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace hdsreplay {

// ".png" for "A/B.PNG"; empty without an extension.
inline std::string lowerExtension(const std::filesystem::path& path) {
  std::string ext = path.extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext;
}

// Throws std::runtime_error "cannot read WHAT 'PATH': REASON".
inline std::string readText(const std::string& path, const std::string& what) {
  errno = 0;
  std::ifstream in(path);
  if (!in)
    throw std::runtime_error("cannot read " + what + " '" + path +
                             "': " + std::strerror(errno ? errno : ENOENT));
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

}  // namespace hdsreplay
