// Helpers shared by the fuzz targets: a fatal check, a count of the library's
// log lines, and filling large buffers from a short pattern of the input.
#ifndef DOFRA_TESTS_FUZZ_FUZZ_SUPPORT_H
#define DOFRA_TESTS_FUZZ_FUZZ_SUPPORT_H

#include <android/log.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

// Aborts, so that libFuzzer keeps the input as a crash.
inline void Require(bool ok, const char* what) {
  if (!ok) fprintf(stderr, "fuzz check failed: %s\n", what), abort();
}
#define FUZZ_CHECK(cond) Require((cond), #cond)

// Counts log lines instead of printing them, which would slow fuzzing down.
inline int g_log_lines = 0;
inline void StartLogCount() {
  host_log_set_sink([](int, const char*, const char*, void*) { ++g_log_lines; }, nullptr);
  g_log_lines = 0;
}

// Copies the leading fixed-size record (missing bytes read as 0); returns
// the bytes it took.
template <typename T>
size_t TakeRecord(const uint8_t* data, size_t size, T* record) {
  const size_t n = size < sizeof(T) ? size : sizeof(T);
  memset(record, 0, sizeof(T));
  memcpy(record, data, n);
  return n;
}

// Fills count elements by repeating pattern (zeros when it is too short).
template <typename T>
void Repeat(const uint8_t* pattern, size_t pattern_bytes, T* out, size_t count) {
  const size_t n = pattern_bytes / sizeof(T);
  memset(out, 0, count * sizeof(T));
  for (size_t i = 0; n > 0 && i < count; ++i)
    memcpy(&out[i], pattern + i % n * sizeof(T), sizeof(T));
}

#endif  // DOFRA_TESTS_FUZZ_FUZZ_SUPPORT_H
