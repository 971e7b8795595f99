#include "tools/Replayer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <thread>
#include <utility>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>

#include "client/HDSMLClient.h"
#include "client/camera_metadata.h"
#include "tests/support/ClientProbe.h"
#include "tests/support/YuvFrame.h"
#include "tools/CsvWriter.h"
#include "tools/FrameAnnotator.h"
#include "tools/FrameSource.h"
#include "tools/FrameTransform.h"
#include "tools/ProgressBar.h"
#include "tools/ReplaySummary.h"
#include "tools/TimelinePlot.h"
#include "wrapper/PresenceDetectorWrapper.h"

#ifndef HDS_REPLAY_DATA_DIR
#define HDS_REPLAY_DATA_DIR "../share/hdsml"
#endif

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using detector_wrapper::PresenceDetectorWrapper;

constexpr const char* kDefaultConfigName = "hdsml-default.json";

// The configuration beside the binary (the build tree copies it there), else
// the installed one, found relative to the binary (bin/../share/hdsml) so that
// an installed tree works wherever it is. When neither exists, the installed
// place is named in the error.
std::string defaultConfigPath() {
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (ec) return kDefaultConfigName;
  const fs::path beside = exe.parent_path() / kDefaultConfigName;
  if (fs::exists(beside, ec)) return beside.string();
  return (exe.parent_path() / HDS_REPLAY_DATA_DIR / kDefaultConfigName).lexically_normal().string();
}

// A configuration file written for --motion-res, removed again on exit.
class TemporaryConfig {
 public:
  TemporaryConfig(int width, int height) {
    path_ =
        (fs::temp_directory_path() / ("hds-replay-" + std::to_string(::getpid()) + "-config.json"))
            .string();
    std::ofstream out(path_);
    out << "{\n  \"vantor\": {\n    \"motionResW\": " << width
        << ",\n    \"motionResH\": " << height << "\n  }\n}\n";
    if (!out) throw std::runtime_error("cannot write a temporary configuration to " + path_);
  }
  ~TemporaryConfig() { std::remove(path_.c_str()); }
  TemporaryConfig(const TemporaryConfig&) = delete;
  TemporaryConfig& operator=(const TemporaryConfig&) = delete;
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// The configuration file the library is initialised with: one written for
// --motion-res, else --config, else the default. Checked here so that a file
// that cannot be read is reported with the reason, not as a rejected one.
class ConfigFile {
 public:
  explicit ConfigFile(const ReplayOptions& o) : path_(o.configPath) {
    if (o.motionWidth > 0) {
      temporary_ = std::make_unique<TemporaryConfig>(o.motionWidth, o.motionHeight);
      path_ = temporary_->path();
    } else if (path_.empty()) {
      path_ = defaultConfigPath();
    }
    if (FILE* f = std::fopen(path_.c_str(), "r"))
      std::fclose(f);
    else
      throw std::runtime_error("cannot read configuration '" + path_ +
                               "': " + std::strerror(errno));
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  std::unique_ptr<TemporaryConfig> temporary_;
};

// Points file descriptor 1 somewhere else while the library runs: the library
// prints its lifecycle and per-decision lines with printf/puts, which would break
// the progress bar and bury the summary. Restored on destruction.
class StdoutRedirect {
 public:
  explicit StdoutRedirect(const std::string& target) {
    if (target == "-") return;
    const std::string file = target.empty() ? "/dev/null" : target;
    const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
      throw std::runtime_error("cannot write library log '" + file + "': " + std::strerror(errno));
    std::fflush(stdout);
    saved_ = ::dup(STDOUT_FILENO);
    ::dup2(fd, STDOUT_FILENO);
    ::close(fd);
  }
  ~StdoutRedirect() { restore(); }
  StdoutRedirect(const StdoutRedirect&) = delete;
  StdoutRedirect& operator=(const StdoutRedirect&) = delete;
  void restore() {
    if (saved_ < 0) return;
    std::fflush(stdout);
    ::dup2(saved_, STDOUT_FILENO);
    ::close(saved_);
    saved_ = -1;
  }

