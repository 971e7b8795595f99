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

#ifndef HDS_REPLAY_SOURCE_CONFIG
#define HDS_REPLAY_SOURCE_CONFIG ""
#endif

namespace hdsreplay {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using detector_wrapper::PresenceDetectorWrapper;

constexpr const char* kDefaultConfigName = "hdsml-default.json";

// The configuration shipped beside the binary (copied there by the build), else
// the one in the source tree the binary was built from.
std::string defaultConfigPath() {
  std::error_code ec;
  const fs::path exe = fs::read_symlink("/proc/self/exe", ec);
  if (!ec) {
    const fs::path beside = exe.parent_path() / kDefaultConfigName;
    if (fs::exists(beside, ec)) return beside.string();
  }
  return HDS_REPLAY_SOURCE_CONFIG;
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

}  // namespace

int Replayer::run() {
  const ReplayOptions& o = options_;
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR);

  std::unique_ptr<FrameSource> source = FrameSource::open(o.input);
  double fps = o.fps;
  if (fps <= 0.0) fps = source->fps();
  if (fps <= 0.0) {
    fps = 30.0;
    if (source->kind() == "video")
      std::fprintf(stderr,
                   "hds-replay: the video declares no frame rate; assuming 30 fps "
                   "(set --fps)\n");
  }

  std::unique_ptr<TemporaryConfig> temporaryConfig;
  std::string configPath = o.configPath;
  if (o.motionWidth > 0) {
    temporaryConfig = std::make_unique<TemporaryConfig>(o.motionWidth, o.motionHeight);
    configPath = temporaryConfig->path();
  } else if (configPath.empty()) {
    configPath = defaultConfigPath();
  }
  if (FILE* f = std::fopen(configPath.c_str(), "r"))
    std::fclose(f);
  else
    throw std::runtime_error("cannot read configuration '" + configPath +
                             "': " + std::strerror(errno));

  if (o.absenceMs >= 0) ::setenv("PERSIST_HDS_CV_ABSENCE", std::to_string(o.absenceMs).c_str(), 1);

  // Plan the replay: how many frames, when the state changes, what the probes do.
  long inputFrames = source->frameCount();
  if (o.maxFrames > 0 && (inputFrames < 0 || inputFrames > o.maxFrames)) inputFrames = o.maxFrames;
  const long tailFrames = o.holdLast ? o.holdSpan.frameCount(fps) : 0;
  const long plannedTotal = inputFrames >= 0 ? inputFrames + tailFrames : -1;
  if (o.brightnessRamp && plannedTotal < 0)
    throw std::runtime_error(
        "--brightness-ramp needs to know the number of frames, which this "
        "input does not say: add --frames");
  TransformPlan plan;
  plan.ramp = o.brightnessRamp;
  plan.rampFrom = o.rampFrom;
  plan.rampTo = o.rampTo;
  plan.rampFrames = plannedTotal;
  plan.stepFrame = o.exposureStep ? o.stepAt.frameIndex(fps) : -1;
  plan.stepFactor = o.stepFactor;
  plan.grayscaleFrame = o.grayscale ? o.grayscaleAt.frameIndex(fps) : -1;
  plan.noiseSigma = o.noiseSigma;
  plan.baseExposure = o.exposure;
  const FrameTransform transform(plan);
  const std::vector<StateScript::Change> changes = o.states.resolve(fps);

  // Outputs are opened before the replay so that a bad path fails at once.
  std::unique_ptr<CsvWriter> csv;
  if (!o.csvPath.empty()) csv = std::make_unique<CsvWriter>(o.csvPath);
  auto checkWritable = [](const std::string& path, const char* what) {
    if (path.empty()) return;
    const fs::path parent = fs::path(path).parent_path();
    std::error_code ec;
    if (!parent.empty() && !fs::is_directory(parent, ec))
      throw std::runtime_error(std::string("cannot write ") + what + " '" + path +
                               "': no folder '" + parent.string() + "'");
  };
  checkWritable(o.plotPath, "timeline");
  checkWritable(o.sheetPath, "contact sheet");

  StdoutRedirect libraryOutput(o.libraryLog);
  Facade det(configPath, o.debug);
  HDSMLClient* client = det.client();
  const cv::Size motionRes(client->motionResW, client->motionResH);
  const long long absenceThreshold = client->absenceThreshold;

