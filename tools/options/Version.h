// The version of the hdsml library the tools are built with and beside, as
// the build declares it (the project's version in CMake), and the line that
// every tool's --version prints.
#pragma once

#include <string>

#ifndef HDSML_VERSION
#error "HDSML_VERSION is defined by the build (tools/CMakeLists.txt)"
#endif

namespace hdsreplay {

inline const char* libraryVersion() { return HDSML_VERSION; }

// "hds-replay (hdsml 0.1.0)".
inline std::string versionLine(const std::string& program) {
  return program + " (hdsml " + libraryVersion() + ")\n";
}

}  // namespace hdsreplay