 private:
  int saved_ = -1;
};

// Owns the process-wide facade for one replay.
class Facade {
 public:
  Facade(const std::string& configPath, bool debug) {
    try {
      det_ = PresenceDetectorWrapper::initialize(configPath.c_str(), debug);
    } catch (const std::exception& e) {
      PresenceDetectorWrapper::destroy();
      throw std::runtime_error("configuration '" + configPath + "' was rejected: " + e.what());
    }
    if (det_ == nullptr || det_->client == nullptr) {
      PresenceDetectorWrapper::destroy();
      throw std::runtime_error("the library could not open configuration '" + configPath + "'");
    }
  }
  ~Facade() { PresenceDetectorWrapper::destroy(); }
  Facade(const Facade&) = delete;
  Facade& operator=(const Facade&) = delete;

  PresenceDetectorWrapper* operator->() const { return det_; }
  HDSMLClient* client() const { return det_->client; }

 private:
  PresenceDetectorWrapper* det_ = nullptr;
};

// The motion status starts all zero, so a frame stamped 0 is told apart from
// the initial record by the calendar time that every write sets.
bool written(const MotionStatus& status) { return status.wallClockSeconds != 0; }

// Lockstep: waits until the motion thread has released every frame record,
// which it does only after publishing its decision on the frame.
bool waitUntilIdle(HDSMLClient* client, double waitMs) {
  return hdsml::waitForIdle(*client, std::chrono::microseconds(static_cast<long>(waitMs * 1000)));
}

// Rectangles of the last analysed frame, which the client keeps. Only valid
// while the motion thread is idle: it rewrites them for every frame.
std::vector<cv::Rect> lastRectangles(const HDSMLClient* client) {
  std::vector<cv::Rect> rects;
  for (const auto& region : client->regions) rects.push_back(region.first);
  return rects;
}

// Watches the motion status from a thread of its own when frames are not handed
// over in lockstep, so that frames analysed between two detect() calls are seen.
class MotionWatcher {
 public:
  struct Seen {
    bool motionDetected;
    float score;
  };

