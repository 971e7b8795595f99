// Where the library's messages go: start-up lines, state changes, absence
// reports and, with the debug flag, per-frame lines. By default they are printed
// to standard output on every platform; on Android, where an app's standard
// output is lost, each is also written to logcat (tag "hdsml", priority INFO,
// final line feed removed). A host may install a sink of its own, which then
// replaces both and receives every message as one line, final line feed
// included, byte for byte as it would have been printed.
//
// Messages come from the host's threads (inside initialize, stateChange, pause,
// resume, detect and destroy) and from the library's motion thread. Deliveries
// are serialised: a sink is never called from two threads at once, and once
// setLogSink has returned the previous sink is not called again. A sink may be
// called while the library holds its own locks, so it must not call back into
// the library.
#pragma once

#include <cstddef>

#include "hdsml_export.h"

namespace hdsml {

// `text` is one line ending in '\n' and NUL-terminated; `length` counts its
// bytes without the NUL. `context` is the pointer given to setLogSink.
using LogSink = void (*)(void* context, const char* text, size_t length);

// Installs `sink` for every later message; null restores the default.
HDSML_EXPORT void setLogSink(LogSink sink, void* context);

}  // namespace hdsml
