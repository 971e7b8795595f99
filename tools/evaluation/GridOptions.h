// What hds-grid is told: the clips (each an input, its truth and its own
// hds-replay options), the axes of the grid of settings, where to write and
// how many replays to run at once. parseGridOptions() throws UsageError with a
// message for the user; gridUsage() is the --help text. Plain value types.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "tools/options/CommandLine.h"

namespace hdsreplay {

struct Clip {
  std::string name;
  std::string input;
  std::string truth;              // empty: no scores, only the timelines
  std::vector<std::string> args;  // hds-replay options for this clip
  // Options for this clip under one named setting only (after "@NAME" on its line).
  std::map<std::string, std::vector<std::string>> settingArgs;
};

// One axis of the grid: an hds-replay option (without its dashes) and the
// values it takes in turn; the value "none" leaves the option out.
struct Axis {
  std::string option;
  std::vector<std::string> values;
};

// One point of the grid: a named setting (--setting), if any, and a value on
// every axis.
struct Setting {
  std::string name;                 // "motion-res=160x120 absence-ms=3000", or "default"
  std::vector<std::string> args;    // the hds-replay options it adds
  std::string named;                // the --setting it starts from; empty: none
  std::vector<std::string> values;  // the value on each axis, in the axes' order
};

// The values of --vary OPTION=VALUES: split at commas, or at semicolons when
// there is one (so that a value may hold commas: a --states script). Throws
// UsageError for an empty value.
std::vector<std::string> splitVaryValues(const std::string& values);

struct GridOptions {
  std::vector<Clip> clips;
  std::vector<Axis> axes;
  std::vector<Setting> named;       // --setting NAME=OPTIONS, in order
  std::vector<std::string> common;  // hds-replay options for every replay (after --)
  std::string outDir = "out/grid";
  int jobs = 0;                            // 0: as many as there are cores
  std::vector<std::string> replayCommand;  // empty: the hds-replay beside hds-grid
  std::string title = "hds-grid";
  bool help = false;
  bool version = false;
};

// argv[0] is the program name. Throws UsageError.
GridOptions parseGridOptions(int argc, const char* const argv[]);
std::string gridUsage();

// Clips one a line: NAME INPUT TRUTH [hds-replay options...], separated by
// spaces; TRUTH "-" for none; '#' starts a comment; options after "@NAME" go
// only to the replays under the named setting NAME. Throws UsageError.
std::vector<Clip> parseClips(const std::string& text, const std::string& name);

// Every combination of the named settings (none: one unnamed) and the axes'
// values, the named settings varying slowest, then the first axis.
std::vector<Setting> gridSettings(const std::vector<Axis>& axes,
                                  const std::vector<Setting>& named = {});
// --setting's value: NAME, or NAME=OPTIONS with hds-replay options separated
// by spaces. Throws UsageError.
Setting parseNamedSetting(const std::string& value);

}  // namespace hdsreplay
