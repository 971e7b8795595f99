#include "tools/options/ReplayOptions.h"

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <tuple>
#include <utility>

namespace hdsreplay {

const char* paceName(Pace pace) {
  switch (pace) {
    case Pace::Lockstep:
      return "lockstep";
    case Pace::Realtime:
      return "realtime";
    case Pace::Free:
      return "free";
  }
  return "?";
}

std::string replayUsage() {
  return R"(usage: hds-replay [options] INPUT

Replays recorded frames through the hdsml detector, exactly as a camera
application feeds it: every frame is handed to PresenceDetectorWrapper::detect()
as YUV 4:2:0 with a millisecond timestamp and a camera_metadata record; the
detection state is set with stateChange(). INPUT is a video (anything OpenCV's
videoio opens), a folder of images, or a camera dump (with --raw). Prints a
summary; optionally writes a CSV, a timeline picture and annotated frames, and
scores the replay against a truth file.

Input and detector
  --config FILE         JSON configuration (default: hdsml-default.json, motion
                        resolution 320x240)
  --motion-res WxH      motion resolution; writes a temporary configuration
  --layout L            camera layout of the YUV frames: nv21 (default), nv12,
                        i420, yv12. Videos and images are packed in it; a camera
                        dump is read in it (a dump named .nv12 ... says its own)
  --row-padding N       bytes of padding after every row of every plane (default 0)
  --fps F               frame rate for the timestamps (default: the video's own;
                        30 for image folders and dumps without a camera log)
  --frames N            replay at most N frames of the input
  --exposure E          camera_metadata.exposureTime of every frame (default
                        10000000). The library takes 1e9/E as the light level:
                        above 14.99 is normal light, at or below 13.4 low light
                        (so with E in nanoseconds, 1/15 s separates the two)
  --debug               initialize() the library with its debug output on
  --guards FILE         merge the "guards" object of FILE (or FILE itself, a
                        bare guards object) into the configuration: scene
                        guards, see docs/tuning.md
  --mask X,Y,X,Y,...    a mask polygon of at least 3 points in frame-relative
                        coordinates (0 to 1, origin top left); repeat for more.
                        Adds to the guards' "masks" (and turns the guards on)
  --guard KEY=VALUE     set one key of the guards object (sensitivity=70,
                        noise=true, minRegionArea=0.5); repeat for more. With
                        hds-grid: --vary guard=sensitivity=30,sensitivity=70

Camera dumps (raw YUV 4:2:0 frames, handed to detect() as they are)
  --raw WxH             INPUT holds raw frames of this size: one file of frames
                        one after the other, or a folder of one file a frame
                        (.nv21, .nv12, .i420, .yv12, .yuv) in file-name order
  --row-stride Y[:C]    bytes from one row to the next: Y for luma, C for chroma
                        (default: as wide as the luma rows when interleaved,
                        half as wide when planar); instead of --row-padding
  --camera-log FILE     CSV of what the device recorded with each frame, with a
                        header: timestamp_ms, exposure_ns, lens_moving (the last
                        two optional). Found by itself beside a dump: NAME.csv
                        for NAME.nv21, FOLDER/frames.csv for a folder. Its
                        timestamps replace --fps; its exposures are used unless
                        --exposure is given, and it must list as many
                        frames as the dump holds
  A dump that is not a whole number of frames is refused with the sizes that
  would fit it; one whose luma rows match best at another stride, or whose
  chroma looks interleaved when i420 or yv12 is said, is warned about first.

Detection state
  --states SCRIPT       state changes, e.g. "0:DETECT_MOTION,30s:DETECT_ABSENCE".
                        WHEN is a time (12s, 1.5s, 800ms, 2min) or a frame
                        number; STATE is DETECT_MOTION, DETECT_PRESENCE,
                        DETECT_ABSENCE (or motion, presence, absence). Without
                        an entry for frame 0 the replay starts in DETECT_MOTION.
  --absence-ms MS       absence threshold in milliseconds (sets the system
                        property persist.hds.cv.absence; library default 5000)

Pacing
  --pace lockstep       (default) hand over a frame only after the motion thread
                        has finished the previous one (waiting at most --wait-ms,
                        default 2000): deterministic, and as fast as the machine
                        allows
  --pace realtime       at the frame rate, like a live camera: frames that arrive
                        while the motion thread is busy are dropped
  --pace free           as fast as possible, without waiting

Held frames and input probes (times count from the first frame handed over)
  --hold-first SPAN     before the input, hold its first frame for SPAN (10s, or
                        a number of frames) with sensor noise: a still scene
  --hold-last SPAN      after the input ends, repeat its last frame for SPAN
                        with sensor noise
  --noise SIGMA         standard deviation of that noise, in grey levels
                        (default 2; 0 for none)
  --brightness-ramp A:B multiply the brightness by A at the first frame, by B at
                        the last, linearly in between
  --exposure-step T:F   from T on, brightness and exposure time both jump by the
                        factor F (a sudden auto-exposure change)
  --grayscale-at T      from T on, frames lose their colour (a camera switching
                        to infrared night mode)
  --exposure-settle T:F:N
                        from T on, exposure time and brightness move by the
                        factor F over N frames, in equal steps of light (auto-
                        exposure converging: 20s:0.5:8)
  --light-switch T:F    from T on, the room's light is F times what it was: the
                        brightness jumps, the exposure time stays (a lamp switched
                        on, F > 1, or off); add --exposure-settle from T + 1 for
                        the auto-exposure's answer
  --sensor-noise SIGMA  noise of SIGMA grey levels on every sample of every frame,
                        the input's own too (replaces --noise on held frames)
  --screen SOURCE:X,Y,W,H
                        a screen in view playing SOURCE (a video, a folder of
                        images, or a camera dump with --screen-raw), one of its
                        frames per frame handed over, looping, scaled into the
                        rectangle X,Y,W,H given as fractions of the frame (0 to 1
                        from the top left): a television. It is part of the room,
                        so the light probes act on it too
  --screen-raw WxH      the screen's SOURCE is a camera dump of frames this size
                        (layout from its name, else nv21)
  The metadata's exposure time follows --exposure-step and --exposure-settle,
  from --exposure or from each frame's exposure in the camera log.
  On a camera dump the probes work on the YUV samples: the gain scales luma and
  the chroma's distance from grey, the infrared switch makes the chroma grey.

Truth and scores
  --truth FILE          CSV of what really happened: a header start,end,label,note
                        and one interval a row, e.g. "10s,89.5s,moving,walk-in";
                        label moving (someone there) or nuisance (motion that must
                        not count: leaves, a screen). Scores the replay: for each
                        moving interval that begins in DETECT_MOTION the time to
                        the first motion report, or a miss; false motion (reports
                        and seconds of filtered motion outside moving intervals);
                        the time from the end of the last moving interval to the
                        first absence report; absence reported while something
                        moves. Printed, drawn as a band on the timeline
  --tolerance N         frames after a moving interval in which motion is not
                        false (default 16: the ring compares each frame with the
                        one 14 frames back, and the filter holds 10 of its 12
                        votes for two more)
  --scores FILE         the scores as JSON

Output
  --guard-csv FILE      with guards: one row per analysed frame of what they did
                        (moved and needed area, which guard acted, light
                        mode, measured noise, threshold, gain, lag)
  --csv FILE            one row per frame: frame, time_s (seconds from the first
                        frame handed over), timestamp_ms (as handed to detect():
                        the input's own clock, as report_ts), state, status,
                        status_name, confidence, report_ts, motion_detected,
                        motion_score, vote, rect_count, rects, processed,
                        dropped, new_report, fresh (0 when the status the host
                        reads was decided before the last state change),
                        window_votes and window_length (the filter's window,
                        "10 of 12"), since_motion_ms (the absence timer),
                        lens_moving, detect_us
  --plot FILE.png       timeline picture: filter score with the 0.8 line,
                        per-frame votes, frame hand-over, reported status
                        (hatched while stale) and state, reports marked
  --annotate PATH       annotated frames with the motion rectangles: a video when
                        PATH ends in .mp4, .avi or .mkv, else a folder of PNGs
  --save-dump FILE.nv21  every frame handed over, exactly as detect() got it
                        (probes, held frames and screen included), as a camera
                        dump in the replay's layout, with its camera log FILE.csv
                        (timestamps, the exposure times handed over, the lens):
                        replayed with --raw WxH (and the same --row-padding or
                        --row-stride) and no probes, it gives the same replay.
                        Ends in .nv21, .nv12, .i420, .yv12 or .yuv
  --contact-sheet FILE.png
                        one picture with every Nth annotated frame
  --sheet-every N       N for the contact sheet (default: about 24 tiles)
  --library-log FILE    keep the library's own standard output (state changes,
                        "Absence Detected @ ..." lines) in FILE; "-" leaves it on
                        standard output. By default it is discarded.
  --no-progress         no progress bar (it is shown only on a terminal anyway)
  -h, --help            this text
  --version             the version of the hdsml library

Before anything is read, every output is checked: none may name an input (the
video or dump, its camera log, the truth, the configuration), and each one's
folder must exist and be writable. Outputs are written under temporary names
beside them and put in place only when the replay succeeds, so a failed run
leaves none behind. Times in every output count in seconds from the first frame
handed over; the CSV keeps the input's own clock too (timestamp_ms).

Motion rectangles, per-frame votes and the filter's window are known only with
--pace lockstep: they are read from the motion detector while its thread is
idle, between two frames. With the other paces those CSV columns stay empty and
no boxes are drawn; the filter score of each frame that was analysed is still
reported.

Exit status: 0 on success, 1 when the input, the configuration or an output
cannot be used, 2 on a bad command line, 128 + the signal when Ctrl-C (130),
SIGTERM or SIGHUP stopped it: then no output is written.
)";
}

