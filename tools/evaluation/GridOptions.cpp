#include "tools/evaluation/GridOptions.h"

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "tools/input/Files.h"

namespace hdsreplay {

namespace {

std::vector<std::string> split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::stringstream in(text);
  for (std::string part; std::getline(in, part, separator);) parts.push_back(part);
  return parts;
}

}  // namespace

std::string gridUsage() {
  return R"(usage: hds-grid [options] CLIP... [-- HDS-REPLAY OPTIONS]

Runs a grid of detector settings over one or more clips: every setting on every
clip is one hds-replay in a process of its own (the detector is one object per
process), as many at once as there are cores. Writes one table of the settings
and their scores against each clip's truth, with the cost of detect(), and one
picture with each setting's timeline stacked under the clip's truth band.

Clips
  CLIP                  an input hds-replay takes (video, image folder, dump)
  --truth FILE          the truth file of the CLIPs on the command line
  --clips FILE          clips one a line: NAME INPUT TRUTH [hds-replay options],
                        separated by spaces; TRUTH - for none; # comments.
                        Options after @NAME go only to the replays under the
                        --setting NAME (a mask under a guarded setting, say)

Grid
  --vary OPTION=V1,V2   an axis: an hds-replay option without its dashes and its
                        values; "none" leaves the option out. Several --vary
                        make every combination, e.g.
                          --vary motion-res=160x120,320x240,640x480
                          --vary absence-ms=3000,5000,8000
                          --vary exposure-step=none,20s:2
                        Values that hold commas are separated by semicolons
                        instead (quote them from the shell):
                          --vary 'states=0:motion,5s:absence;0:motion,9s:absence'
                        Each axis is a column of table.csv.
  --setting NAME[=OPTIONS]
                        a named setting: hds-replay options separated by
                        spaces, e.g. "guarded=--config tools/hdsml-guarded.json"
                        or just "default". Several --setting run side by side,
                        each with every combination of the --vary axes
  -- OPTIONS            hds-replay options for every replay (--states ...)

Output and running
  --out DIR             DIR/table.csv (every figure), DIR/scorecard.txt (the
                        scores without timings, the same on every machine),
                        DIR/grid.png, and DIR/cells/ with each replay's CSV,
                        scores and printout (default out/grid)
  --title TEXT          the picture's title
  --jobs N              replays at once (default: the number of cores)
  --replay COMMAND      the hds-replay to run, with words before it if needed
                        ("qemu-aarch64 build/hds-replay"); default: the one
                        beside hds-grid
  -h, --help            this text
  --version             the version of the hdsml library

Exit status: 0 when every replay ran, 1 when one failed or an output cannot be
written, 2 on a bad command line, 128 + the signal when Ctrl-C (130), SIGTERM or
SIGHUP stopped it: its replays are stopped too, and no table or picture is written.
)";
}

std::vector<Clip> parseClips(const std::string& text, const std::string& name) {
  std::vector<Clip> clips;
  std::stringstream lines(text);
  std::string line;
  for (int lineNo = 1; std::getline(lines, line); ++lineNo) {
    if (const size_t hash = line.find('#'); hash != std::string::npos) line.erase(hash);
    std::stringstream words(line);
    std::vector<std::string> w;
    for (std::string word; words >> word;) w.push_back(word);
    if (w.empty()) continue;
    if (w.size() < 3)
      throw UsageError("--clips: " + name + " line " + std::to_string(lineNo) +
                       ": give NAME INPUT TRUTH (TRUTH - for none), then options");
    Clip clip{w[0], w[1], w[2] == "-" ? "" : w[2], {}, {}};
    std::vector<std::string>* to = &clip.args;
    for (size_t i = 3; i < w.size(); ++i) {
      if (w[i].size() > 1 && w[i][0] == '@')
        to = &clip.settingArgs[w[i].substr(1)];
      else
        to->push_back(w[i]);
    }
    clips.push_back(std::move(clip));
  }
  if (clips.empty()) throw UsageError("--clips: " + name + " names no clips");
  return clips;
}

