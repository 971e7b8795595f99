#include "diagnostics/Log.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>

#ifdef __ANDROID__
#include <android/log.h>
#endif

namespace hdsml {
namespace {

struct Sink {
  LogSink function = nullptr;
  void* context = nullptr;
};

// Held for every delivery, so that deliveries never overlap and setLogSink
// waits for one in progress.
std::mutex sinkMutex;
Sink sink;  // guarded by sinkMutex

// One formatted message. Messages fit the buffer on the stack, so a message per
// frame (absence reports, debug lines) allocates nothing; only an unusually
// long one (a long configuration path) goes to the heap.
class Message {
 public:
  void format(const char* format, va_list args) {
    va_list again;
    va_copy(again, args);
    const int n = std::vsnprintf(stack_, sizeof stack_, format, args);
    if (n >= static_cast<int>(sizeof stack_)) {
      heap_.resize(static_cast<size_t>(n) + 1);
      std::vsnprintf(&heap_[0], heap_.size(), format, again);
      text_ = &heap_[0];
    }
    va_end(again);
    length_ = n > 0 ? static_cast<size_t>(n) : 0;
    if (n < 0) stack_[0] = '\0';
  }

  // `line` and a line feed, as puts() prints them.
  void line(const char* line) {
    const size_t n = std::strlen(line);
    char* out = stack_;
    if (n + 2 > sizeof stack_) {
      heap_.resize(n + 2);
      out = text_ = &heap_[0];
    }
    std::memcpy(out, line, n);
    out[n] = '\n';
    out[n + 1] = '\0';
    length_ = n + 1;
  }

  char* text() { return text_; }
  size_t length() const { return length_; }

 private:
  char stack_[512];
  std::string heap_;
  char* text_ = stack_;
  size_t length_ = 0;
};

#ifdef __ANDROID__
// An app's standard output is lost on Android, so every message also goes to
// logcat, which ends each entry by itself: the line feed would show as an
// empty line. Called with sinkMutex held.
void alsoToLogcat(Message& message) {
  char* text = message.text();
  if (message.length() > 0 && text[message.length() - 1] == '\n') text[message.length() - 1] = '\0';
  __android_log_write(ANDROID_LOG_INFO, "hdsml", text);
}
#endif

}  // namespace

void setLogSink(LogSink function, void* context) {
  std::lock_guard<std::mutex> lock(sinkMutex);
  sink.function = function;
  sink.context = function != nullptr ? context : nullptr;
}

void logPrintf(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::lock_guard<std::mutex> lock(sinkMutex);
  if (sink.function != nullptr) {
    Message message;
    message.format(format, args);
    va_end(args);
    sink.function(sink.context, message.text(), message.length());
    return;
  }
#ifdef __ANDROID__
  Message message;
  va_list again;
  va_copy(again, args);
  message.format(format, again);
  va_end(again);
#endif
  // Standard output gets the very calls it always got, on every platform.
  std::vprintf(format, args);
  va_end(args);
#ifdef __ANDROID__
  alsoToLogcat(message);
#endif
}

void logPuts(const char* line) {
  std::lock_guard<std::mutex> lock(sinkMutex);
  if (sink.function != nullptr) {
    Message message;
    message.line(line);
    sink.function(sink.context, message.text(), message.length());
    return;
  }
  std::puts(line);
#ifdef __ANDROID__
  __android_log_write(ANDROID_LOG_INFO, "hdsml", line);
#endif
}

}  // namespace hdsml
