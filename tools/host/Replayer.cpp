#include "tools/host/Replayer.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>

#include "tests/support/YuvFrame.h"
#include "tools/evaluation/Scores.h"
#include "tools/evaluation/Truth.h"
#include "tools/host/ConfigFile.h"
#include "tools/host/Facade.h"
#include "tools/host/FrameLog.h"
#include "tools/host/GuardedConfig.h"
#include "tools/host/Host.h"
#include "tools/host/Pacer.h"
#include "tools/host/ReplayPlan.h"
#include "tools/host/RunReport.h"
#include "tools/host/StdoutRedirect.h"
#include "tools/input/CameraLog.h"
#include "tools/input/Footage.h"
#include "tools/input/FrameTransform.h"
#include "tools/input/InputFrames.h"
#include "tools/input/RawDumpCheck.h"
#include "tools/input/RawGeometry.h"
#include "tools/input/ScreenOverlay.h"
#include "tools/output/CsvWriter.h"
#include "tools/output/GuardCsv.h"
#include "tools/output/Interruption.h"
#include "tools/output/OutputGuard.h"
#include "tools/output/OutputPaths.h"
#include "tools/output/ProgressBar.h"
#include "tools/output/ReplaySummary.h"
#include "tools/output/SceneDumpWriter.h"
#include "tools/output/TimelinePlot.h"

