// Everything hds-replay is told on its command line, checked and converted.
// parseReplayOptions() throws UsageError with a message meant for the user;
// replayUsage() is the --help text. Plain value type.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "tests/support/YuvFrame.h"
#include "tools/options/CommandLine.h"
#include "tools/options/SceneOptions.h"
#include "tools/options/StateScript.h"
#include "tools/options/TimeSpec.h"

namespace hdsreplay {

// Frames after a moving interval of the truth in which motion is not false:
// the ring compares each frame with the one 14 frames back, and the vote filter
// then holds 10 of its 12 votes for two more frames.
constexpr int kDefaultToleranceFrames = 16;

enum class Pace { Lockstep, Realtime, Free };
const char* paceName(Pace pace);

struct ReplayOptions {
  std::string input;       // video file, folder of images, or camera dump
  std::string configPath;  // empty: the default configuration
  std::string guardsPath;  // --guards: a "guards" object merged into the configuration
  std::vector<std::vector<double>> masks;  // --mask: polygons as x, y, x, y, ...
  std::vector<std::pair<std::string, std::string>> guardKeys;  // --guard KEY=VALUE
  std::string guardCsvPath;  // --guard-csv: the guards' report of every frame
  int motionWidth = 0;       // 0: as the configuration says
  int motionHeight = 0;
  hdsml::YuvLayout layout = hdsml::YuvLayout::NV21;
  bool layoutGiven = false;  // else a camera dump's name may say its layout
  int rowPadding = 0;
  int rawWidth = 0, rawHeight = 0;  // --raw: the input is a camera dump of frames this size
  int rowStride = 0;                // 0: rows padded by rowPadding
  int chromaRowStride = 0;          // 0: as the layout usually has it
  std::string cameraLog;            // empty: the one beside a dump, if any
  double fps = 0.0;                 // 0: the video's own rate
  int exposure = 10000000;          // camera_metadata::exposureTime handed with every frame
  bool exposureGiven = false;       // then it also overrides a camera log's
  StateScript states = StateScript::parse("0:DETECT_MOTION");
  long long absenceMs = -1;  // -1: leave the library's threshold alone
  Pace pace = Pace::Lockstep;
  double waitMs = 2000.0;  // lockstep: longest wait for one frame's analysis
  long maxFrames = -1;     // -1: the whole input
  bool holdFirst = false;
  TimeSpec holdFirstSpan;
  bool holdLast = false;
  TimeSpec holdSpan;
  double noiseSigma = 2.0;  // sensor noise on held frames
  bool brightnessRamp = false;
  double rampFrom = 1.0, rampTo = 1.0;
  bool exposureStep = false;
  TimeSpec stepAt;
  double stepFactor = 1.0;
  bool grayscale = false;
  TimeSpec grayscaleAt;
  SceneOptions scene;     // settling, a light switch, noise on every frame, a screen
  std::string truthPath;  // intervals of what really moved; empty: no scores
  int toleranceFrames = kDefaultToleranceFrames;
  std::string scoresPath;  // the scores as JSON
  std::string csvPath;
  std::string plotPath;
  std::string annotatePath;  // .mp4/.avi/.mkv: a video; anything else: a folder of PNGs
  std::string saveDumpPath;  // the frames handed over, as a camera dump with its log
  std::string sheetPath;     // contact sheet PNG
  int sheetEvery = 0;        // 0: chosen so that the sheet has about 24 tiles
  std::string libraryLog;    // empty: discard the library's own output; "-": keep on stdout
  bool debug = false;
  bool progress = true;
  bool help = false;
  bool version = false;
};

// argv[0] is the program name. Throws UsageError.
ReplayOptions parseReplayOptions(int argc, const char* const argv[]);
std::string replayUsage();

}  // namespace hdsreplay