Setting parseNamedSetting(const std::string& value) {
  const size_t eq = value.find('=');
  Setting s;
  s.name = s.named = value.substr(0, eq);
  if (s.name.empty() || s.name.find_first_of(" ,@") != std::string::npos)
    throw UsageError("--setting: '" + value +
                     "' does not start with a name (no spaces, commas or @), as in "
                     "\"guarded=--config tools/hdsml-guarded.json\"");
  if (eq != std::string::npos) {
    std::stringstream words(value.substr(eq + 1));
    for (std::string word; words >> word;) s.args.push_back(word);
  }
  return s;
}

std::vector<Setting> gridSettings(const std::vector<Axis>& axes,
                                  const std::vector<Setting>& named) {
  std::vector<Setting> settings = named.empty() ? std::vector<Setting>{{"", {}, "", {}}} : named;
  for (const Axis& axis : axes) {
    std::vector<Setting> next;
    for (const Setting& s : settings)
      for (const std::string& v : axis.values) {
        Setting more = s;
        more.name += (more.name.empty() ? "" : " ") + axis.option + "=" + v;
        more.values.push_back(v);
        if (v != "none") more.args.insert(more.args.end(), {"--" + axis.option, v});
        next.push_back(more);
      }
    settings = next;
  }
  if (axes.empty() && named.empty()) settings.front().name = "default";
  return settings;
}

std::vector<std::string> splitVaryValues(const std::string& values) {
  const char separator = values.find(';') != std::string::npos ? ';' : ',';
  std::vector<std::string> parts = split(values, separator);
  if (!values.empty() && values.back() == separator) parts.emplace_back();
  for (const std::string& part : parts)
    if (part.empty())
      throw UsageError("--vary: an empty value in '" + values +
                       "' (write \"none\" to leave the option out)");
  return parts;
}

GridOptions parseGridOptions(int argc, const char* const argv[]) {
  GridOptions o;
  std::string truth;
  OptionTable table;
  table.withValue = {
      {"--truth", [&](auto&, auto& v) { truth = v; }},
      {"--clips",
       [&](auto& opt, auto& v) {
         std::string text;
         try {
           text = readText(v, "clips file");
         } catch (const std::runtime_error& e) {
           throw UsageError(opt + ": " + e.what());
         }
         const std::vector<Clip> more = parseClips(text, v);
         o.clips.insert(o.clips.end(), more.begin(), more.end());
       }},
      {"--vary",
       [&](auto& opt, auto& v) {
         const size_t eq = v.find('=');
         if (eq == std::string::npos || eq == 0 || eq + 1 == v.size())
           throw UsageError(opt + ": '" + v + "' is not OPTION=V1,V2 (motion-res=160x120,320x240)");
         o.axes.push_back({v.substr(0, eq), splitVaryValues(v.substr(eq + 1))});
       }},
      {"--setting",
       [&](auto& opt, auto& v) {
         o.named.push_back(parseNamedSetting(v));
         for (size_t k = 0; k + 1 < o.named.size(); ++k)
           if (o.named[k].name == o.named.back().name)
             throw UsageError(opt + ": two settings are named '" + o.named.back().name + "'");
       }},
      {"--out", [&](auto&, auto& v) { o.outDir = v; }},
      {"--title", [&](auto&, auto& v) { o.title = v; }},
      {"--jobs",
       [&](auto& opt, auto& v) { o.jobs = static_cast<int>(parseWholeNumber(opt, v, 1, 256)); }},
      {"--replay", [&](auto&, auto& v) { o.replayCommand = split(v, ' '); }}};
  const Arguments a = readArguments(argc, argv, table);
  o.help = a.help;
  o.version = a.version;
  if (a.help || a.version) return o;
  o.common = a.afterDashes;
  for (const std::string& input : a.operands) {
    const std::string name = std::filesystem::path(input).filename().string();
    o.clips.push_back({name.empty() ? input : name, input, truth, {}, {}});
  }
  if (o.clips.empty()) throw UsageError("no clips given (CLIP... or --clips FILE)");
  return o;
}

}  // namespace hdsreplay
