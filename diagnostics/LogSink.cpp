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

// Called with sinkMutex held. Elsewhere than on Android the default sink
// never gets here: it prints the original call directly.
void deliver(Message& message) {
  if (sink.function != nullptr) {
    sink.function(sink.context, message.text(), message.length());
    return;
  }
#ifdef __ANDROID__
  // logcat ends each entry by itself; the line feed would show as an empty line.
  char* text = message.text();
  if (message.length() > 0 && text[message.length() - 1] == '\n') text[message.length() - 1] = '\0';
  __android_log_write(ANDROID_LOG_INFO, "hdsml", text);
#endif
}

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
#ifndef __ANDROID__
  // Standard output gets the very calls it always got.
  if (sink.function == nullptr) {
    std::vprintf(format, args);
    va_end(args);
    return;
  }
#endif
  Message message;
  message.format(format, args);
  va_end(args);
  deliver(message);
}

void logPuts(const char* line) {
  std::lock_guard<std::mutex> lock(sinkMutex);
#ifndef __ANDROID__
  if (sink.function == nullptr) {
    std::puts(line);
    return;
  }
#endif
  Message message;
  message.line(line);
  deliver(message);
}

}  // namespace hdsml