  std::unique_ptr<AnnotationWriter> annotator;
  if (!o.annotatePath.empty())
    annotator = std::make_unique<AnnotationWriter>(o.annotatePath, fps, motionRes);
  std::unique_ptr<ContactSheet> sheet;
  if (!o.sheetPath.empty()) {
    int every = o.sheetEvery;
    if (every <= 0)
      every = plannedTotal > 0 ? static_cast<int>(std::max(1L, (plannedTotal + 24) / 25)) : 30;
    sheet = std::make_unique<ContactSheet>(
        o.sheetPath, every, motionRes,
        baseName(o.input) + ": 1 frame in " + std::to_string(every) + ", " +
            (o.pace == Pace::Lockstep ? "motion rectangles in green"
                                      : "no rectangles (lockstep only)"));
  }

  std::unique_ptr<MotionWatcher> watcher;
  if (o.pace != Pace::Lockstep) watcher = std::make_unique<MotionWatcher>(client);

  ProgressBar progress(o.progress, plannedTotal);
  std::vector<ReplayRecord> records;
  if (plannedTotal > 0) records.reserve(static_cast<size_t>(plannedTotal));

  // Annotation lags a few frames behind so that, without lockstep, the watcher
  // has seen the analysis of a frame before the frame is drawn.
  std::deque<std::pair<cv::Mat, long>> pendingFrames;
  const size_t annotationLag = o.pace == Pace::Lockstep ? 0 : 8;
  // Without lockstep, a frame counts as analysed once the watcher saw its vote.
  auto takeWatchedVote = [&](ReplayRecord& r) {
    MotionWatcher::Seen seen;
    if (!watcher || r.processed || !watcher->find(r.timestampMs, seen)) return;
    r.processed = true;
    r.motionDetected = seen.motionDetected;
    r.motionScore = seen.score;
  };
  auto emitFrames = [&](size_t keep) {
    while (pendingFrames.size() > keep) {
      auto& [frame, index] = pendingFrames.front();
      ReplayRecord& r = records[static_cast<size_t>(index)];
      takeWatchedVote(r);
      if (annotator) annotator->add(frame, r);
      if (sheet) sheet->add(frame, r);
      pendingFrames.pop_front();
    }
  };

  camera_metadata metadata;
  cv::Mat input, last, seen;
  long framesRead = 0;
  size_t nextChange = 0;
  int state = 0;
  int64_t previousReport = det->outputFrameTimestamp;
  int hostStatus = det->status;
  const auto start = Clock::now();
  const double periodUs = 1e6 / fps;

  for (long i = 0;; ++i) {
    bool tail = false;
    if (o.maxFrames < 0 || framesRead < o.maxFrames) {
      if (source->read(input)) {
        ++framesRead;
        const int w = input.cols & ~1, h = input.rows & ~1;
        if (w < 2 || h < 2) throw std::runtime_error("frames must be at least 2x2 pixels");
        // 4:2:0 needs even sizes; a stray odd column or row is cropped.
        last = (w == input.cols && h == input.rows) ? input : input(cv::Rect(0, 0, w, h)).clone();
      } else if (framesRead == 0) {
        throw std::runtime_error("'" + o.input + "' holds no frames");
      } else {
        tail = true;
      }
    } else {
      tail = true;
    }
    if (tail && i >= framesRead + tailFrames) break;

    const int64_t ts = frameTimestampMs(i, fps);
    while (nextChange < changes.size() && changes[nextChange].frame <= i) {
      const StateScript::Change& c = changes[nextChange++];
      det->stateChange(c.stateName.c_str(), static_cast<int>(std::lround(fps)), ts, "hds-replay");
      state = det->state;
    }

    transform.apply(last, i, tail, seen);
    const hdsml::YuvFrame yuv = hdsml::packYuv(seen, o.layout, o.rowPadding);
    metadata.exposureTime = transform.exposure(i);

    if (o.pace == Pace::Realtime) {
      const auto due = start + std::chrono::microseconds(static_cast<long long>(i * periodUs));
      std::this_thread::sleep_until(due);
    }
    const auto t0 = Clock::now();
    det->detect(yuv.y, yuv.u, yuv.v, yuv.width, yuv.height, yuv.yPixelStride, yuv.yRowStride,
                yuv.uPixelStride, yuv.uRowStride, yuv.vPixelStride, yuv.vRowStride, ts, metadata,
                0);
    const auto t1 = Clock::now();

    ReplayRecord r;
    r.frame = i;
    r.timestampMs = ts;
    r.state = state;
    r.stillTail = tail;
    r.detectUs = std::chrono::duration<double, std::micro>(t1 - t0).count();
    // What the host reads: detect() copies the decision in force when it runs.
    // The motion thread may or may not have decided on this very frame by then,
    // so in lockstep the decision is read again once it has, which gives what
    // the host will read at its next detect() and keeps replays repeatable.
    PresenceOutput decision;
    decision.status = det->status;
    decision.confidence = det->confidence;
    decision.frameTimestamp = det->outputFrameTimestamp;

    if (o.pace == Pace::Lockstep) {
      if (state != 1) {
        // The frame is lent out until the motion thread has decided on it.
        waitUntilIdle(client, o.waitMs);
        const MotionStatus status = client->queryMotionDetector();
        if (written(status) && status.frameTimestamp == ts) {
          r.processed = true;
          r.motionDetected = status.motionDetected;
          r.motionScore = status.filterScore;
          r.rects = lastRectangles(client);
          r.rectsKnown = true;
          r.vote = r.rects.empty() ? 0 : 1;
        }
      }
      std::lock_guard<std::mutex> hold(client->outputMutex);
      decision = client->output;
    }
    // As the facade does: a decision made on a frame older than the last state
    // change is not shown to the host, whose status then stays as it was.
    const bool shown = decision.frameTimestamp >= det->stateChangeTimestamp;
    if (shown) hostStatus = decision.status;
    r.status = hostStatus;
    r.confidence = decision.confidence;
    r.reportTimestampMs = decision.frameTimestamp;
    r.newReport = shown && decision.frameTimestamp != previousReport;
    previousReport = decision.frameTimestamp;
    records.push_back(r);

    if (annotator || sheet) {
      pendingFrames.emplace_back(seen.clone(), i);
      emitFrames(annotationLag);
    }
    progress.update(i + 1, std::string("state ") + stateShortName(state) + ", status " +
                               statusName(det->status));
  }