namespace hdsreplay {

namespace {

using detector_wrapper::PresenceDetectorWrapper;

// The layout of a camera dump's frames, from --raw, --layout (else the dump's
// name), --row-stride or --row-padding; none without --raw.
std::optional<RawGeometry> rawGeometry(const ReplayOptions& o) {
  if (o.rawWidth == 0) return std::nullopt;
  const hdsml::YuvLayout layout =
      o.layoutGiven ? o.layout : layoutFromName(o.input).value_or(o.layout);
  if (o.rowStride == 0) return RawGeometry::padded(o.rawWidth, o.rawHeight, layout, o.rowPadding);
  try {
    return RawGeometry::strided(o.rawWidth, o.rawHeight, layout, o.rowStride, o.chromaRowStride);
  } catch (const std::invalid_argument& e) {
    throw std::runtime_error(std::string("--row-stride: ") + e.what());
  }
}

// The screen in view (--screen), or none.
std::unique_ptr<ScreenOverlay> screenOverlay(const ReplayOptions& o) {
  if (!o.scene.screen) return nullptr;
  const ScreenSpec& s = *o.scene.screen;
  std::optional<RawGeometry> raw;
  if (s.rawWidth > 0)
    raw = RawGeometry::padded(s.rawWidth, s.rawHeight,
                              layoutFromName(s.source).value_or(hdsml::YuvLayout::NV21), 0);
  return std::make_unique<ScreenOverlay>(s.source, raw, s.rect);
}

void writeText(const std::string& path, const std::string& text, const char* what) {
  std::ofstream out(path);
  out << text;
  out.close();
  if (!out) throw std::runtime_error(std::string("cannot write ") + what + " '" + path + "'");
}

void warnUnreached(const ReplayPlan& plan, long total) {
  for (const std::string& what : plan.unreached(total))
    std::fprintf(stderr, "hds-replay: warning: %s\n", what.c_str());
}

// Hands the held and input frames to the facade one at a time: each with the
// probes applied, in the camera's layout, with what the camera logged, at its pace.
void replayFrames(const ReplayOptions& o, const ReplayPlan& plan, Footage& footage, Host& host,
                  const Pacer& pacer, FrameLog& log, ProgressBar& progress, SceneDumpWriter* dump) {
  const FrameTransform transform(plan.probes);
  std::unique_ptr<ScreenOverlay> screen = screenOverlay(o);
  hdsml::YuvFrame packed, withScreen, changed;
  while (footage.advance()) {
    throwIfInterrupted();
    const long i = footage.index();
    const int64_t ts = plan.clock.timestampMs(i);
    host.enterStates(i, ts);
    const CameraLog::Entry* logged = plan.logged(footage.inputIndex());
    const Host::Metadata metadata{
        transform.exposure(
            i, logged && logged->exposureNs && !o.exposureGiven ? *logged->exposureNs : o.exposure),
        !footage.held() && logged && logged->lensMoving};
    const SourceFrame& source = footage.frame();
    if (!source.raw) packed = hdsml::packYuv(source.bgr, o.layout, o.rowPadding);
    const hdsml::YuvFrame* scene = source.raw ? &source.yuv : &packed;
    if (screen) {
      screen->composite(*scene, i, withScreen);
      scene = &withScreen;
    }
    const hdsml::YuvFrame& yuv =
        transform.apply(*scene, i, footage.held(), changed) ? changed : *scene;
    if (dump) dump->add(yuv, ts, metadata.exposureNs, metadata.lensMoving);
    pacer.waitForFrame(i);
    ReplayRecord record = host.handOver(yuv, metadata, i, ts);
    record.timeMs = plan.clock.relativeMs(i);
    record.stillLead = footage.part() == Footage::Part::Lead;
    record.stillTail = footage.part() == Footage::Part::Tail;
    log.add(record, log.wantsFrames() ? hdsml::unpackYuv(yuv) : cv::Mat());
    progress.update(i + 1, std::string("state ") + stateShortName(host.state()) + ", status " +
                               statusName(host.facadeStatus()));
  }
}

// Every file the replay reads, and every output checked against them.
// The camera log SceneDumpWriter writes beside a dump; empty for no dump.
std::string sceneDumpLog(const std::string& dumpPath) {
  return dumpPath.empty() ? std::string()
                          : std::filesystem::path(dumpPath).replace_extension(".csv").string();
}

void guardOutputs(const ReplayOptions& o, const std::string& cameraLog) {
  OutputGuard guard;
  guard.input(o.input, "input");
  guard.input(cameraLog, "camera log");
  guard.input(o.truthPath, "truth");
  guard.input(o.configPath, "configuration");
  guard.input(o.guardsPath, "guards");
  if (o.scene.screen) guard.input(o.scene.screen->source, "screen");
  guard.output(o.csvPath, "CSV");
  guard.output(o.scoresPath, "scores");
  guard.output(o.plotPath, "timeline");
  guard.output(o.annotatePath, "annotated frames", !isVideoPath(o.annotatePath));
  guard.output(o.sheetPath, "contact sheet");
  guard.output(o.libraryLog == "-" ? std::string() : o.libraryLog, "library log");
  guard.output(o.guardCsvPath, "guard CSV");
  guard.output(o.saveDumpPath, "scene dump");
  guard.output(sceneDumpLog(o.saveDumpPath), "scene dump's camera log");
}

// A camera log describes every frame of its dump, no more and no fewer.
void checkLogCoversInput(const CameraLog& log, const FrameSource& source) {
  const long frames = source.frameCount();
  const long rows = static_cast<long>(log.entries().size());
  if (frames < 0 || rows == frames) return;
  const std::string counts = "camera log '" + log.path() + "' lists " + std::to_string(rows) +
                             " frames; the input holds " + std::to_string(frames);
  // A video's header may count a frame or two it cannot decode; a dump's size does not lie.
  if (source.kind() != "video" || rows < frames)
    throw std::runtime_error(counts + ": a log belongs to its input, row for row");
  std::fprintf(stderr, "hds-replay: warning: %s\n", counts.c_str());
}

// A video that ends before the frame count its header gives is likely cut short.
void warnShortInput(const ReplayOptions& o, const InputFrames& input) {
  const long declared = input.source().frameCount();
  const long read = input.framesRead();
  if (input.source().kind() != "video" || declared <= read) return;
  if (o.maxFrames >= 0 && read >= o.maxFrames) return;
  std::fprintf(stderr, "hds-replay: warning: %s\n",
               endedEarlyWarning(o.input, read, declared).c_str());
}

}  // namespace

int Replayer::run() {
  const ReplayOptions& o = options_;
  cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_ERROR);

  const std::optional<RawGeometry> raw = rawGeometry(o);
  const std::string cameraLog = !o.cameraLog.empty() ? o.cameraLog
                                : raw                ? CameraLog::besideDump(o.input)
                                                     : std::string();
  // Before anything is read: no output may name an input, and every output's
  // folder must take it. Outputs go under temporary names until the end.
  guardOutputs(o, cameraLog);
  PendingOutputs pending;
  ReplayOptions written = o;
  written.csvPath = pending.add(o.csvPath);
  written.scoresPath = pending.add(o.scoresPath);
  written.plotPath = pending.add(o.plotPath);
  written.annotatePath = pending.add(o.annotatePath);
  written.sheetPath = pending.add(o.sheetPath);
  written.guardCsvPath = pending.add(o.guardCsvPath);
  written.saveDumpPath = pending.add(o.saveDumpPath);
  pending.add(sceneDumpLog(o.saveDumpPath));  // the writer names it after the dump's temporary