  explicit MotionWatcher(HDSMLClient* client) : client_(client) {
    thread_ = std::thread([this] {
      bool any = false;
      int64_t last = 0;
      while (!stop_.load()) {
        const MotionStatus s = client_->queryMotionDetector();
        if (written(s) && (!any || s.frameTimestamp != last)) {
          any = true;
          last = s.frameTimestamp;
          std::lock_guard<std::mutex> hold(mutex_);
          seen_[s.frameTimestamp] = {s.motionDetected, s.filterScore};
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
      }
    });
  }
  ~MotionWatcher() { stop(); }
  MotionWatcher(const MotionWatcher&) = delete;
  MotionWatcher& operator=(const MotionWatcher&) = delete;

  // Stops watching; a last look catches a frame finished since the last poll.
  void stop() {
    stop_.store(true);
    if (!thread_.joinable()) return;
    thread_.join();
    const MotionStatus s = client_->queryMotionDetector();
    std::lock_guard<std::mutex> hold(mutex_);
    if (written(s)) seen_[s.frameTimestamp] = {s.motionDetected, s.filterScore};
  }
  bool find(int64_t timestamp, Seen& out) {
    std::lock_guard<std::mutex> hold(mutex_);
    const auto it = seen_.find(timestamp);
    if (it == seen_.end()) return false;
    out = it->second;
    return true;
  }

 private:
  HDSMLClient* client_;
  std::atomic<bool> stop_{false};
  std::mutex mutex_;  // guards seen_
  std::map<int64_t, Seen> seen_;
  std::thread thread_;
};

std::string baseName(const std::string& path) {
  std::string name = fs::path(path).filename().string();
  return name.empty() ? path : name;
}

std::string describeStates(const std::vector<StateScript::Change>& changes, double fps) {
  std::string text;
  for (const auto& c : changes) {
    if (!text.empty()) text += ", ";
    char buf[96];
    std::snprintf(buf, sizeof buf, "%s from %.1f s", c.stateName.c_str(),
                  frameTimestampMs(c.frame, fps) / 1000.0);
    text += buf;
  }
  return text;
}

// The rate of the replay's timestamps: --fps, else the input's own, else 30.
double frameRate(const ReplayOptions& o, const FrameSource& source) {
  double fps = o.fps;
  if (fps <= 0.0) fps = source.fps();
  if (fps <= 0.0) {
    fps = 30.0;
    if (source.kind() == "video")
      std::fprintf(stderr,
                   "hds-replay: the video declares no frame rate; assuming 30 fps "
                   "(set --fps)\n");
  }
  return fps;
}

// What the replay will hand over, fixed before the first frame.
struct ReplayPlan {
  double fps = 30.0;
  long tailFrames = 0;     // still-tail frames after the input
  long plannedTotal = -1;  // frames to hand over in all; -1 when the input does not say
  TransformPlan probes;
  std::vector<StateScript::Change> changes;
};

// `inputFrames` is what the input declares, -1 when it cannot tell.
ReplayPlan planReplay(const ReplayOptions& o, long inputFrames, double fps) {
  if (o.maxFrames > 0 && (inputFrames < 0 || inputFrames > o.maxFrames)) inputFrames = o.maxFrames;
  ReplayPlan plan;
  plan.fps = fps;
  plan.tailFrames = o.holdLast ? o.holdSpan.frameCount(fps) : 0;
  plan.plannedTotal = inputFrames >= 0 ? inputFrames + plan.tailFrames : -1;
  if (o.brightnessRamp && plan.plannedTotal < 0)
    throw std::runtime_error(
        "--brightness-ramp needs to know the number of frames, which this "
        "input does not say: add --frames");
  TransformPlan& probes = plan.probes;
  probes.ramp = o.brightnessRamp;
  probes.rampFrom = o.rampFrom;
  probes.rampTo = o.rampTo;
  probes.rampFrames = plan.plannedTotal;
  probes.stepFrame = o.exposureStep ? o.stepAt.frameIndex(fps) : -1;
  probes.stepFactor = o.stepFactor;
  probes.grayscaleFrame = o.grayscale ? o.grayscaleAt.frameIndex(fps) : -1;
  probes.noiseSigma = o.noiseSigma;
  probes.baseExposure = o.exposure;
  plan.changes = o.states.resolve(fps);
  return plan;
}

// Fails early when a picture is to be written into a folder that does not exist.
void checkWritable(const std::string& path, const char* what) {
  if (path.empty()) return;
  const fs::path parent = fs::path(path).parent_path();
  std::error_code ec;
  if (!parent.empty() && !fs::is_directory(parent, ec))
    throw std::runtime_error(std::string("cannot write ") + what + " '" + path + "': no folder '" +
                             parent.string() + "'");
}

// The input's frames in order, up to --frames, cropped to even sizes for 4:2:0.
class InputFrames {
 public:
  explicit InputFrames(const ReplayOptions& o)
      : source_(FrameSource::open(o.input)), name_(o.input), maxFrames_(o.maxFrames) {}
  InputFrames(const InputFrames&) = delete;
  InputFrames& operator=(const InputFrames&) = delete;

  const FrameSource& source() const { return *source_; }

  // Reads the next frame into last(). False once the input or --frames is used
  // up; last() then keeps the final frame, which the still tail repeats.
  bool next() {
    if (maxFrames_ >= 0 && framesRead_ >= maxFrames_) return false;
    if (!source_->read(decoded_)) {
      if (framesRead_ == 0) throw std::runtime_error("'" + name_ + "' holds no frames");
      return false;
    }
    ++framesRead_;
    const int w = decoded_.cols & ~1, h = decoded_.rows & ~1;
    if (w < 2 || h < 2) throw std::runtime_error("frames must be at least 2x2 pixels");
    // 4:2:0 needs even sizes; a stray odd column or row is cropped.
    last_ = (w == decoded_.cols && h == decoded_.rows) ? decoded_
                                                       : decoded_(cv::Rect(0, 0, w, h)).clone();
    return true;
  }
  const cv::Mat& last() const { return last_; }
  long framesRead() const { return framesRead_; }

