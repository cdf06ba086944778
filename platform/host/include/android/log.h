// Host stand-in for the platform log library (liblog).
#ifndef DOFRA_HOST_ANDROID_LOG_H
#define DOFRA_HOST_ANDROID_LOG_H

#ifdef __cplusplus
extern "C" {
#endif

enum android_LogPriority {
  ANDROID_LOG_UNKNOWN = 0,
  ANDROID_LOG_DEFAULT,
  ANDROID_LOG_VERBOSE,
  ANDROID_LOG_DEBUG,
  ANDROID_LOG_INFO,
  ANDROID_LOG_WARN,
  ANDROID_LOG_ERROR,
  ANDROID_LOG_FATAL,
  ANDROID_LOG_SILENT,
};

int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

// Host only: receives every formatted message instead of standard error.
// A null sink restores the default logcat-style lines on standard error.
typedef void (*host_log_sink)(int prio, const char* tag, const char* text, void* user);
void host_log_set_sink(host_log_sink sink, void* user);

#ifdef __cplusplus
}
#endif

#endif  // DOFRA_HOST_ANDROID_LOG_H
