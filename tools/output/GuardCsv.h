// The scene guards' report of every analysed frame as CSV, for --guard-csv:
// frame, timestamp_ms, compared, voted, vote, moved_area, largest_region,
// needed_area, acted (guard names joined by '+'), light_mode, light_switched,
// noise, threshold, gain, lag. Frames without a report (not analysed, or not
// in lockstep) have no row. The replay's thread.
#pragma once

#include <string>
#include <vector>

#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

// Throws std::runtime_error when `path` cannot be written.
void writeGuardCsv(const std::string& path, const std::vector<ReplayRecord>& records);

// One row without its line end; exposed for the tests.
std::string guardCsvRow(const ReplayRecord& record);

}  // namespace hdsreplay