 private:
  const std::unique_ptr<FrameSource> source_;
  const std::string name_;
  const long maxFrames_;  // -1: no limit
  long framesRead_ = 0;
  cv::Mat decoded_;
  cv::Mat last_;
};

// The camera application's side of the facade: sets the detection state as the
// script says, hands each frame to detect() and reads back what the host sees.
class Host {
 public:
  Host(const Facade& det, const ReplayOptions& o, const ReplayPlan& plan)
      : det_(det),
        client_(det.client()),
        lockstep_(o.pace == Pace::Lockstep),
        waitMs_(o.waitMs),
        fps_(plan.fps),
        changes_(plan.changes),
        previousReport_(det->outputFrameTimestamp),
        hostStatus_(det->status) {}

  // Calls stateChange() for every change due by `frame`.
  void enterStates(long frame, int64_t ts) {
    while (nextChange_ < changes_.size() && changes_[nextChange_].frame <= frame) {
      const StateScript::Change& c = changes_[nextChange_++];
      det_->stateChange(c.stateName.c_str(), static_cast<int>(std::lround(fps_)), ts, "hds-replay");
      state_ = det_->state;
    }
  }

  // Hands one frame to detect() and records what came of it.
  ReplayRecord handOver(const hdsml::YuvFrame& yuv, int exposure, long frame, int64_t ts,
                        bool stillTail) {
    metadata_.exposureTime = exposure;
    const auto t0 = Clock::now();
    det_->detect(yuv.y, yuv.u, yuv.v, yuv.width, yuv.height, yuv.yPixelStride, yuv.yRowStride,
                 yuv.uPixelStride, yuv.uRowStride, yuv.vPixelStride, yuv.vRowStride, ts, metadata_,
                 0);
    const auto t1 = Clock::now();

    ReplayRecord r;
    r.frame = frame;
    r.timestampMs = ts;
    r.state = state_;
    r.stillTail = stillTail;
    r.detectUs = std::chrono::duration<double, std::micro>(t1 - t0).count();
    // What the host reads: detect() copies the decision in force when it runs.
    // The motion thread may or may not have decided on this very frame by then,
    // so in lockstep the decision is read again once it has, which gives what
    // the host will read at its next detect() and keeps replays repeatable.
    PresenceOutput decision;
    decision.status = det_->status;
    decision.confidence = det_->confidence;
    decision.frameTimestamp = det_->outputFrameTimestamp;
    if (lockstep_) {
      if (state_ != 1) takeVerdict(r);  // DETECT_PRESENCE analyses nothing
      std::lock_guard<std::mutex> hold(client_->outputMutex);
      decision = client_->output;
    }
    show(decision, r);
    return r;
  }

  int state() const { return state_; }
  int facadeStatus() const { return det_->status; }

 private:
  // Lockstep: the frame is lent out until the motion thread has decided on it;
  // its verdict and rectangles are then read while the thread is idle.
  void takeVerdict(ReplayRecord& r) const {
    waitUntilIdle(client_, waitMs_);
    const MotionStatus status = client_->queryMotionDetector();
    if (!written(status) || status.frameTimestamp != r.timestampMs) return;
    r.processed = true;
    r.motionDetected = status.motionDetected;
    r.motionScore = status.filterScore;
    r.rects = lastRectangles(client_);
    r.rectsKnown = true;
    r.vote = r.rects.empty() ? 0 : 1;
  }

  // As the facade does: a decision made on a frame older than the last state
  // change is not shown to the host, whose status then stays as it was.
  void show(const PresenceOutput& decision, ReplayRecord& r) {
    const bool shown = decision.frameTimestamp >= det_->stateChangeTimestamp;
    if (shown) hostStatus_ = decision.status;
    r.status = hostStatus_;
    r.confidence = decision.confidence;
    r.reportTimestampMs = decision.frameTimestamp;
    r.newReport = shown && decision.frameTimestamp != previousReport_;
    previousReport_ = decision.frameTimestamp;
  }

