// Reads a replay's CSV, as CsvWriter wrote it, back into records: what the
// grid of settings draws and scores from each replay it ran. Columns are found
// by name; the rectangles are read as a count only. Plain functions.
#pragma once

#include <string>
#include <vector>

#include "tools/output/ReplayRecord.h"

namespace hdsreplay {

// Throws std::runtime_error naming the file and line when a row cannot be read.
std::vector<ReplayRecord> readReplayCsv(const std::string& path);
std::vector<ReplayRecord> parseReplayCsv(const std::string& text, const std::string& name);

}  // namespace hdsreplay