  InputFrames input(o.input, o.maxFrames, raw);
  if (raw)
    for (const std::string& warning : checkRawDump(o.input, *raw))
      std::fprintf(stderr, "hds-replay: warning: %s\n", warning.c_str());
  const double fps = frameRate(o, input.source());
  const ConfigFile config(o);
  const std::unique_ptr<GuardedConfig> guarded =
      o.guardsPath.empty() && o.masks.empty() && o.guardKeys.empty()
          ? nullptr
          : std::make_unique<GuardedConfig>(config.path(), o.guardsPath, o.masks, o.guardKeys);
  const std::string& configPath = guarded ? guarded->path() : config.path();
  if (o.absenceMs >= 0) ::setenv("PERSIST_HDS_CV_ABSENCE", std::to_string(o.absenceMs).c_str(), 1);
  std::optional<CameraLog> logged;
  if (!cameraLog.empty()) {
    logged = CameraLog::load(cameraLog);
    checkLogCoversInput(*logged, input.source());
  }
  const ReplayPlan plan = planReplay(o, input.source().frameCount(), fps, std::move(logged));

  const std::optional<Truth> truth =
      o.truthPath.empty() ? std::nullopt : std::optional(Truth::load(o.truthPath));
  const std::vector<TruthSpan> spans =
      truth ? truth->resolve(plan.clock) : std::vector<TruthSpan>();

  // Outputs are opened before the replay so that a bad path fails at once.
  std::unique_ptr<CsvWriter> csv;
  if (!o.csvPath.empty()) csv = std::make_unique<CsvWriter>(written.csvPath);
  checkPicturePath(o.plotPath, "timeline");
  checkPicturePath(o.sheetPath, "contact sheet");
  checkAnnotationPath(o.annotatePath);
  std::unique_ptr<SceneDumpWriter> dump;
  if (!o.saveDumpPath.empty())
    dump = std::make_unique<SceneDumpWriter>(written.saveDumpPath, o.input, cameraLog, raw,
                                             o.layout, o.rowPadding);
  if (plan.plannedTotal >= 0) warnUnreached(plan, plan.plannedTotal);

  StdoutRedirect libraryOutput(o.libraryLog);
  Facade det(configPath, o.debug);
  const cv::Size motionRes(det.client()->motionResW, det.client()->motionResH);
  const long long absenceThresholdMs = det.client()->absenceThreshold;
  FrameLog log(written, plan, det.client(), motionRes);
  ProgressBar progress(o.progress, plan.plannedTotal);
  Host host(det, o, plan);
  const Pacer pacer(o.pace, plan.fps);
  Footage footage(input, plan.leadFrames, plan.tailFrames);
  replayFrames(o, plan, footage, host, pacer, log, progress, dump.get());
  if (dump) dump->close();
  log.finish();
  if (plan.plannedTotal < 0) warnUnreached(plan, static_cast<long>(log.records().size()));
  const double runSeconds = pacer.elapsedSeconds();
  progress.finish();
  warnShortInput(o, input);

  // The library's last words (teardown) still go to its log.
  PresenceDetectorWrapper::destroy();
  libraryOutput.restore();

  if (csv) {
    for (const ReplayRecord& r : log.records()) csv->write(r);
    csv->close();
  }
  if (!o.guardCsvPath.empty()) writeGuardCsv(written.guardCsvPath, log.records());
  log.closeAnnotations();
  RunFacts facts;
  facts.kind = input.source().kind();
  facts.layout =
      raw ? raw->describe()
          : hdsml::layoutName(o.layout) +
                (o.rowPadding ? " + " + std::to_string(o.rowPadding) + " bytes row padding"
                              : std::string());
  facts.cameraLog = cameraLog;
  facts.frameSize = input.last().size();
  facts.motionRes = motionRes;
  facts.absenceThresholdMs = absenceThresholdMs;
  facts.framesRead = input.framesRead();
  std::optional<Scores> scores;
  if (truth) {
    scores = Scores::compute(log.records(), spans, static_cast<double>(absenceThresholdMs),
                             o.toleranceFrames);
    scores->truthPath = o.truthPath;
    if (!o.scoresPath.empty()) writeText(written.scoresPath, scores->json(), "scores");
  }
  if (!o.plotPath.empty()) {
    TimelineInfo info = timelineInfo(o, plan, facts);
    if (scores) {
      info.truth = scores->marks();
      info.falseMotionMs = scores->falseMotionMs;
      info.absenceErrorsMs = scores->absenceErrorMs;
    }
    writeTimeline(written.plotPath, log.records(), info);
  }
  log.writeSheet();
  pending.commitAll();
  printSummary(o, summaryHeader(o, plan, facts),
               ReplaySummary::compute(log.records(), input.framesRead(), runSeconds),
               scores ? scores->format() : std::string());
  return 0;
}

}  // namespace hdsreplay