  const Facade& det_;
  HDSMLClient* const client_;
  const bool lockstep_;
  const double waitMs_;
  const double fps_;
  const std::vector<StateScript::Change>& changes_;
  camera_metadata metadata_;
  size_t nextChange_ = 0;
  int state_ = 0;
  int64_t previousReport_;  // frame timestamp of the decision the host last read
  int hostStatus_;
};

std::unique_ptr<ContactSheet> makeContactSheet(const ReplayOptions& o, long plannedTotal,
                                               cv::Size motionRes) {
  if (o.sheetPath.empty()) return nullptr;
  int every = o.sheetEvery;
  if (every <= 0)
    every = plannedTotal > 0 ? static_cast<int>(std::max(1L, (plannedTotal + 24) / 25)) : 30;
  return std::make_unique<ContactSheet>(
      o.sheetPath, every, motionRes,
      baseName(o.input) + ": 1 frame in " + std::to_string(every) + ", " +
          (o.pace == Pace::Lockstep ? "motion rectangles in green"
                                    : "no rectangles (lockstep only)"));
}

// What the replay keeps of every frame it hands over: the record, and the frame
// itself for the annotated frames and the contact sheet. Without lockstep a
// frame's own vote is not known when detect() returns; a watcher collects the
// votes, and frames are drawn a few frames late so that it has seen theirs.
class FrameLog {
 public:
  FrameLog(const ReplayOptions& o, const ReplayPlan& plan, HDSMLClient* client, cv::Size motionRes)
      : client_(client), waitMs_(o.waitMs), annotationLag_(o.pace == Pace::Lockstep ? 0 : 8) {
    if (!o.annotatePath.empty())
      annotator_ = std::make_unique<AnnotationWriter>(o.annotatePath, plan.fps, motionRes);
    sheet_ = makeContactSheet(o, plan.plannedTotal, motionRes);
    if (o.pace != Pace::Lockstep) watcher_ = std::make_unique<MotionWatcher>(client);
    if (plan.plannedTotal > 0) records_.reserve(static_cast<size_t>(plan.plannedTotal));
  }
  FrameLog(const FrameLog&) = delete;
  FrameLog& operator=(const FrameLog&) = delete;

  // Records are added in frame order, frame 0 first.
  void add(const ReplayRecord& record, const cv::Mat& frame) {
    records_.push_back(record);
    if (!annotator_ && !sheet_) return;
    pendingFrames_.emplace_back(frame.clone(), record.frame);
    emitFrames(annotationLag_);
  }

  // After the last frame: lets the motion thread finish, draws the frames held
  // back and completes every record.
  void finish() {
    if (watcher_) {
      waitUntilIdle(client_, waitMs_);
      watcher_->stop();
    }
    emitFrames(0);
    for (ReplayRecord& r : records_) {
      takeWatchedVote(r);
      r.dropped = !r.processed && r.state != 1;  // DETECT_PRESENCE analyses nothing
    }
    watcher_.reset();
  }

  const std::vector<ReplayRecord>& records() const { return records_; }
  void closeAnnotations() {
    if (annotator_) annotator_->close();
  }
  void writeSheet() {
    if (sheet_) sheet_->write();
  }

 private:
  // Without lockstep, a frame counts as analysed once the watcher saw its vote.
  void takeWatchedVote(ReplayRecord& r) {
    MotionWatcher::Seen seen;
    if (!watcher_ || r.processed || !watcher_->find(r.timestampMs, seen)) return;
    r.processed = true;
    r.motionDetected = seen.motionDetected;
    r.motionScore = seen.score;
  }

