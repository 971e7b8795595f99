#include "tools/options/ExtractOptions.h"

#include <climits>
#include <stdexcept>
#include <vector>

#include "tools/input/CameraDumpWriter.h"
#include "tools/input/Files.h"

namespace hdsreplay {

std::string extractUsage() {
  return R"(usage: hds-extract-frames [options] VIDEO OUT

Writes the frames of VIDEO as numbered PNGs, which hds-replay reads back as a
folder of images, or as a camera dump of raw YUV 4:2:0 frames with its camera
log, which hds-replay reads back with --raw WxH.

  --frames N            at most the first N frames (default: all)
  --layout L            a camera dump in layout L: nv21, nv12, i420 or yv12.
                        OUT ending in .nv21, .nv12, .i420 or .yv12 is one file
                        of frames, named for its layout (the camera log is OUT
                        with .csv for its extension); any other OUT is a folder
                        of one file a frame (frame_000000.nv21 ...) and
                        OUT/frames.csv. Without --layout, OUT named .nv21 ...
                        is a dump in the layout its name says, any other OUT
                        a folder of PNGs (frame_000000.png ...)
  --row-padding N       dump: bytes of padding after every row (default 0)
  --exposure E          dump: the exposure time the camera log gives every
                        frame (default 10000000 ns); timestamps follow the
                        video's frame rate
  -h, --help            this text
  --version             the version of the hdsml library

OUT may not be VIDEO, and is written under a temporary name beside it until
every frame is out: a failed run leaves nothing behind.

Exit status: 0 on success, 1 when the video cannot be read or OUT cannot be
written, 2 on a bad command line, 128 + the signal when Ctrl-C (130), SIGTERM or
SIGHUP stopped it: then nothing is written.
)";
}

namespace {

// The options, each with what it sets in `o`.
OptionTable extractOptionTable(ExtractOptions& o) {
  OptionTable table;
  table.withValue = {
      {"--frames",
       [&](auto& opt, auto& v) {
         o.maxFrames = static_cast<long>(parseWholeNumber(opt, v, 1, LONG_MAX));
       }},
      {"--layout",
       [&](auto& opt, auto& v) {
         try {
           o.layout = hdsml::parseLayout(v);
         } catch (const std::invalid_argument& e) {
           throw UsageError(opt + ": " + e.what());
         }
       }},
      {"--row-padding",
       [&](auto& opt, auto& v) {
         o.rowPadding = static_cast<int>(parseWholeNumber(opt, v, 0, 4096));
       }},
      {"--exposure",
       [&](auto& opt, auto& v) {
         o.exposure = static_cast<int>(parseWholeNumber(opt, v, 1, INT_MAX));
       }},
      {"--raw", [&](auto&, auto& v) {
         throw UsageError(
             "--raw is hds-replay's size of a dump's frames; here the dump's layout is given with "
             "--layout (--layout " +
             v + ")");
       }}};
  return table;
}

// The layout a one-file dump's name says; empty for any other name.
std::optional<hdsml::YuvLayout> layoutOfName(const std::string& out) {
  const std::string ext = lowerExtension(out);
  if (ext.empty() || ext == ".yuv" || !CameraDumpWriter::namesOneFile(out)) return std::nullopt;
  return hdsml::parseLayout(ext.substr(1));
}

// A dump's name must say the layout its bytes are in, or hds-replay reads them wrong.
void checkDumpName(ExtractOptions& o) {
  const std::optional<hdsml::YuvLayout> named = layoutOfName(o.out);
  if (!o.layout) o.layout = named;
  if (lowerExtension(o.out) == ".yuv")
    throw UsageError("'" + o.out + "' does not say the layout of its frames: name it ." +
                     hdsml::layoutName(o.layout.value_or(hdsml::YuvLayout::NV21)) +
                     " (hds-replay reads the layout from the name)");
  if (named && *named != *o.layout)
    throw UsageError("'" + o.out + "' would hold " + hdsml::layoutName(*o.layout) +
                     " frames under a name that says " + hdsml::layoutName(*named) + ": name it ." +
                     hdsml::layoutName(*o.layout) + " or give --layout " +
                     hdsml::layoutName(*named));
  if (!o.layout && (o.rowPadding > 0 || o.exposure != 10000000))
    throw UsageError("--row-padding and --exposure describe a camera dump: give --layout too");
}

}  // namespace

ExtractOptions parseExtractOptions(int argc, const char* const argv[]) {
  ExtractOptions o;
  const Arguments a = readArguments(argc, argv, extractOptionTable(o));
  o.help = a.help;
  o.version = a.version;
  if (a.help || a.version) return o;
  const std::vector<std::string> positional = a.allOperands();
  if (positional.size() < 2) throw UsageError("give a VIDEO and where its frames go (OUT)");
  if (positional.size() == 3)
    throw UsageError("a frame limit is given with --frames N (got '" + positional[2] + "')");
  if (positional.size() > 3)
    throw UsageError("one VIDEO and one OUT (got " + std::to_string(positional.size()) +
                     " arguments)");
  o.video = positional[0];
  o.out = positional[1];
  checkDumpName(o);
  return o;
}

}  // namespace hdsreplay