  if (watcher) {
    waitUntilIdle(client, o.waitMs);
    watcher->stop();
  }
  emitFrames(0);
  for (ReplayRecord& r : records) {
    takeWatchedVote(r);
    r.dropped = !r.processed && r.state != 1;
  }
  const double runSeconds = std::chrono::duration<double>(Clock::now() - start).count();
  progress.finish();
  watcher.reset();

  // The library's last words (teardown) still go to its log.
  PresenceDetectorWrapper::destroy();
  libraryOutput.restore();

  if (csv) {
    for (const ReplayRecord& r : records) csv->write(r);
    csv->close();
  }
  if (annotator) annotator->close();

  char header[512];
  std::snprintf(
      header, sizeof header,
      "hds-replay: %s (%s, %dx%d, %.4g fps), %s%s, motion resolution %dx%d, pace %s\n"
      "  absence threshold %lld ms; %s\n",
      o.input.c_str(), source->kind().c_str(), last.cols, last.rows, fps,
      hdsml::layoutName(o.layout),
      o.rowPadding ? (" + " + std::to_string(o.rowPadding) + " bytes row padding").c_str() : "",
      motionRes.width, motionRes.height, paceName(o.pace), absenceThreshold,
      describeStates(changes, fps).c_str());

  if (!o.plotPath.empty()) {
    TimelineInfo info;
    info.title = "hds-replay  " + baseName(o.input);
    char sub[256];
    std::snprintf(sub, sizeof sub,
                  "%dx%d at %.4g fps, %s, motion resolution %dx%d, pace %s, absence threshold "
                  "%.1f s",
                  last.cols, last.rows, fps, hdsml::layoutName(o.layout), motionRes.width,
                  motionRes.height, paceName(o.pace), absenceThreshold / 1000.0);
    info.subtitle = sub;
    info.fps = fps;
    if (tailFrames > 0) info.events.emplace_back(framesRead, "still tail");
    if (plan.stepFrame >= 0) {
      char buf[48];
      std::snprintf(buf, sizeof buf, "exposure x%.3g", plan.stepFactor);
      info.events.emplace_back(plan.stepFrame, buf);
    }
    if (plan.grayscaleFrame >= 0) info.events.emplace_back(plan.grayscaleFrame, "grayscale");
    if (!cv::imwrite(o.plotPath, renderTimeline(records, info), {cv::IMWRITE_PNG_COMPRESSION, 9}))
      throw std::runtime_error("cannot write timeline '" + o.plotPath + "'");
  }
  if (sheet) sheet->write();

  const ReplaySummary summary = ReplaySummary::compute(records, framesRead, runSeconds);
  std::fputs(header, stdout);
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
  return 0;
}

}  // namespace hdsreplay