  // Draws the frames held back, all but the newest `keep`.
  void emitFrames(size_t keep) {
    while (pendingFrames_.size() > keep) {
      auto& [frame, index] = pendingFrames_.front();
      ReplayRecord& r = records_[static_cast<size_t>(index)];
      takeWatchedVote(r);
      if (annotator_) annotator_->add(frame, r);
      if (sheet_) sheet_->add(frame, r);
      pendingFrames_.pop_front();
    }
  }

  HDSMLClient* const client_;
  const double waitMs_;
  const size_t annotationLag_;
  std::unique_ptr<AnnotationWriter> annotator_;
  std::unique_ptr<ContactSheet> sheet_;
  std::unique_ptr<MotionWatcher> watcher_;
  std::vector<ReplayRecord> records_;
  std::deque<std::pair<cv::Mat, long>> pendingFrames_;  // (frame, index), oldest first
};

// The replay's clock, started with the first frame. Under --pace realtime it
// holds each frame back until its time, as a live camera delivers them.
class Pacer {
 public:
  Pacer(Pace pace, double fps) : realtime_(pace == Pace::Realtime), periodUs_(1e6 / fps) {}

  void waitForFrame(long i) const {
    if (!realtime_) return;
    std::this_thread::sleep_until(start_ +
                                  std::chrono::microseconds(static_cast<long long>(i * periodUs_)));
  }
  double elapsedSeconds() const {
    return std::chrono::duration<double>(Clock::now() - start_).count();
  }

 private:
  const bool realtime_;
  const double periodUs_;
  const Clock::time_point start_ = Clock::now();
};

// Hands the input frames, then the still tail, to the facade one at a time:
// each with the probes applied, packed in the camera's layout, at its pace.
void replayFrames(const ReplayOptions& o, const ReplayPlan& plan, InputFrames& input, Host& host,
                  const Pacer& pacer, FrameLog& log, ProgressBar& progress) {
  const FrameTransform transform(plan.probes);
  cv::Mat seen;
  for (long i = 0;; ++i) {
    const bool stillTail = !input.next();
    if (stillTail && i >= input.framesRead() + plan.tailFrames) break;
    const int64_t ts = frameTimestampMs(i, plan.fps);
    host.enterStates(i, ts);
    transform.apply(input.last(), i, stillTail, seen);
    const hdsml::YuvFrame yuv = hdsml::packYuv(seen, o.layout, o.rowPadding);
    pacer.waitForFrame(i);
    log.add(host.handOver(yuv, transform.exposure(i), i, ts, stillTail), seen);
    progress.update(i + 1, std::string("state ") + stateShortName(host.state()) + ", status " +
                               statusName(host.facadeStatus()));
  }
}

// What the replay ran with, as the summary and the timeline describe it.
struct RunFacts {
  std::string kind;  // of the input: "video" or "images"
  cv::Size frameSize;
  cv::Size motionRes;
  long long absenceThresholdMs;
};

std::string summaryHeader(const ReplayOptions& o, const ReplayPlan& plan, const RunFacts& run) {
  char header[512];
  std::snprintf(
      header, sizeof header,
      "hds-replay: %s (%s, %dx%d, %.4g fps), %s%s, motion resolution %dx%d, pace %s\n"
      "  absence threshold %lld ms; %s\n",
      o.input.c_str(), run.kind.c_str(), run.frameSize.width, run.frameSize.height, plan.fps,
      hdsml::layoutName(o.layout),
      o.rowPadding ? (" + " + std::to_string(o.rowPadding) + " bytes row padding").c_str() : "",
      run.motionRes.width, run.motionRes.height, paceName(o.pace), run.absenceThresholdMs,
      describeStates(plan.changes, plan.fps).c_str());
  return header;
}

// The timeline's title and the events marked on it: the still tail and the probes.
TimelineInfo timelineInfo(const ReplayOptions& o, const ReplayPlan& plan, const RunFacts& run,
                          long framesRead) {
  TimelineInfo info;
  info.title = "hds-replay  " + baseName(o.input);
  char sub[256];
  std::snprintf(sub, sizeof sub,
                "%dx%d at %.4g fps, %s, motion resolution %dx%d, pace %s, absence threshold "
                "%.1f s",
                run.frameSize.width, run.frameSize.height, plan.fps, hdsml::layoutName(o.layout),
                run.motionRes.width, run.motionRes.height, paceName(o.pace),
                run.absenceThresholdMs / 1000.0);
  info.subtitle = sub;
  info.fps = plan.fps;
  if (plan.tailFrames > 0) info.events.emplace_back(framesRead, "still tail");
  if (plan.probes.stepFrame >= 0) {
    char buf[48];
    std::snprintf(buf, sizeof buf, "exposure x%.3g", plan.probes.stepFactor);
    info.events.emplace_back(plan.probes.stepFrame, buf);
  }
  if (plan.probes.grayscaleFrame >= 0)
    info.events.emplace_back(plan.probes.grayscaleFrame, "grayscale");
  return info;
}

void writeTimeline(const std::string& path, const std::vector<ReplayRecord>& records,
                   const TimelineInfo& info) {
  if (!cv::imwrite(path, renderTimeline(records, info), {cv::IMWRITE_PNG_COMPRESSION, 9}))
    throw std::runtime_error("cannot write timeline '" + path + "'");
}

void printSummary(const ReplayOptions& o, const std::string& header, const ReplaySummary& summary) {
  std::fputs(header.c_str(), stdout);
  std::fputs(summary.format().c_str(), stdout);
  for (const auto& [path, what] : std::vector<std::pair<std::string, const char*>>{
           {o.csvPath, "CSV"},
           {o.plotPath, "timeline"},
           {o.annotatePath, "annotated frames"},
           {o.sheetPath, "contact sheet"},
           {o.libraryLog == "-" ? std::string() : o.libraryLog, "library log"}}) {
    if (!path.empty()) std::printf("  %-17s %s\n", what, path.c_str());
  }
  std::fflush(stdout);
}

}  // namespace

int Replayer::run() {
  const ReplayOptions& o = options_;
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR);

