// What hds-extract-frames is told on its command line, checked: the video,
// where its frames go (a folder of PNGs, or a camera dump in a layout) and how
// many. parseExtractOptions() throws UsageError with a message for the user;
// extractUsage() is the --help text. Plain value type.
#pragma once

#include <optional>
#include <string>

#include "tests/support/YuvFrame.h"
#include "tools/options/CommandLine.h"

namespace hdsreplay {

struct ExtractOptions {
  std::string video;
  std::string out;
  // Set: a camera dump in this layout (--layout, or the name OUT.nv21 ...).
  std::optional<hdsml::YuvLayout> layout;
  int rowPadding = 0;
  int exposure = 10000000;
  long maxFrames = -1;  // -1: every frame
  bool help = false;
  bool version = false;
};

// argv[0] is the program name. Throws UsageError.
ExtractOptions parseExtractOptions(int argc, const char* const argv[]);
std::string extractUsage();

}  // namespace hdsreplay
