// The library's printf and puts, which every message of the library goes
// through to the sink of diagnostics/LogSink.h: one call, one message. Internal
// to the library (not exported, not installed).
#pragma once

#include "diagnostics/LogSink.h"

namespace hdsml {

void logPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));
void logPuts(const char* line);

}  // namespace hdsml
