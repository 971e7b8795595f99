#include "tools/output/CsvWriter.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>

namespace hdsreplay {

namespace {

const char* stateFullName(int state) {
  switch (state) {
    case 0:
      return "DETECT_MOTION";
    case 1:
      return "DETECT_PRESENCE";
    case 2:
      return "DETECT_ABSENCE";
  }
  return "?";
}

}  // namespace

CsvWriter::CsvWriter(const std::string& path) : path_(path) {
  file_ = std::fopen(path.c_str(), "w");
  if (file_ == nullptr)
    throw std::runtime_error("cannot write CSV '" + path + "': " + std::strerror(errno));
  std::fputs(header().c_str(), file_);
}

CsvWriter::~CsvWriter() {
  if (file_ != nullptr) std::fclose(file_);
}

std::string CsvWriter::header() {
  return "frame,time_s,timestamp_ms,state,status,status_name,confidence,report_ts,motion_detected,"
         "motion_score,vote,rect_count,rects,processed,dropped,new_report,fresh,window_votes,"
         "window_length,since_motion_ms,lens_moving,detect_us\n";
}

std::string CsvWriter::row(const ReplayRecord& r) {
  // Rectangles as "x y w h" separated by ';': no commas, so no quoting.
  std::string rects;
  for (const cv::Rect& rect : r.rects) {
    if (!rects.empty()) rects += ';';
    rects += std::to_string(rect.x) + ' ' + std::to_string(rect.y) + ' ' +
             std::to_string(rect.width) + ' ' + std::to_string(rect.height);
  }
  char motion[64] = "";
  if (r.processed)
    std::snprintf(motion, sizeof motion, "%d,%.6f", r.motionDetected ? 1 : 0, r.motionScore);
  else
    std::snprintf(motion, sizeof motion, ",");
  char window[32] = ",";
  if (r.windowVotes >= 0)
    std::snprintf(window, sizeof window, "%d,%d", r.windowVotes, r.windowLength);
  char since[24] = "";
  if (r.sinceMotionMs)
    std::snprintf(since, sizeof since, "%lld", static_cast<long long>(*r.sinceMotionMs));
  // The rectangles go between two fixed-size parts: a busy frame has many.
  char head[256], tail[160];
  std::snprintf(head, sizeof head, "%ld,%.3f,%lld,%s,%d,%s,%.6f,%lld,%s,%s,%s,", r.frame,
                static_cast<double>(r.timeMs) / 1000.0, static_cast<long long>(r.timestampMs), stateFullName(r.state), r.status,
                statusName(r.status), r.confidence, static_cast<long long>(r.reportTimestampMs),
                motion, r.vote < 0 ? "" : (r.vote ? "1" : "0"),
                r.rectsKnown ? std::to_string(r.rects.size()).c_str() : "");
  std::snprintf(tail, sizeof tail, ",%d,%d,%d,%d,%s,%s,%d,%.1f\n", r.processed ? 1 : 0,
                r.dropped ? 1 : 0, r.newReport ? 1 : 0, r.fresh ? 1 : 0, window, since,
                r.lensMoving ? 1 : 0, r.detectUs);
  return head + rects + tail;
}

void CsvWriter::write(const ReplayRecord& record) { std::fputs(row(record).c_str(), file_); }

void CsvWriter::close() {
  if (file_ == nullptr) return;
  const bool failed = std::ferror(file_) != 0;
  const int rc = std::fclose(file_);
  file_ = nullptr;
  if (failed || rc != 0) throw std::runtime_error("writing CSV '" + path_ + "' failed");
}

}  // namespace hdsreplay
