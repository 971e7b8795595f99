// Stand-in for the NDK's <android/log.h>, declaring only what the library
// calls, with the NDK's own signature. The Linux build compiles the
// Android-only branches against it (target hdsml_android_branches), so that a
// mistake there shows up before a phone build; nothing links against it.
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef enum android_LogPriority {
  ANDROID_LOG_UNKNOWN = 0,
  ANDROID_LOG_DEFAULT,
  ANDROID_LOG_VERBOSE,
  ANDROID_LOG_DEBUG,
  ANDROID_LOG_INFO,
  ANDROID_LOG_WARN,
  ANDROID_LOG_ERROR,
  ANDROID_LOG_FATAL,
  ANDROID_LOG_SILENT,
} android_LogPriority;

int __android_log_write(int prio, const char* tag, const char* text);

#ifdef __cplusplus
}
#endif