namespace {

// "x,y,x,y,x,y...": at least three points, each coordinate from 0 to 1.
std::vector<double> parseMask(const std::string& option, const std::string& text) {
  std::vector<double> xy;
  size_t start = 0;
  for (;;) {
    const size_t comma = text.find(',', start);
    xy.push_back(parseNumber(option, text.substr(start, comma - start), 0.0, 1.0));
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  if (xy.size() % 2 != 0 || xy.size() < 6)
    throw UsageError(option + ": '" + text +
                     "' is not a polygon: give at least 3 points as x,y,x,y,x,y");
  return xy;
}

TimeSpec parseTime(const std::string& option, const std::string& text) {
  try {
    return TimeSpec::parse(text, option);
  } catch (const std::invalid_argument& e) {
    throw UsageError(e.what());
  }
}

// Splits "A:B" at its last colon, so that "1.5s:2" works.
std::pair<std::string, std::string> splitPair(const std::string& option, const std::string& text,
                                              const char* form) {
  const size_t colon = text.rfind(':');
  if (colon == std::string::npos || colon == 0 || colon + 1 == text.size())
    throw UsageError(option + ": '" + text + "' is not of the form " + form);
  return {text.substr(0, colon), text.substr(colon + 1)};
}

// "WxH" with even sides from 2 to `max`, as 4:2:0 needs.
std::pair<int, int> parseSize(const std::string& option, const std::string& text, int max) {
  const size_t x = text.find('x');
  if (x == std::string::npos) throw UsageError(option + ": '" + text + "' is not WxH (320x240)");
  const int w = static_cast<int>(parseWholeNumber(option, text.substr(0, x), 2, max));
  const int h = static_cast<int>(parseWholeNumber(option, text.substr(x + 1), 2, max));
  if (w % 2 != 0 || h % 2 != 0)
    throw UsageError(option + ": width and height must be even (4:2:0 chroma)");
  return {w, h};
}

// A scene probe's value, its parse errors as usage errors.
template <typename Parse>
auto sceneValue(Parse parse, const std::string& option, const std::string& text) {
  try {
    return parse(option, text);
  } catch (const std::invalid_argument& e) {
    throw UsageError(e.what());
  }
}

// The options, each with what it sets in `o`.
OptionTable replayOptionTable(ReplayOptions& o) {
  OptionTable table;
  table.flags = {{"--debug", [&] { o.debug = true; }},
                 {"--no-progress", [&] { o.progress = false; }}};
  table.withValue = {
      {"--config", [&](auto&, auto& v) { o.configPath = v; }},
      {"--guards", [&](auto&, auto& v) { o.guardsPath = v; }},
      {"--mask", [&](auto& opt, auto& v) { o.masks.push_back(parseMask(opt, v)); }},
      {"--guard",
       [&](auto& opt, auto& v) {
         const size_t eq = v.find('=');
         if (eq == std::string::npos || eq == 0 || eq + 1 == v.size() ||
             v.compare(0, eq, "masks") == 0)
           throw UsageError(opt + ": '" + v +
                            "' is not KEY=VALUE (sensitivity=70); masks go with --mask");
         o.guardKeys.emplace_back(v.substr(0, eq), v.substr(eq + 1));
       }},
      {"--motion-res",
       [&](auto& opt, auto& v) {
         std::tie(o.motionWidth, o.motionHeight) = parseSize(opt, v, 4096);
       }},
      {"--raw",
       [&](auto& opt, auto& v) { std::tie(o.rawWidth, o.rawHeight) = parseSize(opt, v, 1 << 16); }},
      {"--row-stride",
       [&](auto& opt, auto& v) {
         const size_t colon = v.find(':');
         o.rowStride = static_cast<int>(parseWholeNumber(opt, v.substr(0, colon), 2, 1 << 20));
         if (colon != std::string::npos)
           o.chromaRowStride =
               static_cast<int>(parseWholeNumber(opt, v.substr(colon + 1), 1, 1 << 20));
       }},
      {"--camera-log", [&](auto&, auto& v) { o.cameraLog = v; }},
      {"--truth", [&](auto&, auto& v) { o.truthPath = v; }},
      {"--tolerance",
       [&](auto& opt, auto& v) {
         o.toleranceFrames = static_cast<int>(parseWholeNumber(opt, v, 0, 10000));
       }},
      {"--scores", [&](auto&, auto& v) { o.scoresPath = v; }},
      {"--hold-first",
       [&](auto& opt, auto& v) {
         o.holdFirst = true;
         o.holdFirstSpan = parseTime(opt, v);
       }},
      {"--layout",
       [&](auto& opt, auto& v) {
         try {
           o.layout = hdsml::parseLayout(v);
           o.layoutGiven = true;
         } catch (const std::invalid_argument& e) {
           throw UsageError(opt + ": " + e.what());
         }
       }},
      {"--row-padding",
       [&](auto& opt, auto& v) {
         o.rowPadding = static_cast<int>(parseWholeNumber(opt, v, 0, 4096));
       }},
      {"--fps", [&](auto& opt, auto& v) { o.fps = parseNumber(opt, v, 0.1, 1000.0); }},
      {"--frames",
       [&](auto& opt, auto& v) { o.maxFrames = parseWholeNumber(opt, v, 1, LONG_MAX); }},
      {"--exposure",
       [&](auto& opt, auto& v) {
         o.exposure = static_cast<int>(parseWholeNumber(opt, v, 1, INT_MAX));
         o.exposureGiven = true;
       }},
      {"--states",
       [&](auto&, auto& v) {
         try {
           o.states = StateScript::parse(v);
         } catch (const std::invalid_argument& e) {
           throw UsageError(e.what());
         }
       }},
      {"--absence-ms",
       [&](auto& opt, auto& v) { o.absenceMs = parseWholeNumber(opt, v, 0, 1000000000000LL); }},
      {"--pace",
       [&](auto& opt, auto& v) {
         if (v == "lockstep")
           o.pace = Pace::Lockstep;
         else if (v == "realtime")
           o.pace = Pace::Realtime;
         else if (v == "free")
           o.pace = Pace::Free;
         else
           throw UsageError(opt + ": '" + v + "' is not lockstep, realtime or free");
       }},
      {"--wait-ms", [&](auto& opt, auto& v) { o.waitMs = parseNumber(opt, v, 1.0, 600000.0); }},
      {"--hold-last",
       [&](auto& opt, auto& v) {
         o.holdLast = true;
         o.holdSpan = parseTime(opt, v);
       }},
      {"--noise", [&](auto& opt, auto& v) { o.noiseSigma = parseNumber(opt, v, 0.0, 100.0); }},
      {"--brightness-ramp",
       [&](auto& opt, auto& v) {
         const auto [a, b] = splitPair(opt, v, "FROM:TO (1:0.3)");
         o.brightnessRamp = true;
         o.rampFrom = parseNumber(opt, a, 0.0, 100.0);
         o.rampTo = parseNumber(opt, b, 0.0, 100.0);
       }},
      {"--exposure-step",
       [&](auto& opt, auto& v) {
         const auto [t, f] = splitPair(opt, v, "T:FACTOR (20s:2)");
         o.exposureStep = true;
         o.stepAt = parseTime(opt, t);
         o.stepFactor = parseNumber(opt, f, 0.01, 100.0);
       }},
      {"--grayscale-at",
       [&](auto& opt, auto& v) {
         o.grayscale = true;
         o.grayscaleAt = parseTime(opt, v);
       }},
      {"--exposure-settle",
       [&](auto& opt, auto& v) { o.scene.settle = sceneValue(parseExposureSettle, opt, v); }},
      {"--light-switch",
       [&](auto& opt, auto& v) { o.scene.lightSwitch = sceneValue(parseLightSwitch, opt, v); }},
      {"--sensor-noise",
       [&](auto& opt, auto& v) { o.scene.sensorNoise = parseNumber(opt, v, 0.0, 100.0); }},
      {"--screen",
       [&](auto& opt, auto& v) {
         const ScreenSpec parsed = sceneValue(parseScreen, opt, v);
         const ScreenSpec before = o.scene.screen.value_or(ScreenSpec());
         o.scene.screen = parsed;
         o.scene.screen->rawWidth = before.rawWidth;
         o.scene.screen->rawHeight = before.rawHeight;
       }},
      {"--screen-raw",
       [&](auto& opt, auto& v) {
         if (!o.scene.screen) o.scene.screen = ScreenSpec();
         std::tie(o.scene.screen->rawWidth, o.scene.screen->rawHeight) = parseSize(opt, v, 1 << 16);
       }},
      {"--csv", [&](auto&, auto& v) { o.csvPath = v; }},
      {"--guard-csv", [&](auto&, auto& v) { o.guardCsvPath = v; }},
      {"--plot", [&](auto&, auto& v) { o.plotPath = v; }},
      {"--annotate", [&](auto&, auto& v) { o.annotatePath = v; }},
      {"--save-dump", [&](auto&, auto& v) { o.saveDumpPath = v; }},
      {"--contact-sheet", [&](auto&, auto& v) { o.sheetPath = v; }},
      {"--sheet-every",
       [&](auto& opt, auto& v) {
         o.sheetEvery = static_cast<int>(parseWholeNumber(opt, v, 1, INT_MAX));
       }},
      {"--library-log", [&](auto&, auto& v) { o.libraryLog = v; }},
  };
  return table;
}

}  // namespace

ReplayOptions parseReplayOptions(int argc, const char* const argv[]) {
  ReplayOptions o;
  const Arguments a = readArguments(argc, argv, replayOptionTable(o));
  o.help = a.help;
  o.version = a.version;
  if (a.help || a.version) return o;
  const std::vector<std::string> positional = a.allOperands();
  if (positional.empty()) throw UsageError("no input given (a video file or a folder of images)");
  if (positional.size() > 1)
    throw UsageError("only one input can be replayed at a time (got '" + positional[0] + "' and '" +
                     positional[1] + "')");
  o.input = positional[0];
  if (!o.configPath.empty() && o.motionWidth > 0)
    throw UsageError("--config and --motion-res exclude each other");
  if (!o.scoresPath.empty() && o.truthPath.empty())
    throw UsageError("--scores needs a --truth file to score against");
  if (o.rowStride > 0 && o.rawWidth == 0)
    throw UsageError("--row-stride describes the rows of a camera dump: give --raw WxH too");
  if (o.rowStride > 0 && o.rowPadding > 0)
    throw UsageError("--row-stride and --row-padding exclude each other");
  if (o.scene.screen && o.scene.screen->source.empty())
    throw UsageError(
        "--screen-raw describes the frames of a --screen: give --screen SOURCE:X,Y,W,H too");
  return o;
}

}  // namespace hdsreplay
