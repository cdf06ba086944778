// Host stand-in for liblog: logcat-style lines on standard error, or a sink
// installed by the host program. Functions are out of line and exported so a
// program can interpose its own, as a device's platform does.
#include <android/log.h>

#include <atomic>
#include <cstdarg>
#include <cstdio>

namespace {
std::atomic<host_log_sink> g_sink{nullptr};
std::atomic<void*> g_user{nullptr};

char PriorityLetter(int prio) {
  static const char kLetters[] = "??VDIWEFS";
  return (prio >= 0 && prio <= ANDROID_LOG_SILENT) ? kLetters[prio] : '?';
}
}  // namespace

extern "C" void host_log_set_sink(host_log_sink sink, void* user) {
  g_user.store(user);
  g_sink.store(sink);
}

extern "C" int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
  char text[1024];
  va_list args;
  va_start(args, fmt);
  const int length = vsnprintf(text, sizeof(text), fmt, args);
  va_end(args);
  if (length < 0) return length;

  if (host_log_sink sink = g_sink.load()) {
    sink(prio, tag, text, g_user.load());
    return length;
  }
  // Logcat's brief format: "D/tag: message"; messages carry their own newline.
  const bool has_newline = length > 0 && text[(length < 1023 ? length : 1023) - 1] == '\n';
  fprintf(stderr, "%c/%s: %s%s", PriorityLetter(prio), tag ? tag : "", text,
          has_newline ? "" : "\n");
  return length;
}