  InputFrames input(o);
  const double fps = frameRate(o, input.source());
  const ConfigFile config(o);
  if (o.absenceMs >= 0) ::setenv("PERSIST_HDS_CV_ABSENCE", std::to_string(o.absenceMs).c_str(), 1);
  const ReplayPlan plan = planReplay(o, input.source().frameCount(), fps);

  // Outputs are opened before the replay so that a bad path fails at once.
  std::unique_ptr<CsvWriter> csv;
  if (!o.csvPath.empty()) csv = std::make_unique<CsvWriter>(o.csvPath);
  checkWritable(o.plotPath, "timeline");
  checkWritable(o.sheetPath, "contact sheet");

  StdoutRedirect libraryOutput(o.libraryLog);
  Facade det(config.path(), o.debug);
  const cv::Size motionRes(det.client()->motionResW, det.client()->motionResH);
  const long long absenceThresholdMs = det.client()->absenceThreshold;
  FrameLog log(o, plan, det.client(), motionRes);
  ProgressBar progress(o.progress, plan.plannedTotal);
  Host host(det, o, plan);
  const Pacer pacer(o.pace, fps);
  replayFrames(o, plan, input, host, pacer, log, progress);
  log.finish();
  const double runSeconds = pacer.elapsedSeconds();
  progress.finish();

  // The library's last words (teardown) still go to its log.
  PresenceDetectorWrapper::destroy();
  libraryOutput.restore();

  if (csv) {
    for (const ReplayRecord& r : log.records()) csv->write(r);
    csv->close();
  }
  log.closeAnnotations();
  const RunFacts facts{input.source().kind(), input.last().size(), motionRes, absenceThresholdMs};
  if (!o.plotPath.empty())
    writeTimeline(o.plotPath, log.records(), timelineInfo(o, plan, facts, input.framesRead()));
  log.writeSheet();
  printSummary(o, summaryHeader(o, plan, facts),
               ReplaySummary::compute(log.records(), input.framesRead(), runSeconds));
  return 0;
}

}  // namespace hdsreplay
