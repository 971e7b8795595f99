#include "tools/output/GuardCsv.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>

#include "tools/output/GuardPlot.h"

namespace hdsreplay {

std::string guardCsvRow(const ReplayRecord& r) {
  const hdsml::GuardReport& g = *r.guard;
  char row[320];
  std::snprintf(row, sizeof row, "%ld,%lld,%d,%d,%d,%d,%d,%d,%s,%d,%d,%.2f,%.1f,%.4f,%d", r.frame,
                static_cast<long long>(r.timestampMs), g.compared, g.voted, g.vote, g.movedArea,
                g.largestRegion, g.neededArea, guardActionNames(g.acted).c_str(), g.lightMode,
                g.lightSwitched, g.noise, g.threshold, g.gain, g.lag);
  return row;
}

void writeGuardCsv(const std::string& path, const std::vector<ReplayRecord>& records) {
  std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "w"), std::fclose);
  if (!file) throw std::runtime_error("cannot write CSV '" + path + "': " + std::strerror(errno));
  std::fputs(
      "frame,timestamp_ms,compared,voted,vote,moved_area,largest_region,needed_area,acted,"
      "light_mode,light_switched,noise,threshold,gain,lag\n",
      file.get());
  for (const ReplayRecord& r : records)
    if (r.guard) std::fprintf(file.get(), "%s\n", guardCsvRow(r).c_str());
  if (std::ferror(file.get()) || std::fclose(file.release()) != 0)
    throw std::runtime_error("writing CSV '" + path + "' failed");
}

}  // namespace hdsreplay
