// hds-grid: runs hds-replay over a grid of settings and clips, and writes one
// table and one picture of how each setting did against each clip's truth.
// See --help.
#include <cstdio>
#include <exception>

#include "tools/evaluation/Grid.h"
#include "tools/evaluation/GridOptions.h"
#include "tools/options/Version.h"
#include "tools/output/Interruption.h"

int main(int argc, char** argv) {
  hdsreplay::GridOptions options;
  try {
    options = hdsreplay::parseGridOptions(argc, argv);
  } catch (const hdsreplay::UsageError& e) {
    std::fprintf(stderr, "hds-grid: %s\nTry 'hds-grid --help'.\n", e.what());
    return 2;
  }
  if (options.help) {
    std::fputs(hdsreplay::gridUsage().c_str(), stdout);
    return 0;
  }
  if (options.version) {
    std::fputs(hdsreplay::versionLine("hds-grid").c_str(), stdout);
    return 0;
  }
  hdsreplay::stopOnSignals();
  try {
    return hdsreplay::Grid(options).run();
  } catch (const std::exception& e) {
    return hdsreplay::reportFailure("hds-grid", e);
  }
}
