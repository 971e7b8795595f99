// hds-replay: feeds recorded video through the hdsml detector as a camera
// application would, and shows what it decided. See --help.
#include <cstdio>
#include <exception>

#include "tools/host/Replayer.h"
#include "tools/options/ReplayOptions.h"
#include "tools/options/Version.h"
#include "tools/output/Interruption.h"

int main(int argc, char** argv) {
  hdsreplay::ReplayOptions options;
  try {
    options = hdsreplay::parseReplayOptions(argc, argv);
  } catch (const hdsreplay::UsageError& e) {
    std::fprintf(stderr, "hds-replay: %s\nTry 'hds-replay --help'.\n", e.what());
    return 2;
  }
  if (options.help) {
    std::fputs(hdsreplay::replayUsage().c_str(), stdout);
    return 0;
  }
  if (options.version) {
    std::fputs(hdsreplay::versionLine("hds-replay").c_str(), stdout);
    return 0;
  }
  hdsreplay::stopOnSignals();
  try {
    hdsreplay::Replayer replayer(options);
    return replayer.run();
  } catch (const std::exception& e) {
    return hdsreplay::reportFailure("hds-replay", e);
  }
}
